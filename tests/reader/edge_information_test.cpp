// The measurement of one edge: the rising and falling walks over a neighbourhood, their
// ten points, the walk that starts one behind the last sample, and a time without data.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

namespace {

constexpr double kTolerance = 1e-9;

// 0 up to sample 50, then k at 50 + k up to 10 at 60, then 10 (or the mirror).
std::vector<double> Ramp(bool rising, std::size_t count = 100) {
    std::vector<double> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double v = i < 50 ? 0.0 : std::min(10.0, static_cast<double>(i - 50));
        values[i] = rising ? v : 10.0 - v;
    }
    return values;
}

// The points of the last analysis at the given slots: (value, time), time2 equal to time.
void ExpectPoints(CBasicEdgeInformation<double>& info, std::initializer_list<std::tuple<int, double, double>> slots) {
    std::vector<EdgePoint> points;
    info.GetEdgeInfo(points);
    ASSERT_EQ(points.size(), 10u);
    for (const auto& [slot, value, time] : slots) {
        const EdgePoint& point = points[static_cast<std::size_t>(slot)];
        EXPECT_EQ(point.value, value) << "slot " << slot;
        EXPECT_NEAR(point.time, time, kTolerance) << "slot " << slot;
        EXPECT_EQ(point.time, point.time2) << "slot " << slot;
    }
}

std::unique_ptr<CBasicEdgeInformation<double>> Analysed(DerivedWave<double>& wave, double top, double time, unsigned type) {
    auto info = wave.EdgeInfo();
    info->SetLevels(0.9, 0.1, top, 0.0, 40e6);  // thresholds at 90 % and 10 %; 20 ms each side
    EXPECT_TRUE(info->Analyse(time, type));
    return info;
}

TEST(EdgeInformation, TheRisingAndTheFallingWalk) {
    DerivedWave<double> rising;
    rising.Runs({{0.0, Ramp(true)}});
    // High threshold, the top where the rise ends, the low threshold; a flat base has no
    // sample where the wave stops falling: the walk runs out at the first sample read.
    ExpectPoints(*Analysed(rising, 10.0, 0.055, 1), {{6, 9.0, 0.059}, {2, 10.0, 0.060}, {7, 1.0, 0.051}, {5, 0.0, 0.035},
                                                     {0, 0, 0}, {1, 0, 0}, {3, 0, 0}, {4, 0, 0}, {8, 0, 0}, {9, 0, 0}});
    DerivedWave<double> falling;
    falling.Runs({{0.0, Ramp(false)}});
    // The last sample at 9 seen from behind; the base is reached; a flat top: the walk runs out.
    ExpectPoints(*Analysed(falling, 10.0, 0.055, 2), {{6, 9.0, 0.051}, {7, 1.0, 0.059}, {3, 0.0, 0.060}, {4, 10.0, 0.035},
                                                      {2, 0, 0}});
}

TEST(EdgeInformation, TheRisingWalkAtTheEndOfTheData) {
    // The data ends at sample 56 (value 6): a read from 33 ms has 24 samples, and the
    // anchor 19 (the quotient 19.99... truncated) plus the search width 5 is 24: the
    // backward half starts one behind the last sample.
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(true, 57)}});
    auto info = Analysed(wave, 6.0, 0.053, 1);  // thresholds 5.4 and 0.6
    ASSERT_EQ(info->Info()->Anchor(), 19u);
    ASSERT_EQ(info->Info()->Data().size(), 25u);  // 24 samples and the element after them
    // The top is reached by the last sample only: the walk runs out, the end of the rise
    // is position 0, and the edge still counts.
    ExpectPoints(*info, {{6, 6.0, 0.056}, {7, 0.0, 0.050}, {2, 0.0, 0.033}});
}

TEST(EdgeInformation, NoDataOrNoEdgeTypeAndTheRetryOnTheNeighbourhoodsLevels) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(true)}});
    auto info = Analysed(wave, 10.0, 0.055, 1);
    EXPECT_FALSE(info->Analyse(5.0, 1));  // a time outside the data: false, and the points stay
    ExpectPoints(*info, {{6, 9.0, 0.059}, {2, 10.0, 0.060}});
    EXPECT_TRUE(info->Analyse(0.055, 0));  // any other type only reads the neighbourhood
    // Levels the wave never reaches fail the first walk; the levels of the neighbourhood
    // itself then serve the second one.
    auto retry = wave.EdgeInfo();
    retry->SetLevels(0.9, 0.1, 100.0, 50.0, 40e6);
    EXPECT_TRUE(retry->Analyse(0.055, 1));
    EXPECT_TRUE(retry->CalcLevels(0.0, 0.099));
    CBasicEdgeInformation<double> empty(nullptr, nullptr);
    EXPECT_FALSE(empty.Analyse(0.055, 1));
}

}  // namespace
