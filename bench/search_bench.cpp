// Value search on float waves of 1e7, 1e8 and 1e9 samples at 1 MS/s, 100 samples per
// index entry, pushed by the producer helper (from 1e8 on they outgrow the 256 MiB pool
// and are read back from the cache files). Each wave stays below the value until its only
// crossing, 0.5 % before its end: a forward Find from the start goes to the last 1 %.
// The figures, in the same run:
//   ratio_raw_vs_index  a reader without an index (a raw scan) against the index walk
//                       with the index summary off (1e7 and 1e8 only);
//   ratio_off_vs_on     the index walk with the summary off against the same walk with it;
//   on_1e9_vs_1e7, off_1e9_vs_1e7   the search time at 1e9 against 1e7, both ways.
// Every search runs once before the timing.
//
// WAVESTORE_BENCH_MAX_SAMPLES limits the largest wave (default 1e9).
// Run: build/release/bench/search_bench

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "dataset/axis.h"
#include "reader/basic_wave_reader.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::ProjectFolder;
using bench::Scope;

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr double kValue = 5.0;

// The first sample above the value.
uint64_t Crossing(uint64_t samples) { return samples - samples / 200; }

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

// Noise in [0, 1) up to the crossing, in [10, 11) from there on.
void Generate(std::vector<float>& block, uint64_t from, uint64_t crossing) {
    uint32_t state = static_cast<uint32_t>(from * 2654435761u) | 1u;
    for (std::size_t i = 0; i < block.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        block[i] = static_cast<float>(state >> 8) / 16777216.0f + (from + i >= crossing ? 10.0f : 0.0f);
    }
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times.empty() ? 0.0 : times[times.size() / 2];
}

uint64_t MaxSamples() {
    const char* text = std::getenv("WAVESTORE_BENCH_MAX_SAMPLES");
    return text ? std::strtoull(text, nullptr, 10) : 1000000000ull;
}

struct Capture {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<float>* dataset = nullptr;

    uint64_t samples;

    explicit Capture(uint64_t count) : samples(count) {
        item.reset(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "capture"));
        IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
        item->AddChildItem(axis_item, "sizeAxis", true);
        IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
        axis->SetRatioOffset(0.0, kPeriod);
        axis->SetIndexStep(100);
        dataset = QueryInterface<BasicWaveDataSet<float>>(item.get()).get();
        dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
        // The index period as the reader reckons it, so that both agree on the entries.
        const double index_period = __internal::DataSetTool(item.get()).GetIndexStepTime();
        WaveProducer<float> producer(*dataset, kPeriod, index_period);
        std::vector<float> block(1 << 20);
        for (uint64_t done = 0; done < samples; done += block.size()) {
            block.resize(std::min<uint64_t>(block.size(), samples - done));
            Generate(block, done, Crossing(samples));
            producer.Append(block.data(), block.size());
        }
        producer.CloseRun();
        dataset->WaitIndexSummary();
    }
    template <class R>
    std::shared_ptr<IReader> Storage(const char* id) const {
        return std::make_shared<BaseStructReader<R>>(dataset->GetStorage(id));
    }
};

// Built on first use, one per size, released by main before the cache folder goes.
std::map<uint64_t, std::unique_ptr<Capture>> captures;
// Search times per size (summary on, off), for the ratios between sizes of one run.
std::map<uint64_t, std::pair<double, double>> search_times;

void BM_FindForward(benchmark::State& state) {
    const auto samples = static_cast<uint64_t>(state.range(0));
    if (samples > MaxSamples()) {
        state.SkipWithError("larger than WAVESTORE_BENCH_MAX_SAMPLES");
        return;
    }
    auto& slot = captures[samples];
    if (!slot) slot = std::make_unique<Capture>(samples);
    const Capture& capture = *slot;
    // The dataset's reader has the index summary; the second one walks every entry; the
    // third has no index and scans the samples.
    auto indexed = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    auto entry_walk = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    entry_walk->SetIndexSummary(nullptr);
    CBasicWaveReader<float> raw(capture.item.get(), capture.Storage<float>("Wave"), nullptr,
                                capture.Storage<ValidDataArea>("Area"));
    const bool with_raw = samples <= 100000000ull;
    // The sample before the crossing is nearer to the value than the one after it.
    const double expected = static_cast<double>(Crossing(samples) - 1) * kPeriod;
    const auto search = [&](CBasicWaveReader<float>& reader, double& seconds) {
        double found_at = -1;
        const auto start = Clock::now();
        const bool found = reader.Find(kValue, 0.0, found_at, true);
        seconds = Seconds(start);
        return found && std::abs(found_at - expected) <= 1e-9;
    };
    // The times compared are medians, which other work on the machine disturbs least.
    std::vector<double> on_times, off_times, scan_times;
    double elapsed = 0;
    // Each reader runs its searches in a phase of its own, after one untimed search, so
    // that none works on blocks another one brought in (the raw scan reads the whole wave).
    constexpr int kRounds = 5;
    if (with_raw) {
        for (int i = 0; i <= kRounds; ++i) {
            if (!search(raw, elapsed)) {
                state.SkipWithError("the raw scan misses the crossing");
                return;
            }
            if (i > 0) scan_times.push_back(elapsed);
        }
    }
    for (int i = 0; i <= kRounds; ++i) {
        if (!search(*entry_walk, elapsed)) {
            state.SkipWithError("the entry walk misses the crossing");
            return;
        }
        if (i > 0) off_times.push_back(elapsed);
    }
    if (!search(*indexed, elapsed)) {
        state.SkipWithError("the search with the index summary misses the crossing");
        return;
    }
    for (auto _ : state) {
        if (!search(*indexed, elapsed)) {
            state.SkipWithError("the search with the index summary misses the crossing");
            return;
        }
        on_times.push_back(elapsed);
        state.SetIterationTime(elapsed);
    }
    const double on = Median(on_times), off = Median(off_times), scan = Median(scan_times);
    state.counters["summary_on_ms"] = 1e3 * on;
    state.counters["summary_off_ms"] = 1e3 * off;
    state.counters["ratio_off_vs_on"] = off / on;
    if (with_raw) {
        state.counters["raw_scan_ms"] = 1e3 * scan;
        state.counters["ratio_raw_vs_index"] = scan / off;
    }
    search_times[samples] = {on, off};
    const auto small = search_times.find(10000000ull);
    if (samples == 1000000000ull && small != search_times.end()) {
        state.counters["on_1e9_vs_1e7"] = on / small->second.first;
        state.counters["off_1e9_vs_1e7"] = off / small->second.second;
    }
}
BENCHMARK(BM_FindForward)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Arg(10000000)
    ->Arg(100000000)
    ->Arg(1000000000)
    ->Iterations(100);

}  // namespace

int main(int argc, char** argv) {
    bench::Start();
    return bench::RunAndCleanUp(argc, argv, [] { captures.clear(); });
}
