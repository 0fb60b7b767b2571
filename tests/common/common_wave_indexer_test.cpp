// The min/max index of the common wave dataset: step derivation and the settled ways
// in which pairs open and close.

#include "common/common_wave_dataset.h"
#include "common/common_wave_indexer.h"
#include "storage/storage_base.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

namespace {

// A float dataset at 1 sample per second with a main indexer of the given step.
struct IndexedWave {
    explicit IndexedWave(unsigned step) {
        dataset.SetSampleRate(1.0);
        dataset.SetDataType("FLOAT", true);
        dataset.CreateStorages({}, nullptr, {});
        dataset.SetIndexStep(step);
    }
    void Push(int64_t first_sample, std::vector<float> values) {
        ASSERT_TRUE(dataset.Push(VellumTime::FromNanoseconds(first_sample * 1000000000), values.data(), values.size()));
    }
    std::vector<std::pair<float, float>> Entries() {
        std::vector<std::pair<float, float>> out(dataset.IndexStorage()->Count());
        dataset.IndexStorage()->Read(0, out.data(), out.size());
        return out;
    }
    CommonWaveDataSet dataset;
};

using Entries = std::vector<std::pair<float, float>>;

TEST(CommonWaveIndexer, StepFromThePeriodIsAWholePowerOfTenOfTime) {
    // 1 ns, 1 ms, 100 ms (2 x 50 us), 1 s (4 x 250 ms); mantissas that can't reach 1 keep
    // the step they have, rather than loop or reach 0.
    const std::pair<VellumLevelTime, unsigned> cases[] = {
        {VellumLevelTime(-9, 1), 100},   {VellumLevelTime(-3, 1), 100}, {VellumLevelTime(-3, 2), 50},
        {VellumLevelTime(-3, 4), 250},   {VellumLevelTime(-4, 3333), 50}, {VellumLevelTime(-9, 6), 150},
        {VellumLevelTime(), 50}};
    for (const auto& [period, step] : cases) EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(period), step);

    CommonWaveDataSet dataset;
    dataset.SetSampleRate(1e9);
    dataset.SetDataType("INT8", true);
    dataset.CreateStorages({}, nullptr, {});
    CommonWaveMaxMinIndexer derived, fixed;
    fixed.SetAttribute("step", "9");
    fixed.SetAttribute("step", "zero");  // not a number: the step stays
    dataset.AddIndexer("derived", &derived);
    dataset.AddIndexer("fixed", &fixed);
    EXPECT_EQ(derived.Step(), 100u);
    EXPECT_FALSE(derived.StepSet());
    EXPECT_EQ(fixed.Step(), 9u);
    EXPECT_EQ(fixed.IndexStorage()->UnitSize(), 2u);
}

struct PushCase {
    unsigned step;
    std::vector<std::pair<int64_t, std::vector<float>>> pushes;  // first sample, values
    Entries expected;
};

TEST(CommonWaveIndexer, PushesOpenAndClosePairsTheSettledWay) {
    const PushCase cases[] = {
        // One push fills whole steps; the seventh sample waits in the open pair.
        {3, {{0, {5, 1, 9, 2, 8, 3, 7}}}, {{1, 9}, {2, 8}}},
        // The first push starts mid-step; the pair closes at the step boundary.
        {4, {{2, {6, 7}}}, {{6, 7}}},
        // Beyond the first step every push closes the open pair, full or not.
        {4, {{0, {1, 2, 3, 4, 5, 6}}, {6, {9}}, {7, {0}}}, {{1, 4}, {1, 6}, {9, 9}, {0, 0}}},
        // A pair opened mid-push restarts from the push's first element.
        {2, {{0, {50, 1, 2, 3, 4}}}, {{1, 50}, {2, 50}}},
    };
    for (const auto& c : cases) {
        IndexedWave wave(c.step);
        for (const auto& [first, values] : c.pushes) wave.Push(first, values);
        EXPECT_EQ(wave.Entries(), c.expected) << "step " << c.step;
    }
}

TEST(CommonWaveIndexer, AStepOfOneGivesEqualMinimumAndMaximum) {
    IndexedWave wave(1);
    wave.Push(0, {3, 3, 3});
    EXPECT_EQ(wave.Entries(), (Entries{{3, 3}, {3, 3}, {3, 3}}));
    wave.dataset.ResetIndexer(CommonWaveDataSet::kMainIndexerName);
    EXPECT_TRUE(wave.Entries().empty());
    wave.Push(10, {4});
    EXPECT_EQ(wave.Entries(), (Entries{{4, 4}}));  // after a reset the first push opens again
}

}  // namespace
