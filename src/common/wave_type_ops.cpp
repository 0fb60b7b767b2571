#include "common/wave_type_ops.h"

#include "host/var.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace {

template <class T>
T Load(const void* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

template <class T>
int Compare(const void* a, const void* b) {
    const T x = Load<T>(a);
    const T y = Load<T>(b);
    return x < y ? -1 : (y < x ? 1 : 0);
}

template <class T>
double ToDouble(const void* element) {
    return static_cast<double>(Load<T>(element));
}

template <class T>
void FromDouble(double value, void* element) {
    T out;
    if constexpr (std::is_floating_point_v<T>) {
        out = static_cast<T>(value);
    } else if (std::isnan(value)) {
        out = 0;
    } else if (value <= static_cast<double>(std::numeric_limits<T>::lowest())) {
        out = std::numeric_limits<T>::lowest();
    } else if (value >= static_cast<double>(std::numeric_limits<T>::max())) {
        out = std::numeric_limits<T>::max();
    } else {
        out = static_cast<T>(value);
    }
    std::memcpy(element, &out, sizeof(T));
}

template <class T>
constexpr WaveTypeOps Row(SysVarType type, const char* name) {
    return WaveTypeOps{static_cast<int>(type), name, sizeof(T), &Compare<T>, &ToDouble<T>, &FromDouble<T>};
}

// In code order.
const WaveTypeOps kRows[10] = {
    Row<int8_t>(SysVarType::INT8, "INT8"),       Row<uint8_t>(SysVarType::UINT8, "UINT8"),
    Row<int16_t>(SysVarType::INT16, "INT16"),    Row<uint16_t>(SysVarType::UINT16, "UINT16"),
    Row<int32_t>(SysVarType::INT32, "INT32"),    Row<int64_t>(SysVarType::INT64, "INT64"),
    Row<uint32_t>(SysVarType::UINT32, "UINT32"), Row<uint64_t>(SysVarType::UINT64, "UINT64"),
    Row<float>(SysVarType::FLOAT, "FLOAT"),      Row<double>(SysVarType::DOUBLE, "DOUBLE"),
};

}  // namespace

const WaveTypeOps* WaveTypeOpsByCode(int code) {
    if (code < 0 || code > 9) return nullptr;
    return &kRows[code];
}

const WaveTypeOps* WaveTypeOpsByName(const std::string& name) {
    SysVarType type;
    if (!StrVarType(name, type)) return nullptr;
    return WaveTypeOpsByCode(static_cast<int>(type));
}
