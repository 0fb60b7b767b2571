// The display path of a basic trend: 1e7 points of irregular timing (0.5 to 1.5 us apart,
// on a size axis of 1 us samples, so about 50 points per 50 us index bucket), pushed one
// by one, then read as one 1000-column min/max view over all of them. The figures, each
// against a baseline measured in the same run:
//   ratio_vs_plain_scan  a plain loop over the same 1e7 points in memory that places each
//                        point in its column / the view through the index
//   ratio_vs_point_scan  the same columns by the reader's point path (no index: every
//                        point read back from the storage) / the view through the index
//   ratio_cold_vs_plain_scan  the plain loop / one view right after the point scan, which
//                        has pushed the index out of the block cache
// The views run first on a warm block cache, then the baselines; each figure compares
// average times. The benchmark fails if the overall extremes of the three differ.
//
// Run: build/release/bench/trend_bench

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "dataset/axis.h"
#include "trend/basic_trend_dataset.h"
#include "trend/trend_columns.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::ProjectFolder;
using bench::Scope;

using Clock = std::chrono::steady_clock;
constexpr uint64_t kPoints = 10000000ull;
constexpr unsigned kColumns = 1000;

double Seconds(Clock::time_point from) { return std::chrono::duration<double>(Clock::now() - from).count(); }

struct Capture {
    std::unique_ptr<IBaseCtr> item;
    BasicTrendDataSet<double>* dataset = nullptr;
    std::vector<TrendPoint<double>> points;  // the same points in memory, for the baseline
    double push_seconds = 0;
};
std::unique_ptr<Capture> the_capture;

Capture& GetCapture() {
    if (the_capture) return *the_capture;
    the_capture = std::make_unique<Capture>();
    Capture& capture = *the_capture;
    capture.item.reset(CreateItemByType(&Scope(), "BASIC_TREND[DOUBLE]", "trend"));
    IBaseCtr* axis_item = CreateItemByType(&Scope(), "AXIS", "sizeAxis");
    capture.item->AddChildItem(axis_item, "sizeAxis", true);
    QueryInterface<IDatasetAxis>(axis_item)->SetRatioOffset(0.0, 1e-6);
    auto* duration = new CValueItem("duration", SysVarType::UINT64);
    duration->SetValue(Vellum::Var(2000ull));
    capture.item->AddChildItem(duration, "duration", true);
    capture.dataset = QueryInterface<BasicTrendDataSet<double>>(capture.item.get()).get();
    capture.dataset->FinishConfig(nullptr, nullptr, "disable_throttle");

    capture.points.resize(kPoints);
    uint64_t state = 88172645463325252ull;
    uint64_t time = 1000;
    for (auto& point : capture.points) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        time += 500 + state % 1001;
        const double wave = std::sin(static_cast<double>(time) * 1e-7) * 100.0;
        point = {time, wave + static_cast<double>(state >> 40) * 1e-6};
    }
    const auto start = Clock::now();
    for (const auto& point : capture.points) capture.dataset->Push(point.time, &point.value);
    capture.push_seconds = Seconds(start);
    return capture;
}

// Each point into the column of its time, columns of equal width over [b, e].
void PlainColumns(const std::vector<TrendPoint<double>>& points, uint64_t b, uint64_t e,
                  std::vector<MinMaxData<double>>& out) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    out.assign(kColumns, MinMaxData<double>{nan, nan});
    const double per_ns = kColumns / static_cast<double>(e - b);
    for (const auto& point : points) {
        if (point.time < b || point.time > e) continue;
        const auto column = std::min<uint64_t>(static_cast<uint64_t>((point.time - b) * per_ns), kColumns - 1);
        MinMaxData<double>& c = out[column];
        if (std::isnan(c.min)) {
            c = {point.value, point.value};
        } else {
            c.min = std::min(c.min, point.value);
            c.max = std::max(c.max, point.value);
        }
    }
}

MinMaxData<double> Overall(const std::vector<MinMaxData<double>>& columns) {
    MinMaxData<double> all{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    for (const auto& c : columns) {
        if (std::isnan(c.min)) continue;
        all.min = std::min(all.min, c.min);
        all.max = std::max(all.max, c.max);
    }
    return all;
}

void BM_WholeTrendView(benchmark::State& state) {
    Capture& capture = GetCapture();
    auto reader = QueryInterface<IBasicWaveReader>(capture.item.get());
    const uint64_t first = capture.points.front().time, last = capture.points.back().time;
    BaseStructReader<TrendPoint<double>> trend(capture.dataset->GetStorage("__Trend__"));

    std::vector<MinMaxData<double>> view, plain, scanned;
    const double first_s = static_cast<double>(first) * 1e-9, last_s = static_cast<double>(last) * 1e-9;
    double begin = first_s, end = last_s;
    reader->GetMinMaxData(begin, end, view, kColumns, GetDataParam{}, 0);  // brings the index in
    const uint64_t b = SecondsToUnsignedNs(begin), e = SecondsToUnsignedNs(end);

    double view_seconds = 0;
    for (auto _ : state) {
        begin = first_s;
        end = last_s;
        const auto start = Clock::now();
        reader->GetMinMaxData(begin, end, view, kColumns, GetDataParam{}, 0);
        const double elapsed = Seconds(start);
        view_seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    view_seconds /= static_cast<double>(state.iterations());

    // The baselines after the views, so that their reads don't push the index out of the
    // block cache between two views.
    constexpr int kRounds = 3;
    double plain_seconds = 0, scan_seconds = 0;
    for (int round = 0; round < kRounds; ++round) {
        auto start = Clock::now();
        PlainColumns(capture.points, b, e, plain);
        plain_seconds += Seconds(start) / kRounds;

        TrendColumns<double> points_only(trend, nullptr, 0);
        start = Clock::now();
        points_only.Fill(b, e, kColumns, scanned);
        scan_seconds += Seconds(start) / kRounds;
    }
    // One view more, now that the point scan has pushed the index out of the block cache:
    // its entries come back from the cache files.
    begin = first_s;
    end = last_s;
    const auto cold_start = Clock::now();
    reader->GetMinMaxData(begin, end, view, kColumns, GetDataParam{}, 0);
    const double cold_seconds = Seconds(cold_start);

    const MinMaxData<double> a = Overall(view), p = Overall(plain), s = Overall(scanned);
    if (view.size() != kColumns || a.min != p.min || a.max != p.max || s.min != p.min || s.max != p.max) {
        state.SkipWithError("the view's extremes differ from the plain scan's");
        return;
    }
    state.counters["points"] = static_cast<double>(capture.points.size());
    state.counters["index_entries"] = static_cast<double>(capture.dataset->GetStorage("__Index__")->Count());
    state.counters["push_Mpoints_per_s"] = static_cast<double>(kPoints) / capture.push_seconds * 1e-6;
    state.counters["ratio_vs_plain_scan"] = plain_seconds / view_seconds;
    state.counters["ratio_vs_point_scan"] = scan_seconds / view_seconds;
    state.counters["ratio_cold_vs_plain_scan"] = plain_seconds / cold_seconds;
}
BENCHMARK(BM_WholeTrendView)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

int main(int argc, char** argv) {
    bench::Start();
    return bench::RunAndCleanUp(argc, argv, [] { the_capture.reset(); });
}
