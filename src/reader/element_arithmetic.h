#pragma once
// Sums and differences of two element values, in the element type. The integer types
// wrap around modulo their width (as their arithmetic does in the stored formats),
// without the undefined overflow of signed C++ arithmetic; the floating types compute
// as double does.

#include "dataset/element_types.h"

#include <type_traits>

template <class T>
T ElementAdd(T a, T b) {
    if constexpr (kIsFloatingElement<T>) {
        return static_cast<T>(static_cast<double>(a) + static_cast<double>(b));
    } else {
        using U = std::make_unsigned_t<T>;
        return static_cast<T>(static_cast<U>(static_cast<U>(a) + static_cast<U>(b)));
    }
}

template <class T>
T ElementSub(T a, T b) {
    if constexpr (kIsFloatingElement<T>) {
        return static_cast<T>(static_cast<double>(a) - static_cast<double>(b));
    } else {
        using U = std::make_unsigned_t<T>;
        return static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)));
    }
}
