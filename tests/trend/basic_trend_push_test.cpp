// The push path of the basic trend: the index on the 50-sample grid
// with its header and empty buckets, and the areas in single precision.

#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace trend_test;

TEST(BasicTrendPush, FirstPointAtZeroGivesHeaderZeroAndAGridPointClosesItsBucket) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    EXPECT_EQ(t.Push(0, 1.0), 1u);
    EXPECT_EQ(t.Push(20 * kMs, 2.0), 1u);
    auto index = t.Index();
    ASSERT_EQ(index.size(), 1u);  // only the header; bucket 1 is open
    EXPECT_EQ(+index[0].position, 0u);
    EXPECT_EQ(+index[0].count, 0u);
    EXPECT_EQ(+t.dataset->OpenIndex().count, 2u);

    t.Push(kStep, 3.0);  // exactly on the grid line: closes bucket 1
    index = t.Index();
    ASSERT_EQ(index.size(), 2u);
    EXPECT_EQ(+index[1].position, 3u);
    EXPECT_EQ(+index[1].count, 3u);
    EXPECT_EQ(+index[1].minimum, 1.0);
    EXPECT_EQ(+index[1].maximum, 3.0);
    EXPECT_EQ(+t.dataset->OpenIndex().count, 0u);
}

TEST(BasicTrendPush, FirstPointAtTenStepsWritesHeaderNineAndItsOwnEntry) {
    Trend<int16_t> t("BASIC_TREND[INT16]");
    t.Push(10 * kStep, -4);
    auto index = t.Index();
    ASSERT_EQ(index.size(), 2u);
    EXPECT_EQ(+index[0].position, 9u);
    EXPECT_EQ(+index[0].count, 0u);
    EXPECT_EQ(+index[1].position, 1u);
    EXPECT_EQ(+index[1].count, 1u);
    EXPECT_EQ(+index[1].minimum, -4);
    EXPECT_EQ(+index[1].maximum, -4);

    // Off the grid, the first point only records the grid number of its bucket's start.
    Trend<int16_t> off("BASIC_TREND[INT16]");
    off.Push(10 * kStep + 7, 5);
    index = off.Index();
    ASSERT_EQ(index.size(), 1u);
    EXPECT_EQ(+index[0].position, 10u);
}

TEST(BasicTrendPush, LongPauseWritesOneEmptyEntryPerBucketPassed) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    t.Push(kStep / 2, 1.0);           // bucket 1, header 0
    t.Push(10 * kStep + kStep / 2, 2.0);  // bucket 11: buckets 2..10 passed
    auto index = t.Index();
    ASSERT_EQ(index.size(), 11u);
    EXPECT_EQ(+index[1].count, 1u);
    EXPECT_EQ(+index[1].position, 1u);
    for (std::size_t k = 2; k <= 10; ++k) {
        SCOPED_TRACE(k);
        EXPECT_EQ(+index[k].count, 0u);
        EXPECT_EQ(+index[k].position, 1u);  // the last point before the bucket
        // An empty entry keeps the starting values of the file format.
        EXPECT_EQ(+index[k].minimum, std::numeric_limits<double>::max());
        EXPECT_EQ(+index[k].maximum, std::numeric_limits<double>::min());
    }

    // A pause that ends on a grid line: the passed buckets, then the point's own bucket,
    // closed at once.
    t.Push(20 * kStep, 3.0);
    index = t.Index();
    ASSERT_EQ(index.size(), 21u);
    EXPECT_EQ(+index[11].count, 1u);  // the point at 10.5 steps
    EXPECT_EQ(+index[11].position, 2u);
    for (std::size_t k = 12; k <= 19; ++k) EXPECT_EQ(+index[k].count, 0u) << k;
    EXPECT_EQ(+index[20].count, 1u);
    EXPECT_EQ(+index[20].position, 3u);
    EXPECT_EQ(+index[20].maximum, 3.0);
    EXPECT_EQ(+t.dataset->OpenIndex().count, 0u);
}

TEST(BasicTrendPush, NegativeValuesSetBothExtremesFromTheFirstPoint) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    t.Push(1 * kMs, -5.0);
    t.Push(2 * kMs, -3.0);
    t.Push(3 * kMs, -7.0);
    t.Push(kStep, -6.0);
    auto index = t.Index();
    ASSERT_EQ(index.size(), 2u);
    EXPECT_EQ(+index[1].minimum, -7.0);
    EXPECT_EQ(+index[1].maximum, -3.0);
    EXPECT_EQ(+index[1].count, 4u);
}

TEST(BasicTrendPush, WithoutSizeAxisThePointIsRefused) {
    Trend<float> t("BASIC_TREND[FLOAT]", 0, 0.0, false);
    EXPECT_EQ(t.Push(5, 1.0f), 0u);
    EXPECT_TRUE(t.Points().empty());
    EXPECT_TRUE(t.Index().empty());
}

TEST(BasicTrendPush, DurationZeroClosesAnAreaAtEveryLaterPoint) {
    Trend<float> t("BASIC_TREND[FLOAT]", 0, 0.0);
    t.Push(1000, 1.0f);
    t.Push(2000, 2.0f);
    t.Push(3000, 3.0f);
    auto areas = t.Areas();
    ASSERT_EQ(areas.size(), 2u);
    for (uint64_t i = 0; i < 2; ++i) {
        EXPECT_EQ(+areas[i].first_position, i + 1);
        EXPECT_EQ(+areas[i].last_position, i + 1);
        EXPECT_EQ(+areas[i].begin_time, (i + 1) * 1000);
        EXPECT_EQ(+areas[i].end_time, (i + 1) * 1000);
        EXPECT_EQ(+areas[i].reserved[0], 0u);
        EXPECT_EQ(+areas[i].reserved[1], 0u);
    }
    EXPECT_EQ(+t.dataset->OpenArea().first_position, 3u);
}

TEST(BasicTrendPush, PointsWhoseWindowsTouchShareAnArea) {
    Trend<float> t("BASIC_TREND[FLOAT]", 1000, 0.25);  // 250 ns before a point, 750 after
    t.Push(1000, 1.0f);
    t.Push(1900, 1.0f);  // 1650 is inside the window that ends at 1750
    EXPECT_TRUE(t.Areas().empty());
    EXPECT_EQ(+t.dataset->OpenArea().begin_time, 750u);
    EXPECT_EQ(+t.dataset->OpenArea().end_time, 2650u);
    t.Push(5000, 1.0f);
    auto areas = t.Areas();
    ASSERT_EQ(areas.size(), 1u);
    EXPECT_EQ(+areas[0].first_position, 1u);
    EXPECT_EQ(+areas[0].last_position, 2u);
    EXPECT_EQ(+areas[0].begin_time, 750u);
    EXPECT_EQ(+areas[0].end_time, 2650u);
    EXPECT_EQ(+t.dataset->OpenArea().first_position, 3u);
    EXPECT_EQ(+t.dataset->OpenArea().begin_time, 4750u);

    // A point so early that its window reaches before 0 begins its area at 0.
    Trend<float> early("BASIC_TREND[FLOAT]", 1000, 0.5);
    early.Push(100, 1.0f);
    EXPECT_EQ(+early.dataset->OpenArea().begin_time, 0u);
}

TEST(BasicTrendPush, AreaTimesAreSinglePrecision) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 0, 0.0);
    const uint64_t time = (uint64_t{1} << 25) + 1;  // floats are 4 ns apart here
    t.Push(time, 1.0);
    EXPECT_EQ(+t.dataset->OpenArea().begin_time, uint64_t{1} << 25);
    EXPECT_EQ(+t.dataset->OpenArea().end_time, time);
    // A later point that a float can't tell from the area's end joins the area.
    t.Push(time + 1, 2.0);
    EXPECT_TRUE(t.Areas().empty());
    t.Push(time + 3, 2.0);
    EXPECT_EQ(t.Areas().size(), 1u);
}
