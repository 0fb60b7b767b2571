// The wave dataset's push path against the storage's own Write, on the same data.
// Rounds alternate between the two so that both see the same pool and disk state.
// The figure is the dataset's extra cost: push_overhead = dataset time / storage time - 1.
//
// The index summary's cost on the push path: a producer's pushes (1 MiB of samples, then
// their index columns at 100 samples each) into a dataset with the summary on against one
// with it off, rounds alternating which goes first:
//   summary_overhead_pct = time on / time off - 1.

#include <wavestore/wavestore.h>

#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "wave/basic_wave_dataset.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <numeric>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kBatchFloats = 1048576 / 4;
constexpr int kBatchesPerRound = 64;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

void BM_PushVsStorageWrite(benchmark::State& state) {
    std::vector<float> batch(kBatchFloats);
    std::iota(batch.begin(), batch.end(), 0.0f);
    double push_seconds = 0, write_seconds = 0;
    for (auto _ : state) {
        BasicWaveDataSet<float> dataset;
        dataset.FinishConfig(nullptr, nullptr, "disable_throttle");
        CStorage storage(CreateLocalFileCache(0), 4);
        storage.SetOption("enable_throttle", Vellum::Var(false));

        auto start = Clock::now();
        for (int i = 0; i < kBatchesPerRound; ++i) dataset.Push(batch.data(), batch.size());
        const double push = Seconds(start);
        start = Clock::now();
        for (int i = 0; i < kBatchesPerRound; ++i) storage.Write(batch.data(), batch.size());
        write_seconds += Seconds(start);
        push_seconds += push;
        state.SetIterationTime(push);
        dataset.Flush();
        storage.Sync();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBatchesPerRound * kBatchFloats * 4));
    state.counters["push_overhead_pct"] = 100.0 * (push_seconds / write_seconds - 1.0);
}
BENCHMARK(BM_PushVsStorageWrite)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);

void BM_PushWithSummaryOnVsOff(benchmark::State& state) {
    std::vector<float> batch(kBatchFloats);
    std::iota(batch.begin(), batch.end(), 0.0f);
    std::vector<MinMaxData<float>> columns(kBatchFloats / 100);
    for (std::size_t i = 0; i < columns.size(); ++i)
        columns[i] = {static_cast<float>(i), static_cast<float>(i) + 99.0f};
    double on_seconds = 0, off_seconds = 0;
    uint64_t round = 0;
    uint64_t summary_bytes = 0, index_bytes = 0;
    for (auto _ : state) {
        BasicWaveDataSet<float> on, off;
        on.FinishConfig(nullptr, nullptr, "disable_throttle");
        off.FinishConfig(nullptr, nullptr, "disable_throttle");
        off.SetIndexSummary(false);
        const auto push = [&](BasicWaveDataSet<float>& dataset) {
            const auto start = Clock::now();
            for (int i = 0; i < kBatchesPerRound; ++i) {
                dataset.Push(batch.data(), batch.size());
                dataset.Push(columns.data(), columns.size());
            }
            return Seconds(start);
        };
        double on_round, off_round;
        if (round++ % 2 == 0) {
            on_round = push(on);
            off_round = push(off);
        } else {
            off_round = push(off);
            on_round = push(on);
        }
        on_seconds += on_round;
        off_seconds += off_round;
        state.SetIterationTime(on_round);
        summary_bytes = on.IndexSummaryBytes();
        index_bytes = on.GetStorage("Index")->Count() * sizeof(MinMaxData<float>);
        on.Flush();
        off.Flush();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBatchesPerRound * kBatchFloats * 4));
    state.counters["summary_overhead_pct"] = 100.0 * (on_seconds / off_seconds - 1.0);
    state.counters["summary_bytes_per_index_byte"] =
        static_cast<double>(summary_bytes) / static_cast<double>(index_bytes);
}
BENCHMARK(BM_PushWithSummaryOnVsOff)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(40);

}  // namespace

int main(int argc, char** argv) {
    CLogger::DefaultLogger().SetLevel(LogLevel::Warning);
    CLocalSource scope("bench", GetRootLocal());
    InitDataSetModule(&scope, 16, 256, 1, 2);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
