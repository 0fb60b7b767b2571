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

template <class T>
void FoldExtremes(const T* values, uint64_t count, T& lo, T& hi) {
    constexpr int kLanes = 8;
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
}

template <class T>
void FoldColumns(const MinMaxData<T>* columns, uint64_t count, T& lo, T& hi) {
    for (uint64_t i = 0; i < count; ++i) {
        lo = columns[i].min < lo ? columns[i].min : lo;
        hi = columns[i].max > hi ? columns[i].max : hi;
    }
}
