// Min/max extraction: which source serves a column (index or raw samples), the column rule
// of the index, the deal of columns over data and gaps, the fill modes, pieces, and views
// whose times have no 64-bit nanosecond count.

#include "reader/data_piece.h"
#include "reader/open_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

using namespace reader_tests;
using Columns = std::vector<MinMaxData<double>>;

std::vector<float> Noise(std::size_t count) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = std::sin(0.01f * static_cast<float>(i)) * 100.0f + static_cast<float>((i * 7919) % 97);
    return values;
}

std::vector<float> Ramp(std::size_t count) {
    std::vector<float> values(count);
    std::iota(values.begin(), values.end(), 0.0f);
    return values;
}

Columns View(CBasicWaveReader<float>& reader, double begin, double end, unsigned columns, uint32_t mode = 0,
             unsigned char whole = 0) {
    Columns out(3, {1, 1});
    reader.GetMinMaxData(begin, end, out, columns, GetDataParam{mode}, whole);
    return out;
}

std::ptrdiff_t Valid(const Columns& out) {
    return std::count_if(out.begin(), out.end(), [](const auto& c) { return !std::isnan(c.max); });
}

// Index columns (100 samples per pixel or more) and raw ones: each the extremes of its
// samples; raw neighbours share their boundary sample.
TEST(MinMax, ColumnsEqualTheExtremesOfTheirSamples) {
    struct Case {
        std::size_t samples;
        unsigned columns;
        bool indexed;
    };
    for (const Case c : {Case{100000, 37, true}, Case{100000, 1, true}, Case{20000, 700, false}}) {
        Wave<float> wave("WAVEDATASET[FLOAT]", 1e-6, 100);
        wave.Runs({{0.0, Noise(c.samples)}});
        auto reader = wave.Created();
        const double n = static_cast<double>(c.samples);
        const Columns out = View(*reader, 0, (n - 1) * 1e-6, c.columns);
        ASSERT_EQ(out.size(), c.columns);
        const double ppc = reader->PointsPerColumn();
        ASSERT_EQ(ppc >= 100.0, c.indexed);
        double x = 0;  // column boundaries run on a sum, as the reader's do
        for (unsigned i = 0; i < out.size(); ++i, x += ppc) {
            const double lo = c.indexed ? std::round(x) : std::floor(x);
            const double hi = c.indexed ? std::round(std::min(x + ppc, n) - 1) : std::ceil(std::min(n, ppc + x - 1));
            const auto [mn, mx] = std::minmax_element(wave.samples.begin() + static_cast<std::ptrdiff_t>(lo),
                                                      wave.samples.begin() + static_cast<std::ptrdiff_t>(std::min(hi, n - 1)) + 1);
            EXPECT_EQ(out[i].min, *mn) << "column " << i;
            EXPECT_EQ(out[i].max, *mx) << "column " << i;
        }
    }
}

// A head that doesn't start on an entry boundary is scanned up to it; a tail that doesn't
// end on one is scanned from one whole entry before the entry that holds its last sample.
TEST(MinMax, IndexColumnsScanTheirTailFromTheEntryBeforeIt) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-6, 128);
    wave.Runs({{0.0, Ramp(4096)}});
    auto reader = wave.Created();
    const Columns out = View(*reader, 0, 1700e-6, 10);
    ASSERT_GE(reader->PointsPerColumn(), 128.0);
    const Columns expected = {{0, 169},    {128, 339},   {256, 509},   {510, 679},   {640, 849},
                              {768, 1019}, {1020, 1189}, {1152, 1359}, {1280, 1529}, {1530, 1699}};
    ASSERT_EQ(out.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(out[i].min == expected[i].min && out[i].max == expected[i].max) << "column " << i;

    // A tail in entry 0 has no entry before it: only the column's own samples.
    Wave<float> first("WAVEDATASET[FLOAT]", 1e-6, 1000);
    std::vector<float> later(3000, 1.0f);
    later[1500] = 99.0f;
    first.Runs({{0.0, std::vector<float>(500, 1.0f)}, {0.01, later}});
    const Columns one = View(*first.Created(), 0, 2000e-6, 1);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].max, 1.0);
}

TEST(MinMax, AnIntegerColumnServedByTheIndexSpansZero) {
    Wave<int16_t> ints("WAVEDATASET[INT16]", 1e-6, 100);
    ints.Runs({{0.0, std::vector<int16_t>(100000, 50)}});
    auto reader = ints.Created();
    std::vector<MinMaxData<double>> out;
    double begin = 0, end = 1000e-6;  // exactly one index column per pixel
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_TRUE(out[3].min == 0.0 && out[3].max == 50.0);
    begin = 0, end = 1000e-6;  // slightly more columns: the raw samples, and the true minimum
    reader->GetMinMaxData(begin, end, out, 11, GetDataParam{}, 0);
    EXPECT_EQ(out[3].min, 50.0);
    Wave<float> floats("WAVEDATASET[FLOAT]", 1e-6, 100);  // a float wave keeps its true minimum
    floats.Runs({{0.0, std::vector<float>(100000, 50.0f)}});
    EXPECT_EQ(View(*floats.Created(), 0, 0.05, 10)[4].min, 50.0);
}

TEST(MinMax, GapsAreNaNColumnsEvenWhenNarrowAndZoomsScanALaterArea) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Runs({{0.0, std::vector<float>(10000, 1.0f)}, {10.002, std::vector<float>(10000, 2.0f)}});  // a one-sample gap
    Columns out = View(*wave.Created(), 0, 20.001, 100);
    ASSERT_EQ(out.size(), 100u);
    EXPECT_LE(Valid(out), 99);
    EXPECT_TRUE(out.front().max == 1.0 && out[98].max == 2.0);

    Wave<float> two("WAVEDATASET[FLOAT]", 1e-6, 100);
    two.Runs({{0.0, Noise(30000)}, {0.05, Noise(30000)}});
    auto reader = two.Created();
    out = View(*reader, 0.06, 0.0667, 1000);  // inside the second area: 6700 samples on 1000 columns
    ASSERT_EQ(out.size(), 1000u);
    EXPECT_GT(Valid(out), 990);
    EXPECT_GT(Valid(View(*reader, 0.06, 0.0605, 1000, 4)), 900);  // fewer samples than columns
}

TEST(MinMax, FewerSamplesThanColumnsInEachFillMode) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Runs({{0.0, Ramp(1000)}});
    auto reader = wave.Created();
    for (uint32_t mode = 0; mode <= 4; ++mode) {
        SCOPED_TRACE(mode);
        const Columns out = View(*reader, 0, 0.999, 2000, mode);
        ASSERT_EQ(out.size(), 2000u);
        for (const auto& column : out) {
            if (!std::isnan(column.min)) {
                EXPECT_EQ(column.min, column.max);  // samples, not extents
            }
        }
        if (mode == 0) {  // the samples from the first column on, then nothing
            EXPECT_TRUE(out[0].min == 0.0 && out[999].min == 999.0 && std::isnan(out[1500].min));
        } else if (mode == 2) {  // about every second column holds a sample
            EXPECT_NEAR(static_cast<double>(Valid(out)), 1000.0, 2.0);
        } else {  // a staircase, a spline and a straight line through a ramp: the ramp
            EXPECT_GE(Valid(out), 1990);
            for (std::size_t i = 1; i + 10 < out.size(); ++i) {
                if (!std::isnan(out[i].min) && !std::isnan(out[i - 1].min)) {
                    EXPECT_GE(out[i].min, out[i - 1].min);
                }
            }
            EXPECT_NEAR(out[1000].min, 500.0, 3.0);
        }
    }
}

TEST(MinMax, AViewWiderThanAWaveWithoutAreasKeepsColumnsForTheEmptySides) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Push(std::vector<float>(100000, 3.0f));  // no areas: the implicit one
    auto reader = wave.Created();
    double vb = 0, ve = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(vb, ve, false));
    Columns out = View(*reader, vb - 50, ve + 50, 20);  // 50 s of nothing on either side of 100 s
    ASSERT_EQ(out.size(), 20u);
    EXPECT_TRUE(std::isnan(out[3].min) && out[4].max == 3.0 && out[13].max == 3.0 && std::isnan(out[15].min) &&
                std::isnan(out.back().min));  // a quarter of the view on each side is empty
    for (unsigned columns : {1u, 2u}) EXPECT_EQ(View(*reader, vb - 50, ve + 50, columns)[0].max, 3.0);  // data takes all
}

TEST(MinMax, WholeRangeGivesOneColumnOfPlainExtremesPerPiece) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-6, 100);
    wave.Runs({{0.0, Noise(50000)}});
    std::vector<MinMaxData<double>> out;
    double begin = 0.0103, end = 0.0499;
    wave.Created()->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 1);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_DOUBLE_EQ(begin, 0.0103);  // not snapped
    EXPECT_TRUE(!std::isnan(out[0].max) && std::isnan(out[1].max));
}

TEST(MinMax, APieceClipsTheRequestToItsBaseRange) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Runs({{0.0, Ramp(10000)}});  // 0 .. 9.999 s
    auto reader = wave.Created();
    reader->SetAxis(wave.axis);
    reader->SetBaseRange(2.0, 4.0);
    reader->SetZeroPosition(0.0, IPieceReader::kTimeModePiece);
    std::unique_ptr<IBaseCtr> piece(CreatePiece(wave.item.get(), Range<double>{2.0, 4.0}, 0.0, wave.item->GetChildItem("sizeAxis")));
    Ctr<IBasicWaveReader> through_piece = QueryInterface<IBasicWaveReader>(piece.get());
    ASSERT_TRUE(through_piece);
    for (IBasicWaveReader* r : {static_cast<IBasicWaveReader*>(reader.get()), through_piece.get()}) {
        std::vector<MinMaxData<double>> out;
        double begin = 0, end = 9.999, value = 0;
        r->GetMinMaxData(begin, end, out, 40, GetDataParam{}, 0);
        EXPECT_NEAR(begin, 2.0, 1e-9);  // the span served
        EXPECT_NEAR(end, 4.0, 1e-9);
        ASSERT_EQ(out.size(), 40u);  // dealt over the whole request, each piece keeps its share
        EXPECT_TRUE(r->At(3.0005, value));
        EXPECT_EQ(value, 3000.0);
    }
    EXPECT_NEAR(reader->PointsPerColumn(), 50.0, 0.01);  // the width follows the clipped span
    double value = 0;
    reader->SetZeroPosition(1.0, IPieceReader::kTimeModePiece);  // piece time 2.0 is base time 3.0
    EXPECT_TRUE(reader->At(2.0005, value));
    EXPECT_EQ(value, 3000.0);
}

TEST(MinMax, DegenerateRequestsChangeNothingAndEmptyOnesGiveNoColumns) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Runs({{0.0, Noise(1000)}});
    auto reader = wave.Created();
    EXPECT_EQ(View(*reader, 0.5, 0.5, 10).size(), 3u);
    EXPECT_EQ(View(*reader, 0.1, 0.2, 0).size(), 3u);
    EXPECT_TRUE(View(*reader, 50, 60, 10).empty());  // beyond the data
    Wave<float> empty("WAVEDATASET[FLOAT]", 1e-3, 100);
    EXPECT_TRUE(View(*empty.Created(), 0, 1, 10).empty());  // no samples and no index
    // A view that ends beyond the largest count of nanoseconds has no sample grid.
    EXPECT_TRUE(View(*reader, 0.5, 1e10, 16).empty());
    EXPECT_GT(Valid(View(*reader, 0.5, 1.0, 16)), 0);  // the same reader still serves
}

// Area times of a damaged file, one sample period short of the largest time: the step from
// that area to the next has no 64-bit time, and the view has no pieces to deal columns to.
TEST(MinMax, AreaTimesAtTheEndOfTheTimeRangeGiveAnEmptyView) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 4);
    const std::vector<float> samples = Noise(2000);
    wave.Push(samples);
    constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
    wave.Push(std::vector<ValidDataArea>{{0, 999000000, 0, 4, 0, 999}, {kLast - 500000000, kLast - 1, 250, 4, 1000, 1999}});
    auto reader = wave.Created();
    double begin = 0, end = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(begin, end, false));
    EXPECT_EQ(Valid(View(*reader, begin, end, 16)), 0);
}

}  // namespace
