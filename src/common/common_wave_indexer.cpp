#include "common/common_wave_indexer.h"

#include "common/wave_type_ops.h"
#include "dataset/dataset_interfaces.h"
#include "host/string_utils.h"
#include "storage/device_channels.h"
#include "storage/storage_base.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace {

// A period as level and count with the count's trailing zeros moved into the level,
// so that 50 ns reads as 5 x 10^-8.
std::pair<int, long long> Normalised(int level, long long count) {
    while (count != 0 && count % 10 == 0) {
        count /= 10;
        ++level;
    }
    return {level, count};
}

}  // namespace

CommonWaveMaxMinIndexer::CommonWaveMaxMinIndexer() = default;
CommonWaveMaxMinIndexer::~CommonWaveMaxMinIndexer() = default;

uint32_t CommonWaveMaxMinIndexer::DeriveStep(VellumLevelTime period) {
    uint32_t step = 50;
    auto t = Normalised(period.Level(), period.Count() * step);
    while (t.second != 1) {
        if (t.first - period.Level() > 3) break;
        // A mantissa above 5 gives a factor of 1 (or 0 above 10, and none for a zero
        // period): the step would never change again, or become 0. It stays as it is.
        if (t.second <= 0) break;
        const long long factor = 10 / t.second;
        if (factor <= 1) break;
        step *= static_cast<uint32_t>(factor);
        t = Normalised(period.Level(), period.Count() * step);
    }
    return step;
}

bool CommonWaveMaxMinIndexer::Attach(IWaveDataset* dataset, ILocalSource*) {
    dataset_ = dataset;
    if (dataset_ == nullptr) return false;
    IDataSetBase* group = dataset_->StorageGroup();
    if (group == nullptr) return false;
    index_ = group->GetStorage("Index");
    if (!index_) {
        const WaveTypeOps* ops = dataset_->TypeOperations();
        index_ = group->BindStorage("Index", CreateLocalFileCache(0), ops ? 2 * ops->size : 0, "__def__");
    }
    if (!step_set_) step_ = DeriveStep(dataset_->SamplePeriod());
    return true;
}

void CommonWaveMaxMinIndexer::Prepare() {
    const WaveTypeOps* ops = dataset_ ? dataset_->TypeOperations() : nullptr;
    if (ops == nullptr) return;
    if (index_) index_->ChangeUnitSize(static_cast<uint32_t>(2 * ops->size), nullptr);
    pair_.assign(2 * ops->size, 0);
}

void CommonWaveMaxMinIndexer::Reset() {
    if (index_) index_->Clear();
    reference_ = 0;
    first_ = true;
}

void CommonWaveMaxMinIndexer::Append() {
    // An index storage of another width (it held entries when the type changed) would
    // take bytes from beyond the pair.
    if (index_ && index_->UnitSize() == pair_.size()) index_->Write(pair_.data(), 1);
}

void CommonWaveMaxMinIndexer::Push(VellumTime time, const void* data, uint64_t count) {
    const WaveTypeOps* ops = dataset_ ? dataset_->TypeOperations() : nullptr;
    // Without a type, a prepared pair of its width, a step or data there is nothing to index.
    if (ops == nullptr || pair_.size() != 2 * ops->size || step_ == 0 || data == nullptr || count == 0) return;
    const double position = time / dataset_->SamplePeriod();
    // A time before sample 0, or none at all, has no sample number.
    if (!(position >= 0.0) || position >= 18446744073709551615.0) return;

    const std::size_t size = ops->size;
    const auto* bytes = static_cast<const unsigned char*>(data);
    unsigned char* min = pair_.data();
    unsigned char* max = pair_.data() + size;
    auto restart = [&] {
        std::memcpy(min, bytes, size);
        std::memcpy(max, bytes, size);
    };

    uint64_t s = static_cast<uint64_t>(position);
    const uint64_t e = s + count;
    if (first_) {
        first_ = false;
        restart();
    } else if (s - reference_ > step_) {
        Append();
        restart();
    }
    for (const unsigned char* element = bytes; s < e; element += size) {
        if (s % step_ == 0) restart();
        if (ops->compare(min, element) > 0) std::memcpy(min, element, size);
        if (ops->compare(max, element) < 0) std::memcpy(max, element, size);
        ++s;
        if (s % step_ == 0) Append();
    }
}

bool CommonWaveMaxMinIndexer::InitItemByXML(ILocalSource*, IBaseCtr*, const pugi::xml_node& node) {
    for (const char* name : {"id", "index", "comment", "step"}) {
        if (pugi::xml_attribute attribute = node.attribute(name)) SetAttribute(name, attribute.value());
    }
    return true;
}

void CommonWaveMaxMinIndexer::SetAttribute(const std::string& name, const std::string& value) {
    attributes_[name] = value;
    if (name != "step") return;
    uint64_t step = 0;
    if (!SysParseU64(value, step) || step == 0 || step > UINT32_MAX) return;
    step_ = static_cast<uint32_t>(step);
    step_set_ = true;
}

std::string CommonWaveMaxMinIndexer::GetAttribute(const std::string& name) const {
    auto it = attributes_.find(name);
    return it == attributes_.end() ? std::string() : it->second;
}
