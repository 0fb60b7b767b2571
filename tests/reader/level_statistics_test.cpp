// Levels of a wave: the histogram peaks that give top and base, the split at the mean
// when the peaks are out of proportion, the first threshold of the peak search, and
// the accumulation of ranges, time pairs and pulse trains.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

namespace {

// Adds count samples of value.
void Add(CLevelStatistics<double>& stats, double value, int count) {
    const std::vector<double> block(static_cast<std::size_t>(count), value);
    stats.Accumulate(block.data(), block.size());
}

TEST(LevelStatistics, ASquareWaveGivesTwoPeaksAndTopAndBase) {
    // 0 and 10 with three samples at 5 on the edges. The top peak lies in the last bin,
    // 255 of 256 widths above the minimum.
    CLevelStatistics<double> stats;
    Add(stats, 0.0, 60);
    Add(stats, 5.0, 3);
    Add(stats, 10.0, 60);
    ASSERT_TRUE(stats.Analyse());
    EXPECT_EQ(stats.BinCount(), 256u);
    EXPECT_EQ(stats.BinWidth(), 10.0 / 256);
    EXPECT_EQ(stats.PeakCount(), 2u);
    EXPECT_EQ(stats.Top(), 255 * 10.0 / 256);
    EXPECT_EQ(stats.Base(), 0.0);
    EXPECT_DOUBLE_EQ(stats.Mean(), 5.0);
    EXPECT_FALSE(stats.Analyse());  // the values were consumed

    // Two equal bins alone have no contrast: one peak between them.
    CLevelStatistics<double> pure;
    Add(pure, 0.0, 60);
    Add(pure, 10.0, 60);
    ASSERT_TRUE(pure.Analyse());
    EXPECT_EQ(pure.PeakCount(), 1u);
    EXPECT_EQ(pure.Top(), 127 * 10.0 / 256);
    EXPECT_EQ(pure.Top(), pure.Base());
}

TEST(LevelStatistics, AConstantWaveIsOnePeakWithoutAmplitude) {
    CLevelStatistics<double> stats;
    Add(stats, 3.0, 100);
    EXPECT_EQ(stats.Min(), 3.0);
    EXPECT_EQ(stats.Max(), 3.0);
    ASSERT_TRUE(stats.Analyse());
    EXPECT_EQ(stats.PeakCount(), 1u);
    EXPECT_EQ(stats.Top(), 3.0);
    EXPECT_EQ(stats.Base(), 3.0);

    // The first sample sets only the maximum.
    CLevelStatistics<double> one;
    Add(one, 3.0, 1);
    EXPECT_EQ(one.Max(), 3.0);
    EXPECT_EQ(one.Min(), DBL_MAX);
}

TEST(LevelStatistics, TheFirstThresholdFollowsTheSamplesPerBin) {
    for (auto [samples, threshold] : {std::pair{100, 1u}, {300, 1u}, {1000, 3u}, {2000, 5u}}) {
        CLevelStatistics<double> stats;
        for (int i = 0; i < samples; ++i) Add(stats, static_cast<double>(i % 7), 1);
        ASSERT_TRUE(stats.Analyse());
        EXPECT_EQ(stats.MinPeakCount(), threshold) << samples << " samples";
    }
}

TEST(LevelStatistics, PeaksOutOfProportionAreSplitAtTheMeanOnlyWhenTheLowOneDominates) {
    // Peaks at 0 (900), 0.98 (60) and 9.96 (50), and a stray bin at 5. The base peak
    // outweighs the top one 18 times: the split moves to the mean (0.57), and the peak
    // at 0.98 becomes the top.
    CLevelStatistics<double> low;
    Add(low, 0.0, 900);
    Add(low, 1.0, 60);
    Add(low, 10.0, 50);
    Add(low, 5.0, 3);
    ASSERT_TRUE(low.Analyse());
    ASSERT_EQ(low.PeakCount(), 3u);
    EXPECT_EQ(low.Top(), 25 * 10.0 / 256);
    EXPECT_EQ(low.Base(), 0.0);

    // The mirror: the top peak outweighs the base one, which is not tested: the split
    // stays at the middle of the peak values.
    CLevelStatistics<double> high;
    Add(high, 10.0, 900);
    Add(high, 9.0, 60);
    Add(high, 0.0, 50);
    Add(high, 5.0, 3);
    ASSERT_TRUE(high.Analyse());
    ASSERT_EQ(high.PeakCount(), 3u);
    EXPECT_EQ(high.Top(), 255 * 10.0 / 256);
    EXPECT_EQ(high.Base(), 0.0);
    std::vector<double> values;
    for (const auto& peak : high.Peaks()) values.push_back(peak.value);
    EXPECT_EQ(values, (std::vector<double>{255 * 10.0 / 256, 230 * 10.0 / 256, 0.0}));  // descending
}

TEST(LevelInformation, A95PercentDutyWaveThroughTheReader) {
    // 5 % at 0, 95 % at 10, with a sample at 5 on each edge.
    std::vector<double> values;
    for (int period = 0; period < 10; ++period) {
        values.insert(values.end(), 5, 0.0);
        values.push_back(5.0);
        values.insert(values.end(), 95, 10.0);
        values.push_back(5.0);
    }
    DerivedWave<double> wave;
    wave.Runs({{0.0, values}});
    auto levels = wave.Levels();
    LevelResult result;
    levels->Calc(0.0, 2.0, result);
    EXPECT_EQ(result.top, 255 * 10.0 / 256);
    EXPECT_EQ(result.base, 0.0);
    EXPECT_EQ(result.amplitude, result.top);
    EXPECT_EQ(result.minimum, 0.0);
    EXPECT_EQ(result.maximum, 10.0);
    EXPECT_EQ(result.peak_to_peak, 10.0);
    EXPECT_EQ(result.reserved, 0.0);
    EXPECT_EQ(result.start_time, 0.0);
    EXPECT_EQ(result.end_time, 2.0);
    std::vector<LevelPeak> peaks;
    levels->GetPeaks(peaks);
    ASSERT_EQ(peaks.size(), 2u);
    EXPECT_EQ(peaks[0].value, result.top);
    EXPECT_EQ(levels->GetPercent(), 0.0);
}

TEST(LevelInformation, ARangeWithoutSamplesKeepsTheResetValues) {
    DerivedWave<double> wave;
    wave.Runs({{1.0, std::vector<double>(100, 2.0)}});
    auto levels = wave.Levels();
    levels->Reset();
    levels->AddRange(5.0, 6.0);
    EXPECT_FALSE(levels->Analyse());
    LevelResult result;
    levels->GetResult(result);
    EXPECT_EQ(result.minimum, DBL_MAX);
    EXPECT_EQ(result.maximum, -DBL_MAX);
    EXPECT_EQ(result.top, 0.0);
    EXPECT_EQ(result.base, 0.0);
}

TEST(LevelInformation, RangesAcrossAreasTimePairsAndPulseTrains) {
    std::vector<double> ramp;
    for (int i = 0; i < 100; ++i) ramp.push_back(i);
    DerivedWave<double> wave;
    wave.Runs({{0.0, ramp}, {1.0, std::vector<double>(50, 7.0)}});
    auto levels = wave.Levels();
    // A range over the gap counts the samples of both areas.
    levels->AddRange(0.0, 2.0);
    EXPECT_EQ(levels->Statistics().Count(), 150.0);
    EXPECT_EQ(levels->Statistics().Sum(), 4950.0 + 350.0);

    // Pairs of times: 9 samples from 10 ms and 4 from 30 ms; a pair outside the read
    // adds zeros.
    levels->Reset();
    levels->AddSegments(0.0, 0.099, {0.010, 0.019, 0.030, 0.034});
    EXPECT_EQ(levels->Statistics().Count(), 13.0);
    EXPECT_EQ(levels->Statistics().Sum(), (10 + 18) * 9 / 2.0 + (30 + 33) * 4 / 2.0);
    levels->AddSegments(0.0, 0.099, {0.5, 0.505});
    EXPECT_EQ(levels->Statistics().Count(), 18.0);
    EXPECT_EQ(levels->Statistics().Sum(), 252.0);
    EXPECT_EQ(levels->Start(), 0.0);

    // A pulse train: the first, third... runs give the top, the others the base,
    // whatever the analysis of the whole range finds.
    DerivedWave<double> square;
    square.Runs({{0.0, Square(20, 3, 0.0, 10.0)}});
    auto pulses = square.Levels();
    pulses->CalcPulseLevels(0.0, 0.119, {0.020, 0.039, 0.040, 0.059, 0.060, 0.079});
    LevelResult result;
    pulses->GetResult(result);
    EXPECT_EQ(result.top, 10.0);
    EXPECT_EQ(result.base, 0.0);
    EXPECT_EQ(result.end_time, 0.119);
    // A family without samples has no mean.
    pulses->CalcPulseLevels(0.0, 0.119, {0.020, 0.039});
    pulses->GetResult(result);
    EXPECT_EQ(result.top, 10.0);
    EXPECT_TRUE(std::isnan(result.base));
}

}  // namespace
