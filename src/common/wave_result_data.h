#pragma once
// The result objects of a CommonWaveReader: one element (WaveData), an array of
// elements (WaveDataArray) and an array of min/max pairs (WaveMinMaxData). Each element
// goes through the type row's to-double, then through the data axis' mapping (value =
// raw x ratio + offset), then to the asked type; integers are truncated from the double
// (clamped to their range, NaN giving 0).

#include "common/analog_read_interfaces.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

class IRatio;
struct WaveTypeOps;

namespace __internal {

// raw element -> axis unit; NaN without a row or an axis.
double ConvertElement(const WaveTypeOps* ops, IRatio* axis, const void* element);

}  // namespace __internal

class WaveData : public IAnalogData {
public:
    WaveData(IRatio* axis, const WaveTypeOps* ops);
    bool GetInt(int64_t* out) const override;
    bool GetFloat(float* out) const override;
    bool GetDouble(double* out) const override;
    // The double as text.
    bool GetText(std::string* out) const override;
    void* Element() { return element_.data(); }
    const WaveTypeOps* Ops() const { return ops_; }

private:
    IRatio* axis_;
    const WaveTypeOps* ops_;
    std::vector<unsigned char> element_;
};

class WaveDataArray : public IAnalogDataArray {
public:
    WaveDataArray(uint32_t capacity, IRatio* axis, const WaveTypeOps* ops);
    ~WaveDataArray() override;
    WaveDataArray(const WaveDataArray&) = delete;
    WaveDataArray& operator=(const WaveDataArray&) = delete;
    uint32_t Capacity() const override { return capacity_; }
    void* Buffer() override { return buffer_; }
    uint32_t Count() const override { return count_; }
    bool GetInt(uint32_t* out) const override;
    bool GetDouble(double* out) const override;
    bool GetFloat(float* out) const override;
    void SetCount(uint32_t count) override { count_ = count < capacity_ ? count : capacity_; }
    double At(uint32_t index) const override;
    IRatio* Axis() const { return axis_; }
    const WaveTypeOps* Ops() const { return ops_; }

private:
    uint32_t capacity_;
    uint32_t count_ = 0;
    IRatio* axis_;
    const WaveTypeOps* ops_;
    void* buffer_;
};

class WaveMinMaxData : public IAnalogMinMaxData {
public:
    WaveMinMaxData(uint32_t capacity, IRatio* axis, const WaveTypeOps* ops);
    ~WaveMinMaxData() override;
    WaveMinMaxData(const WaveMinMaxData&) = delete;
    WaveMinMaxData& operator=(const WaveMinMaxData&) = delete;
    uint32_t Capacity() const override { return capacity_; }
    void* Buffer() override { return buffer_; }
    uint32_t Count() const override { return count_; }
    void SetCount(uint32_t count) override { count_ = count < capacity_ ? count : capacity_; }
    bool GetInt(int64_t* out) const override;
    bool GetFloat(float* out) const override;
    bool GetDouble(double* out) const override;
    bool PairText(uint32_t index, std::string* out) const override;
    bool PairInt(uint32_t index, int64_t* min, int64_t* max) const override;
    bool PairFloat(uint32_t index, float* min, float* max) const override;
    bool PairDouble(uint32_t index, double* min, double* max) const override;

private:
    // Element i (pair i / 2, minimum for even i) converted.
    double Value(uint32_t element) const;
    bool Usable() const;

    uint32_t capacity_;
    uint32_t count_ = 0;
    IRatio* axis_;
    const WaveTypeOps* ops_;
    void* buffer_;
};
