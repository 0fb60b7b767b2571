#include "common/wave_result_data.h"

#include "common/wave_type_ops.h"
#include "dataset/axis.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

template <class I>
I Truncate(double value) {
    if (std::isnan(value)) return 0;
    if (value <= static_cast<double>(std::numeric_limits<I>::lowest())) return std::numeric_limits<I>::lowest();
    if (value >= static_cast<double>(std::numeric_limits<I>::max())) return std::numeric_limits<I>::max();
    return static_cast<I>(value);
}

// A buffer of count elements; an allocation that fails leaves none, and the capacity 0.
void* Allocate(uint32_t& capacity, std::size_t element_size) {
    if (capacity == 0 || element_size == 0) return nullptr;
    void* buffer = std::malloc(static_cast<std::size_t>(capacity) * element_size);
    if (buffer == nullptr) capacity = 0;
    return buffer;
}

const unsigned char* ElementAt(const void* buffer, const WaveTypeOps* ops, uint32_t index) {
    return static_cast<const unsigned char*>(buffer) + static_cast<std::size_t>(index) * ops->size;
}

}  // namespace

double __internal::ConvertElement(const WaveTypeOps* ops, IRatio* axis, const void* element) {
    if (ops == nullptr || axis == nullptr || element == nullptr) return std::numeric_limits<double>::quiet_NaN();
    return ops->to_double(element) * axis->GetRatio() + axis->GetOffset();
}

WaveData::WaveData(IRatio* axis, const WaveTypeOps* ops)
    : axis_(axis), ops_(ops), element_(ops ? ops->size : 0, 0) {}

bool WaveData::GetDouble(double* out) const {
    if (ops_ == nullptr || axis_ == nullptr || out == nullptr) return false;
    *out = __internal::ConvertElement(ops_, axis_, element_.data());
    return true;
}

bool WaveData::GetInt(int64_t* out) const {
    double value = 0;
    if (out == nullptr || !GetDouble(&value)) return false;
    *out = Truncate<int64_t>(value);
    return true;
}

bool WaveData::GetFloat(float* out) const {
    double value = 0;
    if (out == nullptr || !GetDouble(&value)) return false;
    *out = static_cast<float>(value);
    return true;
}

bool WaveData::GetText(std::string* out) const {
    double value = 0;
    if (out == nullptr || !GetDouble(&value)) return false;
    *out = fmt::format("{}", value);
    return true;
}

WaveDataArray::WaveDataArray(uint32_t capacity, IRatio* axis, const WaveTypeOps* ops)
    : capacity_(ops ? capacity : 0), axis_(axis), ops_(ops), buffer_(Allocate(capacity_, ops ? ops->size : 0)) {}

WaveDataArray::~WaveDataArray() { std::free(buffer_); }

double WaveDataArray::At(uint32_t index) const {
    if (index >= count_) return std::numeric_limits<double>::quiet_NaN();
    return __internal::ConvertElement(ops_, axis_, ElementAt(buffer_, ops_, index));
}

bool WaveDataArray::GetDouble(double* out) const {
    if (ops_ == nullptr || axis_ == nullptr || out == nullptr) return false;
    for (uint32_t i = 0; i < count_; ++i) out[i] = At(i);
    return true;
}

bool WaveDataArray::GetFloat(float* out) const {
    if (ops_ == nullptr || axis_ == nullptr || out == nullptr) return false;
    for (uint32_t i = 0; i < count_; ++i) out[i] = static_cast<float>(At(i));
    return true;
}

bool WaveDataArray::GetInt(uint32_t* out) const {
    if (ops_ == nullptr || axis_ == nullptr || out == nullptr) return false;
    for (uint32_t i = 0; i < count_; ++i) out[i] = Truncate<uint32_t>(At(i));
    return true;
}

WaveMinMaxData::WaveMinMaxData(uint32_t capacity, IRatio* axis, const WaveTypeOps* ops)
    : capacity_(ops && capacity <= UINT32_MAX / 2 ? capacity : 0), axis_(axis), ops_(ops) {
    uint32_t elements = 2 * capacity_;
    buffer_ = Allocate(elements, ops ? ops->size : 0);
    if (elements == 0) capacity_ = 0;
}

WaveMinMaxData::~WaveMinMaxData() { std::free(buffer_); }

bool WaveMinMaxData::Usable() const { return ops_ != nullptr && axis_ != nullptr; }

double WaveMinMaxData::Value(uint32_t element) const {
    return __internal::ConvertElement(ops_, axis_, ElementAt(buffer_, ops_, element));
}

bool WaveMinMaxData::GetDouble(double* out) const {
    if (!Usable() || out == nullptr) return false;
    for (uint32_t i = 0; i < 2 * count_; ++i) out[i] = Value(i);
    return true;
}

bool WaveMinMaxData::GetFloat(float* out) const {
    if (!Usable() || out == nullptr) return false;
    for (uint32_t i = 0; i < 2 * count_; ++i) out[i] = static_cast<float>(Value(i));
    return true;
}

bool WaveMinMaxData::GetInt(int64_t* out) const {
    if (!Usable() || out == nullptr) return false;
    for (uint32_t i = 0; i < 2 * count_; ++i) out[i] = Truncate<int64_t>(Value(i));
    return true;
}

bool WaveMinMaxData::PairDouble(uint32_t index, double* min, double* max) const {
    if (!Usable() || index >= count_ || min == nullptr || max == nullptr) return false;
    *min = Value(2 * index);
    *max = Value(2 * index + 1);
    return true;
}

bool WaveMinMaxData::PairFloat(uint32_t index, float* min, float* max) const {
    double a = 0, b = 0;
    if (min == nullptr || max == nullptr || !PairDouble(index, &a, &b)) return false;
    *min = static_cast<float>(a);
    *max = static_cast<float>(b);
    return true;
}

bool WaveMinMaxData::PairInt(uint32_t index, int64_t* min, int64_t* max) const {
    double a = 0, b = 0;
    if (min == nullptr || max == nullptr || !PairDouble(index, &a, &b)) return false;
    *min = Truncate<int64_t>(a);
    *max = Truncate<int64_t>(b);
    return true;
}

bool WaveMinMaxData::PairText(uint32_t index, std::string* out) const {
    double a = 0, b = 0;
    if (out == nullptr || !PairDouble(index, &a, &b)) return false;
    *out = fmt::format("{},{}", a, b);
    return true;
}
