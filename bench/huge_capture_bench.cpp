// One capture far larger than the pool: 1e10 int16 samples at 1 MS/s (20 GB of cache
// files), 100 samples per index entry, pushed by the producer helper. The wave stays below
// the value until its only crossing, 0.5 % before its end. Measured once each, in the same
// run, with the index summary on and off:
//   a whole view in 1000 columns, and a forward Find from the start to the crossing.
// Times are medians of a few rounds after one untimed round.
//
// WAVESTORE_BENCH_HUGE_SAMPLES sets the size (default 1e10). The run is skipped when the
// cache folder's disk has less than twice the capture's bytes free.
// Run: build/release/bench/huge_capture_bench

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "dataset/axis.h"
#include "reader/basic_wave_reader.h"
#include "wave/wave_producer.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::ProjectFolder;
using bench::Scope;

using Clock = std::chrono::steady_clock;
constexpr double kPeriod = 1e-6;
constexpr double kValue = 2000.0;
constexpr unsigned kColumns = 1000;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

uint64_t Samples() {
    const char* text = std::getenv("WAVESTORE_BENCH_HUGE_SAMPLES");
    return text ? std::strtoull(text, nullptr, 10) : 10000000000ull;
}

// Noise in [0, 1000) up to the crossing, in [4001, 5001) from there on: the sample before
// the crossing is the nearer one to the value.
void Generate(std::vector<int16_t>& block, uint64_t from, uint64_t crossing) {
    uint32_t state = static_cast<uint32_t>(from * 2654435761u) | 1u;
    for (std::size_t i = 0; i < block.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        block[i] = static_cast<int16_t>((state >> 16) % 1000 + (from + i >= crossing ? 4001 : 0));
    }
}

double Median(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return times.empty() ? 0.0 : times[times.size() / 2];
}

void BM_HugeCapture(benchmark::State& state) {
    const uint64_t samples = Samples();
    const uint64_t crossing = samples - samples / 200;
    const auto free_bytes = std::filesystem::space(ProjectFolder()).available;
    if (free_bytes < 2 * samples * sizeof(int16_t)) {
        state.SkipWithError("not enough free disk space for the capture");
        return;
    }
    std::unique_ptr<IBaseCtr> item(CreateItemByType(&Scope(), "WAVEDATASET[INT16]", "capture"));
    IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
    item->AddChildItem(axis_item, "sizeAxis", true);
    IDatasetAxis* axis = QueryInterface<IDatasetAxis>(axis_item).get();
    axis->SetRatioOffset(0.0, kPeriod);
    axis->SetIndexStep(100);
    auto* dataset = QueryInterface<BasicWaveDataSet<int16_t>>(item.get()).get();
    dataset->FinishConfig(nullptr, nullptr, "disable_throttle");
    const double index_period = __internal::DataSetTool(item.get()).GetIndexStepTime();
    auto build_start = Clock::now();
    {
        WaveProducer<int16_t> producer(*dataset, kPeriod, index_period);
        std::vector<int16_t> block(1 << 20);
        for (uint64_t done = 0; done < samples; done += block.size()) {
            block.resize(std::min<uint64_t>(block.size(), samples - done));
            Generate(block, done, crossing);
            producer.Append(block.data(), block.size());
        }
    }
    dataset->Flush();
    dataset->WaitIndexSummary();
    const double build_seconds = Seconds(build_start);

    auto with = std::unique_ptr<CBasicWaveReader<int16_t>>(dataset->CreateBasicWaveReader());
    auto without = std::unique_ptr<CBasicWaveReader<int16_t>>(dataset->CreateBasicWaveReader());
    without->SetIndexSummary(nullptr);
    std::vector<MinMaxData<double>> out_with, out_without;
    const auto view = [&](CBasicWaveReader<int16_t>& reader, std::vector<MinMaxData<double>>& out) {
        double begin = 0, end = static_cast<double>(samples - 1) * kPeriod;
        const auto start = Clock::now();
        reader.GetMinMaxData(begin, end, out, kColumns, GetDataParam{}, 0);
        return Seconds(start);
    };
    const double expected = static_cast<double>(crossing - 1) * kPeriod;
    bool found_right = true;
    const auto search = [&](CBasicWaveReader<int16_t>& reader) {
        double found = -1;
        const auto start = Clock::now();
        const bool hit = reader.Find(kValue, 0.0, found, true);
        const double elapsed = Seconds(start);
        found_right = found_right && hit && std::abs(found - expected) < 1e-9;
        return elapsed;
    };
    // Each reader in a phase of its own, one untimed round first.
    const auto rounds = [](int n, auto&& run) {
        std::vector<double> times;
        run();
        for (int i = 0; i < n; ++i) times.push_back(run());
        return Median(times);
    };
    const double view_off = rounds(3, [&] { return view(*without, out_without); });
    const double search_off = rounds(3, [&] { return search(*without); });
    const double view_on = rounds(20, [&] { return view(*with, out_with); });
    const double search_on = rounds(20, [&] { return search(*with); });
    for (auto _ : state) state.SetIterationTime(view_on);
    if (!found_right) {
        state.SkipWithError("a search missed the crossing");
        return;
    }
    if (out_with.size() != out_without.size() ||
        std::memcmp(out_with.data(), out_without.data(), out_with.size() * sizeof(out_with[0])) != 0) {
        state.SkipWithError("the views with and without the index summary differ");
        return;
    }
    const uint64_t index_bytes = dataset->GetStorage("Index")->Count() * sizeof(MinMaxData<int16_t>);
    state.counters["samples"] = static_cast<double>(samples);
    state.counters["build_s"] = build_seconds;
    state.counters["view_on_ms"] = 1e3 * view_on;
    state.counters["view_off_ms"] = 1e3 * view_off;
    state.counters["search_on_ms"] = 1e3 * search_on;
    state.counters["search_off_ms"] = 1e3 * search_off;
    state.counters["summary_bytes_per_index_byte"] =
        static_cast<double>(dataset->IndexSummaryBytes()) / static_cast<double>(index_bytes);
}
BENCHMARK(BM_HugeCapture)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    bench::Start({.log_level = LogLevel::Error});
    return bench::RunAndCleanUp(argc, argv);
}
