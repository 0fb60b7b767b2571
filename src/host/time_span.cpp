#include "host/time_span.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

int64_t SaturatingMul(int64_t value, int64_t factor) {
    int64_t result = 0;
    if (__builtin_mul_overflow(value, factor, &result)) return (value < 0) != (factor < 0) ? kMin : kMax;
    return result;
}

}  // namespace

TimeSpan TimeSpan::FromMicroseconds(int64_t us) { return TimeSpan(SaturatingMul(us, 1'000)); }

TimeSpan TimeSpan::FromMilliseconds(int64_t ms) { return TimeSpan(SaturatingMul(ms, 1'000'000)); }

TimeSpan TimeSpan::FromSeconds(double seconds) {
    if (std::isnan(seconds)) return TimeSpan();
    const double ns = std::trunc(seconds * 1e9);
    // 2^63 is exactly representable; anything at or above it does not fit.
    if (ns >= 9223372036854775808.0) return TimeSpan(kMax);
    if (ns < -9223372036854775808.0) return TimeSpan(kMin);
    return TimeSpan(static_cast<int64_t>(ns));
}

TimeSpan TimeSpan::operator+(const TimeSpan& other) const {
    int64_t result = 0;
    if (__builtin_add_overflow(ns_, other.ns_, &result)) return TimeSpan(other.ns_ < 0 ? kMin : kMax);
    return TimeSpan(result);
}

TimeSpan TimeSpan::operator-(const TimeSpan& other) const {
    int64_t result = 0;
    if (__builtin_sub_overflow(ns_, other.ns_, &result)) return TimeSpan(other.ns_ < 0 ? kMax : kMin);
    return TimeSpan(result);
}

void SystemSleep(TimeSpan span) {
    if (span.Nanoseconds() <= 0) return;
    using Clock = std::chrono::steady_clock;
    const auto now = Clock::now();
    const std::chrono::nanoseconds wanted(span.Nanoseconds());
    // Guard the deadline computation against overflow for huge spans.
    const auto deadline = wanted > Clock::time_point::max() - now ? Clock::time_point::max() : now + wanted;
    for (auto t = now; t < deadline; t = Clock::now()) std::this_thread::sleep_until(deadline);
}

TimeSpan MonotonicNow() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return TimeSpan::FromNanoseconds(std::chrono::duration_cast<std::chrono::nanoseconds>(since).count());
}
