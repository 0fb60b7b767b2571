#pragma once
// CTrendTool: the links of a trend dataset to its configuration items, found on the
// dataset's item by Reload:
//   "sizeAxis"    its sample time defines the grid of the index (50 sample times a bucket);
//                 a trend has no sample rate of its own
//   "duration"    nanoseconds of time that one point stands for (unsigned 64-bit)
//   "post_ratio"  the share of that window before the point (single precision)
//   "dataAxis"    value x scale + offset gives the physical value
// The values are read from the items at each use, so a change of an item is seen at the
// next point or read. Missing items read as 0 (duration, ratio, steps) or as the identity
// (data axis). A plain copyable value; it holds no lock.

#include <cstdint>

class IBaseCtr;
class IDatasetAxis;

class CTrendTool {
public:
    explicit CTrendTool(IBaseCtr* item = nullptr) : item_(item) { Reload(); }

    // Looks the children of the item up anew.
    void Reload();

    IBaseCtr* Item() const { return item_; }
    IDatasetAxis* SizeAxis() const { return size_axis_; }
    IDatasetAxis* DataAxis() const { return data_axis_; }

    // trunc(sample time x 1e9) x 50; 0 without a size axis.
    uint64_t IndexStepNs() const;
    // trunc(sample time x 1e9); 0 without a size axis.
    uint64_t SampleStepNs() const;
    uint64_t Duration() const;
    float PostRatio() const;
    // value x scale + offset of the data axis; the value itself without one.
    double ToPhysical(double value) const;

    static constexpr uint64_t kSamplesPerBucket = 50;

private:
    IBaseCtr* item_ = nullptr;
    IDatasetAxis* size_axis_ = nullptr;
    IBaseCtr* duration_ = nullptr;
    IBaseCtr* post_ratio_ = nullptr;
    IDatasetAxis* data_axis_ = nullptr;
};

// trunc of a non-negative single-precision time to nanoseconds, saturating: negative
// (and NaN) gives 0, beyond the 64-bit range the largest value.
uint64_t FloatToNs(float value);
