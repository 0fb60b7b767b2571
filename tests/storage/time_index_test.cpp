// The time index on a storage without a channel.

#include "storage/block_storage.h"
#include "storage/time_index.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<uint32_t> Elements(StorageBase& storage) {
    std::vector<uint32_t> values(storage.Count());
    storage.Read(0, values.data(), values.size());
    return values;
}

class TimeIndex : public ::testing::Test {
protected:
    std::shared_ptr<StorageBase> storage = std::make_shared<CStorage>(nullptr, 4);
    std::unique_ptr<ITimeIndexOperator> index = CreateTimeIndexOperatorUnique(10, storage);
};

TEST_F(TimeIndex, AFirstTimeOnAStepMakesTheBaseOneStepEarlier) {
    index->Push(20, 100);
    EXPECT_EQ(Elements(*storage), (std::vector<uint32_t>{1, 100}));
    bool clamped = true;
    EXPECT_EQ(index->Find(25, &clamped), 100u);
    EXPECT_FALSE(clamped);
    EXPECT_EQ(index->Find(10, &clamped), 0u);  // at or before the base step
}

TEST_F(TimeIndex, TimesWithinAStoredStepAddNothingAndGapsTakeThePositionBefore) {
    index->Push(20, 100);
    index->Push(25, 150);                        // same step as 20
    EXPECT_EQ(storage->Count(), 2u);
    EXPECT_EQ(index->Push(53, 400), 3u);         // steps 3, 4 without data, then 5
    EXPECT_EQ(Elements(*storage), (std::vector<uint32_t>{1, 100, 399, 399, 399}));
    uint64_t begin = 0, end = 0;
    index->Range(&begin, &end);
    EXPECT_EQ(begin, 10u);
    EXPECT_EQ(end, 50u);
    bool clamped = false;
    EXPECT_EQ(index->Find(1000, &clamped), 399u);  // beyond the last step
    EXPECT_TRUE(clamped);
}

TEST_F(TimeIndex, AFirstTimeAtZeroStoresTheBaseOnly) {
    // Step 0 lies at or before the base, so the first push records no position.
    EXPECT_EQ(index->Push(0, 7), 1u);
    EXPECT_EQ(Elements(*storage), (std::vector<uint32_t>{0}));
    EXPECT_EQ(index->Find(5, nullptr), 0u);
}

TEST_F(TimeIndex, PeriodChangesEmptyTheIndexAndAZeroPeriodStoresNothing) {
    index->Push(20, 100);
    index->SetPeriod(0);
    EXPECT_EQ(storage->Count(), 0u);
    EXPECT_EQ(index->Push(20, 100), 0u);
    EXPECT_EQ(index->Find(20, nullptr), 0u);
    EXPECT_EQ(index->Period(), 0u);
    EXPECT_EQ(index->Last(), 0u);
}

}  // namespace
