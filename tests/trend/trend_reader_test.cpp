// The trend reader: values at times (windows, the nearer point, the search bounds), GetData
// as it is defined, the valid range and the lock.

#include "trend/trend_data_reader.h"
#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace trend_test;

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

double Seconds(uint64_t ns) { return static_cast<double>(ns) * 1e-9; }

// The value At gives at each time (kNone: no value, and the output untouched).
template <class T>
void ExpectAt(Trend<T>& t, std::initializer_list<std::pair<uint64_t, double>> cases) {
    auto reader = t.Reader();
    for (const auto& [ns, expected] : cases) {
        double value = -1;
        EXPECT_EQ(reader->At(Seconds(ns), value), !std::isnan(expected)) << ns;
        EXPECT_EQ(value, std::isnan(expected) ? -1.0 : expected) << ns;
    }
}

}  // namespace

TEST(TrendReader, AtTakesThePointWhoseWindowHoldsTheTimeAndTheLaterOneOnATie) {
    Trend<double> one("BASIC_TREND[DOUBLE]", 4 * kMs, 0.25);  // 1 ms before a point, 3 ms after
    one.Push(10 * kMs, 7.0);
    ExpectAt(one, {{12 * kMs, 7}, {9 * kMs + kMs / 2, 7}, {13 * kMs + kMs / 2, kNone}, {8 * kMs, kNone}});

    Trend<float> t("BASIC_TREND[FLOAT]", 4 * kMs, 0.25);
    for (int i = 1; i <= 3; ++i) t.Push(i * 10 * kMs, static_cast<float>(i));
    ASSERT_EQ(t.Areas().size(), 2u);  // windows of 4 ms don't touch
    ExpectAt(t, {{21 * kMs, 2}, {29 * kMs + kMs / 2, 3},
                 {25 * kMs, 3},                        // out of reach of both neighbours: the later point
                 {32 * kMs, 3}, {34 * kMs, kNone},     // beyond the last point: its window, then nothing
                 {15 * kMs, kNone},                    // a point after t at position 1 stands alone
                 {19 * kMs + kMs / 2, 2}});
    // Equally far from both, but the later point reaches only 1 ms back: the earlier wins.
    Trend<float> close("BASIC_TREND[FLOAT]", 4 * kMs, 0.25);
    for (auto [ms, v] : {std::pair{2, 0.0f}, {10, 1.0f}, {14, 2.0f}}) close.Push(ms * kMs, v);
    ExpectAt(close, {{12 * kMs, 1}});

    // Duration 0: every point hit exactly (the middle one is read first); between two points
    // the later one; after the last nothing.
    Trend<int32_t> exact("BASIC_TREND[INT32]", 0, 0.0);
    for (int i = 0; i < 7; ++i) exact.Push(static_cast<uint64_t>(i) * 10 * kMs, 100 + i);
    ExpectAt(exact, {{0, 100}, {10 * kMs, 101}, {20 * kMs, 102}, {30 * kMs, 103}, {40 * kMs, 104}, {50 * kMs, 105},
                     {60 * kMs, 106}, {35 * kMs, 104}, {60 * kMs + 1000, kNone}});
}

TEST(TrendReader, AtSearchesTheStretchThatTheIndexNames) {
    // Windows of 1 s: one open area, nothing stored, so the index bounds the search.
    Trend<double> t("BASIC_TREND[DOUBLE]", 1'000'000'000, 0.5);
    for (uint64_t i = 0; i < 1000; ++i) t.Push(i * kMs, static_cast<double>(i));
    ASSERT_TRUE(t.Areas().empty());
    ASSERT_EQ(t.Index().size(), 20u);
    // The open bucket searches the whole trend. The stretch begins at the entry's count: in
    // the first bucket (51 points, none before it) past its points, ending on point 51.
    ExpectAt(t, {{700 * kMs + 200'000, 700}, {612 * kMs + 700'000, 613}, {999 * kMs + 400'000, 999},
                 {25 * kMs + 200'000, 51}});
}

TEST(TrendReader, AtConvertsWithTheDataAxis) {
    Trend<uint8_t> t("BASIC_TREND[UINT8]", 0, 0.0);
    IBaseCtr* data_axis = CreateItemByType(&testing_support::ModuleScope(), "AXIS", "dataAxis");
    t.item->AddChildItem(data_axis, "dataAxis", true);
    QueryInterface<IDatasetAxis>(data_axis)->SetRatioOffset(-1.0, 0.5);
    t.Push(40 * kMs, 255);
    ExpectAt(t, {{40 * kMs, 255 * 0.5 - 1.0}});  // no invalid value in a trend: 255 is a value
}

TEST(TrendReader, GetDataHandsNanosecondTimesToAtAndWritesTheFirstElement) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 0, 0.0);
    for (uint64_t i = 0; i < 10; ++i) t.Push(i * kMs, 10.0 + static_cast<double>(i));
    auto reader = t.Reader();
    double begin = 0, end = Seconds(5 * kMs);
    std::vector<double> out(8, -1);
    reader->GetData(begin, end, out, false);
    // Five sample steps. At(0) finds the point at 0; At(1e6 s) and later find nothing.
    EXPECT_EQ(out, (std::vector<double>{10, 0, 0, 0, 0}));
    end = begin + 1e-4;  // less than one step: nothing
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
