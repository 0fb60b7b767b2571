// Display columns of a trend: points for short spans, the index for long ones (checked
// against a plain pass over all points), the cut of a negative begin, the data axis.

#include "trend/trend_columns.h"
#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

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

void ExpectSameColumns(const std::vector<MinMaxData<double>>& got, const std::vector<MinMaxData<double>>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        SCOPED_TRACE(i);
        if (std::isnan(want[i].min)) {
            EXPECT_TRUE(std::isnan(got[i].min) && std::isnan(got[i].max));
        } else {
            EXPECT_EQ(got[i].min, want[i].min);
            EXPECT_EQ(got[i].max, want[i].max);
        }
    }
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

TEST(TrendColumns, ShortSpansAreServedFromThePoints) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    for (uint64_t i = 0; i < 100; ++i) t.Push(i * kMs, static_cast<double>(i));
    auto reader = t.Reader();
    double begin = Seconds(10 * kMs), end = Seconds(20 * kMs);
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 10u);
    for (int k = 0; k < 9; ++k) {
        EXPECT_EQ(out[k].min, 10.0 + k) << k;
        EXPECT_EQ(out[k].max, 10.0 + k) << k;
    }
    EXPECT_EQ(out[9].min, 19.0);
    EXPECT_EQ(out[9].max, 20.0);  // the last column holds a point at the end

    // More columns than points: a column without a point is NaN, whatever the fill mode.
    reader->GetMinMaxData(begin, end, out, 20, GetDataParam{1}, 0);
    ASSERT_EQ(out.size(), 20u);
    EXPECT_EQ(out[0].min, 10.0);
    EXPECT_TRUE(std::isnan(out[1].min) && std::isnan(out[1].max));
    EXPECT_EQ(out[2].max, 11.0);

    BaseStructReader<TrendPoint<double>> trend(t.dataset->GetStorage("__Trend__"));
    TrendColumns<double> columns(trend, nullptr, kStep);
    std::vector<MinMaxData<double>> plain;
    columns.Fill(10 * kMs, 20 * kMs, 10, plain);
    EXPECT_FALSE(columns.UsedIndex());
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
        ExpectSameColumns(out, PlainColumns(points, view.b, view.e, view.columns));
    }
}

TEST(TrendColumns, APointAtTimeZeroStaysOutOfAViewThatBeginsAfterIt) {
    Trend<double> t("BASIC_TREND[DOUBLE]");
    t.Push(0, 100.0);  // kept in bucket 1, whose times begin after 0
    for (uint64_t i = 1; i < 200; ++i) t.Push(i * kMs, static_cast<double>(i % 10));
    auto reader = t.Reader();
    double begin = 1e-9, end = 0.2;
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 2, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].max, 9.0);
    begin = 0.0;
    reader->GetMinMaxData(begin, end, out, 2, GetDataParam{}, 0);
    EXPECT_EQ(out[0].max, 100.0);

    // A point on a grid line ends its bucket, and a column that ends just before it
    // doesn't take the bucket whole.
    Trend<double> grid("BASIC_TREND[DOUBLE]");
    for (uint64_t i = 1; i < 200; ++i) grid.Push(i * kMs, static_cast<double>(i));
    begin = 0.0;
    grid.Reader()->GetMinMaxData(begin, end, out, 4, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].max, 49.0);
    EXPECT_EQ(out[1].min, 50.0);
    EXPECT_EQ(out[1].max, 99.0);
    EXPECT_EQ(out[2].min, 100.0);
    EXPECT_EQ(out[3].max, 199.0);
}

TEST(TrendColumns, NegativeBeginCutsTheColumnsInProportion) {
    Trend<float> t("BASIC_TREND[FLOAT]");
    for (uint64_t i = 0; i < 100; ++i) t.Push(i * kMs, static_cast<float>(i));
    auto reader = t.Reader();
    double begin = -0.1, end = 0.1;
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 100, GetDataParam{}, 0);
    EXPECT_EQ(begin, 0.0);
    EXPECT_EQ(end, 0.1);
    ASSERT_EQ(out.size(), 50u);
    EXPECT_EQ(out[0].min, 0.0);
    EXPECT_EQ(out[49].max, 99.0);

    // Nothing is filled for an end at or below 0, no columns, or an empty trend.
    out.assign(3, MinMaxData<double>{1, 2});
    begin = -1.0;
    end = 0.0;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    begin = 0.0;
    end = 1.0;
    reader->GetMinMaxData(begin, end, out, 0, GetDataParam{}, 0);
    Trend<float> empty("BASIC_TREND[FLOAT]");
    empty.Reader()->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    EXPECT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0].max, 2.0);
}

TEST(TrendColumns, ValuesPassTheDataAxisAndWholeRangeGivesOneColumn) {
    Trend<int16_t> t("BASIC_TREND[INT16]");
    IBaseCtr* data_axis = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "dataAxis");
    t.item->AddChildItem(data_axis, "dataAxis", true);
    QueryInterface<IDatasetAxis>(data_axis)->SetRatioOffset(1.0, -2.0);
    for (uint64_t i = 0; i < 400; ++i) t.Push(i * kMs, static_cast<int16_t>(i % 7));
    auto reader = t.Reader();
    double begin = 0.0, end = 0.4;
    std::vector<MinMaxData<double>> out;
    reader->GetMinMaxData(begin, end, out, 4, GetDataParam{}, 0);  // index-served
    ASSERT_EQ(out.size(), 4u);
    EXPECT_EQ(out[0].min, 6 * -2.0 + 1.0);  // a negative scale turns the extremes round
    EXPECT_EQ(out[0].max, 1.0);

    reader->GetMinMaxData(begin, end, out, 8, GetDataParam{}, 1);
    ASSERT_EQ(out.size(), 8u);
    EXPECT_EQ(out[0].min, -11.0);
    EXPECT_EQ(out[0].max, 1.0);
    for (std::size_t i = 1; i < out.size(); ++i) EXPECT_TRUE(std::isnan(out[i].min)) << i;
}
