// The reader core: values at times, sample runs and grids, the valid range, the areas and
// columns of times, the composition of a request, and times near the ends of the range.

#include "reader/open_reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>

namespace {

using namespace reader_tests;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<float> Iota(std::size_t count, float first) {
    std::vector<float> values(count);
    std::iota(values.begin(), values.end(), first);
    return values;
}

// Two runs of 1 ms samples: 1000 samples from 1.0 s, a gap, 500 samples from 3.0 s.
// Sample i of a run holds its position in "Wave".
struct TwoRuns : Wave<float> {
    TwoRuns() : Wave<float>("WAVEDATASET[FLOAT]", 1e-3, 100) { Runs({{1.0, Iota(1000, 0)}, {3.0, Iota(500, 1000)}}); }
};

// The samples of [begin, end], with the adjusted range; as a grid when grid is set.
struct Data {
    double begin, end;
    std::vector<double> out;
};
Data Read(CBasicWaveReader<float>& reader, double begin, double end, bool grid) {
    Data data{begin, end, {-7}};
    reader.GetData(data.begin, data.end, data.out, grid);
    return data;
}

// Element i of out is values[i] (NaN for a gap) at each of the listed positions.
void ExpectAt(const std::vector<double>& out, std::initializer_list<std::pair<std::size_t, double>> values) {
    for (const auto& [i, value] : values) {
        ASSERT_LT(i, out.size());
        if (std::isnan(value)) {
            EXPECT_TRUE(std::isnan(out[i])) << "element " << i;
        } else {
            EXPECT_EQ(out[i], value) << "element " << i;
        }
    }
}

TEST(WaveReader, ValuesAtTimesInsideAreasGapsAndOutside) {
    TwoRuns wave;
    auto reader = wave.Reader();
    const std::pair<double, double> cases[] = {{1.0, 0},     {1.5005, 500},  // truncated to the sample before
                                               {1.999, 999}, {3.499, 1499},  // the last sample of each run
                                               {2.5, kNaN},  {0.5, kNaN},  {9.0, kNaN}};
    for (const auto& [time, expected] : cases) {
        double value = -1;
        EXPECT_EQ(reader->At(time, value), !std::isnan(expected)) << time;
        EXPECT_EQ(value, std::isnan(expected) ? -1.0 : expected) << time;
    }
    float raw = 0;
    EXPECT_FALSE(reader->AtT(2.5, &raw));
    EXPECT_TRUE(std::isnan(raw));  // the typed twin writes the invalid value
}

// One area over most of the time range (a damaged file's), 1 s per sample: a time late in
// it lies more samples from its start than a signed count holds, and past the samples.
TEST(WaveReader, ValuesInAnAreaWiderThanHalfTheTimeRange) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1.0, 100);
    wave.Push(Iota(20, 0));
    wave.Push(std::vector<ValidDataArea>{{-8'000'000'000'000'000'000, 8'000'000'000'000'000'000, 0, 100, 0, 19}});
    auto reader = wave.Reader();
    double value = -1;
    EXPECT_TRUE(reader->At(-8e9 + 5.5, value));
    EXPECT_EQ(value, 5.0);
    float raw = 0;
    EXPECT_FALSE(reader->AtT(7e9, &raw));
    EXPECT_TRUE(std::isnan(raw));
}

TEST(WaveReader, StoredInvalidValuesReadAsNaN) {
    Wave<uint8_t> wave("TEST_WAVE_U8", 1e-3, 100);
    wave.Push(std::vector<uint8_t>{1, 255, 3, 4});  // 255 is the invalid value of u8
    auto reader = wave.Reader();
    double value = 0;
    EXPECT_TRUE(reader->At(0.001, value));
    EXPECT_TRUE(std::isnan(value));
    std::vector<double> out;
    double begin = 0, end = 0.003;
    reader->GetData(begin, end, out, false);
    ASSERT_EQ(out.size(), 4u);
    ExpectAt(out, {{1, kNaN}, {3, 4.0}});
    EXPECT_EQ(CBasicWaveReader<uint8_t>::Double2T(kNaN), 255);
    EXPECT_EQ(CBasicWaveReader<uint8_t>::Double2T(7.9), 7);
    EXPECT_EQ(CBasicWaveReader<uint64_t>::Double2T(1.5e19), 15000000000000000000ull);
    EXPECT_EQ(CBasicWaveReader<uint64_t>::T2Double(15000000000000000000ull), 1.5e19);
}

TEST(WaveReader, ValidRangeWithAndWithoutAreas) {
    TwoRuns wave;
    double begin = 0, end = 0;
    ASSERT_TRUE(wave.Reader()->GetMaxValidRange(begin, end, false));
    EXPECT_DOUBLE_EQ(begin, 1.0);
    EXPECT_DOUBLE_EQ(end, 3.499);
    Wave<float> plain("WAVEDATASET[FLOAT]", 1e-3, 100);
    auto empty = plain.Reader();
    begin = end = 42;
    EXPECT_FALSE(empty->GetMaxValidRange(begin, end, false));  // no samples
    EXPECT_EQ(begin, 42.0);
    plain.Push(std::vector<float>(1000, 1.0f));
    ASSERT_TRUE(empty->GetMaxValidRange(begin, end, false));  // the synthetic area of the axis
    EXPECT_NEAR(end - begin, 1.0, 1e-12);
}

TEST(WaveReader, SampleRunsMoveOutOfGapsAndStopAtTheCap) {
    TwoRuns wave;
    auto reader = wave.Reader();
    Data d = Read(*reader, 2.2, 3.1, false);  // starts in the gap
    EXPECT_DOUBLE_EQ(d.begin, 3.0);
    ASSERT_EQ(d.out.size(), 101u);
    ExpectAt(d.out, {{0, 1000}, {100, 1100}});
    d = Read(*reader, 1.9, 3.1, false);  // spans the gap: cut at the end of the first area
    EXPECT_NEAR(d.end, 1.999, 1e-12);
    EXPECT_EQ(d.out.size(), 100u);
    EXPECT_TRUE(Read(*reader, 2.1, 2.9, false).out.empty());  // wholly in the gap

    Wave<double> big("WAVEDATASET[DOUBLE]", 1e-6, 100);
    std::vector<double> samples(200000);
    std::iota(samples.begin(), samples.end(), 0.0);
    big.Push(samples);
    std::vector<double> out;
    double begin = 0, end = 0.2;
    big.Reader()->GetData(begin, end, out, false);
    ASSERT_EQ(out.size(), 131072u);  // 1 MiB of doubles
    EXPECT_NEAR(end, 131071 * 1e-6, 1e-12);
    EXPECT_EQ(out.back(), 131071.0);
}

// Element i of a grid holds the sample nearest begin + i periods, NaN in gaps, in every area.
TEST(WaveReader, GridsHoldTheNearestSampleOfEachElementWithNaNInGaps) {
    TwoRuns wave;
    auto reader = wave.Reader();
    Data d = Read(*reader, 1.990, 3.0105, true);
    ASSERT_EQ(d.out.size(), 1020u);  // whole sample periods of the span
    ExpectAt(d.out, {{0, 990}, {9, 999}, {10, kNaN}, {1009, kNaN}, {1010, 1000}, {1019, 1009}});
    d = Read(*reader, 0.5, 1.0055, true);  // a leading gap
    ASSERT_EQ(d.out.size(), 505u);
    ExpectAt(d.out, {{499, kNaN}, {500, 0}});
    // 0.2 periods past sample 10: sample 10 is nearest element 0; the second run starts
    // 1989.8 periods after begin, nearest element 1990.
    d = Read(*reader, 1.0102, 3.0205, true);
    ASSERT_EQ(d.out.size(), 2010u);
    ExpectAt(d.out, {{0, 10}, {989, 999}, {990, kNaN}, {1989, kNaN}, {1990, 1000}, {2009, 1019}});
    // 0.6 periods past sample 10: sample 11 is nearest element 0, the second run at 1989.
    d = Read(*reader, 1.0106, 3.0209, true);
    ASSERT_EQ(d.out.size(), 2010u);
    ExpectAt(d.out, {{0, 11}, {988, 999}, {989, kNaN}, {1988, kNaN}, {1989, 1000}, {2009, 1020}});
    d = Read(*reader, 2.9995, 3.0045, true);  // half a period exactly: the later element
    ASSERT_EQ(d.out.size(), 5u);
    ExpectAt(d.out, {{0, kNaN}, {1, 1000}, {4, 1003}});
}

// The range checks compare a request in base time with the valid range in piece time:
// the data of base 3.0 .. 3.4 lies at piece 0.5 .. 0.9, the valid range reads -1.5 .. 0.999
// in piece time, and the request, 3.0 .. 3.4 by then, lies after it.
TEST(WaveReader, OnAShiftedPieceTheRangeChecksMixPieceAndBaseTime) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->SetAxis(wave.axis);
    reader->SetBaseRange(0.0, 10.0);
    reader->SetZeroPosition(2.5 + wave.axis->GetTrigPos(), IPieceReader::kTimeModeAbsolute);
    double vb = 0, ve = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(vb, ve, false));
    EXPECT_NEAR(vb, -1.5, 1e-9);
    EXPECT_NEAR(ve, 0.999, 1e-9);
    EXPECT_TRUE(Read(*reader, 0.5, 0.9, false).out.empty());
    double value = 0;
    EXPECT_TRUE(reader->At(0.5, value));  // At has no range check: it reads base 3.0
    EXPECT_EQ(value, 1000.0);
}

TEST(WaveReader, AnUnconfiguredAxisReadsAsOneSecondPerSample) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 0.0, 100);
    wave.Push(std::vector<float>(20, 2.0f));
    auto reader = wave.Reader();
    reader->Load();
    EXPECT_EQ(reader->SampleStep(), 1.0);
    EXPECT_EQ(Read(*reader, 0, 9, false).out.size(), 10u);
}

TEST(WaveReader, AreasColumnsAndBoundariesOfTimes) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->Load();  // 0.1 s per column
    ValidDataArea area{};
    uint64_t index = 0;
    EXPECT_TRUE(reader->GetArea(2.5, area, &index));  // a gap: the area before it
    EXPECT_EQ(index, 0u);
    EXPECT_FALSE(reader->GetArea(4.0, area, &index));  // after the last area
    EXPECT_EQ(index, ~uint64_t{0});
    for (auto [time, expected] : {std::pair{1.0995, 0u}, {1.1, 1u}, {3.0, 10u}}) {  // the second run starts column 10
        uint64_t column = 99;
        EXPECT_TRUE(reader->GetIndexId(time, column));
        EXPECT_EQ(column, expected) << time;
    }
    // A begin snaps to a column start within 10 % of a column, keeping its sign.
    for (auto [from, to] : {std::pair<int64_t, int64_t>{1'009'000'000, 1'000'000'000}, {1'091'000'000, 1'100'000'000},
                            {1'050'000'000, 1'050'000'000}, {-1'009'000'000, -1'000'000'000},
                            {INT64_MIN, INT64_MIN}}) {  // 2^63 ns is 55 % into its column
        int64_t begin = from, end = 5;
        reader->CalcBoundary(begin, end);
        EXPECT_EQ(begin, to) << from;
        EXPECT_EQ(end, 5);
    }
}

TEST(WaveReader, CompositionOfDataAndGapPieces) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->Load();
    std::vector<_ValidAreaIndex> pieces;
    reader->ComposeValidArea(0.5, 3.2, pieces);
    ASSERT_EQ(pieces.size(), 4u);
    // A leading gap, the first run, the gap from one sample after it to one sample before
    // the second, and the second run up to the end.
    const bool data[] = {false, true, false, true};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(pieces[i].has_data, data[i]) << i;
    EXPECT_DOUBLE_EQ(pieces[0].end_time, 1.0);
    EXPECT_EQ(std::make_pair(pieces[1].wave_beg_pos, pieces[1].wave_end_pos), std::make_pair(uint64_t{0}, uint64_t{999}));
    EXPECT_NEAR(pieces[2].begin_time, 2.0, 1e-12);
    EXPECT_NEAR(pieces[2].end_time, 2.999, 1e-12);
    EXPECT_EQ(std::make_pair(pieces[3].wave_beg_pos, pieces[3].wave_end_pos), std::make_pair(uint64_t{1000}, uint64_t{1200}));
    double total = 0;
    for (const auto& piece : pieces) total += piece.ratio;
    EXPECT_NEAR(total, 1.0, 0.01);
    pieces.clear();
    reader->ComposeValidArea(3.3, 3.1, pieces);  // reversed span
    EXPECT_TRUE(pieces.empty());
}

}  // namespace
