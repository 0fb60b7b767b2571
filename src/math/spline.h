#pragma once
// SplineSpace::Spline: a cubic spline through a list of points, for drawing a smooth
// curve through samples when a display has more pixel columns than samples.
//
// The constructor solves for the second derivatives M at the points under one of two
// boundary conditions; evaluation is the usual cubic between the two neighbours.
// Abscissae must be ascending (not checked). Inputs that can't be solved leave an
// empty spline, which answers false to every evaluation:
//  - x or y empty, count under 2, or count larger than x or y;
//  - two consecutive abscissae equal (a zero step), or a system with a zero pivot.
// A boundary value other than 1 or 2 makes no solve: all M are 0, so the values are
// the straight lines between the points.

#include <cstdint>
#include <vector>

namespace SplineSpace {

enum BoundaryCondition : int {
    kFirstDerivative = 1,   // the first derivatives at both ends are given
    kSecondDerivative = 2,  // the second derivatives at both ends are given
};

class Spline {
public:
    Spline(const std::vector<double>& x, std::vector<double>& y, const int& count, BoundaryCondition boundary,
           const double& left, const double& right);
    Spline(const Spline&) = default;
    Spline(Spline&&) = default;
    Spline& operator=(const Spline&) = default;
    Spline& operator=(Spline&&) = default;
    ~Spline() = default;

    // y = the spline at x. False, y untouched, when x is outside [MinX, MaxX] (or NaN)
    // or the spline is empty.
    bool SinglePointInterp(double& x, double& y);
    // SinglePointInterp for each x[i] into y[i]; a point outside leaves its y[i]. True,
    // except when y is shorter than x: false and y untouched.
    bool MultiPointInterp(std::vector<double>& x, std::vector<double>& y);

    bool Empty() const { return m_m.empty(); }
    double MinX() const { return m_minX; }
    double MaxX() const { return m_maxX; }
    int32_t Count() const { return m_count; }
    // The second derivatives at the points; empty for an empty spline.
    const std::vector<double>& SecondDerivatives() const { return m_m; }

private:
    // Solve for m_m; false (m_m untouched beyond its size) on a zero divisor.
    bool PartialDerivative1();
    bool PartialDerivative2();
    // Back to the empty state after a failed solve.
    void MakeEmpty();

    double m_maxX = 0.0;
    double m_minX = 0.0;
    std::vector<double> m_x;
    std::vector<double> m_y;
    int32_t m_count = 0;
    BoundaryCondition m_boundary = kSecondDerivative;
    double m_leftBoundary = 0.0;
    double m_rightBoundary = 0.0;
    std::vector<double> m_m;
};

}  // namespace SplineSpace
