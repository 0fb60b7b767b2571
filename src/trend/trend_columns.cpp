#include "trend/trend_columns.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr uint64_t kScanRun = 4096;
constexpr uint64_t kWindowEntries = 65536;

void MergeValue(MinMaxData<double>& column, double lo, double hi) {
    if (std::isnan(column.min)) {
        column.min = lo;
        column.max = hi;
        return;
    }
    if (lo < column.min) column.min = lo;
    if (hi > column.max) column.max = hi;
}

}  // namespace

template <class T>
TrendColumns<T>::TrendColumns(IReader& points, IReader* index, uint64_t index_step_ns)
    : points_(points), index_(index), step_(index_step_ns) {}

template <class T>
uint64_t TrendColumns<T>::Start(uint64_t i) const {
    if (i == 0) return b_;
    if (i >= columns_) return e_ + 1;
    return b_ + static_cast<uint64_t>(std::llround(static_cast<double>(i) * width_));
}

template <class T>
uint64_t TrendColumns<T>::ColumnOf(uint64_t time) const {
    uint64_t i = std::min<uint64_t>(static_cast<uint64_t>(static_cast<double>(time - b_) / width_), columns_ - 1);
    while (i + 1 < columns_ && Start(i + 1) <= time) ++i;
    while (i > 0 && Start(i) > time) --i;
    return i;
}

template <class T>
uint64_t TrendColumns<T>::LowerBound(uint64_t time) {
    uint64_t lo = 0, hi = points_.Count();
    while (lo < hi) {
        const uint64_t mid = lo + (hi - lo) / 2;
        Point point{};
        if (points_.Read(mid, &point, 1) != 1) break;
        if (point.time < time)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

template <class T>
void TrendColumns<T>::ScanInto(uint64_t p0, uint64_t p1, uint64_t t0, uint64_t t1, MinMaxData<double>& column) {
    auto merge = [&](const Point* points, uint64_t count) {
        for (uint64_t i = 0; i < count; ++i) {
            const Point& point = points[i];
            if (point.time < t0 || point.time > t1) continue;
            const double value = static_cast<double>(point.value);
            MergeValue(column, value, value);
        }
    };
    if (p1 > p0 && p1 - p0 <= kScanRun) {
        // A bucket cut by a column boundary is scanned for both columns: read it once.
        if (p0 != cut_first_ || p1 != cut_last_) {
            cut_.resize(kScanRun);
            cut_count_ = points_.Read(p0, cut_.data(), p1 - p0);
            cut_first_ = p0;
            cut_last_ = p1;
        }
        merge(cut_.data(), cut_count_);
        return;
    }
    buffer_.resize(kScanRun);
    while (p0 < p1) {
        const uint64_t got = points_.Read(p0, buffer_.data(), std::min(kScanRun, p1 - p0));
        if (got == 0) return;
        merge(buffer_.data(), got);
        p0 += got;
    }
}

template <class T>
void TrendColumns<T>::ScanPlaced(uint64_t p0, uint64_t p1, bool stop_beyond_end, std::vector<MinMaxData<double>>& out) {
    buffer_.resize(kScanRun);
    while (p0 < p1) {
        const uint64_t got = points_.Read(p0, buffer_.data(), std::min(kScanRun, p1 - p0));
        if (got == 0) return;
        for (uint64_t i = 0; i < got; ++i) {
            const Point& point = buffer_[i];
            if (point.time > e_) {
                if (stop_beyond_end) return;
                continue;
            }
            if (point.time < b_) continue;
            const double value = static_cast<double>(point.value);
            MergeValue(out[ColumnOf(point.time)], value, value);
        }
        p0 += got;
    }
}

template <class T>
const typename TrendColumns<T>::Entry* TrendColumns<T>::EntryAt(uint64_t k) {
    if (k < window_first_ || k >= window_first_ + window_count_) {
        // Start one entry early, so that the entry before k (where its points begin) is
        // in the same window.
        window_first_ = k > 0 ? k - 1 : 0;
        window_.resize(kWindowEntries);
        window_count_ = index_->Read(window_first_, window_.data(), kWindowEntries);
        if (k >= window_first_ + window_count_) return nullptr;
    }
    return &window_[k - window_first_];
}

template <class T>
void TrendColumns<T>::FillFromIndex(std::vector<MinMaxData<double>>& out) {
    window_first_ = window_count_ = 0;
    cut_first_ = cut_last_ = cut_count_ = 0;
    const uint64_t entries = index_->Count();
    const Entry* header = EntryAt(0);
    if (header == nullptr) return;
    const uint64_t base = header->position;
    const uint64_t last = entries - 1;  // the last written bucket is entry `last`
    // Bucket g holds the times ((g - 1) x step, g x step].
    auto bucket = [&](uint64_t time) { return time == 0 ? 0 : (time - 1) / step_ + 1; };
    auto position_before = [&](uint64_t k) -> uint64_t {
        if (k <= 1) return 0;
        const Entry* entry = EntryAt(k - 1);
        return entry ? entry->position : 0;
    };

    uint64_t previous_k = 0, previous_position = 0;  // the last entry read, and where it ends
    for (uint64_t column = 0; column < columns_; ++column) {
        const uint64_t t0 = Start(column);
        const uint64_t t1 = Start(column + 1) - 1;
        const uint64_t ga = std::max(bucket(t0), base + 1);
        const uint64_t gb = std::min(bucket(t1), base + last);
        if (ga > gb) continue;
        for (uint64_t k = ga - base; k <= gb - base; ++k) {
            const uint64_t begin_position = k == previous_k + 1 ? previous_position : position_before(k);
            const Entry* found = EntryAt(k);
            if (found == nullptr) break;
            const Entry entry = *found;
            previous_k = k;
            previous_position = entry.position;
            const uint64_t g = base + k;
            const bool whole = k != 1 && (g - 1) * step_ + 1 >= t0 && g * step_ <= t1 &&
                               entry.count == entry.position - begin_position;
            if (!whole) {
                ScanInto(begin_position, entry.position, t0, t1, out[column]);
            } else if (entry.count > 0) {
                MergeValue(out[column], static_cast<double>(entry.minimum), static_cast<double>(entry.maximum));
            }
        }
    }
    // The open bucket: the points after the last written entry.
    const uint64_t open_first = position_before(last + 1);
    ScanPlaced(open_first, points_.Count(), false, out);
}

template <class T>
void TrendColumns<T>::Fill(uint64_t b, uint64_t e, unsigned columns, std::vector<MinMaxData<double>>& out) {
    used_index_ = false;
    if (columns == 0 || b >= e) return;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    out.assign(columns, MinMaxData<double>{nan, nan});
    b_ = b;
    e_ = e;
    columns_ = columns;
    width_ = static_cast<double>(e - b) / columns;
    used_index_ = index_ != nullptr && step_ != 0 && width_ >= static_cast<double>(step_) && index_->Count() > 1;
    if (used_index_)
        FillFromIndex(out);
    else
        ScanPlaced(LowerBound(b), points_.Count(), true, out);
}

template class TrendColumns<int8_t>;
template class TrendColumns<uint8_t>;
template class TrendColumns<int16_t>;
template class TrendColumns<uint16_t>;
template class TrendColumns<int32_t>;
template class TrendColumns<uint32_t>;
template class TrendColumns<int64_t>;
template class TrendColumns<uint64_t>;
template class TrendColumns<float>;
template class TrendColumns<double>;
