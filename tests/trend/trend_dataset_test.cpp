// The plain trend dataset, and the trend type names that the module registers.

#include "host/item_binding.h"
#include "trend/trend_dataset.h"
#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

TEST(TrendDataSet, PushesSixteenByteRecordsReadBackByName) {
    TrendDataSet<uint8_t> trend;
    EXPECT_EQ(trend.MainStorageId(), "Trend");
    EXPECT_EQ(trend.GetStorage("Trend")->UnitSize(), 16u);
    EXPECT_EQ(trend.Push(nullptr, 0), 0u);
    // No check of the order of the times.
    const TrendData<uint8_t> points[] = {{30, 7}, {10, 9}};
    EXPECT_EQ(trend.Push(points, 2), 2u);

    Ctr<IReader> reader(trend.GetExtendCtr(VellumTypeOf<IReader>(), false, "trend"));
    ASSERT_TRUE(reader);
    ASSERT_EQ(reader->Count(), 2u);
    TrendData<uint8_t> back[2]{};
    EXPECT_EQ(reader->Read(0, back, 2), 2u);
    EXPECT_EQ(back[1].time, 10u);
    EXPECT_EQ(back[1].value, 9);
    EXPECT_FALSE(trend.GetExtendCtr(VellumTypeOf<IReader>(), false, "Index"));
    EXPECT_EQ(Ctr<DataSetBase>(trend.GetExtendCtr(VellumTypeOf<DataSetBase>(), false, {})).get(), &trend);
}

TEST(TrendDataSet, LockCommandsInAnyCaseAndNoHelperWithoutItem) {
    TrendDataSet<double> trend;
    EXPECT_TRUE(trend.InitItem(nullptr));
    EXPECT_TRUE(trend.OnCMD("LOCK", nullptr));
    EXPECT_EQ(trend.LockCount(), 1u);
    EXPECT_TRUE(trend.OnCMD("unlock", nullptr));
    EXPECT_EQ(trend.LockCount(), 0u);
    EXPECT_FALSE(trend.OnCMD("AxisUpdate", nullptr));
}

TEST(TrendRegistration, BasicTrendNamesCreateTheirInstancesInTheRootScope) {
    testing_support::ModuleScope();  // registers the module's types
    std::unique_ptr<IBaseCtr> item(CreateItemByType(GetRootLocal(), "BASIC_TREND[UINT64]", "t"));
    ASSERT_TRUE(item);
    EXPECT_TRUE(QueryInterface<BasicTrendDataSet<uint64_t>>(item.get()));
    EXPECT_TRUE(QueryInterface<ITrendDataSet<uint64_t>>(item.get()));
    EXPECT_TRUE(QueryInterface<IBasicWaveReader>(item.get()));
    item.reset(CreateItemByType(GetRootLocal(), "BASIC_TREND[INT8]", "t"));
    EXPECT_TRUE(QueryInterface<BasicTrendDataSet<int8_t>>(item.get()));
    // There is no name for the long double instance.
    EXPECT_EQ(CreateItemByType(GetRootLocal(), "BASIC_TREND[LONG DOUBLE]", "t"), nullptr);
}
