// Calculations on one math dataset from several threads run one after the other, and a
// reader of the result runs beside them.

#include "math_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

using namespace math_test;

TEST(MathConcurrency, CalculationsOnOneDatasetRunOneAfterTheOther) {
    Source<double> left, right;
    left.Constant(0.0, 4.0, 5.0);
    right.Constant(0.0, 4.0, 2.0);
    Math<double, 1> m;
    m.Link(left.item.get(), right.item.get());
    constexpr int kThreads = 2, kRounds = 3;
    constexpr uint64_t kPerCalc = 4 * 512 + 1;
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0}, found{0};
    std::thread reader([&] {
        auto wave = QueryInterface<IBasicWaveReader>(m.item.get());
        while (!done.load()) {
            double value = 0;
            if (wave->At(1.5, value)) {
                ++found;
                if (value != 3.0) ++wrong;
            }
        }
    });
    std::vector<std::thread> writers;
    for (int t = 0; t < kThreads; ++t)
        writers.emplace_back([&] {
            for (int r = 0; r < kRounds; ++r) m.math->CalcRange(0.0, 4.0);
        });
    for (auto& writer : writers) writer.join();
    done = true;
    reader.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(m.Count("Wave"), kThreads * kRounds * kPerCalc);
    EXPECT_EQ(m.Count("Area"), static_cast<uint64_t>(kThreads * kRounds));
    EXPECT_EQ(m.math->NextWavePos(), kThreads * kRounds * kPerCalc);
    const auto areas = ReadAll<ValidDataArea>(m.math->GetStorage("Area"));
    for (std::size_t i = 0; i < areas.size(); ++i) EXPECT_EQ(areas[i].wave_beg_pos, i * kPerCalc);
}

}  // namespace
