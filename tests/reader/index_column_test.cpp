// Columns served by the index, compared with the column rule worked out independently
// of the reader: a column runs over the running double x .. x + points per column; a
// head that doesn't start on an entry boundary is scanned up to it; a tail that doesn't
// end on one is scanned from one whole entry before the entry that holds its last
// sample; the whole entries in between come from the index.

#include "reader/basic_wave_reader.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace {

template <class T>
struct IndexedWave : testing_support::TestWave<T> {
    std::vector<T> samples;

    IndexedWave(const char* type, uint64_t points_per_index)
        : testing_support::TestWave<T>(type, 1e-6, points_per_index) {}
    void Run(double start, const std::vector<T>& values) {
        WaveProducer<T> producer(*this->dataset, 1e-6, 1e-6 * static_cast<double>(this->axis->GetIndexStep()));
        producer.Append(start, values.data(), values.size());
        samples.insert(samples.end(), values.begin(), values.end());
    }
    std::unique_ptr<CBasicWaveReader<T>> Reader() {
        return std::unique_ptr<CBasicWaveReader<T>>(this->dataset->CreateBasicWaveReader());
    }
};

// Points per column of a view of span seconds from begin in columns, on a 1 µs grid.
double PointsPerColumn(double begin, double end, unsigned columns) {
    const double ratio = ((std::floor(end * 1e12) - std::ceil(begin * 1e12)) / std::round(1e-6 * 1e15) / columns) * 1000;
    return std::nextafter(ratio, ratio * 10);
}

// The sample ranges (inclusive) that the rule gathers into each column of the piece
// first .. last (last one past the piece's last sample).
std::vector<std::vector<std::pair<uint64_t, uint64_t>>> RuleSpans(uint64_t ppi, double ppc, uint64_t first,
                                                                   uint64_t last, unsigned count) {
    std::vector<std::vector<std::pair<uint64_t, uint64_t>>> columns;
    double x = static_cast<double>(first);
    for (unsigned c = 0; c < count; ++c, x += ppc) {
        const double limit = std::min(x + ppc, static_cast<double>(last));
        const auto lo = static_cast<uint64_t>(std::llround(x));
        const auto hi = static_cast<uint64_t>(std::llround(limit - 1.0));
        if (c > 0 && columns.back().empty()) break;
        std::vector<std::pair<uint64_t, uint64_t>> spans;
        uint64_t i0 = lo / ppi;
        int64_t i1 = static_cast<int64_t>(hi / ppi);
        if (lo % ppi != 0) {
            ++i0;
            spans.emplace_back(lo, i0 * ppi - 1);
        }
        if (hi != 0 && (hi + 1) % ppi != 0) {
            spans.emplace_back(i1 > 0 ? static_cast<uint64_t>(i1 - 1) * ppi : lo, hi);
            --i1;
        }
        if (static_cast<int64_t>(i0) <= i1) spans.emplace_back(i0 * ppi, static_cast<uint64_t>(i1 + 1) * ppi - 1);
        columns.push_back(spans);
    }
    return columns;
}

template <class T>
MinMaxData<double> Extremes(const std::vector<T>& v, const std::vector<std::pair<uint64_t, uint64_t>>& spans) {
    MinMaxData<double> column{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    for (const auto& [from, to] : spans) {
        for (uint64_t i = from; i <= std::min<uint64_t>(to, v.size() - 1); ++i) {
            column.min = std::min<double>(column.min, v[i]);
            column.max = std::max<double>(column.max, v[i]);
        }
    }
    return column;
}

TEST(IndexColumns, ARampShowsTheEntryBeforeTheTailInShortColumns) {
    IndexedWave<double> wave("WAVEDATASET[DOUBLE]", 128);
    std::vector<double> ramp(4096);
    for (std::size_t i = 0; i < ramp.size(); ++i) ramp[i] = static_cast<double>(i);
    wave.Run(0.0, ramp);
    auto reader = wave.Reader();

    double begin = 0, end = 1700e-6;
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_GE(reader->PointsPerColumn(), 128.0);  // the index serves
    EXPECT_EQ(begin, 0.0);                        // and nothing was snapped
    const std::vector<std::pair<double, double>> expected = {
        {0, 169},     {128, 339},   {256, 509},   {510, 679},   {640, 849},
        {768, 1019},  {1020, 1189}, {1152, 1359}, {1280, 1529}, {1530, 1699}};
    ASSERT_EQ(out.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(out[i].min, expected[i].first) << "column " << i;
        EXPECT_EQ(out[i].max, expected[i].second) << "column " << i;
    }
}

TEST(IndexColumns, FloatViewsAtAThousandToElevenHundredSamplesPerColumnFollowTheRule) {
    IndexedWave<float> wave("WAVEDATASET[FLOAT]", 1000);
    std::vector<float> noise(1000000);
    uint32_t state = 12345;
    for (float& v : noise) {
        state = state * 1664525u + 1013904223u;
        v = static_cast<float>(state >> 8) / 65536.0f - 128.0f;
    }
    wave.Run(0.0, noise);
    auto reader = wave.Reader();

    struct View {
        uint64_t first;    // sample at the view's start
        uint64_t samples;  // the view's width in samples
        unsigned columns;
    };
    // 1000 to 1100 samples per column, then single columns of 1051 and 1999 samples,
    // shorter than two entries, whose tail scan starts one entry before the column.
    // Starts on, between and near entry boundaries, none within a tenth of an entry
    // (which would snap). Every time here converts to whole nanoseconds exactly, so the
    // piece runs from view.first.
    const View views[] = {{0, 950000, 900},  {123456, 800000, 750}, {5000, 990000, 990}, {772, 500000, 460},
                          {250305, 31000, 29}, {1500, 1051, 1},       {2300, 1999, 1}};
    for (const View& view : views) {
        double begin = static_cast<double>(view.first) * 1e-6;
        double end = static_cast<double>(view.first + view.samples) * 1e-6;
        const double ppc = PointsPerColumn(begin, end, view.columns);
        ASSERT_GE(ppc, 1000.0);  // the index serves
        std::vector<MinMaxData<double>> out;
        reader->GetMinMaxData(begin, end, out, view.columns, GetDataParam{}, 0);
        ASSERT_EQ(reader->PointsPerColumn(), ppc);
        ASSERT_NEAR(begin, static_cast<double>(view.first) * 1e-6, 1e-12);  // not snapped
        ASSERT_EQ(out.size(), view.columns);
        const auto spans = RuleSpans(1000, ppc, view.first, view.first + view.samples + 1, view.columns);
        int differing = 0;
        for (unsigned c = 0; c < view.columns; ++c) {
            const MinMaxData<double> want = Extremes(wave.samples, spans[c]);
            if (out[c].min != want.min || out[c].max != want.max) ++differing;
        }
        EXPECT_EQ(differing, 0) << "view from sample " << view.first << " in " << view.columns << " columns";
    }
}

// The one place where the rule can't be followed: a tail in entry 0 has no entry before
// it. The scan then covers the column's own samples, and no index entry joins it.
TEST(IndexColumns, ATailInTheFirstEntryScansOnlyItsOwnSamples) {
    IndexedWave<float> wave("WAVEDATASET[FLOAT]", 1000);
    wave.Run(0.0, std::vector<float>(500, 1.0f));
    std::vector<float> later(3000, 1.0f);
    later[1500] = 99.0f;  // an extreme well past the first run
    wave.Run(0.01, later);
    auto reader = wave.Reader();

    double begin = 0, end = 2000e-6;
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 1, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].min, 1.0);
    EXPECT_EQ(out[0].max, 1.0);
}

}  // namespace
