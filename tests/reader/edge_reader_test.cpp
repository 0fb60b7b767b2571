// Edge walks: the time and type of an edge, the sharpening of a noisy first crossing,
// the rules for a jump across both levels within one sample, the filters, and the
// choice of the nearest edge.

#include "support/derived_wave.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double kTolerance = 1e-9;

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
    EXPECT_NEAR(edges->CurTime(), 0.050, kTolerance);
    EXPECT_EQ(edges->CurType(), 1u);
    FindEdgeResult result{};
    edges->GetResult(&result);
    EXPECT_EQ(result.dEdgeTime, edges->CurTime());
    EXPECT_EQ(result.u32EdgeType, 1u);
    EXPECT_FALSE(edges->GetNextData());  // a failed step keeps the edge
    EXPECT_NEAR(edges->CurTime(), 0.050, kTolerance);

    // Levels that both meet the same sample: typed by the value 10 samples before.
    auto near = wave.Edges(5.5, 0.25);
    ASSERT_TRUE(near->GetBeginData());
    EXPECT_NEAR(near->CurTime(), 0.050, kTolerance);
    EXPECT_EQ(near->CurType(), 1u);
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
    EXPECT_NEAR(down->CurTime(), 0.049, kTolerance);  // the last high sample, nearer to both levels
    EXPECT_EQ(down->CurType(), 2u);
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
    EXPECT_EQ(edges->CurType(), 1u);
    EXPECT_NEAR(edges->CurTime(), 0.060, kTolerance);  // the first sample at 6
    // The last crossing of 4 before the upper one is the one at 44/45.
    EXPECT_NEAR(edges->Finder().LastCrossing(0.036, 0.060, 4.0), 0.044, kTolerance);
    // A first time behind the second comes back as it is.
    EXPECT_EQ(edges->Finder().LastCrossing(0.060, 0.036, 4.0), 0.060);
    EXPECT_FALSE(edges->GetNextData());
}

TEST(EdgeReader, ASquareWaveBothWaysAndWithFilters) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Square(20, 3, 0.0, 10.0)}});
    auto edges = wave.Edges(5.0, 1.0);
    std::vector<std::pair<double, unsigned>> seen;
    for (bool ok = edges->GetBeginData(); ok; ok = edges->GetNextData())
        seen.emplace_back(edges->CurTime(), edges->CurType());
    ASSERT_EQ(seen.size(), 5u);
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_NEAR(seen[i].first, 0.020 * static_cast<double>(i + 1), kTolerance);
        EXPECT_EQ(seen[i].second, i % 2 == 0 ? 1u : 2u);
    }
    // Backward from the last edge: the same edges.
    edges->SetPosition(seen.back().first * 1e9, seen.back().second);
    ASSERT_TRUE(edges->GetPrevData());
    EXPECT_NEAR(edges->CurTime(), 0.080, kTolerance);
    EXPECT_EQ(edges->CurType(), 2u);
    // The size axis' range ends one period behind the last sample: backward from there
    // no area is found to search, so the walk has no end record.
    EXPECT_FALSE(edges->GetEndData());

    // Rising edges only. The type is not set by a filtered search: a fresh reader has 0,
    // and with it the time is taken by the falling rule (the last sample at 4 or below).
    auto rising = wave.Edges(5.0, 1.0, 1);
    ASSERT_TRUE(rising->GetBeginData());
    EXPECT_NEAR(rising->CurTime(), 0.019, kTolerance);
    EXPECT_EQ(rising->CurType(), 0u);
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
    EXPECT_NEAR(rising->CurTime(), 0.060, kTolerance);
    EXPECT_EQ(rising->CurType(), 1u);

    // A filter outside 1..3 keeps the former one but takes the levels.
    EdgeSearchParam other{2.0, 0.5, 0};
    rising->SetupParame(&other);
    EXPECT_EQ(rising->EdgeType(), 1u);
    EXPECT_EQ(rising->Finder().Upper(), 2.5);
    EXPECT_EQ(rising->Finder().Lower(), 1.5);
}

TEST(EdgeReader, TheNearestEdgeToATimeAndTheNextOneOnATie) {
    DerivedWave<double> wave;
    wave.Runs({{0.0, Square(20, 3, 0.0, 10.0)}});
    auto edges = wave.Edges(5.0, 1.0);
    ASSERT_TRUE(edges->GetBeginData());
    const double rise = edges->CurTime();
    ASSERT_TRUE(edges->GetNextData());
    const double fall = edges->CurTime();

    auto nearest = [&](double t) {
        auto reader = wave.Edges(5.0, 1.0);
        EXPECT_TRUE(reader->GetAppointTimeData(t));
        return std::make_pair(reader->CurTime(), reader->CurType());
    };
    EXPECT_EQ(nearest(0.026), std::make_pair(rise, 1u));
    EXPECT_EQ(nearest(0.034), std::make_pair(fall, 2u));
    // Before the first edge only the next one is found; after the last only the previous.
    EXPECT_EQ(nearest(0.005), std::make_pair(rise, 1u));
    EXPECT_NEAR(nearest(0.115).first, 0.100, kTolerance);

    DerivedWave<double> flat;
    flat.Runs({{0.0, std::vector<double>(50, 1.0)}});
    EXPECT_FALSE(flat.Edges(5.0, 1.0)->GetAppointTimeData(0.02));
}

// Edges at 0.25 s (rising) and 0.75 s (falling), where times are exact.
class ScriptedSteps : public CEdgeDataReader<double> {
public:
    ScriptedSteps() : CEdgeDataReader<double>(nullptr, nullptr) {}
    double prev_searched_from = -1;
    bool GetNextData() override {
        if (CurTime() >= 0.75) return false;
        SetPosition(0.75e9, 2);
        return true;
    }
    bool GetPrevData() override {
        prev_searched_from = CurTime();
        if (CurTime() <= 0.25) return false;
        SetPosition(0.25e9, 1);
        return true;
    }
};

TEST(EdgeReader, IntegerLevelsAreTruncatedAndWrapInTheElementType) {
    DerivedWave<uint8_t> wave("TEST_WAVE_U8");
    std::vector<uint8_t> values(100, 0);
    for (int i = 50; i < 100; ++i) values[i] = 200;
    wave.Runs({{0.0, values}});
    auto edges = wave.Edges(100.9, 1.0);
    EXPECT_EQ(edges->Finder().Upper(), 101);
    EXPECT_EQ(edges->Finder().Lower(), 99);
    ASSERT_TRUE(edges->GetBeginData());
    EXPECT_NEAR(edges->CurTime(), 0.050, kTolerance);
    EXPECT_EQ(edges->CurType(), 1u);
    auto wrapped = wave.Edges(250.0, 10.0);
    EXPECT_EQ(wrapped->Finder().Upper(), 4);  // 260 in 8 bits
}

}  // namespace
