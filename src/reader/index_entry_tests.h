#pragma once
// The tests that the value search applies to index entries, shared by the entry walk and
// the index summary's walk so that both answer alike.

#include "dataset/records.h"

#include <cstdint>

namespace value_search_detail {

// Index reads move at most this many entries; the first look upward takes 30.
constexpr uint64_t kIndexChunk = 65536;
constexpr uint64_t kFirstLook = 30;

// The entries of the upward walk's window at p, for a range ending at last in an index of
// held entries: a whole chunk while one remains, else the rest of the range, one less where
// that would reach past the index, and from entry 0 one less than the range holds.
inline uint64_t UpwardWindow(uint64_t p, uint64_t last, uint64_t held) {
    const uint64_t rem = last - p;
    if (rem >= kIndexChunk) return kIndexChunk;
    if (p != 0) return p + rem + 1 > held ? rem : rem + 1;
    return last;
}

template <class T>
double AsDouble(const T& value) {
    return static_cast<double>(value);
}

template <class T>
bool Holds(const MinMaxData<T>& entry, double value) {
    return AsDouble(entry.min) <= value && value <= AsDouble(entry.max);
}

// Upward: the value meets a pair of neighbours when their opposite ends overlap it.
template <class T>
bool MeetsUpward(const MinMaxData<T>& lower, const MinMaxData<T>& upper, double value) {
    return (AsDouble(lower.max) > value && value > AsDouble(upper.min)) ||
           (value > AsDouble(lower.min) && AsDouble(upper.max) > value);
}

// Downward: the value lies between a pair of neighbours that are separated by it.
template <class T>
bool MeetsDownward(const MinMaxData<T>& lower, const MinMaxData<T>& upper, double value) {
    return (AsDouble(lower.min) > value && value > AsDouble(upper.max)) ||
           (value > AsDouble(lower.max) && AsDouble(upper.min) > value);
}

}  // namespace value_search_detail
