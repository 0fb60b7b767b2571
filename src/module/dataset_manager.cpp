#include "module/dataset_manager.h"

#include "dataset/dataset_base_ex.h"
#include "host/item_binding.h"
#include "storage/device_channels.h"

IBaseCtr* CVellumDataSetMgrEx::CreateDataSet(IDataSetEx* listener, IDataSetBase** out) {
    IBaseCtr* item = CreateItemByTypeID(VellumTypeOf<DataSetBaseEx>(), {});
    Ctr<DataSetBaseEx> dataset = QueryInterface<DataSetBaseEx>(item);
    if (!dataset) return item;
    dataset->SetListener(listener);
    if (out != nullptr) *out = dataset.get();
    return item;
}

std::shared_ptr<IDeviceChannel> CVellumDataSetMgrEx::CreateLocalFileCache(unsigned int version) {
    return ::CreateLocalFileCache(static_cast<int>(version));
}

std::shared_ptr<IDeviceChannel> CVellumDataSetMgrEx::LoadLocalFileCache(const std::string& path) {
    return ::LoadLocalFileCache(path);
}

std::shared_ptr<IDeviceChannel> CVellumDataSetMgrEx::CreateMemCache(const void* base, uint64_t length) {
    return ::CreateMemCache(base, length);
}

std::shared_ptr<IDeviceChannel> CVellumDataSetMgrEx::CreateExternFileCache(const std::string& path) {
    return ::CreateExternFileCache(path);
}

bool CVellumDataSetMgrEx::ItemSwap(IBaseCtr* a, IBaseCtr* b) {
    Ctr<DataSetBaseEx> first = QueryInterface<DataSetBaseEx>(a);
    Ctr<DataSetBaseEx> second = QueryInterface<DataSetBaseEx>(b);
    if (!first || !second) return false;
    return DataSetBaseEx::ItemSwap(first.get(), second.get());
}

std::shared_ptr<CtrVar> CVellumDataSetMgrEx::GetExtendCtr(const VellumTypeID& type, bool, const std::string&) {
    if (type == VellumTypeOf<IVellumDataSetMgrEx>()) return MakeCtrVar<IVellumDataSetMgrEx>(this);
    return {};
}

CVellumDataSetMgrEx& DataSetManager() {
    static CVellumDataSetMgrEx manager;
    return manager;
}

void RegisterDataSetManager(ILocalSource* source) {
    RegisterClassType<CVellumDataSetMgrEx>("_DataSetMgrEx_", source);
    // The static item lives as long as the process, like the manager it points to.
    static CBasePointItem<CVellumDataSetMgrEx> item("_DataSetMgrEx_", &DataSetManager());
    if (source != nullptr) source->RegisterItem("_DataSetMgrEx_", &item, false);
    RegisterStaticInterface(VellumTypeOf<IVellumDataSetMgrEx>(), MakeCtrVar<IVellumDataSetMgrEx>(&DataSetManager()),
                            source);
}
