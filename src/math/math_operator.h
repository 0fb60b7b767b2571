#pragma once
// The value of one result sample of a math dataset, from a left and a right sample.
// The operator is a template parameter, fixed at compile time:
//   0  left + right in T (integers wrap at the width of T)
//   1  left - right in T (integers wrap at the width of T)
//   2  the mean of the two:
//        float                       (left + right) * 0.5f
//        double, LongDouble          (left + right) * 0.5
//        int8, int16                 widened to 32 bits, added, halved toward zero
//        uint8, uint16               widened to 32 bits, added, shifted right by one
//        int32, int64                added in T (wrapping), halved toward zero
//        uint32, uint64              added in T (wrapping), shifted right by one
// No value is tested: a NaN stays a NaN, and nothing saturates.

#include "dataset/element_types.h"

#include <cstdint>
#include <type_traits>

namespace math_detail {

// a + b and a - b wrapping at the width of T (done in the unsigned twin, so that a
// signed overflow is defined).
template <class T>
constexpr T WrappingAdd(T a, T b) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) + static_cast<U>(b)));
}
template <class T>
constexpr T WrappingSub(T a, T b) {
    using U = std::make_unsigned_t<T>;
    return static_cast<T>(static_cast<U>(static_cast<U>(a) - static_cast<U>(b)));
}

}  // namespace math_detail

template <class T, int Op>
constexpr T MathValue(T left, T right) {
    static_assert(Op >= 0 && Op <= 2, "the operator is 0, 1 or 2");
    if constexpr (kIsFloatingElement<T>) {
        if constexpr (Op == 0) return static_cast<T>(left + right);
        if constexpr (Op == 1) return static_cast<T>(left - right);
        if constexpr (Op == 2) {
            if constexpr (std::is_same_v<T, float>) return (left + right) * 0.5f;
            else return static_cast<T>((static_cast<double>(left) + static_cast<double>(right)) * 0.5);
        }
    } else {
        if constexpr (Op == 0) return math_detail::WrappingAdd(left, right);
        if constexpr (Op == 1) return math_detail::WrappingSub(left, right);
        if constexpr (Op == 2) {
            if constexpr (sizeof(T) <= 2) {
                if constexpr (std::is_signed_v<T>)
                    return static_cast<T>((int32_t{left} + int32_t{right}) / 2);
                else
                    return static_cast<T>((uint32_t{left} + uint32_t{right}) >> 1);
            } else {
                const T sum = math_detail::WrappingAdd(left, right);
                if constexpr (std::is_signed_v<T>)
                    return static_cast<T>(sum / 2);
                else
                    return static_cast<T>(sum >> 1);
            }
        }
    }
}
