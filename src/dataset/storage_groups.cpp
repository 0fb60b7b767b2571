#include "dataset/storage_groups.h"

#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/block_storage.h"

std::shared_ptr<StorageBase> BindStorageInGroup(const void* owner, StorageMap& storages, ChannelGroups& groups,
                                                const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                                uint64_t unit_size, const std::string& group) {
    auto it = storages.find(id);
    if (it == storages.end())
        it = storages.emplace(id, std::make_shared<CStorage>(channel, static_cast<uint32_t>(unit_size))).first;
    if (StringCompare(group, "__def__", true) == 0) it->second->Bind(channel);
    CLogger::DefaultLogger().Info("Dataset @{} Channel Info: group({}) id({}) unit_size({}) device({})", owner, group,
                                  id, unit_size, channel ? channel->Description() : std::string("NULL"));
    groups[group][id] = std::move(channel);
    return it->second;
}

bool BindGroupChannels(const StorageMap& storages, const ChannelGroup& group) {
    for (const auto& [id, channel] : group) {
        auto storage = storages.find(id);
        if (storage == storages.end()) return false;
        storage->second->Bind(channel);
    }
    return true;
}

bool SwapStorages(const StorageMap& a, const StorageMap& b) {
    if (a.size() != b.size()) return false;
    for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib)
        if (ia->first != ib->first) return false;
    for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) ia->second->Swap(ib->second.get());
    return true;
}
