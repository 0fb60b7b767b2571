// The rule by which "setCalcRange" skips a range: strictly inside a non-empty last range.

#include "dataset/math_dataset_interface.h"

#include <gtest/gtest.h>

namespace {

TEST(CalcRangeRule, OnlyARangeStrictlyInsideANonEmptyLastRangeIsSkipped) {
    EXPECT_FALSE(CalcRangeInsideLast(5.0, 6.0, 0.0, 0.0));  // nothing calculated yet
    EXPECT_FALSE(CalcRangeInsideLast(3.0 + 2e-14, 3.0 + 5e-14, 3.0, 3.0 + 1e-13));  // an empty last range
    EXPECT_TRUE(CalcRangeInsideLast(2.0, 8.0, 1.0, 9.0));
    EXPECT_FALSE(CalcRangeInsideLast(1.0, 8.0, 1.0, 9.0));  // a shared endpoint
    EXPECT_FALSE(CalcRangeInsideLast(2.0, 9.0, 1.0, 9.0));
    EXPECT_FALSE(CalcRangeInsideLast(2.0, 10.0, 1.0, 9.0));
    EXPECT_FALSE(CalcRangeInsideLast(0.0, 8.0, 1.0, 9.0));
}

}  // namespace
