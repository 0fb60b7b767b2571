// The push path of the basic trend: the index on the 50 ms grid with its header and empty
// buckets, and the areas in single precision.

#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

using namespace trend_test;

namespace {

// (position, count) of each index entry, the header first.
template <class T>
std::vector<std::pair<uint64_t, uint64_t>> Entries(Trend<T>& t) {
    std::vector<std::pair<uint64_t, uint64_t>> entries;
    for (const auto& e : t.Index()) entries.emplace_back(+e.position, +e.count);
    return entries;
}

// (first, last position, begin, end time) of each closed area.
std::vector<std::tuple<uint64_t, uint64_t, uint64_t, uint64_t>> Areas(Trend<float>& t) {
    std::vector<std::tuple<uint64_t, uint64_t, uint64_t, uint64_t>> areas;
    for (const auto& a : t.Areas()) {
        EXPECT_EQ(a.reserved[0] | a.reserved[1], 0u);
        areas.emplace_back(+a.first_position, +a.last_position, +a.begin_time, +a.end_time);
    }
    return areas;
}

using Index = std::vector<std::pair<uint64_t, uint64_t>>;

}  // namespace

TEST(BasicTrendPush, TheHeaderHoldsTheFirstBucketAndAGridPointClosesItsBucket) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    EXPECT_EQ(t.Push(0, 1.0), 1u);
    t.Push(20 * kMs, 2.0);
    EXPECT_EQ(Entries(t), (Index{{0, 0}}));  // bucket 1 is open
    EXPECT_EQ(+t.dataset->OpenIndex().count, 2u);
    t.Push(kStep, 3.0);  // exactly on the grid line: closes bucket 1
    EXPECT_EQ(Entries(t), (Index{{0, 0}, {3, 3}}));
    EXPECT_EQ(+t.Index()[1].minimum, 1.0);
    EXPECT_EQ(+t.Index()[1].maximum, 3.0);
    EXPECT_EQ(+t.dataset->OpenIndex().count, 0u);

    Trend<int16_t> grid("BASIC_TREND[INT16]");  // a first point on grid line 10: header 9, its own entry
    grid.Push(10 * kStep, -4);
    EXPECT_EQ(Entries(grid), (Index{{9, 0}, {1, 1}}));
    EXPECT_TRUE(grid.Index()[1].minimum == -4 && grid.Index()[1].maximum == -4);
    Trend<int16_t> off("BASIC_TREND[INT16]");  // off the grid: the grid number of its bucket's start
    off.Push(10 * kStep + 7, 5);
    EXPECT_EQ(Entries(off), (Index{{10, 0}}));

    Trend<double> negative("BASIC_TREND[DOUBLE]");  // both extremes from the first point
    uint64_t ms = 0;
    for (double v : {-5.0, -3.0, -7.0}) negative.Push(++ms * kMs, v);
    negative.Push(kStep, -6.0);
    EXPECT_TRUE(negative.Index()[1].minimum == -7.0 && negative.Index()[1].maximum == -3.0);
}

TEST(BasicTrendPush, APauseWritesOneEmptyEntryPerBucketPassed) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    t.Push(kStep / 2, 1.0);               // bucket 1, header 0
    t.Push(10 * kStep + kStep / 2, 2.0);  // bucket 11: buckets 2..10 passed
    Index expected{{0, 0}, {1, 1}};
    for (int k = 2; k <= 10; ++k) expected.push_back({1, 0});  // the last point before the bucket
    EXPECT_EQ(Entries(t), expected);
    // An empty entry keeps the starting values of the file format.
    EXPECT_EQ(+t.Index()[5].minimum, std::numeric_limits<double>::max());
    EXPECT_EQ(+t.Index()[5].maximum, std::numeric_limits<double>::min());
    // A pause that ends on a grid line: the passed buckets, then the point's own, closed at once.
    t.Push(20 * kStep, 3.0);
    expected.push_back({2, 1});
    for (int k = 12; k <= 19; ++k) expected.push_back({2, 0});
    expected.push_back({3, 1});
    EXPECT_EQ(Entries(t), expected);
    EXPECT_EQ(+t.dataset->OpenIndex().count, 0u);
}

TEST(BasicTrendPush, WithoutSizeAxisThePointIsRefused) {
    Trend<float> t("BASIC_TREND[FLOAT]", 0, 0.0, false);
    EXPECT_EQ(t.Push(5, 1.0f), 0u);
    EXPECT_TRUE(t.Points().empty() && t.Index().empty());
}

TEST(BasicTrendPush, AreasCloseWhenWindowsDoNotTouch) {
    Trend<float> zero("BASIC_TREND[FLOAT]", 0, 0.0);  // duration 0: an area per point
    for (uint64_t time : {1000, 2000, 3000}) zero.Push(time, 1.0f);
    EXPECT_EQ(Areas(zero), (decltype(Areas(zero)){{1, 1, 1000, 1000}, {2, 2, 2000, 2000}}));
    EXPECT_EQ(+zero.dataset->OpenArea().first_position, 3u);

    Trend<float> t("BASIC_TREND[FLOAT]", 1000, 0.25);  // 250 ns before a point, 750 after
    t.Push(1000, 1.0f);
    t.Push(1900, 1.0f);  // 1650 is inside the window that ends at 1750
    EXPECT_TRUE(t.Areas().empty());
    t.Push(5000, 1.0f);
    EXPECT_EQ(Areas(t), (decltype(Areas(t)){{1, 2, 750, 2650}}));
    EXPECT_EQ(+t.dataset->OpenArea().first_position, 3u);
    EXPECT_EQ(+t.dataset->OpenArea().begin_time, 4750u);

    Trend<float> early("BASIC_TREND[FLOAT]", 1000, 0.5);  // a window reaching before 0 begins at 0
    early.Push(100, 1.0f);
    EXPECT_EQ(+early.dataset->OpenArea().begin_time, 0u);
}

TEST(BasicTrendPush, AreaTimesAreSinglePrecision) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 0, 0.0);
    const uint64_t time = (uint64_t{1} << 25) + 1;  // floats are 4 ns apart here
    t.Push(time, 1.0);
    EXPECT_EQ(+t.dataset->OpenArea().begin_time, uint64_t{1} << 25);
    EXPECT_EQ(+t.dataset->OpenArea().end_time, time);
    t.Push(time + 1, 2.0);  // a float can't tell it from the area's end: it joins the area
    EXPECT_TRUE(t.Areas().empty());
    t.Push(time + 3, 2.0);
    EXPECT_EQ(t.Areas().size(), 1u);
}
