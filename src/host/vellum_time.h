#pragma once
// The time types of the configurable datasets, both 8 bytes and trivially copyable.
//
// VellumTime: an absolute time point in signed 64-bit nanoseconds. INT64_MIN marks the
// invalid time, which is what a default-constructed value holds. Arithmetic with an
// invalid operand, or whose result does not fit, gives the invalid time. Comparisons use
// the raw value, so the invalid time sorts before every valid one and equals itself.
//
// VellumLevelTime: a period of count x 10^level seconds. level is 8 bits; count is kept
// in 56 bits, range [-2^55, 2^55 - 1]; counts outside it are clamped to the nearest end.
// Equality means same level and same count (1 ms and 1000 us differ).

#include <compare>
#include <cstdint>
#include <type_traits>

class VellumTime;

class VellumLevelTime {
public:
    static constexpr long long kMaxCount = (1LL << 55) - 1;
    static constexpr long long kMinCount = -(1LL << 55);

    // Zero period (level 0, count 0).
    constexpr VellumLevelTime() = default;
    VellumLevelTime(signed char level, long long count);

    signed char Level() const { return static_cast<signed char>(static_cast<uint8_t>(bits_ & 0xffu)); }
    long long Count() const { return static_cast<int64_t>(bits_) >> 8; }
    double Seconds() const;

    // n periods as a time point in nanoseconds. Below level -9 the result is truncated
    // toward zero to whole nanoseconds; a result beyond the int64 range is invalid.
    VellumTime operator*(long long n) const;
    // How many whole other periods fit into this one (truncated toward zero), exact in
    // integer arithmetic. A zero other period gives 0; a result beyond long long saturates.
    long long operator/(const VellumLevelTime& other) const;

    bool operator==(const VellumLevelTime& other) const = default;

private:
    uint64_t bits_ = 0;  // count << 8 | (uint8_t)level
};

class VellumTime {
public:
    static constexpr int64_t kInvalid = INT64_MIN;

    constexpr VellumTime() = default;

    static VellumTime FromNanoseconds(int64_t ns) { return VellumTime(ns); }
    // Truncates toward zero; NaN or out-of-range seconds give the invalid time.
    static VellumTime FromSeconds(double seconds);

    int64_t Nanoseconds() const { return ns_; }
    // NaN for the invalid time.
    double Seconds() const;
    bool valid() const { return ns_ != kInvalid; }

    auto operator<=>(const VellumTime&) const = default;

    VellumTime operator-(const VellumTime& other) const;
    VellumTime operator+(const VellumTime& other) const;
    // This time in units of the level's period; NaN if invalid or the period is zero.
    double operator/(const VellumLevelTime& level) const;

private:
    explicit constexpr VellumTime(int64_t ns) : ns_(ns) {}
    int64_t ns_ = kInvalid;
};

static_assert(sizeof(VellumTime) == 8 && std::is_trivially_copyable_v<VellumTime>);
static_assert(sizeof(VellumLevelTime) == 8 && std::is_trivially_copyable_v<VellumLevelTime>);
