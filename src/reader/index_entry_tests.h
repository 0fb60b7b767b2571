#pragma once
// The tests that the value search applies to index entries, shared by the entry walk and
// the index summary's walk so that both answer alike.

#include "dataset/records.h"

namespace value_search_detail {

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
