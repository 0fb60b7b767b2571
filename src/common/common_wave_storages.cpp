// The storages of a CommonWaveDataSet: from "kind;argument" declarations to channels
// bound in the storage group.

#include "common/common_wave_dataset.h"

#include "common/wave_type_ops.h"
#include "dataset/records.h"
#include "host/base_ctr.h"
#include "host/local_source.h"
#include "host/logger.h"
#include "host/string_utils.h"
#include "storage/device_channels.h"
#include "storage/storage_base.h"

WaveChannelFactory WaveChannelFactory::Default() {
    return WaveChannelFactory{
        [] { return CreateLocalFileCache(0); },
        [](const void* base, uint64_t length) { return CreateMemCache(base, length); },
        [](const std::string& path) { return CreateExternFileCache(path); },
    };
}

std::map<std::string, std::string> ReadStorageDeclarations(const pugi::xml_node& storage) {
    std::map<std::string, std::string> declarations;
    for (const pugi::xml_node& child : storage.children()) {
        if (child.type() != pugi::node_element) continue;
        declarations[child.name()] = child.attribute("type").value();
    }
    return declarations;
}

bool CommonWaveDataSet::CreateStorages(const std::map<std::string, std::string>& storages, ILocalSource* source,
                                       const pugi::xml_node&) {
    const uint64_t element = ops_ ? ops_->size : 0;
    for (const auto& [name, text] : storages) {
        std::string kind;
        std::string argument = text;
        if (const auto split = text.find(';'); split != std::string::npos) {
            kind = text.substr(0, split);
            argument = text.substr(split + 1);
        }

        std::shared_ptr<StorageBase>* slot = nullptr;
        uint64_t unit = 0;
        if (name == "Wave") {
            slot = &wave_;
            unit = element;
        } else if (name == "Area") {
            slot = &area_;
            unit = sizeof(ValidDataArea);
        } else if (name == "Index") {
            slot = &index_;
            unit = 2 * element;
        } else if (!SysParseU64(argument, unit) || unit == 0 || unit > UINT32_MAX) {
            // A storage of its own needs its unit in the argument; without one it could
            // hold nothing.
            CLogger::DefaultLogger().Warning("storage {}: no unit size in \"{}\"", name, text);
            continue;
        }

        std::shared_ptr<IDeviceChannel> channel;
        if (StringCompare(kind, "ExtFile", true) == 0) {
            channel = factory_.external(argument);
        } else if (StringCompare(kind, "Mem", true) == 0) {
            IBaseCtr* holder = source ? GetLocalItem(source, item_, argument) : nullptr;
            Ctr<IMemoryBuffer> buffer = QueryInterface<IMemoryBuffer>(holder);
            if (!buffer) continue;
            channel = factory_.memory(buffer->Data(), buffer->Length());
        } else {
            channel = factory_.managed();
        }
        if (!channel) continue;
        std::shared_ptr<StorageBase> storage = group_.BindStorage(name, channel, unit, "__def__");
        if (slot) *slot = storage;
    }

    const struct {
        const char* name;
        std::shared_ptr<StorageBase>* slot;
        uint64_t unit;
    } required[] = {{"Wave", &wave_, element}, {"Index", &index_, 2 * element}, {"Area", &area_, sizeof(ValidDataArea)}};
    for (const auto& entry : required) {
        if (!*entry.slot) *entry.slot = group_.BindStorage(entry.name, factory_.managed(), entry.unit, "__def__");
    }
    return true;
}
