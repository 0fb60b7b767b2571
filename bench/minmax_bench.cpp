// The display path on a float wave at 1 MS/s, pushed by the producer helper, 1000 columns.
// Each figure is a ratio against a baseline measured in the same run:
//   whole view        index entries per second  vs a plain min/max loop over an in-memory
//                                                 array of the same entries (index summary off)
//   whole view, 1e8   time                      vs a plain min/max scan of the 1e8 samples
//   whole view        time, index summary on    vs the same view with the summary off, and
//                                                 at 1e9 vs the same view at 1e7 (both ways)
//   zoomed views      samples per second        vs a plain scan of the samples they cover
//   raw-scan range    samples per second        vs a plain scan of the same samples
// Every view is drawn once before the timing, as a display redraws a view it has shown.
//
// WAVESTORE_BENCH_MAX_SAMPLES limits the largest wave (default 1e9, which outgrows the
// 256 MiB pool and is read back from the cache files).

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "dataset/axis.h"
#include "module/type_registration.h"
#include "reader/basic_wave_reader.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

namespace {

using bench::Scope;

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr unsigned kColumns = 1000;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

// A deterministic noisy sawtooth, generated in blocks.
void Generate(std::vector<float>& block, uint64_t from) {
    uint32_t state = static_cast<uint32_t>(from * 2654435761u) | 1u;
    for (std::size_t i = 0; i < block.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        block[i] = static_cast<float>((from + i) % 5000) * 0.01f + static_cast<float>(state >> 24) * 0.001f;
    }
}

struct Capture {
    std::unique_ptr<IBaseCtr> item;
    BasicWaveDataSet<float>* dataset = nullptr;
    uint64_t samples = 0;
};

// One capture at a time, built on first use and kept until another one is asked for, so
// that each is measured with the pool to itself.
Capture& GetCapture(uint64_t samples, uint64_t index_step) {
    static std::map<std::pair<uint64_t, uint64_t>, Capture> captures;
    for (auto it = captures.begin(); it != captures.end();)
        it = it->first == std::make_pair(samples, index_step) ? std::next(it) : captures.erase(it);
    Capture& capture = captures[{samples, index_step}];
    if (capture.item) return capture;
    capture.item.reset(CreateItemByType(&Scope(), "WAVEDATASET[FLOAT]", "capture"));
    IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
    capture.item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, kPeriod);
    axis->SetIndexStep(index_step);
    capture.dataset = QueryInterface<BasicWaveDataSet<float>>(capture.item.get()).get();
    capture.dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
    const double index_period = __internal::DataSetTool(capture.item.get()).GetIndexStepTime();
    {
        WaveProducer<float> producer(*capture.dataset, kPeriod, index_period);
        std::vector<float> block(1 << 20);
        for (uint64_t done = 0; done < samples; done += block.size()) {
            block.resize(std::min<uint64_t>(block.size(), samples - done));
            Generate(block, done);
            producer.Append(block.data(), block.size());
        }
    }
    // The cache files take the last blocks before any timing.
    capture.dataset->Flush();
    capture.samples = samples;
    return capture;
}

// Whole-view times per wave size and index step (index summary on, off), for the ratios
// between sizes of one run.
std::map<std::pair<uint64_t, uint64_t>, std::pair<double, double>>& ViewTimes() {
    static std::map<std::pair<uint64_t, uint64_t>, std::pair<double, double>> times;
    return times;
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times.empty() ? 0.0 : times[times.size() / 2];
}

uint64_t MaxSamples() {
    const char* text = std::getenv("WAVESTORE_BENCH_MAX_SAMPLES");
    return text ? std::strtoull(text, nullptr, 10) : 1000000000ull;
}

MinMaxData<float> PlainScan(const float* data, uint64_t count) {
    MinMaxData<float> result{data[0], data[0]};
    for (uint64_t i = 1; i < count; ++i) {
        result.min = std::min(result.min, data[i]);
        result.max = std::max(result.max, data[i]);
    }
    return result;
}

MinMaxData<float> PlainEntries(const std::vector<MinMaxData<float>>& entries) {
    MinMaxData<float> result = entries[0];
    for (const auto& entry : entries) {
        result.min = std::min(result.min, entry.min);
        result.max = std::max(result.max, entry.max);
    }
    return result;
}

// The whole wave in 1000 columns against a min/max loop over the same index entries.
void BM_WholeView(benchmark::State& state) {
    const auto samples = static_cast<uint64_t>(state.range(0));
    const auto index_step = static_cast<uint64_t>(state.range(1));
    if (samples > MaxSamples()) {
        state.SkipWithError("larger than WAVESTORE_BENCH_MAX_SAMPLES");
        return;
    }
    Capture& capture = GetCapture(samples, index_step);
    capture.dataset->WaitIndexSummary();
    // The dataset's reader has the index summary; the other one reads every entry.
    auto reader = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    auto plain = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    plain->SetIndexSummary(nullptr);
    auto index = capture.dataset->GetStorage("Index");
    std::vector<MinMaxData<float>> entries(index->Count());
    index->Read(0, entries.data(), entries.size());
    std::vector<MinMaxData<double>> out, plain_out;
    const auto view = [&](CBasicWaveReader<float>& r, std::vector<MinMaxData<double>>& o) {
        double begin = 0, end = static_cast<double>(samples - 1) * kPeriod;
        const auto start = Clock::now();
        r.GetMinMaxData(begin, end, o, kColumns, GetDataParam{}, 0);
        return Seconds(start);
    };
    // The reader without the summary runs its views first, the one with it after them,
    // each after one untimed view, so that neither works on blocks the other brought in.
    // The times compared are medians, which other work on the machine disturbs least.
    double view_seconds = 0, entries_seconds = 0;
    std::vector<double> on_times, off_times;
    constexpr int kRounds = 20;
    view(*plain, plain_out);
    for (int i = 0; i < kRounds; ++i) off_times.push_back(view(*plain, plain_out));
    view(*reader, out);
    for (auto _ : state) {
        const double elapsed = view(*reader, out);
        view_seconds += elapsed;
        on_times.push_back(elapsed);
        state.SetIterationTime(elapsed);
    }
    // The plain loop over the entries in memory, in a phase of its own too: it sweeps the
    // processor's caches.
    for (int i = 0; i < kRounds; ++i) {
        const auto start = Clock::now();
        benchmark::DoNotOptimize(PlainEntries(entries));
        entries_seconds += Seconds(start);
    }
    if (std::memcmp(out.data(), plain_out.data(), out.size() * sizeof(out[0])) != 0 || out.size() != plain_out.size()) {
        state.SkipWithError("the views with and without the index summary differ");
        return;
    }
    const double n = static_cast<double>(state.iterations());
    const double on = Median(on_times), off = Median(off_times);
    state.counters["index_entries"] = static_cast<double>(entries.size());
    state.counters["ratio_entries_vs_plain_loop"] = (entries_seconds / kRounds) / off;
    state.counters["points_per_column"] = reader->PointsPerColumn();
    state.counters["summary_on_us"] = 1e6 * on;
    state.counters["summary_off_us"] = 1e6 * off;
    state.counters["ratio_off_vs_on"] = off / on;
    state.counters["summary_bytes_per_index_byte"] =
        static_cast<double>(capture.dataset->IndexSummaryBytes()) / static_cast<double>(entries.size() * 8);
    ViewTimes()[{samples, index_step}] = {on, off};
    const auto small = ViewTimes().find({10000000ull, index_step});
    if (samples == 1000000000ull && small != ViewTimes().end()) {
        state.counters["on_1e9_vs_1e7"] = on / small->second.first;
        state.counters["off_1e9_vs_1e7"] = off / small->second.second;
    }
    if (samples == 100000000ull && index_step == 100) {
        // The same extremes from all samples in memory, once.
        std::vector<float> all(samples);
        for (uint64_t done = 0; done < samples; done += 1 << 20) {
            std::vector<float> block(std::min<uint64_t>(1 << 20, samples - done));
            Generate(block, done);
            std::copy(block.begin(), block.end(), all.begin() + static_cast<std::ptrdiff_t>(done));
        }
        const auto start = Clock::now();
        benchmark::DoNotOptimize(PlainScan(all.data(), all.size()));
        const double scan = Seconds(start);
        state.counters["ratio_vs_sample_scan"] = scan / (view_seconds / n);
    }
}
BENCHMARK(BM_WholeView)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Args({1000000, 100})
    ->Args({10000000, 100})
    ->Args({100000000, 100})
    ->Args({1000000000, 100})
    ->Args({100000000, 0})  // the default index period: 1000 samples per column
    ->Iterations(200);

// Views of a part of the 1e8 wave against a plain scan of the samples they cover.
void BM_ZoomedView(benchmark::State& state) {
    const uint64_t samples = 100000000ull;
    const uint64_t covered = static_cast<uint64_t>(state.range(0));
    if (samples > MaxSamples()) {
        state.SkipWithError("larger than WAVESTORE_BENCH_MAX_SAMPLES");
        return;
    }
    Capture& capture = GetCapture(samples, 100);
    auto reader = std::unique_ptr<CBasicWaveReader<float>>(capture.dataset->CreateBasicWaveReader());
    const uint64_t first = samples / 3;
    std::vector<float> plain(covered);
    Generate(plain, first);
    std::vector<MinMaxData<double>> out;
    double view_seconds = 0, scan_seconds = 0;
    for (auto _ : state) {
        double begin = static_cast<double>(first) * kPeriod;
        double end = static_cast<double>(first + covered - 1) * kPeriod;
        auto start = Clock::now();
        reader->GetMinMaxData(begin, end, out, kColumns, GetDataParam{}, 0);
        const double elapsed = Seconds(start);
        start = Clock::now();
        benchmark::DoNotOptimize(PlainScan(plain.data(), plain.size()));
        scan_seconds += Seconds(start);
        view_seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    state.SetItemsProcessed(static_cast<int64_t>(covered * state.iterations()));
    state.counters["points_per_column"] = reader->PointsPerColumn();
    state.counters["ratio_vs_plain_scan"] = scan_seconds / view_seconds;
}
BENCHMARK(BM_ZoomedView)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Arg(1000000)  // 1 % of the wave
    ->Arg(10000)    // 0.01 %
    ->Arg(60000)    // below one index column per pixel: the raw scan
    ->Iterations(1000);  // the steady redraw: 50 rounds were mostly the first view's faults

}  // namespace

int main(int argc, char** argv) {
    bench::Start();
    return bench::RunAndCleanUp(argc, argv);
}
