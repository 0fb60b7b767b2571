#pragma once
// DataSetBase: what the typed datasets share. A dataset stores nothing itself: it owns
// named storages, each bound to a device channel, and named groups of channels that
// can be switched in under those storages. The default group is "__def__".
//
// The lock count is the only synchronisation between Clear and readers: a reader holds
// it above zero for the length of a read, and Clear spins until it reads zero. The maps
// are built during configuration and read without a lock afterwards; group switches and
// swaps must happen while no reader or writer is active.

#include "dataset/dataset_interfaces.h"
#include "dataset/storage_groups.h"
#include "host/ctr_var.h"
#include "host/raw_data.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

class CMemoryBlock;
class DataSetSerializationHelper;
class IBaseCtr;
class ILocalSource;
class StorageBase;

inline constexpr const char* kDefaultGroup = "__def__";

class DataSetBase : public IDataSet {
public:
    DataSetBase();
    ~DataSetBase() override;
    DataSetBase(const DataSetBase&) = delete;
    DataSetBase& operator=(const DataSetBase&) = delete;

    // Answers DataSetBase and IDataSet with this object, ISerializable with the
    // serialization helper if set, IPartialExportable if this dataset is one; anything
    // else is empty.
    virtual std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
    virtual void OnDataChanged() {}
    virtual void OnClear() {}
    // The storage that holds the samples; empty here.
    virtual std::string MainStorageId() { return {}; }

    // One atomic step each; neither blocks nor tests the count.
    void Lock() { ++lock_count_; }
    void UnLock() { --lock_count_; }
    // The commands "lock" and "unlock" (any case) as Lock and UnLock; false for any other.
    bool LockCommand(const std::string& command);
    uint32_t LockCount() const { return lock_count_.load(); }
    // Waits (spinning) until no reader holds the lock, then empties every storage. The
    // channels, unit sizes and groups stay.
    void Clear();
    // Sync on every storage, in id order.
    void Flush() const;
    // A view of the main storage; the null view without one.
    RawData RequestRawData(uint64_t pos, uint64_t count);
    // A staging block of one MiB from the pool, null when the pool has none.
    static std::shared_ptr<CMemoryBlock> Alloc();
    // "disable_throttle" anywhere in config turns throttling off for every storage. Always true.
    bool FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config);
    // Exchanges the channels of two datasets with the same storage ids. False in every
    // case, also when the swap was made.
    static bool ItemSwap(DataSetBase* a, DataSetBase* b);

    // The storage of id, or null.
    std::shared_ptr<StorageBase> GetStorage(const std::string& id) const;
    const std::map<std::string, std::shared_ptr<StorageBase>>& Storages() const { return storages_; }
    const std::map<std::string, ChannelGroup>& Groups() const { return groups_; }
    const std::string& CurrentGroup() const { return current_group_; }
    DataSetSerializationHelper* Serialization() const { return serialization_.get(); }

protected:
    bool CreateStorage(const std::string& id, uint64_t unit_size, const std::string& group = kDefaultGroup);
    bool CreateVersionedStorage(const std::string& id, uint64_t unit_size, int version,
                                const std::string& group = kDefaultGroup);
    bool LoadStorage(const std::string& id, const std::string& path, uint64_t unit_size,
                     const std::string& group = kDefaultGroup);
    bool BindMemoryStorage(const std::string& id, const void* base, uint64_t length, uint64_t unit_size,
                           const std::string& group = kDefaultGroup);
    // A new storage on channel, or the existing storage of id (which keeps its unit
    // size); bound to channel at once for the default group, else kept for a switch.
    bool BindCustomStorage(const std::string& id, std::shared_ptr<IDeviceChannel> channel, uint64_t unit_size,
                           const std::string& group = kDefaultGroup);
    // Binds the channels of the group; an unknown group falls back to "__def__".
    bool SwitchGroup(const std::string& name);
    void SetSerialization(std::unique_ptr<DataSetSerializationHelper> helper);

    StorageMap storages_;

private:
    friend class DataSetSerializationHelper;

    ChannelGroups groups_;
    std::string current_group_ = kDefaultGroup;
    std::atomic<uint32_t> lock_count_{0};
    std::unique_ptr<DataSetSerializationHelper> serialization_;
};
