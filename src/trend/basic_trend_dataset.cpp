#include "trend/basic_trend_dataset.h"

#include "dataset/serialization_helper.h"
#include "host/string_utils.h"
#include "storage/storage_base.h"
#include "trend/trend_data_reader.h"
#include "wave/struct_reader.h"

#include <stdexcept>

template <class T>
BasicTrendDataSet<T>::BasicTrendDataSet() {
    CreateStorage("__Trend__", sizeof(ElementType));
    CreateStorage("__Index__", sizeof(IndexStruct));
    CreateStorage("__Area__", sizeof(AreaStruct));
    OnClear();
}

template <class T>
BasicTrendDataSet<T>::~BasicTrendDataSet() = default;

template <class T>
bool BasicTrendDataSet<T>::InitItem(IBaseCtr* item) {
    if (item == nullptr) return true;
    SetSerialization(std::make_unique<DataSetSerializationHelper>(item));
    m_trendTool = CTrendTool(item);
    return true;
}

template <class T>
StorageBase& BasicTrendDataSet<T>::Storage(const char* id) const {
    auto it = storages_.find(id);
    if (it == storages_.end()) throw std::out_of_range("invalid map<K, T> key");
    return *it->second;
}

template <class T>
void BasicTrendDataSet<T>::ResetIndex(uint64_t position) {
    m_openIndex.position = position;
    m_openIndex.count = 0;
    m_openIndex.minimum = IndexMinimumStart<T>();
    m_openIndex.maximum = IndexMaximumStart<T>();
}

template <class T>
void BasicTrendDataSet<T>::OnClear() {
    ResetIndex(0);
    m_openArea = AreaStruct{};
    m_openArea.first_position = kNoTrendPosition;
    m_openArea.last_position = kNoTrendPosition;
}

template <class T>
unsigned long long BasicTrendDataSet<T>::Push(unsigned long long time, const T* value) {
    StorageBase& trend = Storage("__Trend__");
    if (trend.Count() == 0) m_trendTool.Reload();
    // The index grid divides by its step: without a size axis (a step of 0) the point
    // can't be placed in the index, and it is refused before anything is written.
    if (m_trendTool.IndexStepNs() == 0 || value == nullptr) return 0;
    const ElementType point{time, *value};
    if (trend.Write(&point, 1) != 1) return 0;
    const uint64_t c = trend.Count();
    UpdateIndex(time, *value, c);
    UpdateArea(time, c);
    return 1;
}

template <class T>
void BasicTrendDataSet<T>::Merge(T value, uint64_t c) {
    if (m_openIndex.count == 0) {
        m_openIndex.maximum = m_openIndex.minimum = value;
    } else if (m_openIndex.minimum > value) {
        m_openIndex.minimum = value;
    } else if (value > m_openIndex.maximum) {
        m_openIndex.maximum = value;
    }
    ++m_openIndex.count;
    m_openIndex.position = c;
}

template <class T>
void BasicTrendDataSet<T>::CloseIndex(StorageBase& index, uint64_t position) {
    index.Write(&m_openIndex, 1);
    ResetIndex(position);
}

template <class T>
void BasicTrendDataSet<T>::UpdateIndex(uint64_t time, T value, uint64_t c) {
    StorageBase& index = Storage("__Index__");
    const uint64_t step = m_trendTool.IndexStepNs();
    const uint64_t n = index.Count();
    const uint64_t q = time / step;
    const uint64_t r = time % step;

    if (n == 0) {
        // The header: the grid number of the bucket before the first one.
        ResetIndex(c);
        if (time != 0 && r == 0) {
            m_openIndex.position = q - 1;
            index.Write(&m_openIndex, 1);
            Merge(value, c);
            index.Write(&m_openIndex, 1);
        } else {
            m_openIndex.position = q;
            index.Write(&m_openIndex, 1);
            Merge(value, c);
        }
        return;
    }

    IndexStruct header{};
    if (index.Read(0, &header, 1) != 1) return;
    const uint64_t open_bucket = header.position + n;
    if (q < open_bucket) {
        Merge(value, c);
        return;
    }
    const uint64_t passed = q - open_bucket;
    if (r != 0) {
        CloseIndex(index, passed == 0 ? c : c - 1);
        for (uint64_t i = 0; i < passed; ++i) index.Write(&m_openIndex, 1);
        Merge(value, c);
    } else if (passed != 0) {
        CloseIndex(index, c - 1);
        for (uint64_t i = 1; i < passed; ++i) index.Write(&m_openIndex, 1);
        Merge(value, c);
        CloseIndex(index, c);
    } else {
        Merge(value, c);
        CloseIndex(index, c);
    }
}

template <class T>
void BasicTrendDataSet<T>::UpdateArea(uint64_t time, uint64_t c) {
    const float duration = static_cast<float>(m_trendTool.Duration());
    const float ratio = m_trendTool.PostRatio();
    const float pre = duration * ratio;
    const float t = static_cast<float>(time);

    bool open_new = m_openArea.first_position == kNoTrendPosition;
    if (!open_new && t > pre && t - pre > static_cast<float>(m_openArea.end_time)) {
        Storage("__Area__").Write(&m_openArea, 1);
        m_openArea.last_position = kNoTrendPosition;
        m_openArea.begin_time = m_openArea.end_time = 0;
        open_new = true;
    }
    if (open_new) {
        m_openArea.first_position = c;
        m_openArea.begin_time = pre >= t ? 0 : FloatToNs(t - pre);
    }
    m_openArea.last_position = c;
    // A post_ratio above 1 would make the window after the point negative: it counts as 0.
    m_openArea.end_time = FloatToNs(duration * (1.0f - ratio)) + time;
}

template <class T>
bool BasicTrendDataSet<T>::OnCMD(const std::string& command, IBaseCtr* argument) {
    if (LockCommand(command)) return true;
    if (DataSetSerializationHelper* helper = Serialization()) return helper->OnCMD(command, argument);
    return false;
}

template <class T>
std::shared_ptr<CtrVar> BasicTrendDataSet<T>::GetExtendCtr(const VellumTypeID& type, bool flag,
                                                            const std::string& name) {
    if (type == VellumTypeOf<IBasicWaveReader>()) {
        // The reader links its own tool to the item: the producer reloads the dataset's
        // tool at its first point, on its own thread.
        auto reader = std::make_unique<TrendDataReader<T>>(
            Item(), CTrendTool(Item()), std::make_shared<BaseStructReader<ElementType>>(GetStorage("__Trend__")),
            std::make_shared<BaseStructReader<IndexStruct>>(GetStorage("__Index__")),
            std::make_shared<BaseStructReader<AreaStruct>>(GetStorage("__Area__")));
        return MakeOwnedCtrVar<IBasicWaveReader>(std::move(reader));
    }
    if (type == VellumTypeOf<ITrendDataSet<T>>()) return MakeCtrVar<ITrendDataSet<T>>(this);
    return DataSetBase::GetExtendCtr(type, flag, name);
}

template class BasicTrendDataSet<int8_t>;
template class BasicTrendDataSet<uint8_t>;
template class BasicTrendDataSet<int16_t>;
template class BasicTrendDataSet<uint16_t>;
template class BasicTrendDataSet<int32_t>;
template class BasicTrendDataSet<uint32_t>;
template class BasicTrendDataSet<int64_t>;
template class BasicTrendDataSet<uint64_t>;
template class BasicTrendDataSet<float>;
template class BasicTrendDataSet<double>;
