#pragma once
// Small helpers that readers and the cycler use on a dataset they know only by its item.
//
//   __internal::DataSetTool          finds the dataset's axes once and answers from them
//   WaveDatasetParameters            the "WaveParam" record: what was cut from the head
//   DataOffsetUtility                scope guard: caller times <-> base times
//   __internal::DataFillingTool      screen-column helpers of the min/max read path

#include "host/ctr_var.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class IBaseCtr;
class IDatasetAxis;
class IItemType;
class ILocalSource;

// The host-visible record of how much of a wave has been cut from its head; a wave
// dataset keeps one as its child "WaveParam". Fields at offsets 0, 8 and 16.
struct WaveDatasetParameters {
    uint64_t raw_point_offset = 0;  // samples cut from "Wave": storage position = area position - this
    uint64_t index_offset = 0;      // columns cut from "Index"
    uint64_t time_offset = 0;       // nanoseconds cut from the head of the wave

    // The item type's struct fields and its type function "Reset".
    static bool InitType(IItemType* type, const std::string& name);
    // A new item of these parameters, as a wave dataset adds it under "WaveParam"; the
    // caller owns it. The type is registered in source first if needed. Null on failure.
    static IBaseCtr* InitStructInfo(ILocalSource* source);
    // All three offsets back to 0.
    void Reset();
};

// Registers the item type "WaveDatasetParameters" (made once per process) and makes sure
// source knows it under that name (the type manager's root scope without a source).
IItemType* RegisterWaveDatasetParametersType(ILocalSource* source);

namespace __internal {

// A plain copyable value: the dataset item and what was found on it. Holds no lock.
class DataSetTool {
public:
    // Looks up the children "dataAxis" and "sizeAxis" of owner, if owner is set.
    explicit DataSetTool(IBaseCtr* owner = nullptr);

    IBaseCtr* Item() const { return item; }
    IDatasetAxis* SizeAxis() const { return size_axis; }
    IDatasetAxis* DataAxis() const { return data_axis; }

    // Seconds per sample; 0.0 without a size axis.
    double GetSampleTime() const;
    // Seconds per index column: the axis' index step in samples, or by default a power
    // of ten of seconds that holds between 100 and 1000 samples; 1e-6 without a size axis.
    double GetIndexStepTime() const;
    // (offset, width) of the size axis' window; (0, 0) without the axis.
    std::pair<double, double> GetSizeAxisInfo();
    // (width, offset) of the data axis' window; (0, 0) without the axis.
    std::pair<double, double> GetDataAxisInfo();
    // (first, last) time of the size axis' range; (0, 0) without the axis.
    std::pair<double, double> GetTimeRange();
    // The size axis' lock state; 0 without the axis.
    unsigned int GetAxisState() const;

    // Commands to the dataset item with a null argument; the item's answer, false
    // without an item.
    bool Lock() const;
    bool UnLock() const;
    bool Command(const std::string& command) const;

    // Caller time -> base time: subtract the size axis' data offset from each value that
    // is given. Without a size axis nothing changes.
    void ApplyDataOffset(double* a, double* b) const;
    // Base time -> caller time: add it back.
    void RemoveDataOffset(double* a, double* b) const;

    // The dataset's "WaveParam" record, looked up on first use; null if it has none.
    // Safe to call from two threads at once: both find the same record.
    WaveDatasetParameters* GetDataParameters();

private:
    IBaseCtr* item;
    IDatasetAxis* size_axis = nullptr;
    IDatasetAxis* data_axis = nullptr;
    WaveDatasetParameters* parameters = nullptr;
};

class DataFillingTool {
public:
    // One flag per screen column: 1 where column i (at i x step + start samples) lies on
    // a further sample than column i - 1 (the one before column 0 is at sample 0).
    static std::vector<unsigned char> GetScreenValidPointVec(const unsigned int& count, const double& step,
                                                             const double& start);
};

}  // namespace __internal

// Scope guard: while it lives, the given values are in base time (the axis' data offset
// subtracted); its destructor adds the offset back. Null pointers and a null axis are
// left alone.
class DataOffsetUtility {
public:
    DataOffsetUtility(double* a, double* b, IDatasetAxis* offset_axis);
    ~DataOffsetUtility();
    DataOffsetUtility(const DataOffsetUtility&) = delete;
    DataOffsetUtility& operator=(const DataOffsetUtility&) = delete;

private:
    double* first;
    double* second;
    IDatasetAxis* axis;
};
