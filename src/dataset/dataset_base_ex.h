#pragma once
// DataSetBaseEx: the dataset of the configurable family. The same storages, groups and
// lock count as DataSetBase, seen by the host through IDataSetBase, with a listener in
// place of virtual hooks and a record of its saved file names of its own.
//
// The record, kept as one Base64 text under "<base>/files/value" of the configuration:
// a signed 32-bit little-endian total of the bytes in use (4 when empty), then per
// entry a key string and a value string, each a 4-byte header (low 16 bits the length,
// high 16 bits 0x000A, the tag of a text) and its bytes. It holds 16384 bytes at most;
// entries that don't fit are left out. Loading decodes at most 4096 bytes.

#include "dataset/dataset_interfaces.h"
#include "dataset/storage_groups.h"
#include "host/ctr_var.h"
#include "host/serialization.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

class DataSetBaseEx : public IDataSetBase, public ISerializable {
public:
    // Turns a saved file id into a channel; by default a file of the loaded project.
    using Resolver = std::function<std::shared_ptr<IDeviceChannel>(const std::string& file_id)>;

    static constexpr std::size_t kRecordCapacity = 16384;
    static constexpr std::size_t kLoadCapacity = 4096;

    DataSetBaseEx();
    ~DataSetBaseEx() override;

    bool SetListener(IDataSetEx* listener) override;
    bool EnableThrottle(bool on) override;
    void Lock() override { ++lock_count_; }
    void UnLock() override { --lock_count_; }
    std::shared_ptr<StorageBase> BindStorage(const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                             uint64_t unit_size, const std::string& group) override;
    // An empty id means the listener's main storage.
    std::shared_ptr<StorageBase> GetStorage(const std::string& id) override;
    void Clear() override;
    void Flush() override;
    bool SwitchGroup(const std::string& name) override;

    // Writes the record of saved file names; nothing without storages.
    void Save(std::shared_ptr<SerializeContext> context);
    // Binds the saved files under "__imported__" and switches to that group. False on
    // every path: IsFinished tells the host that the object is done.
    bool Load(std::shared_ptr<SerializeContext> context);
    void Serialize(std::shared_ptr<SerializeContext> context, const SerializeConfig*) override { Save(context); }
    bool Deserialize(std::shared_ptr<SerializeContext> context) override { return Load(context); }

    // Answers IDataSetBase and ISerializable with this object; anything else is empty.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
    // Exchanges the channels of two datasets with the same storage ids, as
    // DataSetBase::ItemSwap does. False in every case, also when the swap was made.
    static bool ItemSwap(DataSetBaseEx* a, DataSetBaseEx* b);

    IDataSetEx* Listener() const { return listener_; }
    void SetResolver(Resolver resolver) { resolver_ = std::move(resolver); }
    const std::string& CurrentGroup() const { return current_group_; }
    uint32_t LockCount() const { return lock_count_.load(); }

    // The record's bytes for entries, and the entries of record bytes (tag kept per value).
    static std::string EncodeRecord(const std::map<std::string, std::string>& entries);
    static std::map<std::string, std::pair<uint32_t, std::string>> DecodeRecord(const std::string& base64);

private:
    IDataSetEx* listener_ = nullptr;
    StorageMap storages_;
    ChannelGroups groups_;
    std::string current_group_ = "__def__";
    std::atomic<uint32_t> lock_count_{0};
    Resolver resolver_;
};

VELLUM_BASES(DataSetBaseEx, IDataSetBase, ISerializable);
