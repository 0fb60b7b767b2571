#include "dataset/dataset_base_ex.h"

#include "dataset/storage_groups.h"

#include "host/base64.h"
#include "host/configuration.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <cstring>
#include <vector>

namespace {

constexpr uint32_t kTextTag = 0x000A;

void PutU32(std::vector<uint8_t>& buffer, std::size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) buffer[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t GetU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

}  // namespace

DataSetBaseEx::DataSetBaseEx() : resolver_([](const std::string& id) { return LoadLocalFileCache(id); }) {}

DataSetBaseEx::~DataSetBaseEx() = default;

bool DataSetBaseEx::SetListener(IDataSetEx* listener) {
    listener_ = listener;
    return true;
}

std::shared_ptr<CtrVar> DataSetBaseEx::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IDataSetBase>()) return MakeCtrVar<IDataSetBase>(this);
    if (type == VellumTypeOf<ISerializable>()) return MakeCtrVar<ISerializable>(this);
    return {};
}

bool DataSetBaseEx::ItemSwap(DataSetBaseEx* a, DataSetBaseEx* b) {
    if (a == nullptr || b == nullptr) return false;
    SwapStorages(a->storages_, b->storages_);
    return false;
}

bool DataSetBaseEx::EnableThrottle(bool on) {
    for (const auto& entry : storages_) entry.second->SetOption("enable_throttle", Vellum::Var(on));
    return true;
}

std::shared_ptr<StorageBase> DataSetBaseEx::BindStorage(const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                                        uint64_t unit_size, const std::string& group) {
    return BindStorageInGroup(this, storages_, groups_, id, std::move(channel), unit_size, group);
}

std::shared_ptr<StorageBase> DataSetBaseEx::GetStorage(const std::string& id) {
    std::string key = id;
    if (key.empty() && listener_ != nullptr) key = listener_->MainStorageId();
    auto it = storages_.find(key);
    return it == storages_.end() ? nullptr : it->second;
}

void DataSetBaseEx::Clear() {
    while (lock_count_.load(std::memory_order_acquire) != 0) {
    }
    if (listener_) listener_->OnClear();
    for (const auto& entry : storages_) entry.second->Clear();
    if (listener_) listener_->PostClear();
}

void DataSetBaseEx::Flush() {
    for (const auto& entry : storages_) entry.second->Sync();
}

bool DataSetBaseEx::SwitchGroup(const std::string& name) {
    if (name == current_group_) return true;
    auto group = groups_.find(name);
    if (group == groups_.end()) {
        // Without a default group there is nothing to fall back to.
        if (name == "__def__") return false;
        return SwitchGroup("__def__");
    }
    const bool result = BindGroupChannels(storages_, group->second);
    if (listener_) listener_->OnDataChanged();
    current_group_ = name;
    return result;
}

std::string DataSetBaseEx::EncodeRecord(const std::map<std::string, std::string>& entries) {
    std::vector<uint8_t> buffer(kRecordCapacity, 0);
    std::size_t used = 4;
    auto put_text = [&](const std::string& text) {
        PutU32(buffer, used, (kTextTag << 16) | static_cast<uint32_t>(text.size() & 0xFFFF));
        std::memcpy(buffer.data() + used + 4, text.data(), text.size());
        used += 4 + text.size();
    };
    for (const auto& [key, value] : entries) {
        // A text longer than its 16-bit length field can't be recorded either.
        if (key.empty() || key.size() > 0xFFFF || value.size() > 0xFFFF) continue;
        if (kRecordCapacity - used < value.size() + 8 + key.size()) continue;
        put_text(key);
        put_text(value);
    }
    PutU32(buffer, 0, static_cast<uint32_t>(used));
    return Base64Encode(buffer.data(), used);
}

std::map<std::string, std::pair<uint32_t, std::string>> DataSetBaseEx::DecodeRecord(const std::string& base64) {
    std::map<std::string, std::pair<uint32_t, std::string>> entries;
    std::vector<uint8_t> buffer(kLoadCapacity, 0);
    const int64_t decoded = Base64Decode(base64, buffer.data(), buffer.size());
    if (decoded < 4) return entries;
    // The total is trusted only as far as the decoded bytes reach.
    const std::size_t total = std::min<std::size_t>(GetU32(buffer.data()), static_cast<std::size_t>(decoded));
    std::size_t at = 4;
    auto get_text = [&](uint32_t& tag, std::string& text) {
        if (at + 4 > total) return false;
        const uint32_t header = GetU32(buffer.data() + at);
        const std::size_t length = header & 0xFFFF;
        tag = header >> 16;
        if (at + 4 + length > total) return false;
        text.assign(reinterpret_cast<const char*>(buffer.data() + at + 4), length);
        at += 4 + length;
        return true;
    };
    for (;;) {
        uint32_t key_tag = 0, value_tag = 0;
        std::string key, value;
        if (!get_text(key_tag, key) || !get_text(value_tag, value)) break;
        entries[key] = {value_tag, value};
    }
    return entries;
}

void DataSetBaseEx::Save(std::shared_ptr<SerializeContext> context) {
    if (!context || context->config == nullptr) return;
    std::map<std::string, std::string> files;
    Lock();
    for (const auto& [id, storage] : storages_) files[id] = storage->Persist();
    UnLock();
    if (files.empty()) return;
    context->config->SetString(MakePath(context->path, "files", "value"), EncodeRecord(files));
}

bool DataSetBaseEx::Load(std::shared_ptr<SerializeContext> context) {
    if (!context || context->config == nullptr) return false;
    const std::string text = context->config->GetString(MakePath(context->path, "files", "value"), "");
    if (text.empty()) return false;
    const auto entries = DecodeRecord(text);
    Lock();
    for (const auto& [id, storage] : storages_) {
        auto entry = entries.find(id);
        if (entry == entries.end() || entry->second.first != kTextTag) continue;
        BindStorage(id, resolver_ ? resolver_(entry->second.second) : nullptr, storage->UnitSize(), "__imported__");
    }
    SwitchGroup("__imported__");
    UnLock();
    return false;
}
