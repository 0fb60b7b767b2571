#include "host/vellum_time.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

__extension__ typedef __int128 Int128;  // GCC extension; -Wpedantic would flag the bare type

constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

// 10^exponent (exponent >= 0) as a double; exact up to 10^22, the largest power of ten
// a double holds exactly.
double Pow10(int exponent) {
    if (exponent > 22) return std::pow(10.0, exponent);
    double value = 1.0;
    for (int i = 0; i < exponent; ++i) value *= 10.0;
    return value;
}

Int128 Abs128(Int128 v) { return v < 0 ? -v : v; }

}  // namespace

// ---- VellumLevelTime ----

VellumLevelTime::VellumLevelTime(signed char level, long long count) {
    const long long clamped = std::clamp(count, kMinCount, kMaxCount);
    bits_ = (static_cast<uint64_t>(clamped) << 8) | static_cast<uint8_t>(level);
}

double VellumLevelTime::Seconds() const {
    const int level = Level();
    const double count = static_cast<double>(Count());
    // Dividing by an exact power of ten rounds once, multiplying by 10^-k would round twice.
    return level < 0 ? count / Pow10(-level) : count * Pow10(level);
}

VellumTime VellumLevelTime::operator*(long long n) const {
    // |n * count| < 2^63 * 2^55, well inside 128 bits.
    Int128 value = static_cast<Int128>(n) * Count();
    const int exponent = Level() + 9;  // from count x 10^level s to ns
    if (exponent >= 0) {
        for (int i = 0; i < exponent && value != 0; ++i) {
            if (Abs128(value) > kInt64Max) break;  // already too large; stop before 128-bit overflow
            value *= 10;
        }
    } else {
        for (int i = 0; i < -exponent && value != 0; ++i) value /= 10;  // truncates toward zero
    }
    if (Abs128(value) > kInt64Max) return VellumTime();
    return VellumTime::FromNanoseconds(static_cast<int64_t>(value));
}

long long VellumLevelTime::operator/(const VellumLevelTime& other) const {
    const Int128 a = Count();
    const Int128 b = other.Count();
    if (a == 0 || b == 0) return 0;
    const bool negative = (a < 0) != (b < 0);
    Int128 num = Abs128(a);
    Int128 den = Abs128(b);
    const int la = Level();
    const int lb = other.Level();
    constexpr Int128 kLimit = static_cast<Int128>(std::numeric_limits<long long>::max()) + 1;
    Int128 quotient = 0;
    if (la >= lb) {
        // num * 10^(la-lb) / den by long division, one decimal digit at a time, so no
        // intermediate exceeds 10 * den.
        quotient = num / den;
        Int128 remainder = num % den;
        for (int i = 0; i < la - lb && quotient < kLimit; ++i) {
            remainder *= 10;
            quotient = quotient * 10 + remainder / den;
            remainder %= den;
        }
    } else {
        // num / (den * 10^(lb-la)); once the divisor exceeds num the quotient is 0.
        for (int i = 0; i < lb - la && den <= num; ++i) den *= 10;
        quotient = num / den;
    }
    if (quotient >= kLimit) {
        return negative ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
    }
    return static_cast<long long>(negative ? -quotient : quotient);
}

// ---- VellumTime ----

VellumTime VellumTime::FromSeconds(double seconds) {
    if (std::isnan(seconds)) return VellumTime();
    const double ns = std::trunc(seconds * 1e9);
    // Valid values are (-2^63, 2^63); -2^63 itself is the invalid marker.
    if (!(ns > -9223372036854775808.0 && ns < 9223372036854775808.0)) return VellumTime();
    return VellumTime(static_cast<int64_t>(ns));
}

double VellumTime::Seconds() const {
    return valid() ? static_cast<double>(ns_) / 1e9 : std::numeric_limits<double>::quiet_NaN();
}

VellumTime VellumTime::operator-(const VellumTime& other) const {
    int64_t result = 0;
    if (!valid() || !other.valid() || __builtin_sub_overflow(ns_, other.ns_, &result)) return VellumTime();
    return VellumTime(result);
}

VellumTime VellumTime::operator+(const VellumTime& other) const {
    int64_t result = 0;
    if (!valid() || !other.valid() || __builtin_add_overflow(ns_, other.ns_, &result)) return VellumTime();
    return VellumTime(result);
}

double VellumTime::operator/(const VellumLevelTime& level) const {
    if (!valid() || level.Count() == 0) return std::numeric_limits<double>::quiet_NaN();
    const double ns = static_cast<double>(ns_);
    const double count = static_cast<double>(level.Count());
    const int exponent = level.Level() + 9;  // period = count x 10^exponent ns
    // Keep the power of ten as an exact factor on the side where it is an integer.
    if (exponent >= 0) return ns / (count * Pow10(exponent));
    return ns * Pow10(-exponent) / count;
}
