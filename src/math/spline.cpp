#include "math/spline.h"

#include <cstddef>

namespace SplineSpace {

namespace {

// Solves the tridiagonal system with main diagonal 2.0 by forward elimination and back
// substitution: lower[i] x[i-1] + 2 x[i] + upper[i] x[i+1] = rhs[i] (lower[0] and
// upper[n-1] unused). The solution replaces rhs. False on a zero pivot.
bool SolveTridiagonal(const std::vector<double>& lower, const std::vector<double>& upper, std::vector<double>& rhs) {
    const std::size_t n = rhs.size();
    if (n == 0) return true;
    std::vector<double> c(n, 0.0);  // upper diagonal after elimination, pivots divided out
    double pivot = 2.0;
    c[0] = upper[0] / pivot;
    rhs[0] /= pivot;
    for (std::size_t i = 1; i < n; ++i) {
        pivot = 2.0 - lower[i] * c[i - 1];
        if (pivot == 0.0) return false;
        c[i] = (i + 1 < n) ? upper[i] / pivot : 0.0;
        rhs[i] = (rhs[i] - lower[i] * rhs[i - 1]) / pivot;
    }
    for (std::size_t i = n - 1; i-- > 0;) rhs[i] -= c[i] * rhs[i + 1];
    return true;
}

}  // namespace

Spline::Spline(const std::vector<double>& x, std::vector<double>& y, const int& count, BoundaryCondition boundary,
               const double& left, const double& right)
    : m_count(count), m_boundary(boundary), m_leftBoundary(left), m_rightBoundary(right) {
    // A count beyond the points given would read past them: treated like too few points.
    if (x.empty() || y.empty() || count < 2 || static_cast<std::size_t>(count) > x.size() ||
        static_cast<std::size_t>(count) > y.size())
        return;

    const auto n = static_cast<std::size_t>(count);
    // A zero step divides by zero in the solve and in evaluation.
    for (std::size_t i = 0; i + 1 < n; ++i)
        if (x[i + 1] - x[i] == 0.0) return;

    m_x = x;
    m_y = y;
    m_m.assign(n, 0.0);
    m_maxX = m_minX = x[0];
    for (std::size_t i = 1; i < n; ++i) {
        if (x[i] > m_maxX) m_maxX = x[i];
        if (x[i] < m_minX) m_minX = x[i];
    }

    bool solved = true;
    if (m_boundary == kFirstDerivative)
        solved = PartialDerivative1();
    else if (m_boundary == kSecondDerivative)
        solved = PartialDerivative2();
    if (!solved) MakeEmpty();
}

void Spline::MakeEmpty() {
    m_maxX = m_minX = 0.0;
    m_x.clear();
    m_y.clear();
    m_m.clear();
}

// Rows of the inner points i = 1 .. n-2, shared by both boundary conditions:
// lambda[i] M[i-1] + 2 M[i] + mu[i] M[i+1] = d[i].
bool Spline::PartialDerivative1() {
    const std::size_t n = m_m.size();
    std::vector<double> h(n - 1), f(n - 1);
    for (std::size_t i = 0; i + 1 < n; ++i) {
        h[i] = m_x[i + 1] - m_x[i];
        f[i] = (m_y[i + 1] - m_y[i]) / h[i];
    }
    std::vector<double> lower(n, 0.0), upper(n, 0.0), d(n, 0.0);
    upper[0] = 1.0;
    d[0] = 6.0 * (f[0] - m_leftBoundary) / h[0];
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const double span = h[i - 1] + h[i];
        if (span == 0.0) return false;  // x[i-1] == x[i+1]: abscissae not in order
        lower[i] = h[i - 1] / span;
        upper[i] = 1.0 - lower[i];
        d[i] = 6.0 * (f[i] - f[i - 1]) / span;
    }
    lower[n - 1] = 1.0;
    d[n - 1] = 6.0 * (m_rightBoundary - f[n - 2]) / h[n - 2];
    if (!SolveTridiagonal(lower, upper, d)) return false;
    m_m = std::move(d);
    return true;
}

bool Spline::PartialDerivative2() {
    const std::size_t n = m_m.size();
    m_m[0] = m_leftBoundary;
    m_m[n - 1] = m_rightBoundary;
    if (n == 2) return true;  // no inner points

    // Unknowns M[1] .. M[n-2], at index i-1 of the system.
    const std::size_t inner = n - 2;
    std::vector<double> lower(inner, 0.0), upper(inner, 0.0), d(inner, 0.0);
    for (std::size_t i = 1; i + 1 < n; ++i) {
        const double h0 = m_x[i] - m_x[i - 1];
        const double h1 = m_x[i + 1] - m_x[i];
        const double span = h0 + h1;
        if (span == 0.0) return false;  // x[i-1] == x[i+1]: abscissae not in order
        const double f0 = (m_y[i] - m_y[i - 1]) / h0;
        const double f1 = (m_y[i + 1] - m_y[i]) / h1;
        lower[i - 1] = h0 / span;
        upper[i - 1] = 1.0 - lower[i - 1];
        d[i - 1] = 6.0 * (f1 - f0) / span;
    }
    // The known end values move to the right side.
    d[0] -= lower[0] * m_m[0];
    d[inner - 1] -= upper[inner - 1] * m_m[n - 1];
    if (!SolveTridiagonal(lower, upper, d)) return false;
    for (std::size_t i = 0; i < inner; ++i) m_m[i + 1] = d[i];
    return true;
}

bool Spline::SinglePointInterp(double& x, double& y) {
    // An empty spline has its range at 0, 0; x = 0 would still pass the range test
    // and then read points that don't exist.
    if (m_m.empty()) return false;
    if (!(x >= m_minX && x <= m_maxX)) return false;

    std::size_t lo = 0;
    std::size_t hi = m_m.size() - 1;
    while (hi - lo > 1) {
        const std::size_t mid = (lo + hi) / 2;
        if (m_x[mid] > x)
            hi = mid;
        else
            lo = mid;
    }
    const double d = m_x[hi] - m_x[lo];  // never 0: zero steps leave the spline empty
    const double a = (m_x[hi] - x) / d;
    const double b = (x - m_x[lo]) / d;
    y = ((a * a * a - a) * m_m[lo] + (b * b * b - b) * m_m[hi]) * d * d / 6.0 + a * m_y[lo] + b * m_y[hi];
    return true;
}

bool Spline::MultiPointInterp(std::vector<double>& x, std::vector<double>& y) {
    if (y.size() < x.size()) return false;  // would write past y
    for (std::size_t i = 0; i < x.size(); ++i) SinglePointInterp(x[i], y[i]);
    return true;
}

}  // namespace SplineSpace
