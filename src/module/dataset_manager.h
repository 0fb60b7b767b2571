#pragma once
// CVellumDataSetMgrEx: the module's static service object, published as the item
// "_DataSetMgrEx_" and under the interface IVellumDataSetMgrEx. It makes datasets of the
// configurable family ("_DataSetEx_" items), hands out device channels and swaps the
// channels of two such datasets. It has no state.

#include "host/ctr_var.h"
#include "host/storage_interfaces.h"

#include <cstdint>
#include <memory>
#include <string>

class IBaseCtr;
class IDataSetBase;
class IDataSetEx;
class ILocalSource;

class IVellumDataSetMgrEx {
public:
    virtual ~IVellumDataSetMgrEx() = default;
    // A new "_DataSetEx_" item, owned by the caller, with listener set on its dataset;
    // *out (if out is set) receives the dataset. Null if the type is not registered.
    virtual IBaseCtr* CreateDataSet(IDataSetEx* listener, IDataSetBase** out) = 0;
    virtual std::shared_ptr<IDeviceChannel> CreateLocalFileCache(unsigned int version) = 0;
    virtual std::shared_ptr<IDeviceChannel> LoadLocalFileCache(const std::string& path) = 0;
    virtual std::shared_ptr<IDeviceChannel> CreateMemCache(const void* base, uint64_t length) = 0;
    virtual std::shared_ptr<IDeviceChannel> CreateExternFileCache(const std::string& path) = 0;
    // False if either item has no DataSetBaseEx; otherwise the swap of
    // DataSetBaseEx::ItemSwap, whose result is false also when it swapped.
    virtual bool ItemSwap(IBaseCtr* a, IBaseCtr* b) = 0;
};

class CVellumDataSetMgrEx final : public IVellumDataSetMgrEx {
public:
    IBaseCtr* CreateDataSet(IDataSetEx* listener, IDataSetBase** out) override;
    std::shared_ptr<IDeviceChannel> CreateLocalFileCache(unsigned int version) override;
    std::shared_ptr<IDeviceChannel> LoadLocalFileCache(const std::string& path) override;
    std::shared_ptr<IDeviceChannel> CreateMemCache(const void* base, uint64_t length) override;
    std::shared_ptr<IDeviceChannel> CreateExternFileCache(const std::string& path) override;
    bool ItemSwap(IBaseCtr* a, IBaseCtr* b) override;
    // Answers IVellumDataSetMgrEx with this object.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name);
};

VELLUM_BASES(CVellumDataSetMgrEx, IVellumDataSetMgrEx);

// Registers the type "_DataSetMgrEx_" in source, and the one static manager as the item
// of that name in source and under IVellumDataSetMgrEx.
void RegisterDataSetManager(ILocalSource* source);
// The static manager.
CVellumDataSetMgrEx& DataSetManager();
