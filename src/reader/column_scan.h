#pragma once
// The pieces of the raw column scan that run once per column: the sample span of a
// column, and the fold of a span held in memory. Both give exactly what the general
// path gives (std::floor / std::ceil, and a windowed read started by its first sample).

#include "dataset/extremes.h"
#include "dataset/records.h"

#include <cmath>
#include <cstdint>

namespace column_scan {

// floor(x) and ceil(y) as positions, for 0 <= x <= y. Below 2^52 a truncation is exact
// and spares the library calls; larger values take them.
inline void Span(double x, double y, uint64_t& first, uint64_t& last) {
    constexpr double kExact = 4503599627370496.0;  // 2^52
    if (y < kExact) {
        first = static_cast<uint64_t>(x);
        last = static_cast<uint64_t>(y);
        if (static_cast<double>(last) < y) ++last;
    } else {
        first = static_cast<uint64_t>(std::floor(x));
        last = static_cast<uint64_t>(std::ceil(y));
    }
}

// The extremes of count >= 1 samples: the first starts both, the rest are folded as a
// windowed read of one run folds them. A short column is folded here on locals, which
// stay in registers; FoldExtremes, out of line and on references, would store and
// reload both extremes at every sample. It folds a short run in order as well.
template <class T>
inline MinMaxData<T> FoldRun(const T* samples, uint64_t count) {
    constexpr uint64_t kShort = 16;  // below this FoldExtremes keeps no lanes either
    if (count - 1 >= kShort) {
        T lo = samples[0], hi = samples[0];
        FoldExtremes(samples + 1, count - 1, lo, hi);
        return {lo, hi};
    }
    T lo = samples[0], hi = samples[0];
#pragma GCC unroll 4
    for (uint64_t i = 1; i < count; ++i) {
        const T v = samples[i];
        lo = v < lo ? v : lo;
        hi = v > hi ? v : hi;
    }
    return {lo, hi};
}

}  // namespace column_scan
