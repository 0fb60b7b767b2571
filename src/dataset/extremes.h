#pragma once
// Running extremes over runs of samples or of min/max columns, the inner loop of the
// producer's columns and of the reader's scans.
//
// A value lowers the minimum only when it is below it and raises the maximum only when
// it is above it, so a NaN changes nothing. The loops keep eight running pairs side by
// side so that the compiler can use vector instructions; extremes don't depend on the
// order in which values are met (apart from the sign of a zero).

#include "dataset/records.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

template <class T>
void FoldExtremes(const T* values, uint64_t count, T& lo_out, T& hi_out) {
    // The extremes run in locals: through the references, a call that isn't inlined
    // would store and reload them at every value of the tail.
    constexpr int kLanes = 8;
    T lo = lo_out, hi = hi_out;
    uint64_t i = 0;
    if (count >= 2 * kLanes) {
        T lanes_lo[kLanes], lanes_hi[kLanes];
        for (int k = 0; k < kLanes; ++k) lanes_lo[k] = lo, lanes_hi[k] = hi;
        for (; i + kLanes <= count; i += kLanes) {
            for (int k = 0; k < kLanes; ++k) {
                const T v = values[i + k];
                lanes_lo[k] = v < lanes_lo[k] ? v : lanes_lo[k];
                lanes_hi[k] = v > lanes_hi[k] ? v : lanes_hi[k];
            }
        }
        for (int k = 0; k < kLanes; ++k) {
            lo = lanes_lo[k] < lo ? lanes_lo[k] : lo;
            hi = lanes_hi[k] > hi ? lanes_hi[k] : hi;
        }
    }
    for (; i < count; ++i) {
        lo = values[i] < lo ? values[i] : lo;
        hi = values[i] > hi ? values[i] : hi;
    }
    lo_out = lo;
    hi_out = hi;
}

namespace extremes_detail {

// Of a and b, the one that an in-order fold by beats would keep, when both are the first
// extreme met in their share of the run: false when they are equal with different bits
// (zeros of both signs), where only the order can decide.
template <class T, class Beats>
bool Combine(const T& a, const T& b, T& out, Beats beats) {
    if (beats(b, a)) {
        out = b;
        return true;
    }
    if constexpr (std::is_floating_point_v<T>) {
        if (!beats(a, b) && std::memcmp(&a, &b, sizeof(T)) != 0) return false;
    }
    out = a;
    return true;
}

}  // namespace extremes_detail

// The fold of the min and max fields of records (min/max columns, or anything with such
// fields) in order: of equal extremes the first met stays, bit for bit. Long runs are
// folded in four running pairs side by side, so that a comparison doesn't wait for the
// one before; where the pairs end on equal extremes of different bits, the run is folded
// again one record after the other.
template <class R, class T>
void FoldInOrder(const R* records, uint64_t count, T& lo, T& hi) {
    uint64_t i = 0;
    if constexpr (std::is_arithmetic_v<T>) {
        if (count >= 16) {
            // Separate locals, which the compiler keeps in registers.
            T lo0 = lo, lo1 = lo, lo2 = lo, lo3 = lo, hi0 = hi, hi1 = hi, hi2 = hi, hi3 = hi;
            const uint64_t whole = count & ~uint64_t{3};
            for (; i < whole; i += 4) {
                const R* r = records + i;
                lo0 = r[0].min < lo0 ? r[0].min : lo0;
                hi0 = r[0].max > hi0 ? r[0].max : hi0;
                lo1 = r[1].min < lo1 ? r[1].min : lo1;
                hi1 = r[1].max > hi1 ? r[1].max : hi1;
                lo2 = r[2].min < lo2 ? r[2].min : lo2;
                hi2 = r[2].max > hi2 ? r[2].max : hi2;
                lo3 = r[3].min < lo3 ? r[3].min : lo3;
                hi3 = r[3].max > hi3 ? r[3].max : hi3;
            }
            const auto below = [](const T& a, const T& b) { return a < b; };
            const auto above = [](const T& a, const T& b) { return a > b; };
            // The lanes meet pairwise; any two lanes that end on the extreme meet on the way,
            // so a tie of different bits is always seen and left to the in-order loop.
            T l01{}, l23{}, h01{}, h23{}, l{}, h{};
            if (extremes_detail::Combine(lo0, lo1, l01, below) && extremes_detail::Combine(lo2, lo3, l23, below) &&
                extremes_detail::Combine(l01, l23, l, below) && extremes_detail::Combine(hi0, hi1, h01, above) &&
                extremes_detail::Combine(hi2, hi3, h23, above) && extremes_detail::Combine(h01, h23, h, above)) {
                lo = l;
                hi = h;
            } else {
                i = 0;
            }
        }
    }
    for (; i < count; ++i) {
        lo = records[i].min < lo ? records[i].min : lo;
        hi = records[i].max > hi ? records[i].max : hi;
    }
}

// Index columns folded in order (see FoldInOrder).
template <class T>
void FoldColumns(const MinMaxData<T>* columns, uint64_t count, T& lo, T& hi) {
    FoldInOrder(columns, count, lo, hi);
}
