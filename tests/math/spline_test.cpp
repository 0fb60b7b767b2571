// The cubic spline against polynomials it must reproduce, its range, and bad input.

#include "math/spline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

using SplineSpace::Spline;

const std::vector<double> kX = {-2.0, -1.25, -0.5, 0.1, 0.7, 1.9, 2.2, 3.0};  // uneven steps
double Cubic(double x) { return 0.5 * x * x * x - 2 * x * x + x + 3; }
double Slope(double x) { return 1.5 * x * x - 4 * x + 1; }
double Curvature(double x) { return 3 * x - 4; }

Spline Make(const std::vector<double>& x, std::vector<double> y, int count, int boundary, double l, double r) {
    return Spline(x, y, count, static_cast<SplineSpace::BoundaryCondition>(boundary), l, r);
}
Spline MakeCubic(int boundary, double l, double r) {
    std::vector<double> y;
    for (double x : kX) y.push_back(Cubic(x));
    return Make(kX, y, static_cast<int>(kX.size()), boundary, l, r);
}
double Eval(Spline& s, double x) {
    double y = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(s.SinglePointInterp(x, y)) << x;
    return y;
}

TEST(Spline, TwoPointsNaturalIsTheLine) {
    Spline s = Make({1, 3}, {2, -4}, 2, 2, 0, 0);
    for (double x = 1; x <= 3; x += 0.25) EXPECT_NEAR(Eval(s, x), 2 - 3 * (x - 1), 1e-12);
}

TEST(Spline, CubicWithTheRightBoundaryIsReproduced) {
    Spline clamped = MakeCubic(1, Slope(kX.front()), Slope(kX.back()));
    Spline curved = MakeCubic(2, Curvature(kX.front()), Curvature(kX.back()));
    for (Spline* s : {&clamped, &curved}) {
        for (std::size_t i = 0; i < kX.size(); ++i) EXPECT_NEAR(s->SecondDerivatives()[i], Curvature(kX[i]), 1e-9);
        for (double x = kX.front(); x <= kX.back(); x += 0.03) EXPECT_NEAR(Eval(*s, x), Cubic(x), 1e-10) << x;
    }
    Spline natural = MakeCubic(2, 0, 0);  // the wrong boundary does not reproduce it
    EXPECT_GT(std::abs(Eval(natural, -1.9) - Cubic(-1.9)), 1e-3);
}

TEST(Spline, OtherBoundaryGivesStraightPieces) {
    Spline s = Make({0, 1, 3}, {1, -2, 4}, 3, 3, 5, 7);
    for (double m : s.SecondDerivatives()) EXPECT_EQ(m, 0.0);
    EXPECT_NEAR(Eval(s, 2.0), 1.0, 1e-12);
}

TEST(Spline, RangeAndMultiPoint) {
    Spline s = MakeCubic(2, 0, 0);
    EXPECT_EQ(Eval(s, kX.front()), Cubic(kX.front()));
    EXPECT_EQ(Eval(s, kX.back()), Cubic(kX.back()));
    for (double x : {std::nextafter(kX.front(), -9.0), std::nextafter(kX.back(), 9.0),
                     std::numeric_limits<double>::quiet_NaN()}) {
        double y = 123;
        EXPECT_FALSE(s.SinglePointInterp(x, y));
        EXPECT_EQ(y, 123);
    }
    std::vector<double> xs = {-5, 0.7, 9}, ys = {-1, -1, -1};
    EXPECT_TRUE(s.MultiPointInterp(xs, ys));
    EXPECT_EQ(ys, (std::vector<double>{-1, Cubic(0.7), -1}));
    std::vector<double> short_y = {-1};
    EXPECT_FALSE(s.MultiPointInterp(xs, short_y));
    EXPECT_EQ(Make(kX, {1, 2, 3, 4, 5, 6, 7, 8}, 4, 2, 0, 0).MaxX(), kX[3]);  // count below the points
}

TEST(Spline, UnusableInputLeavesItEmpty) {
    for (int boundary : {1, 2, 3}) {
        Spline spl[] = {Make({}, {1, 2}, 2, boundary, 0, 0),        Make({0, 1}, {}, 2, boundary, 0, 0),
                        Make({0, 1}, {1, 2}, 1, boundary, 0, 0),    Make({0, 1}, {1, 2}, -3, boundary, 0, 0),
                        Make({0, 1}, {1, 2}, 3, boundary, 0, 0),    Make({0, 1, 2}, {1, 2}, 3, boundary, 0, 0),
                        Make({0, 1, 1, 2}, {0, 1, 2, 3}, 4, boundary, 0, 0)};
        for (Spline& s : spl) {
            EXPECT_TRUE(s.Empty()) << boundary;
            double x = 0, y = 5;  // 0 lies within the empty range 0 .. 0
            EXPECT_FALSE(s.SinglePointInterp(x, y));
            EXPECT_EQ(y, 5);
        }
    }
    for (int boundary : {1, 2}) EXPECT_TRUE(Make({0, 1, 0}, {0, 1, 2}, 3, boundary, 0, 0).Empty());  // no span
}

}  // namespace
