#pragma once
// The packed records of a basic trend dataset, units of its three storages:
//   "__Trend__"  TrendPoint<T>       one point: time in ns, value          8 + sizeof(T) bytes
//   "__Index__"  TrendIndexEntry<T>  one bucket of the 50-sample grid     16 + 2 x sizeof(T) bytes
//   "__Area__"   TrendArea           one run of connected points          48 bytes
// They are packed to single bytes: their sizes depend on T and are a file format.
//
// Positions in the index and area records count points of "__Trend__" from 1: the
// position of a point is the count of the trend just after it was written.

#include "dataset/element_types.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#pragma pack(push, 1)
template <class T>
struct TrendPoint {
    uint64_t time;  // nanoseconds
    T value;
};

// Record 0 of "__Index__" is a header: its position holds the grid number of the first
// bucket, not a trend position. Every later record is one bucket: position of its last
// point (of the last point before it when empty), the points merged, and their extremes.
template <class T>
struct TrendIndexEntry {
    uint64_t position;
    uint64_t count;
    T maximum;
    T minimum;
};

struct TrendArea {
    uint64_t first_position;  // all ones while no area is open
    uint64_t last_position;
    uint64_t begin_time;  // nanoseconds, computed in single precision
    uint64_t end_time;
    uint64_t reserved[2];  // stay 0
};
#pragma pack(pop)

// The values an open index entry starts from: the largest finite double as minimum and
// the smallest positive normal double as maximum, each as T holds them. Types that can't
// hold them take what the IEEE conversion gives (float: +inf and 0) or saturate
// (integers: the largest value and 0). Only the count-0 rule makes these harmless.
template <class T>
constexpr T IndexMinimumStart() {
    if constexpr (std::is_same_v<T, double> || std::is_same_v<T, LongDouble>)
        return std::numeric_limits<double>::max();
    else if constexpr (std::is_floating_point_v<T>)
        return std::numeric_limits<T>::infinity();
    else
        return std::numeric_limits<T>::max();
}

template <class T>
constexpr T IndexMaximumStart() {
    if constexpr (std::is_same_v<T, double> || std::is_same_v<T, LongDouble>)
        return std::numeric_limits<double>::min();
    else
        return T{};
}

inline constexpr uint64_t kNoTrendPosition = ~uint64_t{0};

static_assert(sizeof(TrendPoint<double>) == 16 && sizeof(TrendPoint<float>) == 12 &&
              sizeof(TrendPoint<uint8_t>) == 9);
static_assert(sizeof(TrendIndexEntry<double>) == 32 && sizeof(TrendIndexEntry<float>) == 24 &&
              sizeof(TrendIndexEntry<uint8_t>) == 18 && offsetof(TrendIndexEntry<uint8_t>, minimum) == 17);
static_assert(sizeof(TrendArea) == 48 && offsetof(TrendArea, end_time) == 24);
static_assert(std::is_trivially_copyable_v<TrendPoint<double>> && std::is_trivially_copyable_v<TrendArea>);
