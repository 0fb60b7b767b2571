// The wave dataset's push path against the storage's own Write, on the same data.
// Rounds alternate between the two so that both see the same pool and disk state.
// The figure is the dataset's extra cost: push_overhead = dataset time / storage time - 1.
//
// The index summary's cost on the push path: a producer's pushes (1 MiB of samples, then
// their index columns at 100 samples each) into a dataset with the summary on and one with
// it off, rounds alternating which goes first. The column pushes are timed apart:
//   summary_overhead_pct = (column pushes on - column pushes off) / all pushes off;
//   summary_fold_pct     = the summary's folding of the same columns, timed alone, / all
//                          pushes off (the column pushes wait on block writes at times,
//                          which makes the first figure noisy; the second is its floor).

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "reader/index_summary.h"
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

// Rounds of 16 MiB per dataset, flushed and cleared after each, so that the pool never
// fills and no push waits for the disk.
constexpr int kSummaryBatches = 16;

void BM_PushWithSummaryOnVsOff(benchmark::State& state) {
    std::vector<float> batch(kBatchFloats);
    std::iota(batch.begin(), batch.end(), 0.0f);
    std::vector<MinMaxData<float>> columns(kBatchFloats / 100);
    for (std::size_t i = 0; i < columns.size(); ++i)
        columns[i] = {static_cast<float>(i), static_cast<float>(i) + 99.0f};
    // Sample pushes and column pushes are timed apart: the summary's work lies in the
    // column pushes, and the sample pushes, the bulk of the time, are the same for both.
    double samples_on = 0, samples_off = 0, columns_on = 0, columns_off = 0;
    uint64_t round = 0;
    uint64_t summary_bytes = 0, index_bytes = 0;
    // The same two datasets for all rounds, cleared after each: what is measured is the
    // steady push, not the making of the summary's storages.
    BasicWaveDataSet<float> on, off;
    on.FinishConfig(nullptr, nullptr, "disable_throttle");
    off.FinishConfig(nullptr, nullptr, "disable_throttle");
    off.SetIndexSummary(false);
    const auto push = [&](BasicWaveDataSet<float>& dataset, double& samples_seconds, double& columns_seconds) {
        double total = 0;
        for (int i = 0; i < kSummaryBatches; ++i) {
            auto start = Clock::now();
            dataset.Push(batch.data(), batch.size());
            const double samples = Seconds(start);
            start = Clock::now();
            dataset.Push(columns.data(), columns.size());
            const double pushed_columns = Seconds(start);
            samples_seconds += samples;
            columns_seconds += pushed_columns;
            total += samples + pushed_columns;
        }
        return total;
    };
    // The summary's own work on the same columns, timed alone: the same folding that the
    // dataset with the summary on does in its column pushes.
    IndexSummary<float> alone(off.GetStorage("Index"));
    double fold_seconds = 0;
    for (auto _ : state) {
        alone.Reset();
        const auto start = Clock::now();
        for (int i = 0; i < kSummaryBatches; ++i) alone.Append(columns.data(), columns.size());
        fold_seconds += Seconds(start);
        double on_round;
        if (round++ % 2 == 0) {
            on_round = push(on, samples_on, columns_on);
            push(off, samples_off, columns_off);
        } else {
            push(off, samples_off, columns_off);
            on_round = push(on, samples_on, columns_on);
        }
        state.SetIterationTime(on_round);
        summary_bytes = on.IndexSummaryBytes();
        index_bytes = on.GetStorage("Index")->Count() * sizeof(MinMaxData<float>);
        on.Flush();
        off.Flush();
        on.Clear();
        off.Clear();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSummaryBatches * kBatchFloats * 4));
    state.counters["columns_on_ms"] = 1e3 * columns_on / static_cast<double>(state.iterations());
    state.counters["columns_off_ms"] = 1e3 * columns_off / static_cast<double>(state.iterations());
    state.counters["summary_overhead_pct"] = 100.0 * (columns_on - columns_off) / (samples_off + columns_off);
    state.counters["summary_fold_pct"] = 100.0 * fold_seconds / (samples_off + columns_off);
    state.counters["summary_bytes_per_index_byte"] =
        static_cast<double>(summary_bytes) / static_cast<double>(index_bytes);
}
BENCHMARK(BM_PushWithSummaryOnVsOff)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(100);

}  // namespace

int main(int argc, char** argv) {
    bench::Start();
    return bench::RunAndCleanUp(argc, argv);
}
