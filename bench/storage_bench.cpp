// Block storage throughput, each figure as a ratio against a baseline of the same run:
//   append of float samples in 1 MiB batches          vs memcpy of the same bytes
//   a host's 768 MiB append, throttle on, warm pool     vs memcpy into touched memory
//   append of 4 GiB through a 256 MiB pool to a file  vs a plain sequential file write
//   Read / Request of a resident range                vs memcpy
//   Read / Request of a recycled range                vs pread of the same file bytes
//
// Run: build/release/bench/storage_bench [--benchmark_filter=...]
// WAVESTORE_BENCH_BIG_GIB sets the size of the big append (default 4), WAVESTORE_BENCH_RECYCLED_MIB
// the size of the storage that the recycled reads read from (default 1024, at least 512).

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <numeric>
#include <vector>

namespace {

using bench::ProjectFolder;

using Clock = std::chrono::steady_clock;
constexpr uint64_t kMiB = 1048576;
constexpr unsigned kPoolMiB = 256;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

std::vector<float> Batch(std::size_t floats) {
    std::vector<float> values(floats);
    std::iota(values.begin(), values.end(), 0.0f);
    return values;
}

uint64_t PeakRssBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

// Appends of 1 MiB batches into a storage without a channel, as a host makes them: the
// throttle on, the module's defaults. The first rounds fill the pool with fresh memory,
// later ones reuse recycled blocks; the baseline copies the same bytes into fresh memory
// for the first fill and into memory touched before for the steady state.
void AppendBench(benchmark::State& state, bool steady) {
    const auto batch = Batch(kMiB / 4);
    std::vector<float> warm(64 * batch.size(), 1.0f);
    if (steady) {
        // Fill the pool once, so that the timed rounds recycle warm blocks.
        CStorage filler(nullptr, 4);
        for (unsigned i = 0; i < 2 * kPoolMiB; ++i) filler.Write(batch.data(), batch.size());
    }
    double storage_seconds = 0, memcpy_seconds = 0;
    uint64_t bytes = 0;
    for (auto _ : state) {
        CStorage storage(nullptr, 4);
        auto start = Clock::now();
        for (int i = 0; i < 64; ++i) storage.Write(batch.data(), batch.size());
        const double elapsed = Seconds(start);
        std::unique_ptr<float[]> fresh(steady ? nullptr : new float[64 * batch.size()]);
        float* target = steady ? warm.data() : fresh.get();
        start = Clock::now();
        for (int i = 0; i < 64; ++i) {
            std::memcpy(target + i * batch.size(), batch.data(), kMiB);
            benchmark::DoNotOptimize(target);
            benchmark::ClobberMemory();
        }
        memcpy_seconds += Seconds(start);
        storage_seconds += elapsed;
        bytes += 64 * kMiB;
        state.SetIterationTime(elapsed);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["ratio_vs_memcpy"] = memcpy_seconds / storage_seconds;
}
void BM_AppendFirstFill(benchmark::State& state) { AppendBench(state, false); }
void BM_AppendSteady(benchmark::State& state) { AppendBench(state, true); }
BENCHMARK(BM_AppendFirstFill)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_AppendSteady)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);


// A plain sequential write of the same bytes, 1 MiB at a time, synced at the end.
double PlainFileWrite(uint64_t total) {
    const std::string path = ProjectFolder() + "/plain.bin";
    const auto batch = Batch(kMiB / 4);
    const auto start = Clock::now();
    const int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
    for (uint64_t done = 0; done < total; done += kMiB)
        if (::write(fd, batch.data(), kMiB) != static_cast<ssize_t>(kMiB)) break;
    ::fdatasync(fd);
    ::close(fd);
    const double elapsed = Seconds(start);
    std::filesystem::remove(path);
    return elapsed;
}

void BM_BigAppendToFileVsPlainWrite(benchmark::State& state) {
    const char* gib = std::getenv("WAVESTORE_BENCH_BIG_GIB");
    const uint64_t total = (gib ? std::strtoull(gib, nullptr, 10) : 4) * 1024 * kMiB;
    const auto batch = Batch(kMiB / 4);
    double store_seconds = 0, plain_seconds = 0;
    for (auto _ : state) {
        plain_seconds += PlainFileWrite(total);
        auto channel = CreateLocalFileCache(static_cast<int>(state.range(0)));
        auto start = Clock::now();
        {
            CStorage storage(channel, 4);
            for (uint64_t done = 0; done < total; done += kMiB) storage.Write(batch.data(), batch.size());
            storage.Sync();
            if (auto* file = dynamic_cast<IFileCache*>(channel.get())) file->Flush();
            const double elapsed = Seconds(start);
            store_seconds += elapsed;
            state.SetIterationTime(elapsed);
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(total * state.iterations()));
    state.counters["ratio_vs_plain_write"] = plain_seconds / store_seconds;
    state.counters["peak_rss_MiB"] = static_cast<double>(PeakRssBytes()) / kMiB;
    state.counters["pool_MiB"] = kPoolMiB;
}
// Argument: the managed file's format version (0 raw, 1 with header and block map).
BENCHMARK(BM_BigAppendToFileVsPlainWrite)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)->Arg(0)->Arg(1);

// Reads of 1 MiB ranges: resident ones against memcpy, recycled ones against pread.
void ReadBench(benchmark::State& state, bool recycled, bool request) {
    // The recycled storage outgrows the 256 MiB pool.
    const char* recycled_mib = std::getenv("WAVESTORE_BENCH_RECYCLED_MIB");
    const uint64_t recycled_size = std::max<uint64_t>(recycled_mib ? std::strtoull(recycled_mib, nullptr, 10) : 1024, 512);
    const uint64_t units = (recycled ? recycled_size : 32) * kMiB / 4;
    auto channel = CreateLocalFileCache(0);
    CStorage storage(channel, 4);
    const auto batch = Batch(kMiB / 4);
    for (uint64_t done = 0; done < units; done += batch.size()) storage.Write(batch.data(), batch.size());
    storage.Sync();
    const uint64_t window = kMiB / 4;
    std::vector<float> out(window), baseline(window);
    std::vector<float> resident = Batch(window);
    const int fd = ::open((ProjectFolder() + "/" + dynamic_cast<IFileCache*>(channel.get())->GetId()).c_str(),
                          O_RDONLY);
    double store_seconds = 0, base_seconds = 0;
    uint64_t round = 0, bytes = 0, views = 0;
    for (auto _ : state) {
        // Recycled: the start of the storage, pushed out by the later blocks.
        const uint64_t pos = recycled ? (round * 7 % 64) * window : (round % 16) * window;
        // The second read of the same file bytes finds them in the CPU's cache (two preads
        // in a row differ by a factor of 2.5): the two sides take turns at going first.
        const bool baseline_first = recycled && round % 2 == 1;
        ++round;
        auto baseline_read = [&] {
            const auto from = Clock::now();
            if (recycled) {
                if (::pread(fd, baseline.data(), window * 4, static_cast<off_t>(pos * 4)) < 0) state.SkipWithError("pread");
            } else {
                std::memcpy(baseline.data(), resident.data(), window * 4);
            }
            benchmark::DoNotOptimize(baseline.data());
            benchmark::ClobberMemory();
            base_seconds += Seconds(from);
        };
        if (baseline_first) baseline_read();
        auto start = Clock::now();
        uint64_t got = 0;
        if (request) {
            while (got < window) {
                RawData view = storage.Request(pos + got, window - got);
                ++views;
                if (view.IsNull()) break;
                // A view counts whole blocks: it may hold more than was asked for.
                const uint64_t n = std::min<uint64_t>(view.Count(), window - got);
                std::memcpy(out.data() + got, view.Ptr(), n * 4);
                got += n;
            }
        } else {
            got = storage.Read(pos, out.data(), window);
        }
        const double elapsed = Seconds(start);
        benchmark::DoNotOptimize(out.data());
        if (!baseline_first) baseline_read();
        store_seconds += elapsed;
        bytes += got * 4;
        state.SetIterationTime(elapsed);
        if (recycled) storage.DropCache();  // keep every round a load from the file
    }
    if (fd >= 0) ::close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters[recycled ? "ratio_vs_pread" : "ratio_vs_memcpy"] = base_seconds / store_seconds;
    if (request) state.counters["views_per_read"] = static_cast<double>(views) / static_cast<double>(round);
}
void BM_ReadResident(benchmark::State& state) { ReadBench(state, false, false); }
void BM_RequestResident(benchmark::State& state) { ReadBench(state, false, true); }
void BM_ReadRecycled(benchmark::State& state) { ReadBench(state, true, false); }
void BM_RequestRecycled(benchmark::State& state) { ReadBench(state, true, true); }
BENCHMARK(BM_ReadResident)->UseManualTime()->Iterations(200);
BENCHMARK(BM_RequestResident)->UseManualTime()->Iterations(200);
BENCHMARK(BM_ReadRecycled)->UseManualTime()->Iterations(100);
BENCHMARK(BM_RequestRecycled)->UseManualTime()->Iterations(100);

// Last, so that its touched buffer doesn't count in the big append's peak RSS.
// A host's long recording without a channel: 768 MiB in 1 MiB batches through the warm
// 256 MiB pool, throttle on, against memcpy of the same bytes into 768 MiB touched before.
void BM_AppendLongAsHost(benchmark::State& state) {
    constexpr uint64_t kBatches = 768;
    const auto batch = Batch(kMiB / 4);
    std::vector<float> touched(kBatches * batch.size(), 1.0f);
    {
        CStorage filler(nullptr, 4);
        for (unsigned i = 0; i < 2 * kPoolMiB; ++i) filler.Write(batch.data(), batch.size());
    }
    double storage_seconds = 0, memcpy_seconds = 0;
    for (auto _ : state) {
        CStorage storage(nullptr, 4);
        auto start = Clock::now();
        for (uint64_t i = 0; i < kBatches; ++i) storage.Write(batch.data(), batch.size());
        const double elapsed = Seconds(start);
        start = Clock::now();
        for (uint64_t i = 0; i < kBatches; ++i) {
            std::memcpy(touched.data() + i * batch.size(), batch.data(), kMiB);
            benchmark::DoNotOptimize(touched.data());
            benchmark::ClobberMemory();
        }
        memcpy_seconds += Seconds(start);
        storage_seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    state.SetBytesProcessed(static_cast<int64_t>(kBatches * kMiB * state.iterations()));
    state.counters["ratio_vs_memcpy"] = memcpy_seconds / storage_seconds;
}
BENCHMARK(BM_AppendLongAsHost)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    bench::Start({.pool_mib = kPoolMiB});
    return bench::RunAndCleanUp(argc, argv);
}
