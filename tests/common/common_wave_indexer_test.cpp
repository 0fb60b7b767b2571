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
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-9, 1)), 100u);  // 1 ns
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-3, 1)), 100u);
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-3, 2)), 50u);   // 100 ms
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-3, 4)), 250u);  // 1 s
    // Mantissas that can't reach 1 keep the step they have, rather than loop or reach 0.
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-4, 3333)), 50u);
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime(-9, 6)), 150u);
    EXPECT_EQ(CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime()), 50u);

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

TEST(CommonWaveIndexer, OnePushFillsWholeSteps) {
    IndexedWave wave(3);
    wave.Push(0, {5, 1, 9, 2, 8, 3, 7});
    EXPECT_EQ(wave.Entries(), (Entries{{1, 9}, {2, 8}}));  // the seventh sample waits in the open pair
}

TEST(CommonWaveIndexer, FirstPushStartsFromItsFirstElementWhateverItsTime) {
    IndexedWave wave(4);
    wave.Push(2, {6, 7});  // starts mid-step; the pair closes at the step boundary
    EXPECT_EQ(wave.Entries(), (Entries{{6, 7}}));
}

TEST(CommonWaveIndexer, BeyondTheFirstStepEveryPushClosesTheOpenPair) {
    IndexedWave wave(4);
    wave.Push(0, {1, 2, 3, 4, 5, 6});  // entry {1,4}; the open pair restarts from 1, then takes 5 and 6
    EXPECT_EQ(wave.Entries(), (Entries{{1, 4}}));
    wave.Push(6, {9});  // 6 - 0 > 4: the open pair {1,6} is closed first
    EXPECT_EQ(wave.Entries(), (Entries{{1, 4}, {1, 6}}));
    wave.Push(7, {0});  // again, though the step is not full; 8 then closes {0,0}
    EXPECT_EQ(wave.Entries(), (Entries{{1, 4}, {1, 6}, {9, 9}, {0, 0}}));
}

TEST(CommonWaveIndexer, APairOpenedMidPushStartsFromThePushsFirstElement) {
    IndexedWave wave(2);
    wave.Push(0, {50, 1, 2, 3, 4});
    // At samples 2 and 4 the pair restarts from 50, the block's first element, which
    // lies outside those steps.
    EXPECT_EQ(wave.Entries(), (Entries{{1, 50}, {2, 50}}));
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
