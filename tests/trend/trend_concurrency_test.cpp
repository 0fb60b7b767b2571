// A reader beside the producer: columns and values read while points arrive.

#include "trend/trend_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

using namespace trend_test;

TEST(TrendConcurrency, ReaderRunsBesideTheProducer) {
    Trend<double> t("BASIC_TREND[DOUBLE]", 3000, 0.5);
    constexpr uint64_t kPoints = 100000;
    std::atomic<uint64_t> pushed{0};
    std::thread producer([&] {
        for (uint64_t i = 0; i < kPoints; ++i) {
            t.Push(i * 2000 + (i % 3) * 300, static_cast<double>(i % 100));
            pushed.store(i + 1, std::memory_order_release);
        }
    });
    auto reader = t.Reader();
    std::vector<MinMaxData<double>> out;
    uint64_t views = 0;
    bool in_range = true;
    while (pushed.load(std::memory_order_acquire) < kPoints) {
        reader->SetLock(true);
        double begin = 0, end = static_cast<double>(pushed.load()) * 2e-6;
        reader->GetMinMaxData(begin, end, out, 97, GetDataParam{}, 0);
        for (const auto& column : out)
            if (!std::isnan(column.min) && (column.min < 0 || column.max > 99 || column.min > column.max)) in_range = false;
        double value = -1;
        if (reader->At(end / 2, value) && (value < 0 || value > 99)) in_range = false;
        reader->SetLock(false);
        ++views;
    }
    producer.join();
    EXPECT_TRUE(in_range);
    EXPECT_GT(views, 0u);
    EXPECT_EQ(t.dataset->LockCount(), 0u);

    double begin = 0, end = static_cast<double>(kPoints) * 2e-6;
    reader->GetMinMaxData(begin, end, out, 10, GetDataParam{}, 0);
    ASSERT_EQ(out.size(), 10u);
    for (const auto& column : out) {
        EXPECT_EQ(column.min, 0.0);
        EXPECT_EQ(column.max, 99.0);
    }
}
