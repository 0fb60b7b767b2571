// Axis ticks and labels of the plots.

#include "common/ticks.h"

#include <gtest/gtest.h>

namespace {

TEST(Ticks, StepsOfOneTwoOrFiveTimesAPowerOfTen) {
    EXPECT_DOUBLE_EQ(NiceStep(0, 10, 11), 1.0);
    EXPECT_DOUBLE_EQ(NiceStep(0, 10, 6), 2.0);
    EXPECT_DOUBLE_EQ(NiceStep(0, 10, 3), 5.0);
    EXPECT_DOUBLE_EQ(NiceStep(0, 0.0017, 8), 0.0005);
    EXPECT_EQ(NiceStep(1, 1, 5), 0.0);  // an empty span has no ticks
    EXPECT_TRUE(NiceTicks(2, 1, 5).empty());

    // The ticks are the multiples of the step inside the span, ends included.
    const std::vector<double> ticks = NiceTicks(-0.3, 1.0, 8);
    ASSERT_EQ(ticks.size(), 7u);
    EXPECT_DOUBLE_EQ(ticks.front(), -0.2);
    EXPECT_DOUBLE_EQ(ticks.back(), 1.0);
    EXPECT_EQ(ticks[1], 0.0);  // exactly zero, so the label is "0" and not "-0"
}

TEST(Ticks, TimeLabelsInEngineeringUnitsChosenByTheStep) {
    EXPECT_EQ(FormatTime(2.5, 0.5), "2.5 s");
    EXPECT_EQ(FormatTime(0.0015, 0.0005), "1.5 ms");
    EXPECT_EQ(FormatTime(0.00025, 0.00005), "250 \u00b5s");
    EXPECT_EQ(FormatTime(4e-9, 2e-9), "4 ns");
    EXPECT_EQ(FormatTime(6.0, 2.0), "6 s");
    EXPECT_EQ(FormatValue(-0.5, 0.1), "-0.5");
    EXPECT_EQ(FormatValue(1e-12, 0.2), "0.0");
    EXPECT_EQ(FormatValue(1200, 200), "1200");
}

}  // namespace
