#pragma once
// CommonWaveMaxMinIndexer: the min/max index of a CommonWaveDataSet. Every step samples
// become one entry of "Index": the minimum and the maximum in the element's own form,
// so an entry is 2 x the element size and no precision is lost for any type.
//
// The step is the attribute "step", or, when that was never set, derived from the
// sample period at Attach so that one entry spans a whole power of ten of time.
//
// Pairs are opened and closed as the writer's blocks arrive, with two settled
// asymmetries: once a block starts beyond the first step every block first closes the
// open pair, so entries also end at block boundaries; and a pair opened at a step
// boundary in the middle of a block starts from that block's first element.

#include "common/common_wave_interfaces.h"
#include "host/xml_items.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class StorageBase;

class CommonWaveMaxMinIndexer : public IWaveIndexer, public IItemXmlInit {
public:
    CommonWaveMaxMinIndexer();
    ~CommonWaveMaxMinIndexer() override;

    // Takes "Index" from the dataset (making it on a new managed file if absent) and
    // derives the step if it was not set.
    bool Attach(IWaveDataset* dataset, ILocalSource* source) override;
    void Push(VellumTime time, const void* data, uint64_t count) override;
    // Gives the index storage the unit of two elements (while it is empty) and makes
    // the scratch pair.
    void Prepare() override;
    void Reset() override;
    void Complete() override {}

    // Reads "step" and keeps "id", "index" and "comment" of the node. Always true.
    bool InitItemByXML(ILocalSource* source, IBaseCtr* item, const pugi::xml_node& node) override;

    // "step" sets the step (a text that isn't a positive number leaves it as it was);
    // every attribute is kept.
    void SetAttribute(const std::string& name, const std::string& value);
    std::string GetAttribute(const std::string& name) const;

    uint32_t Step() const { return step_; }
    bool StepSet() const { return step_set_; }
    std::shared_ptr<StorageBase> IndexStorage() const { return index_; }

    // The step for a sample period: 50 samples, grown until 50 periods' worth of time is
    // 1 x 10^n, but never beyond 10^3 of the period's own level.
    static uint32_t DeriveStep(VellumLevelTime period);

private:
    void Append();

    IWaveDataset* dataset_ = nullptr;
    std::shared_ptr<StorageBase> index_;
    uint32_t step_ = 0;
    bool step_set_ = false;
    std::vector<unsigned char> pair_;  // minimum, then maximum
    uint64_t reference_ = 0;
    bool first_ = true;
    std::map<std::string, std::string> attributes_;
};
