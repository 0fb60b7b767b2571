// The measurement of one edge: the rising and falling walks over a neighbourhood, their
// ten points, the walk that starts one behind the last sample, and a time without data.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cmath>

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

void ExpectPoint(const EdgePoint& point, double value, double time) {
    EXPECT_EQ(point.value, value);
    EXPECT_NEAR(point.time, time, kTolerance);
    EXPECT_EQ(point.time, point.time2);
}

TEST(EdgeInformation, TheRisingWalkFindsTheThresholdsAndTheEnds) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(true)}});
    auto info = wave.EdgeInfo();
    info->SetLevels(0.9, 0.1, 10.0, 0.0, 40e6);  // thresholds 9 and 1; 20 ms each side
    ASSERT_TRUE(info->Analyse(0.055, 1));
    std::vector<EdgePoint> points;
    info->GetEdgeInfo(points);
    ASSERT_EQ(points.size(), 10u);
    ExpectPoint(points[6], 9.0, 0.059);   // high threshold
    ExpectPoint(points[2], 10.0, 0.060);  // the top is reached and the rise ends
    ExpectPoint(points[7], 1.0, 0.051);   // low threshold
    // A flat base has no sample where the wave stops falling: the walk runs out and the
    // start of the rise is the first sample read.
    ExpectPoint(points[5], 0.0, 0.035);
    for (int slot : {0, 1, 3, 4, 8, 9}) ExpectPoint(points[static_cast<std::size_t>(slot)], 0.0, 0.0);
}

TEST(EdgeInformation, TheFallingWalkAndItsSlots) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(false)}});
    auto info = wave.EdgeInfo();
    info->SetLevels(0.9, 0.1, 10.0, 0.0, 40e6);
    ASSERT_TRUE(info->Analyse(0.055, 2));
    std::vector<EdgePoint> points;
    info->GetEdgeInfo(points);
    ExpectPoint(points[6], 9.0, 0.051);  // the last sample at 9, seen from behind
    ExpectPoint(points[7], 1.0, 0.059);
    ExpectPoint(points[3], 0.0, 0.060);  // the base is reached
    ExpectPoint(points[4], 10.0, 0.035);  // a flat top: the walk runs out
    ExpectPoint(points[2], 0.0, 0.0);
}

TEST(EdgeInformation, TheRisingWalkAtTheEndOfTheData) {
    // The data ends at sample 56 (value 6): a read from 33 ms has 24 samples, and the
    // anchor 19 (the quotient 19.99... truncated) plus the search width 5 is 24: the
    // backward half starts one behind the last sample.
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(true, 57)}});
    auto info = wave.EdgeInfo();
    info->SetLevels(0.9, 0.1, 6.0, 0.0, 40e6);  // thresholds 5.4 and 0.6
    ASSERT_TRUE(info->Analyse(0.053, 1));
    ASSERT_EQ(info->Info()->Anchor(), 19u);
    ASSERT_EQ(info->Info()->Data().size(), 25u);  // 24 samples and the element after them
    std::vector<EdgePoint> points;
    info->GetEdgeInfo(points);
    ExpectPoint(points[6], 6.0, 0.056);
    ExpectPoint(points[7], 0.0, 0.050);
    // The top is reached by the last sample only: the walk runs out, the end of the rise
    // is position 0, and the edge still counts.
    ExpectPoint(points[2], 0.0, 0.033);
}

TEST(EdgeInformation, NoDataOrNoEdgeTypeAndTheRetryOnTheNeighbourhoodsLevels) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Ramp(true)}});
    auto info = wave.EdgeInfo();
    info->SetLevels(0.9, 0.1, 10.0, 0.0, 40e6);
    ASSERT_TRUE(info->Analyse(0.055, 1));
    std::vector<EdgePoint> before;
    info->GetEdgeInfo(before);
    // A time outside the data: false, and the points stay.
    EXPECT_FALSE(info->Analyse(5.0, 1));
    std::vector<EdgePoint> after;
    info->GetEdgeInfo(after);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(before[i].time, after[i].time);
    // Any other type only reads the neighbourhood.
    EXPECT_TRUE(info->Analyse(0.055, 0));

    // Levels the wave never reaches fail the first walk; the levels of the
    // neighbourhood itself then serve the second one.
    auto retry = wave.EdgeInfo();
    retry->SetLevels(0.9, 0.1, 100.0, 50.0, 40e6);
    EXPECT_TRUE(retry->Analyse(0.055, 1));
    EXPECT_TRUE(retry->CalcLevels(0.0, 0.099));

    CBasicEdgeInformation<double> empty(nullptr, nullptr);
    EXPECT_FALSE(empty.Analyse(0.055, 1));
}

}  // namespace
