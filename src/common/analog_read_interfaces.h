#pragma once
// The read side of the configurable wave family as the host sees it: a reader
// (IAnalogBaseRead) and its three result objects. Results hold raw elements of the
// dataset's type and hand them out as numbers in the unit of the dataset's data axis.

#include "host/vellum_time.h"

#include <cstdint>
#include <memory>
#include <string>

class IAnalogData {
public:
    virtual ~IAnalogData() = default;
    virtual bool IsArray() const { return false; }
    // The element, converted; false without an element type or a data axis.
    virtual bool GetInt(int64_t* out) const = 0;
    virtual bool GetFloat(float* out) const = 0;
    virtual bool GetDouble(double* out) const = 0;
    virtual bool GetText(std::string* out) const = 0;
};

class IAnalogDataArray {
public:
    virtual ~IAnalogDataArray() = default;
    virtual uint32_t Capacity() const = 0;
    // Raw elements, Capacity() of them.
    virtual void* Buffer() = 0;
    virtual uint32_t Count() const = 0;
    virtual bool IsPairs() const { return false; }
    // Count() converted values into out; false without an element type or a data axis.
    virtual bool GetInt(uint32_t* out) const = 0;
    virtual bool GetDouble(double* out) const = 0;
    virtual bool GetFloat(float* out) const = 0;
    // Capped at the capacity.
    virtual void SetCount(uint32_t count) = 0;
    // Element index converted; NaN past the count or without a type or axis.
    virtual double At(uint32_t index) const = 0;
};

class IAnalogMinMaxData {
public:
    virtual ~IAnalogMinMaxData() = default;
    virtual uint32_t Capacity() const = 0;
    // Raw pairs, minimum then maximum, 2 x Capacity() elements.
    virtual void* Buffer() = 0;
    virtual uint32_t Count() const = 0;
    virtual void SetCount(uint32_t count) = 0;
    // Count() pairs into out (2 x Count() values); false without a type or axis.
    virtual bool GetInt(int64_t* out) const = 0;
    virtual bool GetFloat(float* out) const = 0;
    virtual bool GetDouble(double* out) const = 0;
    // One pair; false past the count.
    virtual bool PairText(uint32_t index, std::string* out) const = 0;
    virtual bool PairInt(uint32_t index, int64_t* min, int64_t* max) const = 0;
    virtual bool PairFloat(uint32_t index, float* min, float* max) const = 0;
    virtual bool PairDouble(uint32_t index, double* min, double* max) const = 0;
};

class IAnalogBaseRead {
public:
    virtual ~IAnalogBaseRead() = default;
    virtual std::unique_ptr<IAnalogMinMaxData> MinMaxData(uint32_t count) = 0;
    virtual std::unique_ptr<IAnalogDataArray> DataArray(uint32_t count) = 0;
    virtual std::unique_ptr<IAnalogData> Data() = 0;
    // An array for the times of samples, for readers of data without a fixed rate;
    // empty from readers whose times follow from the rate.
    virtual std::unique_ptr<IAnalogDataArray> TimeArray(uint32_t count) = 0;
    // Samples in [begin, end] cut to the valid range; 0 outside it.
    virtual uint64_t Count(VellumTime begin, VellumTime end) = 0;
    // Samples from begin on, within one run, up to the array's capacity; the count read.
    virtual uint32_t ReadData(VellumTime begin, IAnalogDataArray* out) = 0;
    // The operations below are optional: false from a reader that doesn't offer them.
    // The times of the samples from begin on, into an array of TimeArray.
    virtual bool ReadTimes(VellumTime begin, IAnalogDataArray* times) = 0;
    // The samples up to end, the last one at the end of out.
    virtual bool ReadBefore(VellumTime end, IAnalogDataArray* out) = 0;
    // The first time in [begin, end] at which the data reaches value.
    virtual bool FindValue(VellumTime begin, VellumTime end, double value, VellumTime& found) = 0;
    // The first crossing of level in [begin, end], rising or falling.
    virtual bool FindEdge(VellumTime begin, VellumTime end, double level, bool rising, VellumTime& found) = 0;
    // The run of samples that follows the one holding after.
    virtual bool NextRange(VellumTime after, VellumTime& begin, VellumTime& end) = 0;
    // The sample at time; false where there is none.
    virtual bool At(VellumTime time, IAnalogData* data) = 0;
    // From the first stored run's start to the last run's end; false without samples.
    virtual bool ValidRange(VellumTime& begin, VellumTime& end) = 0;
    // One min/max pair per element of out over [begin, end], within the run of begin:
    // from the samples when a column holds fewer than one index step, else from the
    // index entries with the partial ends scanned. The count of pairs given.
    virtual uint32_t ReadMinMax(VellumTime begin, VellumTime end, IAnalogMinMaxData* out) = 0;
};
