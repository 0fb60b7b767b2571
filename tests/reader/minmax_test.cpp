// Min/max extraction: which source serves a column, the deal of columns over data and
// gaps, the fill modes, and columns equal to a brute-force min/max where the rules make
// them plain.

#include "dataset/axis.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "reader/basic_wave_reader.h"
#include "reader/data_piece.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

// A wave dataset item with a size axis; samples go in through the producer helper.
template <class T>
struct Wave : testing_support::TestWave<T> {
    std::vector<T> samples;

    using testing_support::TestWave<T>::TestWave;
    void Run(double start, const std::vector<T>& values) {
        WaveProducer<T> producer(*this->dataset, this->axis->GetRatio(), this->axis->GetRatio() * this->axis->GetIndexStep());
        producer.Append(start, values.data(), values.size());
        samples.insert(samples.end(), values.begin(), values.end());
    }
    std::unique_ptr<CBasicWaveReader<T>> Reader() {
        return std::unique_ptr<CBasicWaveReader<T>>(this->dataset->CreateBasicWaveReader());
    }
};

std::vector<float> Noise(std::size_t count) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i)
        values[i] = std::sin(0.01f * static_cast<float>(i)) * 100.0f + static_cast<float>((i * 7919) % 97);
    return values;
}

// The extremes of v[lo..hi], hi clipped to the last sample.
MinMaxData<double> BruteForce(const std::vector<float>& v, uint64_t lo, uint64_t hi) {
    const auto [mn, mx] = std::minmax_element(v.begin() + static_cast<std::ptrdiff_t>(lo),
                                              v.begin() + static_cast<std::ptrdiff_t>(std::min<uint64_t>(hi, v.size() - 1)) + 1);
    return {*mn, *mx};
}

std::ptrdiff_t Valid(const std::vector<MinMaxData<double>>& out) {
    return std::count_if(out.begin(), out.end(), [](const auto& c) { return !std::isnan(c.max); });
}

TEST(MinMax, IndexAndScannedColumnsEqualTheExtremesOfTheirSamples) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-6, 100);
    wave.Run(0.0, Noise(100000));
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out;
    const auto expect_columns = [&](const std::vector<float>& samples, const auto& range) {
        double x = 0;  // column boundaries run on a sum, as the reader's do
        for (unsigned i = 0; i < out.size(); ++i, x += reader->PointsPerColumn()) {
            const auto [lo, hi] = range(x, reader->PointsPerColumn());
            const auto want = BruteForce(samples, lo, hi);
            EXPECT_EQ(out[i].min, want.min) << "column " << i;
            EXPECT_EQ(out[i].max, want.max) << "column " << i;
        }
    };
    double begin = 0, end = 99999 * 1e-6;
    reader->GetMinMaxData(begin, end, out, 37, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 37u);
    ASSERT_GE(reader->PointsPerColumn(), 100.0);  // the index serves
    expect_columns(wave.samples, [](double x, double ppc) {
        return std::pair<uint64_t, uint64_t>(std::llround(x), std::llround(std::min(x + ppc, 100000.0) - 1.0));
    });
    reader->GetMinMaxData(begin, end, out, 1, GetDataParam{}, 0);  // one column: the overall extremes
    ASSERT_EQ(out.size(), 1u);
    expect_columns(wave.samples, [](double, double) { return std::pair<uint64_t, uint64_t>(0, 99999); });

    // Below one index column per pixel: raw samples; neighbours share their boundary sample.
    Wave<float> short_wave("WAVEDATASET[FLOAT]", 1e-6, 100);
    short_wave.Run(0.0, Noise(20000));
    reader = short_wave.Reader();
    begin = 0, end = 19999 * 1e-6;
    reader->GetMinMaxData(begin, end, out, 700, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 700u);
    ASSERT_LT(reader->PointsPerColumn(), 100.0);
    expect_columns(short_wave.samples, [](double x, double ppc) {
        return std::pair<uint64_t, uint64_t>(std::floor(x), std::ceil(std::min(20000.0, ppc + x - 1.0)));
    });
}

TEST(MinMax, TheIndexServesFromOneIndexColumnPerPixelAnIntegerMinimumThenSpansZero) {
    Wave<int16_t> ints("WAVEDATASET[INT16]", 1e-6, 100);
    ints.Run(0.0, std::vector<int16_t>(100000, 50));
    auto reader = ints.Reader();
    std::vector<MinMaxData<double>> out;
    // 1000 samples on 10 columns: exactly 100 per column, the index's own width.
    double begin = 0, end = 1000e-6;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_EQ(out[3].min, 0.0);  // an integer column served by the index spans zero
    EXPECT_EQ(out[3].max, 50.0);
    begin = 0, end = 1000e-6;  // slightly more columns: the raw samples, and the true minimum
    reader->GetMinMaxData(begin, end, out, 11, GetDataParam{}, 0);
    EXPECT_LT(reader->PointsPerColumn(), 100.0);
    EXPECT_EQ(out[3].min, 50.0);

    Wave<float> floats("WAVEDATASET[FLOAT]", 1e-6, 100);  // a float wave keeps its true minimum
    floats.Run(0.0, std::vector<float>(100000, 50.0f));
    begin = 0, end = 0.05;
    floats.Reader()->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_EQ(out[4].min, 50.0);
}

TEST(MinMax, GapsBetweenAreasAreNaNColumnsEvenWhenNarrowAndZoomsScanALaterArea) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Run(0.0, std::vector<float>(10000, 1.0f));    // 0 .. 9.999 s
    wave.Run(10.002, std::vector<float>(10000, 2.0f));  // a gap of one sample
    std::vector<MinMaxData<double>> out;
    double begin = 0, end = 20.001;
    wave.Reader()->GetMinMaxData(begin, end, out, 100, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 100u);
    EXPECT_LE(Valid(out), 99);
    EXPECT_EQ(out.front().max, 1.0);
    EXPECT_EQ(out[98].max, 2.0);

    Wave<float> two("WAVEDATASET[FLOAT]", 1e-6, 100);
    two.Run(0.0, Noise(30000));
    two.Run(0.05, Noise(30000));  // a second area after a gap
    auto reader = two.Reader();
    begin = 0.06, end = 0.0667;  // inside the second area: 6700 samples on 1000 columns
    reader->GetMinMaxData(begin, end, out, 1000, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 1000u);
    EXPECT_GT(Valid(out), 990);
    begin = 0.06, end = 0.0605;  // fewer samples than columns
    reader->GetMinMaxData(begin, end, out, 1000, GetDataParam{4}, 0);
    EXPECT_GT(Valid(out), 900);
}

TEST(MinMax, FewerSamplesThanColumnsInEachFillMode) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    std::vector<float> ramp(1000);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    wave.Run(0.0, ramp);
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out;
    for (uint32_t mode = 0; mode <= 4; ++mode) {
        double begin = 0, end = 0.999;
        reader->GetMinMaxData(begin, end, out, 2000, GetDataParam{mode}, 0);
        ASSERT_EQ(out.size(), 2000u) << "mode " << mode;
        for (const auto& column : out) {
            if (!std::isnan(column.min)) {
                EXPECT_EQ(column.min, column.max);  // samples, not extents
            }
        }
        switch (mode) {
        case 0:  // the samples from the first column on, then nothing
            EXPECT_EQ(out[0].min, 0.0);
            EXPECT_EQ(out[999].min, 999.0);
            EXPECT_TRUE(std::isnan(out[1500].min));
            break;
        case 2:  // about every second column holds a sample
            EXPECT_NEAR(static_cast<double>(Valid(out)), 1000.0, 2.0);
            break;
        case 1:  // a staircase: every value held over its columns
        case 3:  // a spline through a ramp is the ramp
        case 4:  // so is a straight line
            EXPECT_GE(Valid(out), 1990) << "mode " << mode;
            for (std::size_t i = 1; i + 10 < out.size(); ++i) {
                if (!std::isnan(out[i].min) && !std::isnan(out[i - 1].min)) {
                    EXPECT_GE(out[i].min, out[i - 1].min);
                }
            }
            EXPECT_NEAR(out[1000].min, 500.0, 3.0) << "mode " << mode;
            break;
        }
    }
}

TEST(MinMax, AViewWiderThanAWaveWithoutAreasKeepsColumnsForTheEmptySides) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    const std::vector<float> values(100000, 3.0f);  // no areas: the implicit one
    wave.dataset->Push(values.data(), values.size());
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out;
    double vb = 0, ve = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(vb, ve, false));
    double begin = vb - 50, end = ve + 50;  // 50 s of nothing on either side of 100 s
    reader->GetMinMaxData(begin, end, out, 20, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 20u);
    // A quarter of the view on each side is empty; the data sits in the middle.
    EXPECT_TRUE(std::isnan(out[3].min));
    EXPECT_EQ(out[4].max, 3.0);
    EXPECT_EQ(out[13].max, 3.0);
    EXPECT_TRUE(std::isnan(out[15].min));
    EXPECT_TRUE(std::isnan(out.back().min));
    // With 1 or 2 columns the data piece takes all of them: nothing empty on the left.
    for (unsigned columns : {1u, 2u}) {
        begin = vb - 50, end = ve + 50;
        reader->GetMinMaxData(begin, end, out, columns, GetDataParam{}, 0);
        ASSERT_EQ(out.size(), columns);
        EXPECT_EQ(out[0].max, 3.0);
    }
}

TEST(MinMax, WholeRangeGivesOneColumnOfPlainExtremesPerPiece) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-6, 100);
    wave.Run(0.0, Noise(50000));
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out;
    double begin = 0.0103, end = 0.0499;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 1);
    ASSERT_EQ(out.size(), 10u);
    EXPECT_DOUBLE_EQ(begin, 0.0103);  // not snapped
    EXPECT_FALSE(std::isnan(out[0].max));
    EXPECT_TRUE(std::isnan(out[1].max));
}

TEST(MinMax, APieceClipsTheRequestToItsBaseRange) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    std::vector<float> ramp(10000);
    std::iota(ramp.begin(), ramp.end(), 0.0f);
    wave.Run(0.0, ramp);  // 0 .. 9.999 s
    auto reader = wave.Reader();
    reader->SetAxis(wave.axis);  // the axis' zero position is 0
    reader->SetBaseRange(2.0, 4.0);
    reader->SetZeroPosition(0.0, IPieceReader::kTimeModePiece);
    std::unique_ptr<IBaseCtr> piece(CreatePiece(wave.item.get(), Range<double>{2.0, 4.0}, 0.0,
                                                wave.item->GetChildItem("sizeAxis")));
    ASSERT_TRUE(piece);
    Ctr<IBasicWaveReader> through_piece = QueryInterface<IBasicWaveReader>(piece.get());
    ASSERT_TRUE(through_piece);
    for (IBasicWaveReader* r : {static_cast<IBasicWaveReader*>(reader.get()), through_piece.get()}) {
        std::vector<MinMaxData<double>> out;
        double begin = 0, end = 9.999, value = 0;
        r->GetMinMaxData(begin, end, out, 40, GetDataParam{}, 0);
        EXPECT_NEAR(begin, 2.0, 1e-9);  // the span served
        EXPECT_NEAR(end, 4.0, 1e-9);
        // The columns are dealt over the whole request, so that each piece keeps its share
        // of the view; their width follows the clipped span.
        ASSERT_EQ(out.size(), 40u);
        if (r == reader.get()) {
            EXPECT_NEAR(reader->PointsPerColumn(), 50.0, 0.01);
        }
        EXPECT_TRUE(r->At(3.0005, value));
        EXPECT_EQ(value, 3000.0);
    }
    double value = 0;
    reader->SetZeroPosition(1.0, IPieceReader::kTimeModePiece);  // piece time 2.0 is base time 3.0
    EXPECT_TRUE(reader->At(2.0005, value));
    EXPECT_EQ(value, 3000.0);
}

TEST(MinMax, DegenerateRequestsChangeNothing) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Run(0.0, Noise(1000));
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out(3, {1, 1});
    double begin = 0.5, end = 0.5;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    EXPECT_EQ(out.size(), 3u);
    begin = 0.1, end = 0.2;
    reader->GetMinMaxData(begin, end, out, 0, GetDataParam{}, 0);
    EXPECT_EQ(out.size(), 3u);
    begin = 50, end = 60;  // beyond the data
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    EXPECT_TRUE(out.empty());

    Wave<float> empty("WAVEDATASET[FLOAT]", 1e-3, 100);
    auto none = empty.Reader();
    begin = 0, end = 1;
    out.assign(3, {1, 1});
    none->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    EXPECT_TRUE(out.empty());  // no samples and no index
}

// Area times of a damaged file, one sample period short of the largest time: the step from
// that area to the next has no 64-bit time, and the view has no pieces to deal columns to.
TEST(MinMax, AreaTimesAtTheEndOfTheTimeRangeGiveAnEmptyView) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 4);
    const std::vector<float> samples = Noise(2000);
    wave.dataset->Push(samples.data(), samples.size());
    constexpr int64_t kLast = std::numeric_limits<int64_t>::max();
    const ValidDataArea areas[] = {{0, 999000000, 0, 4, 0, 999},
                                   {kLast - 500000000, kLast - 1, 250, 4, 1000, 1999}};
    wave.dataset->Push(areas, 2);
    auto reader = wave.Reader();
    double begin = 0, end = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(begin, end, false));
    std::vector<MinMaxData<double>> out(3, {1, 1});
    reader->GetMinMaxData(begin, end, out, 16, GetDataParam{}, 0);
    EXPECT_EQ(Valid(out), 0);
}

// A view that ends beyond the largest count of nanoseconds has no sample grid: no columns.
TEST(MinMax, AViewEndingBeyondTheNanosecondRangeGivesNoColumns) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1e-3, 100);
    wave.Run(0.0, Noise(1000));
    auto reader = wave.Reader();
    std::vector<MinMaxData<double>> out(3, {1, 1});
    double begin = 0.5, end = 1e10;
    reader->GetMinMaxData(begin, end, out, 16, GetDataParam{}, 0);
    EXPECT_TRUE(out.empty());
    begin = 0.5, end = 1.0;  // the same reader still serves a plain view
    reader->GetMinMaxData(begin, end, out, 16, GetDataParam{}, 0);
    EXPECT_GT(Valid(out), 0);
}

}  // namespace
