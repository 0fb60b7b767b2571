#pragma once
// BasicTrendDataSet<T>: the trend that the host creates by name ("BASIC_TREND[FLOAT]"...).
// It stores points of irregular timing and builds two summaries while it stores them:
//   "__Trend__"  the points, TrendPoint<T>
//   "__Index__"  min/max buckets on a fixed time grid of 50 sample times of the size axis:
//                record 0 is a header holding the grid number of the first bucket; bucket
//                number g covers the times ((g - 1) x step, g x step], so a point exactly on
//                a grid line closes the bucket it falls in; a bucket without points has
//                count 0 and the position of the last point before it
//   "__Area__"   runs of connected points: each point stands for a window of "duration"
//                nanoseconds, "post_ratio" of it before the point, and points whose
//                windows touch share an area. The area arithmetic is single precision, so
//                area times are not exact. The open area reaches the storage only when a
//                later gap closes it.
// The open bucket and the open area live in memory; a reloaded trend starts them anew.
//
// Push runs on one producer thread and is not locked against itself. Readers
// (TrendDataReader<T>) take the reader lock by the commands "lock" and "unlock".

#include "dataset/dataset_base.h"
#include "trend/trend_records.h"
#include "trend/trend_tool.h"

#include <memory>
#include <string>

class IBaseCtr;

template <class T>
class ITrendDataSet {
public:
    virtual ~ITrendDataSet() = default;
    virtual unsigned long long Push(unsigned long long time, const T* value) = 0;
};

template <class T>
class BasicTrendDataSet : public DataSetBase, public ITrendDataSet<T> {
public:
    using ElementType = TrendPoint<T>;
    using IndexStruct = TrendIndexEntry<T>;
    using AreaStruct = TrendArea;

    BasicTrendDataSet();
    ~BasicTrendDataSet() override;

    // Keeps the item (for the links of the trend tool) and makes its serialization
    // helper; a null item changes nothing. True.
    bool InitItem(IBaseCtr* item);
    // Stores one point and updates the index and the area: 1. Without a size axis there
    // is no index grid, and the point is refused: 0, nothing stored.
    unsigned long long Push(unsigned long long time, const T* value) override;
    // "lock" and "unlock" (any case) on the reader lock count; others go to the
    // serialization helper, false without one.
    bool OnCMD(const std::string& command, IBaseCtr* argument);
    void OnDataChanged() override { m_trendTool.Reload(); }
    void OnClear() override;
    std::string MainStorageId() override { return "__Trend__"; }
    // IBasicWaveReader: a new TrendDataReader<T>, owned by the answer; ITrendDataSet<T>:
    // this object.
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override;

    const CTrendTool& Tool() const { return m_trendTool; }
    IBaseCtr* Item() const { return m_trendTool.Item(); }
    const IndexStruct& OpenIndex() const { return m_openIndex; }
    const AreaStruct& OpenArea() const { return m_openArea; }

private:
    StorageBase& Storage(const char* id) const;
    void UpdateIndex(uint64_t time, T value, uint64_t c);
    void UpdateArea(uint64_t time, uint64_t c);
    // Merges a value into the open entry, which then ends at position c.
    void Merge(T value, uint64_t c);
    // Writes the open entry and starts it anew at position.
    void CloseIndex(StorageBase& index, uint64_t position);
    void ResetIndex(uint64_t position);

    IndexStruct m_openIndex{};
    AreaStruct m_openArea{};
    CTrendTool m_trendTool;
};

// The element types that have a trend type name.
extern template class BasicTrendDataSet<int8_t>;
extern template class BasicTrendDataSet<uint8_t>;
extern template class BasicTrendDataSet<int16_t>;
extern template class BasicTrendDataSet<uint16_t>;
extern template class BasicTrendDataSet<int32_t>;
extern template class BasicTrendDataSet<uint32_t>;
extern template class BasicTrendDataSet<int64_t>;
extern template class BasicTrendDataSet<uint64_t>;
extern template class BasicTrendDataSet<float>;
extern template class BasicTrendDataSet<double>;
