#pragma once
// The interfaces through which the host sees datasets: IDataSet, the root of the typed
// datasets; IDataSetBase, the dataset of the configurable family; IDataSetEx, the
// listener that such a dataset calls instead of virtual hooks.

#include "host/storage_interfaces.h"

#include <cstdint>
#include <memory>
#include <string>

class StorageBase;

class IDataSet {
public:
    virtual ~IDataSet() = default;
};

class IDataSetEx {
public:
    // The child of a dataset item that, when it is an init object of the dataset's
    // kind, configures the dataset in place of the dataset's own definition.
    static constexpr const char* INIT_OBJECT_NAME = "__InitObject__";

    virtual ~IDataSetEx() = default;
    virtual void OnDataChanged() = 0;
    virtual void OnClear() = 0;
    virtual void PostClear() = 0;
    // The id of the storage that holds the samples.
    virtual std::string MainStorageId() = 0;
};

class IDataSetBase {
public:
    virtual ~IDataSetBase() = default;
    virtual bool SetListener(IDataSetEx* listener) = 0;
    virtual bool EnableThrottle(bool on) = 0;
    virtual void Lock() = 0;
    virtual void UnLock() = 0;
    virtual std::shared_ptr<StorageBase> BindStorage(const std::string& id, std::shared_ptr<IDeviceChannel> channel,
                                                     uint64_t unit_size, const std::string& group) = 0;
    virtual std::shared_ptr<StorageBase> GetStorage(const std::string& id) = 0;
    virtual void Clear() = 0;
    virtual void Flush() = 0;
    virtual bool SwitchGroup(const std::string& name) = 0;
};
