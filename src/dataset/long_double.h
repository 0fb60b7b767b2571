#pragma once
// LongDouble: the element type of the "long double" wave instance.
//
// Its samples are stored as 8 bytes, bit for bit an IEEE binary64 like double, on
// every platform, so that files written on one machine read back on another. The
// type is a thin wrapper around a double that behaves like a floating-point number:
// it converts to and from double and compares and computes as double does.

#include <cmath>
#include <limits>

class LongDouble {
public:
    constexpr LongDouble() = default;
    constexpr LongDouble(double value) : value_(value) {}  // NOLINT: a number like any other
    constexpr operator double() const { return value_; }   // NOLINT
    constexpr double Value() const { return value_; }

    LongDouble& operator+=(double v) { return value_ += v, *this; }
    LongDouble& operator-=(double v) { return value_ -= v, *this; }
    LongDouble& operator*=(double v) { return value_ *= v, *this; }
    LongDouble& operator/=(double v) { return value_ /= v, *this; }

private:
    double value_ = 0.0;
};

static_assert(sizeof(LongDouble) == 8, "LongDouble is stored as 8 bytes");
static_assert(std::is_trivially_copyable_v<LongDouble>);

template <>
class std::numeric_limits<LongDouble> : public std::numeric_limits<double> {
public:
    static constexpr LongDouble min() noexcept { return std::numeric_limits<double>::min(); }
    static constexpr LongDouble max() noexcept { return std::numeric_limits<double>::max(); }
    static constexpr LongDouble lowest() noexcept { return std::numeric_limits<double>::lowest(); }
    static constexpr LongDouble epsilon() noexcept { return std::numeric_limits<double>::epsilon(); }
    static constexpr LongDouble infinity() noexcept { return std::numeric_limits<double>::infinity(); }
    static constexpr LongDouble quiet_NaN() noexcept { return std::numeric_limits<double>::quiet_NaN(); }
};

inline bool isnan(LongDouble v) { return std::isnan(v.Value()); }
