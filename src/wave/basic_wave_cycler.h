#pragma once
// BasicWaveCycler: the child item "CircleTool" of a wave dataset that keeps a wave
// within its cycle limit. It subscribes to the dataset item's "OutLimit:Size" and
// "OutLimit:Time" (raised by the BasicWaveChecker inside Push) and cuts one step off
// the head of "Wave", "Index" and "Area" per event, ending on a column boundary.
//
// The size handler cuts its step of samples whatever the areas hold; the time handler
// cuts up to the start of an area. Without areas both shift the size axis' offset by
// what they cut. The storages' CutHead decides what is really removed: the block
// storage cuts nothing, so there only the axis shift takes effect.

#include <cstdint>
#include <memory>

class IBaseCtr;
class IItemType;
class StorageBase;

class BasicWaveCycler {
public:
    enum CycleType : int { kSize = 1, kTime = 2 };

    BasicWaveCycler();
    // Removes both subscriptions from the item.
    ~BasicWaveCycler();
    BasicWaveCycler(const BasicWaveCycler&) = delete;
    BasicWaveCycler& operator=(const BasicWaveCycler&) = delete;

    // step: bytes for kSize, seconds for kTime, cut per event.
    void Config(CycleType type, double step);
    void ConfigStorages(std::shared_ptr<StorageBase> wave, std::shared_ptr<StorageBase> index,
                        std::shared_ptr<StorageBase> area);
    // Subscribes to item's limit events and normalises the step to whole index columns
    // with the periods of item's size axis. Call once, after ConfigStorages.
    void InitEvents(IBaseCtr* item);

    CycleType Type() const;
    double Step() const;

private:
    struct Record;
    std::unique_ptr<Record> record_;
};

// The item type of the cycler (made once per process, in the type manager's root scope).
IItemType* RegisterWaveCyclerType();
