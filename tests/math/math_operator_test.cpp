// The value rule of each operator: wrapping integer sums and differences, the mean by
// type, and NaN passing through.

#include "math/math_operator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

TEST(MathOperator, SumAndDifferenceWrapAtTheWidthOfT) {
    EXPECT_EQ((MathValue<int8_t, 1>(100, -100)), -56);
    EXPECT_EQ((MathValue<int8_t, 0>(100, 100)), -56);
    EXPECT_EQ((MathValue<uint8_t, 1>(1, 2)), 255);
    EXPECT_EQ((MathValue<uint16_t, 0>(65535, 2)), 1);
    EXPECT_EQ((MathValue<int32_t, 0>(std::numeric_limits<int32_t>::max(), 1)), std::numeric_limits<int32_t>::min());
    EXPECT_EQ((MathValue<int64_t, 1>(std::numeric_limits<int64_t>::min(), 1)), std::numeric_limits<int64_t>::max());
    EXPECT_EQ((MathValue<uint64_t, 1>(0, 1)), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ((MathValue<double, 1>(2.5, 4.0)), -1.5);
    EXPECT_EQ((MathValue<float, 0>(2.5f, 4.0f)), 6.5f);
}

TEST(MathOperator, TheMeanOfSmallIntegersIsTakenIn32BitsAndHalvedTowardZero) {
    EXPECT_EQ((MathValue<int8_t, 2>(100, 101)), 100);
    EXPECT_EQ((MathValue<int8_t, 2>(-100, -101)), -100);  // toward zero, not down
    EXPECT_EQ((MathValue<int8_t, 2>(127, 127)), 127);     // no wrap in 32 bits
    EXPECT_EQ((MathValue<int16_t, 2>(-32768, -32767)), -32767);
    EXPECT_EQ((MathValue<uint8_t, 2>(255, 254)), 254);
    EXPECT_EQ((MathValue<uint16_t, 2>(65535, 65535)), 65535);
}

TEST(MathOperator, TheMeanOfWideIntegersWrapsBeforeHalving) {
    const int32_t big = std::numeric_limits<int32_t>::max() - 1;
    // big + big wraps to -4, halved to -2.
    EXPECT_EQ((MathValue<int32_t, 2>(big, big)), -2);
    EXPECT_EQ((MathValue<int32_t, 2>(-7, 2)), -2);  // toward zero
    EXPECT_EQ((MathValue<int64_t, 2>(std::numeric_limits<int64_t>::max(), 1)), std::numeric_limits<int64_t>::min() / 2);
    EXPECT_EQ((MathValue<uint32_t, 2>(0xFFFFFFFFu, 3u)), 1u);  // wraps to 2, shifted
    EXPECT_EQ((MathValue<uint64_t, 2>(7, 8)), 7u);
}

TEST(MathOperator, FloatingMeansAndNaN) {
    EXPECT_EQ((MathValue<double, 2>(2.0, 4.0)), 3.0);
    EXPECT_EQ((MathValue<float, 2>(1.0f, 2.0f)), 1.5f);
    EXPECT_EQ(static_cast<double>(MathValue<LongDouble, 2>(LongDouble(1.0), LongDouble(4.0))), 2.5);
    EXPECT_TRUE(std::isnan(MathValue<double, 1>(std::nan(""), 1.0)));
    EXPECT_TRUE(std::isnan(MathValue<float, 2>(1.0f, std::numeric_limits<float>::quiet_NaN())));
    // The integer instances don't treat their invalid value specially.
    EXPECT_EQ((MathValue<int16_t, 0>(32767, 1)), -32768);
}

}  // namespace
