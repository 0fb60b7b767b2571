#pragma once
// The eleven element types over which wave, trend and math datasets are generic, and
// what the system knows of each: the host's type word, the short name of the
// "ElementType" attribute, the unit sizes of the "Wave" and "Index" storages, and the
// invalid value that marks a sample without data.

#include "dataset/long_double.h"

#include <cstdint>
#include <limits>
#include <string_view>
#include <type_traits>

template <class T>
struct ElementTraits;

#define WAVESTORE_ELEMENT_TRAITS(Type, Word, Short)                               \
    template <>                                                                   \
    struct ElementTraits<Type> {                                                  \
        static constexpr std::string_view kTypeWord = Word;                       \
        static constexpr std::string_view kShortName = Short;                     \
        static constexpr std::size_t kWaveUnitSize = sizeof(Type);                \
        static constexpr std::size_t kIndexUnitSize = 2 * sizeof(Type);           \
    }

WAVESTORE_ELEMENT_TRAITS(int8_t, "INT8", "s8");
WAVESTORE_ELEMENT_TRAITS(uint8_t, "UINT8", "u8");
WAVESTORE_ELEMENT_TRAITS(int16_t, "INT16", "s16");
WAVESTORE_ELEMENT_TRAITS(uint16_t, "UINT16", "u16");
WAVESTORE_ELEMENT_TRAITS(int32_t, "INT32", "s32");
WAVESTORE_ELEMENT_TRAITS(uint32_t, "UINT32", "u32");
WAVESTORE_ELEMENT_TRAITS(int64_t, "INT64", "s64");
WAVESTORE_ELEMENT_TRAITS(uint64_t, "UINT64", "u64");
WAVESTORE_ELEMENT_TRAITS(float, "FLOAT", "f32");
WAVESTORE_ELEMENT_TRAITS(double, "DOUBLE", "f64");
// No host type word; its attribute text is the run-time name of the type.
WAVESTORE_ELEMENT_TRAITS(LongDouble, "", "long double");

#undef WAVESTORE_ELEMENT_TRAITS

// The C++ types of the eleven instances, in the order of the table above.
template <class F>
constexpr void ForEachElementType(F&& f) {
    f.template operator()<int8_t>();
    f.template operator()<uint8_t>();
    f.template operator()<int16_t>();
    f.template operator()<uint16_t>();
    f.template operator()<int32_t>();
    f.template operator()<uint32_t>();
    f.template operator()<int64_t>();
    f.template operator()<uint64_t>();
    f.template operator()<float>();
    f.template operator()<double>();
    f.template operator()<LongDouble>();
}

template <class T>
constexpr bool kIsFloatingElement = std::is_floating_point_v<T> || std::is_same_v<T, LongDouble>;

// NaN for the floating types, the largest value for the integer types.
template <class T>
constexpr T InvalidValue() {
    if constexpr (kIsFloatingElement<T>)
        return std::numeric_limits<T>::quiet_NaN();
    else
        return std::numeric_limits<T>::max();
}

template <class T>
constexpr bool IsInvalidValue(T value) {
    if constexpr (kIsFloatingElement<T>)
        return static_cast<double>(value) != static_cast<double>(value);
    else
        return value == std::numeric_limits<T>::max();
}

// The invalid position: all bits set.
inline constexpr uint64_t kInvalidPosition = ~uint64_t{0};
