// Levels of a wave: the histogram peaks that give top and base, the split at the mean
// when the peaks are out of proportion, the first threshold of the peak search, and
// the accumulation of ranges, time pairs and pulse trains.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <string>

namespace {

// Adds count samples of value.
void Add(CLevelStatistics<double>& stats, double value, int count) {
    const std::vector<double> block(static_cast<std::size_t>(count), value);
    stats.Accumulate(block.data(), block.size());
}

// Samples of (value, count), and what the analysis finds: peak count, top and base.
struct Levels {
    const char* name;
    std::vector<std::pair<double, int>> samples;
    unsigned peaks;
    double top, base;
};

constexpr double kBin = 10.0 / 256;  // 256 bins over 0 .. 10

TEST(LevelStatistics, PeaksTopAndBase) {
    const Levels cases[] = {
        // 0 and 10 with three samples at 5 on the edges: the top peak lies in the last bin.
        {"square", {{0.0, 60}, {5.0, 3}, {10.0, 60}}, 2, 255 * kBin, 0.0},
        // Two equal bins alone have no contrast: one peak between them.
        {"no contrast", {{0.0, 60}, {10.0, 60}}, 1, 127 * kBin, 127 * kBin},
        {"constant", {{3.0, 100}}, 1, 3.0, 3.0},
        // The base peak outweighs the top one 18 times: the split moves to the mean (0.57),
        // and the peak at 0.98 becomes the top.
        {"low dominates", {{0.0, 900}, {1.0, 60}, {10.0, 50}, {5.0, 3}}, 3, 25 * kBin, 0.0},
        // The mirror is not tested: the split stays at the middle of the peak values.
        {"high dominates", {{10.0, 900}, {9.0, 60}, {0.0, 50}, {5.0, 3}}, 3, 255 * kBin, 0.0},
    };
    for (const Levels& c : cases) {
        SCOPED_TRACE(c.name);
        CLevelStatistics<double> stats;
        for (const auto& [value, count] : c.samples) Add(stats, value, count);
        ASSERT_TRUE(stats.Analyse());
        EXPECT_EQ(stats.PeakCount(), c.peaks);
        EXPECT_EQ(stats.Top(), c.top);
        EXPECT_EQ(stats.Base(), c.base);
        if (std::string(c.name) == "square") {
            EXPECT_EQ(stats.BinWidth(), kBin);
            EXPECT_DOUBLE_EQ(stats.Mean(), 5.0);
            EXPECT_FALSE(stats.Analyse());  // the values were consumed
        }
        if (std::string(c.name) == "high dominates") {
            std::vector<double> values;
            for (const auto& peak : stats.Peaks()) values.push_back(peak.value);
            EXPECT_EQ(values, (std::vector<double>{255 * kBin, 230 * kBin, 0.0}));  // descending
        }
    }
    CLevelStatistics<double> one;  // the first sample sets only the maximum
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
    EXPECT_EQ(std::vector<double>({result.top, result.base, result.amplitude, result.minimum, result.maximum,
                                   result.peak_to_peak, result.reserved, result.start_time, result.end_time}),
              std::vector<double>({255 * kBin, 0, 255 * kBin, 0, 10, 10, 0, 0, 2}));
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
    EXPECT_EQ(std::vector<double>({result.minimum, result.maximum, result.top, result.base}),
              std::vector<double>({DBL_MAX, -DBL_MAX, 0, 0}));
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
