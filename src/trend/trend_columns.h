#pragma once
// TrendColumns<T>: min/max display columns over the points of a basic trend.
//
// A request [b, e] in nanoseconds (0 <= b < e) is cut into `columns` columns of equal
// width w = (e - b) / columns, their boundaries taken from the running product i x w so
// that rounding does not add up. Column i holds the points with b + i x w <= time <
// b + (i + 1) x w, the last one also a point at e. A column without a point is invalid
// (NaN): a trend has values only at its points.
//
// The source of a column follows the rule of the wave display path: when one column spans
// at least one index bucket (w >= the index step), the index serves, and the raw points
// are read only where a bucket is cut by a column boundary; otherwise the points of the
// span are scanned. So the cost is bound by the columns and the points of at most two
// buckets per column, not by the points of the span.
//
// In the index path a bucket is taken from its index entry only when it lies wholly inside
// the column and its count matches its span of positions; the first bucket (which may
// also hold a point at time 0, or repeat the first point), cut buckets and mismatched ones
// are scanned point by point and filtered by time. The points after the last written
// entry (the open bucket) are scanned and placed by their time.
//
// Values are the stored values as doubles; the caller converts them to physical units.

#include "dataset/records.h"
#include "trend/trend_records.h"
#include "wave/struct_reader.h"

#include <cstdint>
#include <vector>

template <class T>
class TrendColumns {
public:
    // index may be null (no index: the points serve); index_step_ns 0 likewise.
    TrendColumns(IReader& points, IReader* index, uint64_t index_step_ns);

    // out gets `columns` columns over [b, e]. Nothing for columns 0 or b >= e.
    void Fill(uint64_t b, uint64_t e, unsigned columns, std::vector<MinMaxData<double>>& out);

    // Whether the last Fill was served through the index.
    bool UsedIndex() const { return used_index_; }

private:
    using Point = TrendPoint<T>;
    using Entry = TrendIndexEntry<T>;

    // Column boundaries: first nanosecond of column i; Start(columns) is e + 1.
    uint64_t Start(uint64_t i) const;
    // The column of a time inside [b, e].
    uint64_t ColumnOf(uint64_t time) const;
    // The first position whose time is not below time.
    uint64_t LowerBound(uint64_t time);
    // Merges the points of positions [p0, p1) whose time lies in [t0, t1] into column.
    void ScanInto(uint64_t p0, uint64_t p1, uint64_t t0, uint64_t t1, MinMaxData<double>& column);
    // Places the points of positions [p0, ...) by their time, until one lies beyond e.
    void ScanPlaced(uint64_t p0, uint64_t p1, bool stop_beyond_end, std::vector<MinMaxData<double>>& out);
    void FillFromIndex(std::vector<MinMaxData<double>>& out);
    // Entry k of the index through a window of whole reads; null past the end.
    const Entry* EntryAt(uint64_t k);

    IReader& points_;
    IReader* index_;
    uint64_t step_;
    uint64_t b_ = 0;
    uint64_t e_ = 0;
    uint64_t columns_ = 0;
    double width_ = 0;
    bool used_index_ = false;
    std::vector<Point> buffer_;
    std::vector<Entry> window_;
    uint64_t window_first_ = 0;
    uint64_t window_count_ = 0;
    // The points of the last cut bucket, positions [cut_first_, cut_last_).
    std::vector<Point> cut_;
    uint64_t cut_first_ = 0;
    uint64_t cut_last_ = 0;
    uint64_t cut_count_ = 0;
};

extern template class TrendColumns<int8_t>;
extern template class TrendColumns<uint8_t>;
extern template class TrendColumns<int16_t>;
extern template class TrendColumns<uint16_t>;
extern template class TrendColumns<int32_t>;
extern template class TrendColumns<uint32_t>;
extern template class TrendColumns<int64_t>;
extern template class TrendColumns<uint64_t>;
extern template class TrendColumns<float>;
extern template class TrendColumns<double>;
