#include "reader/column_fill.h"

#include "math/spline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace __internal {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<double> Raw(const std::vector<double>& samples, std::size_t n) {
    std::vector<double> out(n, kNaN);
    std::copy_n(samples.begin(), std::min(n, samples.size()), out.begin());
    return out;
}

std::vector<double> Hold(const std::vector<double>& samples, std::vector<unsigned char> flags) {
    const std::size_t n = flags.size(), c = samples.size();
    std::vector<double> out(n, kNaN);
    if (n == 0) return out;
    flags[n - 1] = 1;
    const auto m = static_cast<std::size_t>(std::count(flags.begin(), flags.end(), 1));
    double held = kNaN;
    std::size_t next = 0;
    if (m + 2 < c) {
        held = samples[0];
        next = 1;
    }
    for (std::size_t i = 0; i < n && next < std::max(c, m); ++i) {
        if (flags[i]) {
            if (next < c) held = samples[next];
            if (++next > c) break;
        }
        out[i] = held;
    }
    return out;
}

std::vector<double> Dots(const std::vector<double>& samples, const std::vector<unsigned char>& flags) {
    std::vector<double> out(flags.size(), kNaN);
    std::size_t next = 0;
    for (std::size_t i = 0; i < flags.size() && next < samples.size(); ++i)
        if (flags[i]) out[i] = samples[next++];
    return out;
}

// The frame of the spline and the line: knots on a list of columns that may reach a
// little before the first and after the last column, so that the curve continues
// through the edges of the view.
std::vector<double> Curve(bool spline, const std::vector<double>& samples, std::vector<unsigned char> flags,
                          double points_per_column) {
    const std::size_t n = flags.size(), c = samples.size();
    const double per_sample = points_per_column > 0 ? 1.0 / points_per_column : 0.0;
    // Columns per sample; beyond the 32-bit range it means "more than the view".
    const uint64_t k = std::isfinite(per_sample) && per_sample < 4294967295.0
                           ? static_cast<uint64_t>(std::llround(per_sample))
                           : std::numeric_limits<uint32_t>::max();
    if (!spline && c < 2) return Dots(samples, flags);
    if (k >= n) return Hold(samples, flags);
    if (n == 0) return {};

    std::vector<unsigned char> list = flags;
    const auto m0 = static_cast<std::size_t>(std::count(list.begin(), list.end(), 1));
    std::size_t m = m0;
    if (m + 2 <= c && !list[0]) list[0] = 1;

    std::size_t first = n, last = 0, second = n;
    for (std::size_t i = 0; i < n; ++i) {
        if (!list[i]) continue;
        if (first == n)
            first = i;
        else if (second == n)
            second = i;
        last = i;
    }
    const std::size_t gap = second == n || first == n ? 0 : second - first;

    std::size_t front = 0;
    if (gap != 0 && gap < k) {
        front = k - gap;
        list.insert(list.begin(), front, 0);
        list[0] = 1;
    }
    if (first != n && last < n - 1 && m < c) {
        const uint64_t r = n - last - 1;
        const uint64_t h = std::min<uint64_t>((r + k - 1) / k, c - m);
        if (h != 0 && k > r && h * k != r) {
            for (uint64_t i = 1; i <= h * k - r; ++i) {
                const bool set = (r + i) % k == 0;
                list.push_back(set ? 1 : 0);
                if (set) ++m;
            }
        }
    }
    if (spline && c < 2) return Dots(samples, flags);

    // Knots: set entries in order take the samples. A set entry past the last sample
    // counts as unset, but the first one repeats the last sample when there are more set
    // entries than samples.
    std::vector<double> knot_x, knot_y;
    const auto set_entries = static_cast<std::size_t>(std::count(list.begin(), list.end(), 1));
    bool repeated = false;
    for (std::size_t i = 0, next = 0; i < list.size(); ++i) {
        if (!list[i]) continue;
        if (next < c) {
            knot_x.push_back(static_cast<double>(i));
            knot_y.push_back(samples[next++]);
        } else if (!repeated && set_entries > c) {
            knot_x.push_back(static_cast<double>(i));
            knot_y.push_back(samples[c - 1]);
            repeated = true;
        }
    }
    std::vector<double> out(n, kNaN);
    if (knot_x.empty()) return out;

    if (spline) {
        std::vector<double> values(list.size(), kNaN), at(list.size());
        for (std::size_t i = 0; i < at.size(); ++i) at[i] = static_cast<double>(i);
        SplineSpace::Spline curve(knot_x, knot_y, static_cast<int>(knot_x.size()),
                                  static_cast<SplineSpace::BoundaryCondition>(2), 0.0, 0.0);
        curve.MultiPointInterp(at, values);
        for (std::size_t j = 0; j < knot_x.size(); ++j) values[static_cast<std::size_t>(knot_x[j])] = knot_y[j];
        for (std::size_t i = 0; i < n && front + i < values.size(); ++i) out[i] = values[front + i];
        return out;
    }

    // The line: invalid values up to one before the first knot, then each knot's value
    // and the straight line to the next knot, then the last knot's value.
    std::vector<double> values;
    const auto lead = static_cast<int64_t>(knot_x.front()) - 1;
    if (lead > 0) values.assign(static_cast<std::size_t>(lead), kNaN);
    for (std::size_t j = 0; j + 1 < knot_x.size(); ++j) {
        const double x0 = knot_x[j], x1 = knot_x[j + 1];
        for (double x = x0; x < x1; x += 1.0)
            values.push_back(knot_y[j] + (knot_y[j + 1] - knot_y[j]) * (x - x0) / (x1 - x0));
    }
    values.push_back(knot_y.back());
    for (std::size_t i = 0; i < n && front + i < values.size(); ++i) out[i] = values[front + i];
    return out;
}

}  // namespace

std::vector<double> FillColumns(uint32_t mode, const std::vector<double>& samples, std::vector<unsigned char> flags,
                                double points_per_column) {
    switch (mode) {
    case kFillRaw: return Raw(samples, flags.size());
    case kFillHold: return Hold(samples, std::move(flags));
    case kFillDots: return Dots(samples, flags);
    case kFillSpline: return Curve(true, samples, std::move(flags), points_per_column);
    case kFillLinear: return Curve(false, samples, std::move(flags), points_per_column);
    default: return std::vector<double>(flags.size(), kNaN);
    }
}

}  // namespace __internal
