// The trend reader: values at times (windows, the nearer point, the search bounds),
// GetData as it is defined, the valid range and the lock.

#include "trend/trend_data_reader.h"
#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

using namespace trend_test;

namespace {

double Seconds(uint64_t ns) { return static_cast<double>(ns) * 1e-9; }

}  // namespace

TEST(TrendReader, AtInsideAndBeyondAPointsWindow) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 4 * kMs, 0.25);  // 1 ms before a point, 3 ms after
    t.Push(10 * kMs, 7.0);
    auto reader = t.Reader();
    ASSERT_TRUE(reader);
    double value = -1;
    EXPECT_TRUE(reader->At(Seconds(12 * kMs), value));
    EXPECT_EQ(value, 7.0);
    value = -1;
    EXPECT_TRUE(reader->At(Seconds(9 * kMs + kMs / 2), value));  // before, inside the window
    EXPECT_EQ(value, 7.0);
    value = -1;
    EXPECT_FALSE(reader->At(Seconds(13 * kMs + kMs / 2), value));
    EXPECT_FALSE(reader->At(Seconds(8 * kMs), value));
    EXPECT_EQ(value, -1.0);  // untouched
}

TEST(TrendReader, AtTakesTheNearerPointInReachAndTheLaterOneOnATie) {
    Trend<float> t("BASIC_TREND[FLOAT]", 4 * kMs, 0.25);
    t.Push(10 * kMs, 1.0f);
    t.Push(20 * kMs, 2.0f);
    t.Push(30 * kMs, 3.0f);
    ASSERT_EQ(t.Areas().size(), 2u);  // windows of 4 ms don't touch
    auto reader = t.Reader();
    double value = 0;
    EXPECT_TRUE(reader->At(Seconds(21 * kMs), value));
    EXPECT_EQ(value, 2.0);
    EXPECT_TRUE(reader->At(Seconds(29 * kMs + kMs / 2), value));
    EXPECT_EQ(value, 3.0);
    // Out of reach of both neighbours: the later point wins.
    EXPECT_TRUE(reader->At(Seconds(25 * kMs), value));
    EXPECT_EQ(value, 3.0);
    // Beyond the last point: its window, then nothing.
    EXPECT_TRUE(reader->At(Seconds(32 * kMs), value));
    EXPECT_EQ(value, 3.0);
    EXPECT_FALSE(reader->At(Seconds(34 * kMs), value));
    // A point after t at position 1 stands alone: only its own window counts.
    EXPECT_FALSE(reader->At(Seconds(15 * kMs), value));
    EXPECT_TRUE(reader->At(Seconds(19 * kMs + kMs / 2), value));
    EXPECT_EQ(value, 2.0);

    // Equally far from both, but the later point reaches only 1 ms back: the earlier wins.
    Trend<float> close("BASIC_TREND[FLOAT]", 4 * kMs, 0.25);
    close.Push(2 * kMs, 0.0f);
    close.Push(10 * kMs, 1.0f);
    close.Push(14 * kMs, 2.0f);
    EXPECT_TRUE(close.Reader()->At(Seconds(12 * kMs), value));
    EXPECT_EQ(value, 1.0);
}

TEST(TrendReader, BinarySearchEndsOnAnExactHit) {
    Trend<int32_t> t("BASIC_TREND[INT32]", 0, 0.0);
    for (int i = 0; i < 7; ++i) t.Push(static_cast<uint64_t>(i) * 10 * kMs, 100 + i);
    auto reader = t.Reader();
    // The middle point is the first one the search reads; every point is hit exactly.
    for (int i = 0; i < 7; ++i) {
        double value = 0;
        EXPECT_TRUE(reader->At(Seconds(static_cast<uint64_t>(i) * 10 * kMs), value)) << i;
        EXPECT_EQ(value, 100 + i);
    }
    // Duration 0: between two points both are out of reach and the later one wins; after
    // the last point there is nothing.
    double value = 0;
    EXPECT_TRUE(reader->At(Seconds(35 * kMs), value));
    EXPECT_EQ(value, 104.0);
    EXPECT_FALSE(reader->At(Seconds(60 * kMs + 1000), value));
}

TEST(TrendReader, AtSearchesTheStretchThatTheIndexNames) {
    // Windows of 1 s: one open area, nothing stored, so the index bounds the search.
    Trend<double> t("BASIC_TREND[DOUBLE]", 1'000'000'000, 0.5);
    for (uint64_t i = 0; i < 1000; ++i) t.Push(i * kMs, static_cast<double>(i));
    ASSERT_TRUE(t.Areas().empty());
    ASSERT_EQ(t.Index().size(), 20u);
    auto reader = t.Reader();
    double value = 0;
    EXPECT_TRUE(reader->At(Seconds(700 * kMs + 200'000), value));
    EXPECT_EQ(value, 700.0);
    EXPECT_TRUE(reader->At(Seconds(612 * kMs + 700'000), value));
    EXPECT_EQ(value, 613.0);
    EXPECT_TRUE(reader->At(Seconds(999 * kMs + 400'000), value));  // the open bucket: whole trend
    EXPECT_EQ(value, 999.0);
    // The stretch begins at the entry's count: in the first bucket (51 points, none
    // before it) it starts past the points of the bucket, and the search ends on point 51.
    EXPECT_TRUE(reader->At(Seconds(25 * kMs + 200'000), value));
    EXPECT_EQ(value, 51.0);
}

TEST(TrendReader, AtConvertsWithTheDataAxis) {
    Trend<uint8_t> t("BASIC_TREND[UINT8]", 0, 0.0);
    IBaseCtr* data_axis = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "dataAxis");
    t.item->AddChildItem(data_axis, "dataAxis", true);
    QueryInterface<IDatasetAxis>(data_axis)->SetRatioOffset(-1.0, 0.5);
    t.Push(40 * kMs, 255);
    auto reader = t.Reader();
    double value = 0;
    EXPECT_TRUE(reader->At(Seconds(40 * kMs), value));
    EXPECT_EQ(value, 255 * 0.5 - 1.0);  // no invalid value in a trend: 255 is a value
}

TEST(TrendReader, GetDataHandsNanosecondTimesToAtAndWritesTheFirstElement) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 0, 0.0);
    for (uint64_t i = 0; i < 10; ++i) t.Push(i * kMs, 10.0 + static_cast<double>(i));
    auto reader = t.Reader();
    double begin = 0, end = Seconds(5 * kMs);
    std::vector<double> out{-1, -1, -1, -1, -1, -1, -1, -1};
    reader->GetData(begin, end, out, false);
    // Five sample steps. At(0) finds the point at 0; At(1e6 s) and later find nothing,
    // so the first element keeps the first value and the others their fill.
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[0], 10.0);
    for (std::size_t i = 1; i < out.size(); ++i) EXPECT_EQ(out[i], 0.0) << i;

    // Less than one step: nothing to size, nothing written.
    end = begin + 1e-4;
    reader->GetData(begin, end, out, true);
    EXPECT_TRUE(out.empty());
    end = begin - 1.0;
    out.assign(3, 1.0);
    reader->GetData(begin, end, out, false);
    EXPECT_TRUE(out.empty());
}

TEST(TrendReader, MaxValidRangeAndLock) {
    Trend<int64_t> t("BASIC_TREND[INT64]", 0, 0.0);
    auto reader = t.Reader();
    double begin = -1, end = -1;
    EXPECT_FALSE(reader->GetMaxValidRange(begin, end, true));
    EXPECT_EQ(begin, -1.0);
    t.Push(2 * kMs, 1);
    t.Push(3 * kStep, 2);
    EXPECT_TRUE(reader->GetMaxValidRange(begin, end, false));
    EXPECT_DOUBLE_EQ(begin, 0.002);
    EXPECT_DOUBLE_EQ(end, 0.15);

    reader->SetLock(true);
    EXPECT_EQ(t.dataset->LockCount(), 1u);
    reader->SetLock(false);
    EXPECT_EQ(t.dataset->LockCount(), 0u);
}
