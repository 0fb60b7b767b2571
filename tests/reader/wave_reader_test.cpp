// The reader core on wave datasets built by the producer helper: areas and gaps, values
// at times, sample runs and grids, the valid range, and the composition of a request.

#include "dataset/axis.h"
#include "host/item_binding.h"
#include "host/local_source.h"
#include "reader/basic_wave_reader.h"
#include "reader/open_reader.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace {

using namespace reader_tests;

// A wave dataset item with a size axis, and readers that open the protected helpers.
template <class T>
struct Wave : testing_support::TestWave<T> {
    Wave(const char* type, double period, uint64_t index_step = 100)
        : testing_support::TestWave<T>(type, period, index_step) {}
    std::unique_ptr<OpenReader<T>> Reader() { return this->template MakeReader<OpenReader<T>>(); }
};

// Two runs of 1 ms samples: 1000 samples from 1.0 s, a gap, 500 samples from 3.0 s.
// Sample i of a run holds its position in "Wave".
struct TwoRuns : Wave<float> {
    TwoRuns() : Wave<float>("WAVEDATASET[FLOAT]", 1e-3) {
        WaveProducer<float> producer(*dataset, 1e-3, 0.1);
        std::vector<float> first(1000), second(500);
        std::iota(first.begin(), first.end(), 0.0f);
        std::iota(second.begin(), second.end(), 1000.0f);
        producer.Append(1.0, first.data(), first.size());
        producer.Append(3.0, second.data(), second.size());
    }
};

TEST(WaveReader, ValuesAtTimesInsideAreasGapsAndOutside) {
    TwoRuns wave;
    auto reader = wave.Reader();
    double value = -1;
    EXPECT_TRUE(reader->At(1.0, value));
    EXPECT_EQ(value, 0.0);
    EXPECT_TRUE(reader->At(1.5005, value));  // truncated to the sample before
    EXPECT_EQ(value, 500.0);
    EXPECT_TRUE(reader->At(1.999, value));  // exactly the last sample of the run
    EXPECT_EQ(value, 999.0);
    value = -1;
    EXPECT_FALSE(reader->At(2.5, value));  // a gap
    EXPECT_FALSE(reader->At(0.5, value));  // before the first area
    EXPECT_FALSE(reader->At(9.0, value));  // after the last
    EXPECT_EQ(value, -1.0);
    float raw = 0;
    EXPECT_FALSE(reader->AtT(2.5, &raw));
    EXPECT_TRUE(std::isnan(raw));  // the typed twin writes the invalid value
    EXPECT_TRUE(reader->At(3.499, value));
    EXPECT_EQ(value, 1499.0);
}

// One area over most of the time range (a damaged file's), 1 s per sample: a time late in
// it lies more samples from its start than a signed count holds, and past the samples.
TEST(WaveReader, ValuesInAnAreaWiderThanHalfTheTimeRange) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 1.0);
    std::vector<float> samples(20);
    std::iota(samples.begin(), samples.end(), 0.0f);
    wave.dataset->Push(samples.data(), samples.size());
    const ValidDataArea area{-8'000'000'000'000'000'000, 8'000'000'000'000'000'000, 0, 100, 0, 19};
    wave.dataset->Push(&area, 1);
    auto reader = wave.Reader();
    double value = -1;
    EXPECT_TRUE(reader->At(-8e9 + 5.5, value));
    EXPECT_EQ(value, 5.0);
    float raw = 0;
    EXPECT_FALSE(reader->AtT(7e9, &raw));
    EXPECT_TRUE(std::isnan(raw));
}

TEST(WaveReader, StoredInvalidValuesReadAsNaN) {
    Wave<uint8_t> wave("TEST_WAVE_U8", 1e-3);
    const uint8_t samples[4] = {1, 255, 3, 4};  // 255 is the invalid value of u8
    wave.dataset->Push(samples, 4);
    auto reader = wave.Reader();
    double value = 0;
    EXPECT_TRUE(reader->At(0.001, value));
    EXPECT_TRUE(std::isnan(value));
    double begin = 0, end = 0.003;
    std::vector<double> out;
    reader->GetData(begin, end, out, false);
    ASSERT_EQ(out.size(), 4u);
    EXPECT_TRUE(std::isnan(out[1]));
    EXPECT_EQ(out[3], 4.0);
    EXPECT_EQ(CBasicWaveReader<uint8_t>::Double2T(std::nan("")), 255);
    EXPECT_EQ(CBasicWaveReader<uint8_t>::Double2T(7.9), 7);
    EXPECT_EQ(CBasicWaveReader<uint64_t>::Double2T(1.5e19), 15000000000000000000ull);
    EXPECT_EQ(CBasicWaveReader<uint64_t>::T2Double(15000000000000000000ull), 1.5e19);
}

TEST(WaveReader, ValidRangeWithAndWithoutAreas) {
    TwoRuns wave;
    auto reader = wave.Reader();
    double begin = 0, end = 0;
    ASSERT_TRUE(reader->GetMaxValidRange(begin, end, false));
    EXPECT_DOUBLE_EQ(begin, 1.0);
    EXPECT_DOUBLE_EQ(end, 3.499);

    Wave<float> plain("WAVEDATASET[FLOAT]", 1e-3);
    auto empty = plain.Reader();
    begin = end = 42;
    EXPECT_FALSE(empty->GetMaxValidRange(begin, end, false));  // no samples
    EXPECT_EQ(begin, 42.0);
    const std::vector<float> samples(1000, 1.0f);
    plain.dataset->Push(samples.data(), samples.size());
    ASSERT_TRUE(empty->GetMaxValidRange(begin, end, false));  // the synthetic area of the axis
    EXPECT_NEAR(end - begin, 1.0, 1e-12);
}

TEST(WaveReader, SampleRunsMoveOutOfGapsAndStopAtTheCap) {
    TwoRuns wave;
    auto reader = wave.Reader();
    std::vector<double> out;
    double begin = 2.2, end = 3.1;  // starts in the gap
    reader->GetData(begin, end, out, false);
    EXPECT_DOUBLE_EQ(begin, 3.0);
    ASSERT_EQ(out.size(), 101u);
    EXPECT_EQ(out.front(), 1000.0);
    EXPECT_EQ(out.back(), 1100.0);

    begin = 1.9, end = 3.1;  // spans the gap: cut at the end of the first area
    reader->GetData(begin, end, out, false);
    EXPECT_NEAR(end, 1.999, 1e-12);
    EXPECT_EQ(out.size(), 100u);

    begin = 2.1, end = 2.9;  // wholly in the gap
    reader->GetData(begin, end, out, false);
    EXPECT_TRUE(out.empty());

    Wave<double> big("WAVEDATASET[DOUBLE]", 1e-6);
    std::vector<double> samples(200000);
    std::iota(samples.begin(), samples.end(), 0.0);
    big.dataset->Push(samples.data(), samples.size());
    auto big_reader = big.Reader();
    begin = 0;
    end = 0.2;
    big_reader->GetData(begin, end, out, false);
    ASSERT_EQ(out.size(), 131072u);  // 1 MiB of doubles
    EXPECT_NEAR(end, 131071 * 1e-6, 1e-12);
    EXPECT_EQ(out.back(), 131071.0);
}

TEST(WaveReader, GridsPlaceEachSampleAtItsTimeWithNaNInGaps) {
    TwoRuns wave;
    auto reader = wave.Reader();
    std::vector<double> out;
    double begin = 1.990, end = 3.0105;
    reader->GetData(begin, end, out, true);
    ASSERT_EQ(out.size(), 1020u);  // whole sample periods of the span
    EXPECT_EQ(out[0], 990.0);
    EXPECT_EQ(out[9], 999.0);
    EXPECT_TRUE(std::isnan(out[10]));
    EXPECT_TRUE(std::isnan(out[1009]));
    EXPECT_EQ(out[1010], 1000.0);  // 3.000 s
    EXPECT_EQ(out[1019], 1009.0);

    begin = 0.5, end = 1.0055;  // a leading gap
    reader->GetData(begin, end, out, true);
    ASSERT_EQ(out.size(), 505u);
    EXPECT_TRUE(std::isnan(out[499]));
    EXPECT_EQ(out[500], 0.0);
}

// One rule in every area: element i holds the sample nearest begin + i periods.
TEST(WaveReader, GridElementsHoldTheNearestSampleInTheFirstAreaAndInLaterOnes) {
    TwoRuns wave;
    auto reader = wave.Reader();
    std::vector<double> out;
    // 0.2 periods past sample 10: sample 10 is nearest element 0; the second run starts
    // 1989.8 periods after begin, nearest element 1990.
    double begin = 1.0102, end = 3.0205;
    reader->GetData(begin, end, out, true);
    ASSERT_EQ(out.size(), 2010u);
    EXPECT_EQ(out[0], 10.0);
    EXPECT_EQ(out[989], 999.0);
    EXPECT_TRUE(std::isnan(out[990]));
    EXPECT_TRUE(std::isnan(out[1989]));
    EXPECT_EQ(out[1990], 1000.0);
    EXPECT_EQ(out[2009], 1019.0);

    // 0.6 periods past sample 10: sample 11 is nearest element 0, and the second run,
    // 1989.4 periods on, starts at element 1989.
    begin = 1.0106, end = 3.0209;
    reader->GetData(begin, end, out, true);
    ASSERT_EQ(out.size(), 2010u);
    EXPECT_EQ(out[0], 11.0);
    EXPECT_EQ(out[988], 999.0);
    EXPECT_TRUE(std::isnan(out[989]));
    EXPECT_TRUE(std::isnan(out[1988]));
    EXPECT_EQ(out[1989], 1000.0);
    EXPECT_EQ(out[2009], 1020.0);

    // Half a period exactly: the sample goes to the later element.
    begin = 2.9995, end = 3.0045;
    reader->GetData(begin, end, out, true);
    ASSERT_EQ(out.size(), 5u);
    EXPECT_TRUE(std::isnan(out[0]));
    EXPECT_EQ(out[1], 1000.0);
    EXPECT_EQ(out[4], 1003.0);
}

// The range checks compare a request in base time with the valid range in piece time:
// on a piece whose zero is not at the axis' trigger, data inside the base range can be
// refused. The data of base 3.0 .. 3.4 lies at piece 0.5 .. 0.9, and the valid range
// reads -1.5 .. 0.999 in piece time: the request, 3.0 .. 3.4 by then, lies after it.
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
    std::vector<double> out{1.0};
    double begin = 0.5, end = 0.9;
    reader->GetData(begin, end, out, false);
    EXPECT_TRUE(out.empty());
    double value = 0;
    EXPECT_TRUE(reader->At(0.5, value));  // At has no range check: it reads base 3.0
    EXPECT_EQ(value, 1000.0);
}

TEST(WaveReader, AnUnconfiguredAxisReadsAsOneSecondPerSample) {
    Wave<float> wave("WAVEDATASET[FLOAT]", 0.0);
    const std::vector<float> samples(20, 2.0f);
    wave.dataset->Push(samples.data(), samples.size());
    auto reader = wave.Reader();
    reader->Load();
    EXPECT_EQ(reader->SampleStep(), 1.0);
    std::vector<double> out;
    double begin = 0, end = 9;
    reader->GetData(begin, end, out, false);
    EXPECT_EQ(out.size(), 10u);
}

TEST(WaveReader, AreasForTimesAndIndexColumns) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->Load();
    ValidDataArea area{};
    uint64_t index = 0;
    EXPECT_TRUE(reader->GetArea(2.5, area, &index));  // a gap: the area before it
    EXPECT_EQ(index, 0u);
    EXPECT_FALSE(reader->GetArea(4.0, area, &index));  // after the last area
    EXPECT_EQ(index, ~uint64_t{0});
    uint64_t column = 0;
    EXPECT_TRUE(reader->GetIndexId(1.0995, column));  // sample 99 lies in the first column
    EXPECT_EQ(column, 0u);
    EXPECT_TRUE(reader->GetIndexId(1.1, column));  // sample 100 begins the second
    EXPECT_EQ(column, 1u);
    EXPECT_TRUE(reader->GetIndexId(3.0, column));
    EXPECT_EQ(column, 10u);  // the second run starts with column 10
}

TEST(WaveReader, CompositionOfDataAndGapPieces) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->Load();
    std::vector<_ValidAreaIndex> pieces;
    reader->ComposeValidArea(0.5, 3.2, pieces);
    ASSERT_EQ(pieces.size(), 4u);
    EXPECT_FALSE(pieces[0].has_data);  // leading gap
    EXPECT_DOUBLE_EQ(pieces[0].end_time, 1.0);
    EXPECT_TRUE(pieces[1].has_data);
    EXPECT_EQ(pieces[1].wave_beg_pos, 0u);
    EXPECT_EQ(pieces[1].wave_end_pos, 999u);
    EXPECT_FALSE(pieces[2].has_data);
    EXPECT_NEAR(pieces[2].begin_time, 2.0, 1e-12);  // one sample after the first run
    EXPECT_NEAR(pieces[2].end_time, 2.999, 1e-12);  // one sample before the second
    EXPECT_TRUE(pieces[3].has_data);  // the end lies in the second run
    EXPECT_EQ(pieces[3].wave_beg_pos, 1000u);
    EXPECT_EQ(pieces[3].wave_end_pos, 1200u);
    double total = 0;
    for (const auto& piece : pieces) total += piece.ratio;
    EXPECT_NEAR(total, 1.0, 0.01);

    pieces.clear();
    reader->ComposeValidArea(3.3, 3.1, pieces);  // reversed span
    EXPECT_TRUE(pieces.empty());
}

TEST(WaveReader, BoundariesSnapOnlyNearAColumnStart) {
    TwoRuns wave;
    auto reader = wave.Reader();
    reader->Load();  // 0.1 s per column
    int64_t begin = 1'009'000'000, end = 5;
    reader->CalcBoundary(begin, end);
    EXPECT_EQ(begin, 1'000'000'000);  // 9 % of a column: down
    begin = 1'091'000'000;
    reader->CalcBoundary(begin, end);
    EXPECT_EQ(begin, 1'100'000'000);  // 91 %: up
    begin = 1'050'000'000;
    reader->CalcBoundary(begin, end);
    EXPECT_EQ(begin, 1'050'000'000);
    begin = -1'009'000'000;
    reader->CalcBoundary(begin, end);
    EXPECT_EQ(begin, -1'000'000'000);  // the sign is kept
    EXPECT_EQ(end, 5);
}

}  // namespace
