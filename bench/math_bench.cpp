// A math dataset's calculation over two float waves of 1e8 samples (1 MS/s, 1000 samples
// per index entry, one area each), against a plain loop over the same samples held in
// memory that computes left - right into a result array and one min/max column per
// 1000 samples.
//
//   ratio_vs_plain_loop   plain loop time / CalcRange time (averages)
//   peak_extra_mib        the most that the resident size grew during a CalcRange beyond
//                         what it was before, pool growth included (the pool has grown
//                         while the sources were pushed)
//   pool_mib              the pool's size in MiB after the calculation
//
//   extra_samples         samples written beyond the sources' count: the time walk steps
//                         by the sample time in double seconds and re-reads a sample
//                         where a truncated time lands short of its nanosecond
//
// Before each CalcRange the result is cleared with "Clear", as the script command does.
// The run fails if the result's overall extremes differ from the loop's.
// WAVESTORE_BENCH_MATH_SAMPLES sets the size of the waves (default 1e8).

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include <benchmark/benchmark.h>

#include "process_memory.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::Scope;
using bench::ResetPeak;
using bench::StatusKiB;

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr uint64_t kIndexStep = 1000;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

uint64_t Samples() {
    const char* text = std::getenv("WAVESTORE_BENCH_MATH_SAMPLES");
    return text ? std::strtoull(text, nullptr, 10) : 100000000ull;
}

// A deterministic noisy sawtooth per seed, generated in blocks.
void Generate(std::vector<float>& block, uint64_t from, uint32_t seed) {
    uint32_t state = static_cast<uint32_t>(from * 2654435761u) ^ seed;
    for (std::size_t i = 0; i < block.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        block[i] = static_cast<float>((from + i) % (4000 + seed)) * 0.01f + static_cast<float>(state >> 24) * 0.001f;
    }
}

IBaseCtr* MakeItem(const char* type, const char* name) {
    IBaseCtr* item = CreateItemByType(&Scope(), type, name);
    IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
    item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, kPeriod);
    axis->SetIndexStep(kIndexStep);
    return item;
}

std::unique_ptr<IBaseCtr> MakeSource(uint64_t samples, uint32_t seed) {
    std::unique_ptr<IBaseCtr> item(MakeItem("WAVEDATASET[FLOAT]", "source"));
    auto* dataset = QueryInterface<BasicWaveDataSet<float>>(item.get()).get();
    dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
    WaveProducer<float> producer(*dataset, kPeriod, kPeriod * static_cast<double>(kIndexStep));
    std::vector<float> block(1 << 20);
    for (uint64_t done = 0; done < samples; done += block.size()) {
        block.resize(std::min<uint64_t>(block.size(), samples - done));
        Generate(block, done, seed);
        producer.Append(block.data(), block.size());
    }
    return item;
}

void BM_CalcRangeVsPlainLoop(benchmark::State& state) {
    const uint64_t samples = Samples();
    auto left = MakeSource(samples, 1);
    auto right = MakeSource(samples, 7);
    std::unique_ptr<IBaseCtr> math(MakeItem("MATH[FLOAT,-]", "math"));
    math->SetLinkItem(left.get(), "left");
    math->SetLinkItem(right.get(), "right");
    Ctr<IMathDataSet> calc = QueryMathDataSet(math.get());
    auto* dataset = QueryInterface<BasicWaveDataSet<float>>(math.get()).get();
    const double end = static_cast<double>(samples) * kPeriod;

    double ours = 0, peak_extra = 0;
    for (auto _ : state) {
        math->OnCMD("Clear", nullptr);
        const uint64_t before = StatusKiB("VmRSS");
        ResetPeak();
        const auto start = Clock::now();
        calc->CalcRange(0.0, end);
        const double elapsed = Seconds(start);
        const uint64_t peak = StatusKiB("VmHWM");
        peak_extra = std::max(peak_extra, (static_cast<double>(peak) - static_cast<double>(before)) / 1024.0);
        ours += elapsed;
        state.SetIterationTime(elapsed);
    }
    ours /= static_cast<double>(state.iterations());
    uint64_t pool = 0, pool_max = 0;
    double used = 0, used_max = 0;
    GetDatasetMemoryInfo(&pool, &pool_max, &used, &used_max);

    // The result's extremes, one column over the whole wave.
    auto reader = QueryInterface<CBasicWaveReader<float>>(math.get());
    std::vector<MinMaxData<double>> overall;
    double b = 0, e = end;
    reader->GetMinMaxData(b, e, overall, 1, GetDataParam{}, 1);
    const uint64_t written = dataset->GetStorage("Wave")->Count();

    // The baseline: the same samples in memory.
    std::vector<float> a(samples), c(samples), out(samples);
    for (uint64_t done = 0; done < samples; done += 1 << 20) {
        std::vector<float> block(std::min<uint64_t>(1 << 20, samples - done));
        Generate(block, done, 1);
        std::copy(block.begin(), block.end(), a.begin() + static_cast<std::ptrdiff_t>(done));
        Generate(block, done, 7);
        std::copy(block.begin(), block.end(), c.begin() + static_cast<std::ptrdiff_t>(done));
    }
    std::vector<MinMaxData<float>> columns;
    columns.reserve(samples / kIndexStep + 1);
    double plain = 0;
    constexpr int kRounds = 3;
    for (int round = 0; round < kRounds; ++round) {
        columns.clear();
        const auto start = Clock::now();
        for (uint64_t first = 0; first < samples; first += kIndexStep) {
            const uint64_t last = std::min(samples, first + kIndexStep);
            float lo = std::numeric_limits<float>::infinity(), hi = -lo;
            for (uint64_t i = first; i < last; ++i) {
                const float v = a[i] - c[i];
                out[i] = v;
                lo = std::min(lo, v);
                hi = std::max(hi, v);
            }
            columns.push_back({lo, hi});
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::DoNotOptimize(columns.data());
        plain += Seconds(start);
    }
    plain /= kRounds;
    float lo = columns[0].min, hi = columns[0].max;
    for (const auto& column : columns) lo = std::min(lo, column.min), hi = std::max(hi, column.max);

    state.counters["ratio_vs_plain_loop"] = plain / ours;
    state.counters["calc_s"] = ours;
    state.counters["plain_s"] = plain;
    state.counters["peak_extra_mib"] = peak_extra;
    state.counters["pool_mib"] = static_cast<double>(pool) / 1048576.0;
    state.counters["extra_samples"] = static_cast<double>(written) - static_cast<double>(samples);
    if (overall.size() != 1 || overall[0].min != lo || overall[0].max != hi)
        state.SkipWithError("the result's extremes differ from the plain loop's");
}
BENCHMARK(BM_CalcRangeVsPlainLoop)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
    bench::Start({.log_level = LogLevel::Critical});  // CalcRange traces at error level
    return bench::RunAndCleanUp(argc, argv);
}
