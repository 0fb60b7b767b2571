#pragma once
// CommonWaveReader: the time-addressed read side of a CommonWaveDataSet. It takes the
// dataset's "Wave", "Area" and "Index" storages when it is made, and its result objects
// convert through the dataset item's child "dataAxis".
//
// Times are sample numbers times the sample period: the runs of "Area" and the dataset's
// last area hold sample numbers. A reader belongs to one thread at a time.

#include "common/analog_read_interfaces.h"
#include "dataset/records.h"

#include <cstdint>
#include <memory>

class IBaseCtr;
class IRatio;
class IWaveDataset;
class StorageBase;
struct WaveTypeOps;

class CommonWaveReader : public IAnalogBaseRead {
public:
    // owner: the item whose "dataAxis" child converts values (the dataset's item when null).
    CommonWaveReader(IBaseCtr* owner, IWaveDataset* dataset);
    ~CommonWaveReader() override;

    std::unique_ptr<IAnalogMinMaxData> MinMaxData(uint32_t count) override;
    std::unique_ptr<IAnalogDataArray> DataArray(uint32_t count) override;
    std::unique_ptr<IAnalogData> Data() override;
    // Times follow from the sample rate: empty.
    std::unique_ptr<IAnalogDataArray> TimeArray(uint32_t count) override;
    uint64_t Count(VellumTime begin, VellumTime end) override;
    uint32_t ReadData(VellumTime begin, IAnalogDataArray* out) override;
    // Not offered by this reader: false.
    bool ReadTimes(VellumTime begin, IAnalogDataArray* times) override;
    bool ReadBefore(VellumTime end, IAnalogDataArray* out) override;
    bool FindValue(VellumTime begin, VellumTime end, double value, VellumTime& found) override;
    bool FindEdge(VellumTime begin, VellumTime end, double level, bool rising, VellumTime& found) override;
    bool NextRange(VellumTime after, VellumTime& begin, VellumTime& end) override;
    bool At(VellumTime time, IAnalogData* data) override;
    bool ValidRange(VellumTime& begin, VellumTime& end) override;
    uint32_t ReadMinMax(VellumTime begin, VellumTime end, IAnalogMinMaxData* out) override;

private:
    // The run that holds sample number n: the stored areas, then the last area.
    bool FindArea(int64_t n, ValidDataArea& area) const;
    // Folds the elements first..last (inclusive) of "Wave" into the pair; false if none came.
    bool ScanSamples(uint64_t first, uint64_t last, unsigned char* pair, bool& started) const;
    // Folds the index entries first..last (inclusive) into the pair.
    bool ScanIndex(uint64_t first, uint64_t last, unsigned char* pair, bool& started) const;
    IRatio* DataAxis() const;
    const WaveTypeOps* Ops() const;

    IBaseCtr* owner_;
    IWaveDataset* dataset_;
    std::shared_ptr<StorageBase> wave_;
    std::shared_ptr<StorageBase> area_;
    std::shared_ptr<StorageBase> index_;
};
