#pragma once
// What the two dataset bases share: named storages, and named groups of channels that
// can be switched in under them.

#include "host/storage_interfaces.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class StorageBase;

using StorageMap = std::map<std::string, std::shared_ptr<StorageBase>>;
using ChannelGroup = std::map<std::string, std::shared_ptr<IDeviceChannel>>;
using ChannelGroups = std::map<std::string, ChannelGroup>;

// Records channel for storage id in group: a new storage is made on it (with unit_size);
// an existing one keeps its unit size. For the default group the storage is bound to
// the channel at once. Logs the channel line of the dataset at owner. Gives the storage.
std::shared_ptr<StorageBase> BindStorageInGroup(const void* owner, StorageMap& storages, ChannelGroups& groups,
                                                const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                                uint64_t unit_size, const std::string& group);

// Binds each channel of group to its storage, in id order; false at the first id that
// has no storage, leaving the storages switched so far.
bool BindGroupChannels(const StorageMap& storages, const ChannelGroup& group);

// Swaps the contents of the storages of a and b, id by id, when both hold the same ids;
// false (and nothing swapped) when they differ.
bool SwapStorages(const StorageMap& a, const StorageMap& b);
