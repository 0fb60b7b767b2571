#include "wave/basic_wave_dataset.h"

#include "dataset/dataset_tool.h"
#include "dataset/serialization_helper.h"
#include "host/base_ctr.h"
#include "host/item_type.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"
#include "wave/wave_derived_readers.h"

template <class T>
BasicWaveDataSet<T>::BasicWaveDataSet(void*) {}

template <class T>
BasicWaveDataSet<T>::BasicWaveDataSet() : BasicWaveDataSet(nullptr) {
    CreateStorage("Wave", sizeof(T));
    CreateStorage("Index", sizeof(MinMaxData<T>));
    CreateStorage("Area", sizeof(ValidDataArea));
}

template <class T>
BasicWaveDataSet<T>::~BasicWaveDataSet() = default;

template <class T>
unsigned long long BasicWaveDataSet<T>::Append(const char* id, const void* data, unsigned long long count) {
    auto it = storages_.find(id);
    if (it == storages_.end() || data == nullptr || count == 0) return 0;
    return it->second->Write(data, count);
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const T* data, unsigned long long count) {
    return Append("Wave", data, count);
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const MinMaxData<T>* data, unsigned long long count) {
    return Append("Index", data, count);
}

template <class T>
unsigned long long BasicWaveDataSet<T>::Push(const ValidDataArea* data, unsigned long long count) {
    return Append("Area", data, count);
}

template <class T>
template <class R>
std::unique_ptr<IReader> BasicWaveDataSet<T>::StructReader(const std::string& id) const {
    std::shared_ptr<StorageBase> storage = GetStorage(id);
    if (!storage) return nullptr;
    return std::make_unique<BaseStructReader<R>>(std::move(storage));
}

template <class T>
CBasicWaveReader<T>* BasicWaveDataSet<T>::CreateBasicWaveReader() const {
    return new CBasicWaveReader<T>(item_, StructReader<T>("Wave"), StructReader<MinMaxData<T>>("Index"),
                                   StructReader<ValidDataArea>("Area"));
}

template <class T>
bool BasicWaveDataSet<T>::InitType(IItemType* type, const std::string&) {
    for (const char* event : {"DataComes", "IndexComes", "AreaComes", "PostClear", "AfterClear"})
        type->RegisterEvent(event, "");
    RegisterDerivedReaderItems(type);
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::InitItem(IBaseCtr* item) {
    if (item == nullptr) return true;
    SetSerialization(std::make_unique<DataSetSerializationHelper>(item));
    item_ = item;
    if (IBaseCtr* parameters = WaveDatasetParameters::InitStructInfo(nullptr))
        item->AddChildItem(parameters, "WaveParam", true);
    return true;
}

template <class T>
bool BasicWaveDataSet<T>::FinishConfig(ILocalSource* source, IBaseCtr* item, const std::string& config) {
    return DataSetBase::FinishConfig(source, item, config);
}

template <class T>
bool BasicWaveDataSet<T>::OnCMD(const std::string& command, IBaseCtr* argument) {
    auto is = [&](const char* name) { return StringCompare(command, name, true) == 0; };
    if (is("lock")) {
        Lock();
        return true;
    }
    if (is("unlock")) {
        UnLock();
        return true;
    }
    if (is("clear") || is("WaveClear")) {
        EventPublishHelper::FireObjectEvent(item_, "PostClear");
        Clear();
        EventPublishHelper::FireObjectEvent(item_, "AfterClear");
        return true;
    }
    if (DataSetSerializationHelper* helper = Serialization()) return helper->OnCMD(command, argument);
    return false;
}

template <class T>
std::string BasicWaveDataSet<T>::GetAttribute(const std::string& name) const {
    if (StringCompare(name, "ElementType", true) == 0) return std::string(ElementTraits<T>::kShortName);
    return {};
}

template <class T>
std::shared_ptr<CtrVar> BasicWaveDataSet<T>::GetExtendCtr(const VellumTypeID& type, bool flag,
                                                           const std::string& name) {
    if (type == VellumTypeOf<DataSetBase>()) return MakeCtrVar<DataSetBase>(this);
    if (type == VellumTypeOf<IBasicWaveReader>())
        return MakeOwnedCtrVar<IBasicWaveReader>(std::unique_ptr<IBasicWaveReader>(CreateBasicWaveReader()));
    if (type == VellumTypeOf<CBasicWaveReader<T>>())
        return MakeOwnedCtrVar<CBasicWaveReader<T>>(std::unique_ptr<CBasicWaveReader<T>>(CreateBasicWaveReader()));
    if (type == VellumTypeOf<IReader>()) {
        if (name == "Wave") return MakeOwnedCtrVar<IReader>(StructReader<T>("Wave"));
        if (name == "Index") return MakeOwnedCtrVar<IReader>(StructReader<MinMaxData<T>>("Index"));
        if (name == "Area") return MakeOwnedCtrVar<IReader>(StructReader<ValidDataArea>("Area"));
    }
    if (type == VellumTypeOf<StructFiller<T>>()) return MakeCtrVar<StructFiller<T>>(this);
    if (type == VellumTypeOf<StructFiller<MinMaxData<T>>>()) return MakeCtrVar<StructFiller<MinMaxData<T>>>(this);
    if (type == VellumTypeOf<StructFiller<ValidDataArea>>()) return MakeCtrVar<StructFiller<ValidDataArea>>(this);
    if (type == VellumTypeOf<WaveDatasetParameters>() && item_ != nullptr) {
        if (IBaseCtr* parameters = item_->GetChildItem("WaveParam")) return parameters->GetExtendCtr(type, flag, name);
    }
    if (auto derived = DerivedReaderCtr(*this, type, name)) return derived;
    return DataSetBase::GetExtendCtr(type, flag, name);
}

template class BasicWaveDataSet<int8_t>;
template class BasicWaveDataSet<uint8_t>;
template class BasicWaveDataSet<int16_t>;
template class BasicWaveDataSet<uint16_t>;
template class BasicWaveDataSet<int32_t>;
template class BasicWaveDataSet<uint32_t>;
template class BasicWaveDataSet<int64_t>;
template class BasicWaveDataSet<uint64_t>;
template class BasicWaveDataSet<float>;
template class BasicWaveDataSet<double>;
template class BasicWaveDataSet<LongDouble>;
