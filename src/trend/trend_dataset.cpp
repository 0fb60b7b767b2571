#include "trend/trend_dataset.h"

#include "dataset/serialization_helper.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"
#include "wave/struct_reader.h"

#include <stdexcept>

template <class T>
TrendDataSet<T>::TrendDataSet() {
    CreateStorage("Trend", sizeof(TrendData<T>));
}

template <class T>
TrendDataSet<T>::~TrendDataSet() = default;

template <class T>
bool TrendDataSet<T>::InitType(IItemType*, const std::string&) {
    return true;
}

template <class T>
bool TrendDataSet<T>::InitItem(IBaseCtr* item) {
    if (item == nullptr) return true;
    SetSerialization(std::make_unique<DataSetSerializationHelper>(item));
    m_item = item;
    return true;
}

template <class T>
unsigned long long TrendDataSet<T>::Push(const TrendData<T>* data, unsigned long long count) {
    auto it = storages_.find("Trend");
    if (it == storages_.end()) throw std::out_of_range("invalid map<K, T> key");
    return it->second->Write(data, count);
}

template <class T>
bool TrendDataSet<T>::OnCMD(const std::string& command, IBaseCtr* argument) {
    if (LockCommand(command)) return true;
    if (DataSetSerializationHelper* helper = Serialization()) return helper->OnCMD(command, argument);
    return false;
}

template <class T>
std::shared_ptr<CtrVar> TrendDataSet<T>::GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) {
    if (type == VellumTypeOf<IReader>() && StringCompare(name, "Trend", true) == 0)
        return MakeOwnedCtrVar<IReader>(std::make_unique<BaseStructReader<TrendData<T>>>(GetStorage("Trend")));
    if (type == VellumTypeOf<DataSetBase>()) return MakeCtrVar<DataSetBase>(this);
    return DataSetBase::GetExtendCtr(type, flag, name);
}

template class TrendDataSet<int8_t>;
template class TrendDataSet<uint8_t>;
template class TrendDataSet<int16_t>;
template class TrendDataSet<uint16_t>;
template class TrendDataSet<int32_t>;
template class TrendDataSet<uint32_t>;
template class TrendDataSet<int64_t>;
template class TrendDataSet<uint64_t>;
template class TrendDataSet<float>;
template class TrendDataSet<double>;
template class TrendDataSet<LongDouble>;
