#include "dataset/dataset_base.h"

#include "dataset/partial_exportable.h"
#include "dataset/serialization_helper.h"
#include "dataset/storage_groups.h"
#include "host/base_ctr.h"
#include "host/logger.h"
#include "host/serialization.h"
#include "host/string_utils.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/memory_pool.h"

DataSetBase::DataSetBase() = default;

DataSetBase::~DataSetBase() = default;

void DataSetBase::SetSerialization(std::unique_ptr<DataSetSerializationHelper> helper) {
    serialization_ = std::move(helper);
}

std::shared_ptr<CtrVar> DataSetBase::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<DataSetBase>()) return MakeCtrVar<DataSetBase>(this);
    if (type == VellumTypeOf<IDataSet>()) return MakeCtrVar<IDataSet>(this);
    if (type == VellumTypeOf<ISerializable>() && serialization_)
        return MakeCtrVar<ISerializable>(serialization_.get());
    // Datasets that can export a time range of themselves derive from the interface.
    if (type == VellumTypeOf<IPartialExportable>()) {
        if (auto* exportable = dynamic_cast<IPartialExportable*>(this))
            return MakeCtrVar<IPartialExportable>(exportable);
    }
    return {};
}

bool DataSetBase::CreateStorage(const std::string& id, uint64_t unit_size, const std::string& group) {
    return CreateVersionedStorage(id, unit_size, 0, group);
}

bool DataSetBase::CreateVersionedStorage(const std::string& id, uint64_t unit_size, int version,
                                         const std::string& group) {
    return BindCustomStorage(id, CreateLocalFileCache(version), unit_size, group);
}

bool DataSetBase::LoadStorage(const std::string& id, const std::string& path, uint64_t unit_size,
                              const std::string& group) {
    return BindCustomStorage(id, LoadLocalFileCache(path), unit_size, group);
}

bool DataSetBase::BindMemoryStorage(const std::string& id, const void* base, uint64_t length, uint64_t unit_size,
                                    const std::string& group) {
    return BindCustomStorage(id, CreateMemCache(base, length), unit_size, group);
}

bool DataSetBase::BindCustomStorage(const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                    uint64_t unit_size, const std::string& group) {
    BindStorageInGroup(this, storages_, groups_, id, std::move(channel), unit_size, group);
    return true;
}

bool DataSetBase::SwitchGroup(const std::string& name) {
    auto group = groups_.find(name);
    if (group == groups_.end()) {
        // A dataset without a default group has nothing to fall back to.
        if (name == kDefaultGroup) return false;
        return SwitchGroup(kDefaultGroup);
    }
    const bool result = BindGroupChannels(storages_, group->second);
    OnDataChanged();
    current_group_ = name;
    return result;
}

void DataSetBase::Clear() {
    // Readers hold the count for the length of one read: a spin costs less than a sleep.
    while (lock_count_.load(std::memory_order_acquire) != 0) {
    }
    OnClear();
    for (const auto& entry : storages_) entry.second->Clear();
}

void DataSetBase::Flush() const {
    for (const auto& entry : storages_) entry.second->Sync();
}

RawData DataSetBase::RequestRawData(uint64_t pos, uint64_t count) {
    const std::string id = MainStorageId();
    if (id.empty()) return RawData::NullData();
    auto it = storages_.find(id);
    if (it == storages_.end()) return RawData::NullData();
    return it->second->Request(pos, count);
}

std::shared_ptr<CMemoryBlock> DataSetBase::Alloc() {
    const uint64_t atom = CMemoryManager::GetAtomSize();
    if (atom == 0) return nullptr;  // a pool without atoms has no blocks
    return CMemoryManager::Malloc(static_cast<unsigned>(0x100000 / atom));
}

bool DataSetBase::FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config) {
    if (config.find("disable_throttle") != std::string::npos) {
        for (const auto& entry : storages_) entry.second->SetOption("enable_throttle", Vellum::Var(false));
    }
    if (serialization_) serialization_->FinishConfig(source, item, config);
    return true;
}

bool DataSetBase::ItemSwap(DataSetBase* a, DataSetBase* b) {
    if (a == nullptr || b == nullptr) return false;
    if (!SwapStorages(a->storages_, b->storages_)) return false;
    if (a->serialization_) a->serialization_->OnCMD("AxisUpdate", nullptr);
    if (b->serialization_) b->serialization_->OnCMD("AxisUpdate", nullptr);
    return false;
}

std::shared_ptr<StorageBase> DataSetBase::GetStorage(const std::string& id) const {
    auto it = storages_.find(id);
    return it == storages_.end() ? nullptr : it->second;
}

bool DataSetBase::LockCommand(const std::string& command) {
    if (StringCompare(command, "lock", true) == 0) {
        Lock();
        return true;
    }
    if (StringCompare(command, "unlock", true) == 0) {
        UnLock();
        return true;
    }
    return false;
}
