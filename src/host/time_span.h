#pragma once
// TimeSpan: a signed duration in whole nanoseconds; SystemSleep and MonotonicNow.
//
// Choices: conversions and arithmetic saturate at the int64 limits instead of
// overflowing; FromSeconds truncates toward zero and maps NaN to zero.

#include <compare>
#include <cstdint>

class TimeSpan {
public:
    constexpr TimeSpan() = default;

    static TimeSpan FromNanoseconds(int64_t ns) { return TimeSpan(ns); }
    static TimeSpan FromMicroseconds(int64_t us);
    static TimeSpan FromMilliseconds(int64_t ms);
    static TimeSpan FromSeconds(double seconds);

    int64_t Nanoseconds() const { return ns_; }
    double Seconds() const { return static_cast<double>(ns_) / 1e9; }
    // Whole milliseconds, truncated toward zero.
    int64_t Milliseconds() const { return ns_ / 1'000'000; }

    auto operator<=>(const TimeSpan&) const = default;
    TimeSpan operator+(const TimeSpan& other) const;
    TimeSpan operator-(const TimeSpan& other) const;

private:
    explicit constexpr TimeSpan(int64_t ns) : ns_(ns) {}
    int64_t ns_ = 0;
};

// Sleeps for at least span (measured on the steady clock); zero or negative returns at once.
void SystemSleep(TimeSpan span);

// Steady-clock time since an arbitrary fixed epoch; never goes backwards.
TimeSpan MonotonicNow();
