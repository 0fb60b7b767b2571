// Resident memory of a storage fed ten times its pool against a slow disk that fills up
// half-way: the cache file's writes first sleep 500 us each, then fail as on a full disk.
// A 64 MiB pool (16 MiB expansions, 32 KiB blocks, 2 queued writes), 640 MiB appended in
// 1 MiB batches to one storage on a version-1 cache file.
//
//   peak_growth_mib          peak resident size (VmHWM, reset before the run) less the
//                            resident size before it
//   ratio_growth_vs_bound    peak_growth_mib / (pool + 64 MiB): at most 1 keeps the bound
//   ratio_peak_vs_baseline   peak resident size / resident size before the run
//   pool_mib                 the pool's size at the end
//   slow_seconds             time of the half on the slow disk (the writer's pace)

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "host/file_faults.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <benchmark/benchmark.h>

#include "process_memory.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {

using bench::ProjectFolder;
using bench::ResetPeak;
using bench::StatusKiB;

using Clock = std::chrono::steady_clock;
constexpr uint64_t kMiB = 1048576;
constexpr unsigned kPoolMiB = 64;

void BM_TenPoolsSlowThenFullDisk(benchmark::State& state) {
    std::atomic<bool> full{false};
    Tessel::SetFileFaultHook([&](Tessel::FileOperation op, const std::string& path) {
        if (op != Tessel::FileOperation::Write || path.find(".wsc") == std::string::npos) return false;
        if (full.load()) return true;
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        return false;
    });
    const uint64_t batches = 10 * kPoolMiB;
    std::vector<uint64_t> batch(kMiB / sizeof(uint64_t));
    double growth = 0, peak_ratio = 0, slow = 0;
    for (auto _ : state) {
        full = false;
        CStorage storage(CreateLocalFileCache(1), sizeof(uint64_t));
        const uint64_t before = StatusKiB("VmRSS");
        ResetPeak();
        const auto start = Clock::now();
        for (uint64_t b = 0; b < batches; ++b) {
            if (b == batches / 2) {
                slow = std::chrono::duration<double>(Clock::now() - start).count();
                full = true;
            }
            std::iota(batch.begin(), batch.end(), b * batch.size());
            storage.Write(batch.data(), batch.size());
        }
        storage.Sync();
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        const uint64_t peak = StatusKiB("VmHWM");
        growth = (static_cast<double>(peak) - static_cast<double>(before)) / 1024.0;
        peak_ratio = static_cast<double>(peak) / static_cast<double>(before);
        state.SetIterationTime(elapsed);
    }
    Tessel::SetFileFaultHook({});
    uint64_t pool = 0;
    GetDatasetMemoryInfo(&pool, nullptr, nullptr, nullptr);
    state.SetBytesProcessed(static_cast<int64_t>(batches * kMiB * state.iterations()));
    state.counters["peak_growth_mib"] = growth;
    state.counters["ratio_growth_vs_bound"] = growth / (kPoolMiB + 64.0);
    state.counters["ratio_peak_vs_baseline"] = peak_ratio;
    state.counters["pool_mib"] = static_cast<double>(pool) / kMiB;
    state.counters["slow_seconds"] = slow;
}
BENCHMARK(BM_TenPoolsSlowThenFullDisk)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    // Critical: the full disk's error comes once a pass.
    bench::Start({.pool_mib = kPoolMiB, .log_level = LogLevel::Critical});
    return bench::RunAndCleanUp(argc, argv);
}
