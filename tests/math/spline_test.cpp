// The cubic spline: both boundary conditions against polynomials it must reproduce,
// smoothness at the knots, range checks, and inputs that leave it empty.

#include "math/spline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace {

using SplineSpace::BoundaryCondition;
using SplineSpace::Spline;

// Uneven abscissae, so that nothing depends on equal steps.
const std::vector<double> kX = {-2.0, -1.25, -0.5, 0.1, 0.7, 1.9, 2.2, 3.0};

double Cubic(double x) { return 0.5 * x * x * x - 2.0 * x * x + x + 3.0; }
double CubicSlope(double x) { return 1.5 * x * x - 4.0 * x + 1.0; }
double CubicCurvature(double x) { return 3.0 * x - 4.0; }

std::vector<double> Sample(double (*f)(double), const std::vector<double>& x) {
    std::vector<double> y;
    for (double v : x) y.push_back(f(v));
    return y;
}

double Eval(Spline& spline, double x) {
    double y = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(spline.SinglePointInterp(x, y)) << "x = " << x;
    return y;
}

// Points across the whole range, between and on the knots.
std::vector<double> Probes(double lo, double hi, int count = 97) {
    std::vector<double> out;
    for (int i = 0; i <= count; ++i) out.push_back(lo + (hi - lo) * i / count);
    return out;
}

Spline Make(const std::vector<double>& x, std::vector<double> y, int count, int boundary, double left,
            double right) {
    return Spline(x, y, count, static_cast<BoundaryCondition>(boundary), left, right);
}

// ---------------------------------------------------------------------------------------

TEST(SplineExactness, TwoPointsWithZeroCurvatureGiveTheLine) {
    Spline spline = Make({1.0, 3.0}, {2.0, -4.0}, 2, SplineSpace::kSecondDerivative, 0.0, 0.0);
    ASSERT_FALSE(spline.Empty());
    for (double x : Probes(1.0, 3.0, 10)) EXPECT_NEAR(Eval(spline, x), 2.0 - 3.0 * (x - 1.0), 1e-12);
}

TEST(SplineExactness, LineThroughManyPointsUnderBothConditions) {
    auto line = [](double x) { return -0.75 * x + 4.0; };
    std::vector<double> y;
    for (double v : kX) y.push_back(line(v));
    const int n = static_cast<int>(kX.size());
    Spline clamped(kX, y, n, SplineSpace::kFirstDerivative, -0.75, -0.75);
    Spline natural(kX, y, n, SplineSpace::kSecondDerivative, 0.0, 0.0);
    for (double x : Probes(kX.front(), kX.back())) {
        EXPECT_NEAR(Eval(clamped, x), line(x), 1e-12);
        EXPECT_NEAR(Eval(natural, x), line(x), 1e-12);
    }
    for (double m : clamped.SecondDerivatives()) EXPECT_NEAR(m, 0.0, 1e-12);
}

TEST(SplineExactness, CubicWithItsEndSlopesIsReproduced) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kFirstDerivative, CubicSlope(kX.front()),
                  CubicSlope(kX.back()));
    ASSERT_EQ(spline.SecondDerivatives().size(), kX.size());
    for (std::size_t i = 0; i < kX.size(); ++i)
        EXPECT_NEAR(spline.SecondDerivatives()[i], CubicCurvature(kX[i]), 1e-9) << i;
    for (double x : Probes(kX.front(), kX.back())) EXPECT_NEAR(Eval(spline, x), Cubic(x), 1e-10) << x;
}

TEST(SplineExactness, CubicWithItsEndCurvaturesIsReproduced) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kSecondDerivative, CubicCurvature(kX.front()),
                  CubicCurvature(kX.back()));
    for (std::size_t i = 0; i < kX.size(); ++i)
        EXPECT_NEAR(spline.SecondDerivatives()[i], CubicCurvature(kX[i]), 1e-9) << i;
    for (double x : Probes(kX.front(), kX.back())) EXPECT_NEAR(Eval(spline, x), Cubic(x), 1e-10) << x;
}

TEST(SplineExactness, WrongEndConditionDoesNotReproduceTheCubic) {
    // The natural spline is not the cubic: the boundary values do matter.
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kSecondDerivative, 0.0, 0.0);
    double worst = 0.0;
    for (double x : Probes(kX.front(), kX.back())) worst = std::max(worst, std::fabs(Eval(spline, x) - Cubic(x)));
    EXPECT_GT(worst, 1e-3);
}

TEST(SplineExactness, ThreePointNaturalSplineByHand) {
    // (0,0) (1,1) (2,0), M0 = M2 = 0: 2 M1 = 6 (f1 - f0) / 2 = -6, so M1 = -3; at x = 0.5
    // A = B = 1/2: y = (1/8 - 1/2)(-3) / 6 + 1/2 = 11/16.
    Spline spline = Make({0.0, 1.0, 2.0}, {0.0, 1.0, 0.0}, 3, SplineSpace::kSecondDerivative, 0.0, 0.0);
    ASSERT_EQ(spline.SecondDerivatives().size(), 3u);
    EXPECT_NEAR(spline.SecondDerivatives()[1], -3.0, 1e-12);
    EXPECT_NEAR(Eval(spline, 0.5), 11.0 / 16.0, 1e-12);
    EXPECT_NEAR(Eval(spline, 1.5), 11.0 / 16.0, 1e-12);
}

// ---------------------------------------------------------------------------------------

TEST(SplineShape, SlopeAndCurvatureAreContinuousAtInnerKnots) {
    std::vector<double> y = {1.0, -2.0, 0.5, 3.0, 2.5, -1.0, 0.0, 4.0};
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kSecondDerivative, 0.5, -1.0);
    const double h = 1e-5;
    for (std::size_t i = 1; i + 1 < kX.size(); ++i) {
        const double x = kX[i];
        const double at = Eval(spline, x);
        EXPECT_EQ(at, y[i]);
        const double left_slope = (at - Eval(spline, x - h)) / h;
        const double right_slope = (Eval(spline, x + h) - at) / h;
        EXPECT_NEAR(left_slope, right_slope, 1e-3) << "knot " << i;
    }
    EXPECT_EQ(spline.SecondDerivatives().front(), 0.5);
    EXPECT_EQ(spline.SecondDerivatives().back(), -1.0);
}

TEST(SplineShape, OtherBoundaryValuesGiveStraightPieces) {
    std::vector<double> y = {1.0, -2.0, 0.5, 3.0, 2.5, -1.0, 0.0, 4.0};
    Spline spline(kX, y, static_cast<int>(kX.size()), static_cast<BoundaryCondition>(3), 5.0, 7.0);
    ASSERT_EQ(spline.SecondDerivatives().size(), kX.size());
    for (double m : spline.SecondDerivatives()) EXPECT_EQ(m, 0.0);
    for (std::size_t i = 0; i + 1 < kX.size(); ++i) {
        const double mid = 0.5 * (kX[i] + kX[i + 1]);
        EXPECT_NEAR(Eval(spline, mid), 0.5 * (y[i] + y[i + 1]), 1e-12) << i;
    }
}

// ---------------------------------------------------------------------------------------

TEST(SplineRange, EndPointsExactAndOutsideRefused) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kSecondDerivative, 0.0, 0.0);
    EXPECT_EQ(spline.MinX(), kX.front());
    EXPECT_EQ(spline.MaxX(), kX.back());
    EXPECT_EQ(Eval(spline, kX.front()), y.front());
    EXPECT_EQ(Eval(spline, kX.back()), y.back());

    for (double x : {std::nextafter(kX.front(), -10.0), std::nextafter(kX.back(), 10.0), 1e300,
                     std::numeric_limits<double>::quiet_NaN()}) {
        double y_out = 123.0;
        EXPECT_FALSE(spline.SinglePointInterp(x, y_out)) << x;
        EXPECT_EQ(y_out, 123.0);
    }
}

TEST(SplineRange, CountBelowThePointsUsesTheFirstOnly) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, 4, SplineSpace::kFirstDerivative, CubicSlope(kX[0]), CubicSlope(kX[3]));
    EXPECT_EQ(spline.Count(), 4);
    EXPECT_EQ(spline.MaxX(), kX[3]);
    EXPECT_NEAR(Eval(spline, 0.5 * (kX[2] + kX[3])), Cubic(0.5 * (kX[2] + kX[3])), 1e-10);
    double x = kX[4], y_out = 0.0;
    EXPECT_FALSE(spline.SinglePointInterp(x, y_out));
}

TEST(SplineRange, MultiPointLeavesOutsidePointsAlone) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline spline(kX, y, static_cast<int>(kX.size()), SplineSpace::kFirstDerivative, CubicSlope(kX.front()),
                  CubicSlope(kX.back()));
    std::vector<double> xs = {-5.0, 0.0, 1.0, 9.0};
    std::vector<double> ys = {-1.0, -1.0, -1.0, -1.0, 42.0};  // longer than xs is fine
    EXPECT_TRUE(spline.MultiPointInterp(xs, ys));
    EXPECT_EQ(ys[0], -1.0);
    EXPECT_NEAR(ys[1], Cubic(0.0), 1e-10);
    EXPECT_NEAR(ys[2], Cubic(1.0), 1e-10);
    EXPECT_EQ(ys[3], -1.0);
    EXPECT_EQ(ys[4], 42.0);

    std::vector<double> short_y = {-1.0};
    EXPECT_FALSE(spline.MultiPointInterp(xs, short_y));
    EXPECT_EQ(short_y, std::vector<double>{-1.0});
}

TEST(SplineRange, CopiesAnswerAlike) {
    std::vector<double> y = Sample(Cubic, kX);
    Spline original(kX, y, static_cast<int>(kX.size()), SplineSpace::kSecondDerivative, 1.0, 2.0);
    Spline copy = original;
    Spline moved = std::move(copy);
    for (double x : Probes(kX.front(), kX.back(), 13)) EXPECT_EQ(Eval(moved, x), Eval(original, x));
}

// ---------------------------------------------------------------------------------------

void ExpectEmpty(Spline& spline) {
    EXPECT_TRUE(spline.Empty());
    EXPECT_EQ(spline.MinX(), 0.0);
    EXPECT_EQ(spline.MaxX(), 0.0);
    for (double x : {0.0, 1.0, -1.0}) {
        double y = 5.0;
        EXPECT_FALSE(spline.SinglePointInterp(x, y)) << x;
        EXPECT_EQ(y, 5.0);
    }
}

TEST(SplineDegenerate, UnusableInputLeavesAnEmptySpline) {
    const std::vector<double> none;
    const std::vector<double> two_x = {0.0, 1.0};
    for (int boundary : {1, 2, 3}) {
        SCOPED_TRACE(boundary);
        Spline no_x = Make(none, {1.0, 2.0}, 2, boundary, 0.0, 0.0);
        ExpectEmpty(no_x);
        Spline no_y = Make(two_x, {}, 2, boundary, 0.0, 0.0);
        ExpectEmpty(no_y);
        for (int count : {-3, 0, 1, 3}) {  // 3: more than the points given
            Spline spline = Make(two_x, {1.0, 2.0}, count, boundary, 0.0, 0.0);
            EXPECT_EQ(spline.Count(), count);
            ExpectEmpty(spline);
        }
        Spline short_y = Make({0.0, 1.0, 2.0}, {1.0, 2.0}, 3, boundary, 0.0, 0.0);
        ExpectEmpty(short_y);
    }
}

TEST(SplineDegenerate, RepeatedAbscissaLeavesAnEmptySpline) {
    for (int boundary : {1, 2, 3}) {
        SCOPED_TRACE(boundary);
        Spline step = Make({0.0, 1.0, 1.0, 2.0}, {0.0, 1.0, 2.0, 3.0}, 4, boundary, 0.0, 0.0);
        ExpectEmpty(step);
    }
    // Out of order so that x[i-1] == x[i+1]: the row of x[i] has no span.
    for (int boundary : {1, 2}) {
        SCOPED_TRACE(boundary);
        Spline back = Make({0.0, 1.0, 0.0}, {0.0, 1.0, 2.0}, 3, boundary, 0.0, 0.0);
        ExpectEmpty(back);
    }
}

TEST(SplineDegenerate, RepeatedAbscissaBeyondCountDoesNotMatter) {
    Spline spline = Make({0.0, 1.0, 2.0, 2.0}, {0.0, 1.0, 2.0, 3.0}, 3, SplineSpace::kSecondDerivative, 0.0, 0.0);
    ASSERT_FALSE(spline.Empty());
    EXPECT_NEAR(Eval(spline, 1.5), 1.5, 1e-12);
}

}  // namespace
