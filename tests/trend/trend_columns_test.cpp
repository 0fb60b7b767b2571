// Display columns of a trend: points for short spans, the index for long ones (checked
// against a plain pass over all points), the cut of a negative begin, the data axis.

#include "trend/trend_columns.h"
#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

using namespace trend_test;

namespace {

double Seconds(uint64_t ns) { return static_cast<double>(ns) * 1e-9; }

// The columns of [b, e] by a pass over every point, with the column rule of the header.
template <class T>
std::vector<MinMaxData<double>> PlainColumns(const std::vector<TrendPoint<T>>& points, uint64_t b, uint64_t e,
                                             unsigned columns) {
    const double nan = std::nan("");
    std::vector<MinMaxData<double>> out(columns, MinMaxData<double>{nan, nan});
    const double width = static_cast<double>(e - b) / columns;
    auto start = [&](uint64_t i) {
        return i >= columns ? e + 1 : b + static_cast<uint64_t>(std::llround(static_cast<double>(i) * width));
    };
    uint64_t column = 0;
    for (const TrendPoint<T>& point : points) {
        const uint64_t time = point.time;
        if (time < b || time > e) continue;
        while (start(column + 1) <= time) ++column;
        const double value = static_cast<double>(point.value);
        MinMaxData<double>& c = out[column];
        if (std::isnan(c.min)) {
            c = {value, value};
        } else {
            c.min = std::min(c.min, value);
            c.max = std::max(c.max, value);
        }
    }
    return out;
}

// Columns as "min max" text, NaN as "nan", for whole-vector comparisons.
std::vector<std::string> Text(const std::vector<MinMaxData<double>>& columns) {
    std::vector<std::string> text;
    for (const auto& c : columns) text.push_back(std::to_string(c.min) + " " + std::to_string(c.max));
    return text;
}

// An irregular trend: the first point exactly on a grid line, steps of 1 us to 3 ms, a
// pause of a second in the middle, values of both signs.
template <class T>
void PushIrregular(Trend<T>& t, int count) {
    std::mt19937_64 random(7);
    uint64_t time = 10 * kStep;
    for (int i = 0; i < count; ++i) {
        // The first value lies outside the others: a column that takes it wrongly shows.
        t.Push(time, static_cast<T>(i == 0 ? 5000 : static_cast<int>(random() % 2001) - 1000));
        time += 1000 + random() % (3 * kMs);
        if (i == count / 2) time += 1'000'000'000;
    }
}

}  // namespace

TEST(TrendColumns, AColumnWithoutAPointIsNaNWhateverTheFillMode) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    for (uint64_t i = 0; i < 100; ++i) t.Push(i * kMs, static_cast<double>(i));
    double begin = Seconds(10 * kMs), end = Seconds(20 * kMs);
    std::vector<MinMaxData<double>> out;
    t.Reader()->GetMinMaxData(begin, end, out, 20, GetDataParam{1}, 0);  // more columns than points
    ASSERT_EQ(out.size(), 20u);
    EXPECT_EQ(out[0].min, 10.0);
    EXPECT_EQ(Text(out)[1], "nan nan");
    EXPECT_EQ(out[2].max, 11.0);
}

TEST(TrendColumns, LongSpansFromTheIndexMatchAPassOverAllPoints) {
    Trend<int32_t> t("BASIC_TREND[INT32]", 2 * kMs, 0.5);
    PushIrregular(t, 20000);
    const auto points = t.Points();
    ASSERT_EQ(points.size(), 20000u);
    BaseStructReader<TrendPoint<int32_t>> trend(t.dataset->GetStorage("__Trend__"));
    BaseStructReader<TrendIndexEntry<int32_t>> index(t.dataset->GetStorage("__Index__"));
    ASSERT_GT(index.Count(), 600u);

    const uint64_t first = points.front().time, last = points.back().time;
    struct View {
        uint64_t b, e;
        unsigned columns;
        bool index;
    };
    // The whole trend, a view that starts before it, one that cuts buckets at odd places,
    // one that ends inside the open bucket, columns exactly one bucket wide, and columns
    // narrower than a bucket (the points serve).
    const View views[] = {{first, last, 300, true},
                          {0, last + kStep, 37, true},
                          {first + 123'456'789, last - 987'654'321, 333, true},
                          {last - 40 * kStep - 17, last, 13, true},
                          {first, first + 200 * kStep, 200, true},
                          {first + 1, first + 1 + 100 * kStep, 100, true},
                          {first, last, 1000, false}};
    for (const View& view : views) {
        SCOPED_TRACE(view.columns);
        TrendColumns<int32_t> columns(trend, &index, kStep);
        std::vector<MinMaxData<double>> out;
        columns.Fill(view.b, view.e, view.columns, out);
        EXPECT_EQ(columns.UsedIndex(), view.index);
        EXPECT_EQ(Text(out), Text(PlainColumns(points, view.b, view.e, view.columns)));
    }
}

// The columns of the trend's reader for [begin, end].
template <class T>
std::vector<MinMaxData<double>> View(Trend<T>& t, double begin, double end, unsigned columns, unsigned char whole = 0) {
    std::vector<MinMaxData<double>> out(3, MinMaxData<double>{1, 2});
    t.Reader()->GetMinMaxData(begin, end, out, columns, GetDataParam{}, whole);
    return out;
}

TEST(TrendColumns, APointAtTimeZeroStaysOutOfAViewThatBeginsAfterIt) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    t.Push(0, 100.0);  // kept in bucket 1, whose times begin after 0
    for (uint64_t i = 1; i < 200; ++i) t.Push(i * kMs, static_cast<double>(i % 10));
    EXPECT_EQ(View(t, 1e-9, 0.2, 2)[0].max, 9.0);
    EXPECT_EQ(View(t, 0.0, 0.2, 2)[0].max, 100.0);
    // A point on a grid line ends its bucket; a column that ends just before it doesn't take the bucket whole.
    Trend<double> grid("BASIC_TREND[DOUBLE]");
    for (uint64_t i = 1; i < 200; ++i) grid.Push(i * kMs, static_cast<double>(i));
    EXPECT_EQ(Text(View(grid, 0.0, 0.2, 4)), Text({{1, 49}, {50, 99}, {100, 149}, {150, 199}}));
}

TEST(TrendColumns, NegativeBeginCutsTheColumnsInProportion) {
    Trend<float> t("BASIC_TREND[FLOAT]");
    for (uint64_t i = 0; i < 100; ++i) t.Push(i * kMs, static_cast<float>(i));
    double begin = -0.1, end = 0.1;
    std::vector<MinMaxData<double>> out;
    t.Reader()->GetMinMaxData(begin, end, out, 100, GetDataParam{}, 0);
    EXPECT_TRUE(begin == 0.0 && end == 0.1);
    ASSERT_EQ(out.size(), 50u);
    EXPECT_TRUE(out[0].min == 0.0 && out[49].max == 99.0);
    // Nothing is filled for an end at or below 0, no columns, or an empty trend.
    EXPECT_EQ(View(t, -1.0, 0.0, 10)[0].max, 2.0);
    EXPECT_EQ(View(t, 0.0, 1.0, 0)[0].max, 2.0);
    Trend<float> empty("BASIC_TREND[FLOAT]");
    EXPECT_EQ(View(empty, 0.0, 1.0, 10)[0].max, 2.0);
}

TEST(TrendColumns, ValuesPassTheDataAxisAndWholeRangeGivesOneColumn) {
    Trend<int16_t> t("BASIC_TREND[INT16]");
    IBaseCtr* data_axis = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "dataAxis");
    t.item->AddChildItem(data_axis, "dataAxis", true);
    QueryInterface<IDatasetAxis>(data_axis)->SetRatioOffset(1.0, -2.0);
    for (uint64_t i = 0; i < 400; ++i) t.Push(i * kMs, static_cast<int16_t>(i % 7));
    const auto indexed = View(t, 0.0, 0.4, 4);
    ASSERT_EQ(indexed.size(), 4u);
    EXPECT_TRUE(indexed[0].min == 6 * -2.0 + 1.0 && indexed[0].max == 1.0);  // a negative scale turns them round
    const auto whole = View(t, 0.0, 0.4, 8, 1);
    ASSERT_EQ(whole.size(), 8u);
    EXPECT_TRUE(whole[0].min == -11.0 && whole[0].max == 1.0);
    for (std::size_t i = 1; i < whole.size(); ++i) EXPECT_TRUE(std::isnan(whole[i].min)) << i;
}
