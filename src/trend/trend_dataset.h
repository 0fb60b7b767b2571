#pragma once
// TrendDataSet<T>: the plain trend, a series of time-stamped values at no fixed rate.
// One storage, "Trend", of TrendData<T> records (16 bytes for every T), appended to and
// read back as they are: no index, no areas, no check of the order of the times.
//
// Item face: the commands "lock" and "unlock" (any case) on the reader lock count, the
// shared dataset commands through the serialization helper. Interface queries give the
// dataset itself, and a new IReader of "Trend" when asked by that name.

#include "dataset/dataset_base.h"
#include "dataset/records.h"

#include <memory>
#include <string>

class IBaseCtr;
class IItemType;

template <class T>
class TrendDataSet : public DataSetBase, public StructFiller<TrendData<T>> {
public:
    TrendDataSet();
    ~TrendDataSet() override;

    // No attributes of its own: true.
    static bool InitType(IItemType* type, const std::string& name);
    // Keeps the item and makes its serialization helper; a null item changes nothing.
    bool InitItem(IBaseCtr* item);
    // Appends to "Trend"; what the storage's Write gives (0 for null data or count 0).
    unsigned long long Push(const TrendData<T>* data, unsigned long long count) override;
    std::string MainStorageId() override { return "Trend"; }
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    IBaseCtr* Item() const { return m_item; }

private:
    IBaseCtr* m_item = nullptr;
};

extern template class TrendDataSet<int8_t>;
extern template class TrendDataSet<uint8_t>;
extern template class TrendDataSet<int16_t>;
extern template class TrendDataSet<uint16_t>;
extern template class TrendDataSet<int32_t>;
extern template class TrendDataSet<uint32_t>;
extern template class TrendDataSet<int64_t>;
extern template class TrendDataSet<uint64_t>;
extern template class TrendDataSet<float>;
extern template class TrendDataSet<double>;
extern template class TrendDataSet<LongDouble>;
