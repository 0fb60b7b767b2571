// Edge walks: the time and type of an edge, the sharpening of a noisy first crossing,
// the rules for a jump across both levels within one sample, the filters, and the
// choice of the nearest edge.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double kTolerance = 1e-9;

// The current edge as (time rounded to the microsecond, type).
template <class T>
std::pair<double, unsigned> Edge(CEdgeDataReader<T>& edges) {
    return {std::round(edges.CurTime() * 1e6) / 1e6, edges.CurType()};
}
using E = std::pair<double, unsigned>;

// 100 samples at 0 s: before 50, then after.
DerivedWave<double>& Step(DerivedWave<double>& wave, double before, double after) {
    std::vector<double> values(100, before);
    for (int i = 50; i < 100; ++i) values[i] = after;
    return wave.Runs({{0.0, values}});
}

TEST(EdgeReader, AStepAcrossBothLevelsInOneSample) {
    DerivedWave<double> wave;
    Step(wave, 0.0, 10.0);
    // Level 5, hysteresis 1: 4 is met at the last low sample, 6 at the first high one.
    auto edges = wave.Edges(5.0, 1.0);
    EXPECT_EQ(edges->Finder().Upper(), 6.0);
    EXPECT_EQ(edges->Finder().Lower(), 4.0);
    ASSERT_TRUE(edges->GetBeginData());
    EXPECT_EQ(Edge(*edges), E(0.050, 1));
    FindEdgeResult result{};
    edges->GetResult(&result);
    EXPECT_EQ(result.dEdgeTime, edges->CurTime());
    EXPECT_EQ(result.u32EdgeType, 1u);
    EXPECT_FALSE(edges->GetNextData());  // a failed step keeps the edge
    EXPECT_EQ(Edge(*edges), E(0.050, 1));

    // Levels that both meet the same sample: typed by the value 10 samples before.
    auto near = wave.Edges(5.5, 0.25);
    ASSERT_TRUE(near->GetBeginData());
    EXPECT_EQ(Edge(*near), E(0.050, 1));
    // From within 3 samples of the jump, the search takes it for its own position and
    // looks for the other level beyond it: there is none.
    near->SetPosition(0.048e9, 0);
    EXPECT_FALSE(near->GetNextData());
    near->SetPosition(0.046e9, 0);
    EXPECT_TRUE(near->GetNextData());

    DerivedWave<double> falling;
    Step(falling, 10.0, 0.0);
    auto down = falling.Edges(5.5, 0.25);
    ASSERT_TRUE(down->GetBeginData());
    EXPECT_EQ(Edge(*down), E(0.049, 2));  // the last high sample, nearer to both levels
    // Backward the jump is typed against the value two samples before it.
    down->SetPosition(0.080e9, 0);
    ASSERT_TRUE(down->GetPrevData());
    EXPECT_EQ(down->CurType(), 2u);
}

TEST(EdgeReader, ANoisySlowRiseIsTimedAtTheUpperLevel) {
    // A ramp of 0.1 per sample with noise around the lower level 4 at 36..44.
    std::vector<double> values;
    for (int i = 0; i < 200; ++i) values.push_back(i < 100 ? i * 0.1 : 10.0);
    const double noise[] = {3.8, 4.2, 3.8, 4.2, 3.8, 4.2, 3.8, 4.2, 3.9};
    for (int i = 0; i < 9; ++i) values[36 + i] = noise[i];
    DerivedWave<double> wave;
    wave.Runs({{0.0, values}});
    auto edges = wave.Edges(5.0, 1.0);
    ASSERT_TRUE(edges->GetBeginData());
    EXPECT_EQ(Edge(*edges), E(0.060, 1));  // the first sample at 6
    // The last crossing of 4 before the upper one is the one at 44/45.
    EXPECT_NEAR(edges->Finder().LastCrossing(0.036, 0.060, 4.0), 0.044, kTolerance);
    // A first time behind the second comes back as it is.
    EXPECT_EQ(edges->Finder().LastCrossing(0.060, 0.036, 4.0), 0.060);
    EXPECT_FALSE(edges->GetNextData());
}

TEST(EdgeReader, ASquareWaveBothWaysWithFiltersAndNearATime) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Square(20, 3, 0.0, 10.0)}});
    auto edges = wave.Edges(5.0, 1.0);
    std::vector<E> seen;
    for (bool ok = edges->GetBeginData(); ok; ok = edges->GetNextData()) seen.push_back(Edge(*edges));
    EXPECT_EQ(seen, (std::vector<E>{{0.02, 1}, {0.04, 2}, {0.06, 1}, {0.08, 2}, {0.1, 1}}));
    edges->SetPosition(0.1e9, 1);  // backward from the last edge: the same edges
    ASSERT_TRUE(edges->GetPrevData());
    EXPECT_EQ(Edge(*edges), E(0.08, 2));
    // The size axis' range ends one period behind the last sample: backward from there
    // no area is found to search, so the walk has no end record.
    EXPECT_FALSE(edges->GetEndData());

    // Rising edges only. The type is not set by a filtered search: a fresh reader has 0,
    // and with it the time is taken by the falling rule (the last sample at 4 or below).
    auto rising = wave.Edges(5.0, 1.0, 1);
    ASSERT_TRUE(rising->GetBeginData());
    EXPECT_EQ(Edge(*rising), E(0.019, 0));
    ASSERT_TRUE(rising->GetNextData());
    EXPECT_NEAR(rising->CurTime(), 0.059, kTolerance);
    // After an unfiltered search the type carries over, and the time follows it.
    EdgeSearchParam both{5.0, 1.0, 3};
    rising->SetupParame(&both);
    rising->SetPosition(0, 0);
    ASSERT_TRUE(rising->GetNextData());
    EdgeSearchParam only_rising{5.0, 1.0, 1};
    rising->SetupParame(&only_rising);
    ASSERT_TRUE(rising->GetNextData());
    EXPECT_EQ(Edge(*rising), E(0.060, 1));

    // A filter outside 1..3 keeps the former one but takes the levels.
    EdgeSearchParam other{2.0, 0.5, 0};
    rising->SetupParame(&other);
    EXPECT_EQ(rising->EdgeType(), 1u);
    EXPECT_EQ(rising->Finder().Upper(), 2.5);
    EXPECT_EQ(rising->Finder().Lower(), 1.5);

    // The nearest edge to a time, the next one on a tie; before the first edge only the
    // next one is found, after the last only the previous.
    for (auto [time, expected] : {std::pair{0.026, E(0.02, 1)}, {0.034, E(0.04, 2)}, {0.005, E(0.02, 1)}}) {
        auto reader = wave.Edges(5.0, 1.0);
        ASSERT_TRUE(reader->GetAppointTimeData(time));
        EXPECT_EQ(Edge(*reader), expected) << time;
    }
    auto last = wave.Edges(5.0, 1.0);
    ASSERT_TRUE(last->GetAppointTimeData(0.115));
    EXPECT_NEAR(last->CurTime(), 0.100, kTolerance);
    DerivedWave<double> flat;
    flat.Runs({{0.0, std::vector<double>(50, 1.0)}});
    EXPECT_FALSE(flat.Edges(5.0, 1.0)->GetAppointTimeData(0.02));
}

TEST(EdgeReader, IntegerLevelsAreTruncatedAndWrapInTheElementType) {
    DerivedWave<uint8_t> wave("TEST_WAVE_U8");
    std::vector<uint8_t> values(100, 0);
    for (int i = 50; i < 100; ++i) values[i] = 200;
    wave.Runs({{0.0, values}});
    auto edges = wave.Edges(100.9, 1.0);
    EXPECT_EQ(edges->Finder().Upper(), 101);
    EXPECT_EQ(edges->Finder().Lower(), 99);
    ASSERT_TRUE(edges->GetBeginData());
    EXPECT_EQ(Edge(*edges), E(0.050, 1));
    auto wrapped = wave.Edges(250.0, 10.0);
    EXPECT_EQ(wrapped->Finder().Upper(), 4);  // 260 in 8 bits
}

}  // namespace
