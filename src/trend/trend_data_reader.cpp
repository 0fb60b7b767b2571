#include "trend/trend_data_reader.h"

#include "dataset/axis.h"
#include "dataset/dataset_tool.h"
#include "dataset/time_rules.h"
#include "host/base_ctr.h"
#include "trend/trend_columns.h"

#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

constexpr uint64_t kAllOnes = ~uint64_t{0};

// A record time against a request time that may lie before 0.
bool Below(uint64_t time, int64_t tn) { return tn >= 0 && time < static_cast<uint64_t>(tn); }
bool Equal(uint64_t time, int64_t tn) { return tn >= 0 && time == static_cast<uint64_t>(tn); }

// Undoes the piece transform of a range on every way out; the data offset scope around it
// is undone after it.
class PieceScope {
public:
    PieceScope(const PieceTool& piece, double& begin, double& end) : piece_(piece), begin_(begin), end_(end) {
        piece_.TransformToBase(begin_, end_);
    }
    ~PieceScope() { piece_.TransformToPiece(begin_, end_); }
    PieceScope(const PieceScope&) = delete;
    PieceScope& operator=(const PieceScope&) = delete;

private:
    const PieceTool& piece_;
    double& begin_;
    double& end_;
};

}  // namespace

template <class T>
TrendDataReader<T>::TrendDataReader(IBaseCtr* owner, const CTrendTool& tool, std::shared_ptr<IReader> trend,
                                    std::shared_ptr<IReader> index, std::shared_ptr<IReader> area)
    : owner_(owner), tool_(tool), trend_(std::move(trend)), index_(std::move(index)), area_(std::move(area)) {}

template <class T>
bool TrendDataReader<T>::ReadPoint(uint64_t position, Point& point) const {
    return trend_ && trend_->Read(position, &point, 1) == 1;
}

template <class T>
bool TrendDataReader<T>::AreaBounds(int64_t tn, uint64_t& lo, uint64_t& hi) {
    const uint64_t areas = area_->Count();
    TrendArea area{};
    // The last area that begins at or before tn.
    uint64_t low = 0, high = areas;
    while (low < high) {
        const uint64_t mid = low + (high - low) / 2;
        if (area_->Read(mid, &area, 1) != 1) return false;
        if (tn >= 0 && area.begin_time <= static_cast<uint64_t>(tn))
            low = mid + 1;
        else
            high = mid;
    }
    if (low == 0) {
        if (area_->Read(0, &area, 1) != 1) return false;
        lo = 0;
        hi = area.first_position - 1;
        return true;
    }
    if (area_->Read(low - 1, &area, 1) != 1) return false;
    if (tn >= 0 && static_cast<uint64_t>(tn) <= area.end_time) {
        lo = area.first_position - 1;
        hi = area.last_position - 1;
        return true;
    }
    // In the gap after the area: its last point and the first point after the gap.
    lo = area.last_position - 1;
    TrendArea next{};
    hi = low < areas && area_->Read(low, &next, 1) == 1 ? next.first_position - 1 : kAllOnes;
    return true;
}

template <class T>
void TrendDataReader<T>::Bounds(int64_t tn, uint64_t& lo, uint64_t& hi) {
    lo = 0;
    hi = kAllOnes;
    if (area_ && area_->Count() > 0) {
        uint64_t area_lo = 0, area_hi = 0;
        if (AreaBounds(tn, area_lo, area_hi)) {
            lo = area_lo;
            hi = area_hi;
        }
        return;
    }
    const uint64_t entries = index_ ? index_->Count() : 0;
    const uint64_t step = tool_.IndexStepNs();
    // Without a grid step there is no bucket to find: the whole trend is searched.
    if (entries <= 1 || step == 0) return;
    TrendIndexEntry<T> entry{};
    if (index_->Read(0, &entry, 1) != 1) return;
    const uint64_t grid_begin = entry.position * step;
    if (tn <= 0 || static_cast<uint64_t>(tn) <= grid_begin) return;
    const uint64_t k = (static_cast<uint64_t>(tn) - grid_begin) / step;
    if (k >= entries - 1 || index_->Read(k + 1, &entry, 1) != 1) return;
    lo = entry.count;
    hi = entry.position - 1 + 2 * entry.count;
}

template <class T>
bool TrendDataReader<T>::Lookup(int64_t tn, T& value) {
    const uint64_t count = trend_ ? trend_->Count() : 0;
    if (count == 0) return false;
    uint64_t lo = 0, hi = 0;
    Bounds(tn, lo, hi);
    if (hi >= count) hi = count - 1;

    Point point{};
    while (lo < hi) {
        const uint64_t mid = lo + (hi - lo) / 2;
        if (!ReadPoint(mid, point)) return false;
        if (Below(point.time, tn)) {
            lo = mid + 1;
        } else if (Equal(point.time, tn)) {
            // An exact hit changes neither bound: the search ends on it.
            lo = mid;
            break;
        } else {
            hi = mid;
        }
    }
    if (!ReadPoint(lo, point)) return false;
    if (Equal(point.time, tn)) {
        value = point.value;
        return true;
    }

    const uint64_t duration = tool_.Duration();
    const float ratio = tool_.PostRatio();
    const uint64_t after = FloatToNs((1.0f - ratio) * static_cast<float>(duration));
    const uint64_t before = FloatToNs(static_cast<float>(duration) * ratio);
    const uint64_t ntn = static_cast<uint64_t>(tn);  // distances below wrap like the record times
    // The nearer of an earlier point a and a later point b; the later on a tie.
    auto nearer = [&](const Point& a, const Point& b) {
        uint64_t da = ntn - a.time;
        if (da > after) da = kAllOnes;
        uint64_t db = b.time - ntn;
        if (db > before) db = kAllOnes;
        value = da >= db ? b.value : a.value;
        return true;
    };

    Point other{};
    if (Below(point.time, tn)) {
        if (lo + 1 < count) return ReadPoint(lo + 1, other) && nearer(point, other);
        if (ntn - point.time > after) return false;
        value = point.value;
        return true;
    }
    if (lo >= 2) return ReadPoint(lo - 1, other) && nearer(other, point);
    if (point.time - ntn > before) return false;
    value = point.value;
    return true;
}

template <class T>
bool TrendDataReader<T>::At(double time, double& value) {
    tool_.Reload();
    T found{};
    if (!Lookup(SecondsToNs(piece_.P2B(time)), found)) return false;
    value = tool_.ToPhysical(static_cast<double>(found));
    return true;
}

template <class T>
void TrendDataReader<T>::GetData(double& begin, double& end, std::vector<double>& out, bool) {
    tool_.Reload();
    const int64_t b = SecondsToNs(begin);
    const int64_t e = SecondsToNs(end);
    const uint64_t step = tool_.SampleStepNs();
    // Without a sample step the size would be a division by zero, and an end before the
    // begin a negative size: both give an empty out.
    if (step == 0 || e < b) {
        out.clear();
        return;
    }
    const uint64_t span = static_cast<uint64_t>(e) - static_cast<uint64_t>(b);
    const uint64_t size = span / step;
    try {
        out.assign(size, 0.0);
    } catch (const std::bad_alloc&) {
        out.clear();
        return;
    } catch (const std::length_error&) {
        out.clear();
        return;
    }
    // Each value goes to out[0]: with an empty out there is nowhere to write.
    if (out.empty()) return;
    // The times run from begin while below end, as offsets, so that no step passes the range
    // of the time type.
    for (uint64_t offset = 0; offset < span; offset += step) {
        const auto t = static_cast<int64_t>(static_cast<uint64_t>(b) + offset);
        At(static_cast<double>(t), out[0]);
        if (span - offset <= step) break;
    }
}

template <class T>
void TrendDataReader<T>::GetMinMaxData(double& begin, double& end, std::vector<MinMaxData<double>>& out,
                                       unsigned int columns, GetDataParam, unsigned char whole_range) {
    tool_.Reload();
    DataOffsetUtility offset(&begin, &end, tool_.SizeAxis());
    PieceScope piece(piece_, begin, end);
    const uint64_t count = trend_ ? trend_->Count() : 0;
    if (count == 0 || columns == 0 || begin >= end || end <= 0) return;
    if (begin < 0) {
        columns = static_cast<unsigned int>(columns * (end - 0) / (end - begin));
        begin = 0;
        if (columns == 0) return;
    }
    const uint64_t b = SecondsToUnsignedNs(begin);
    const uint64_t e = SecondsToUnsignedNs(end);
    if (b >= e) return;

    TrendColumns<T> filler(*trend_, index_.get(), tool_.IndexStepNs());
    if (whole_range != 0) {
        std::vector<MinMaxData<double>> one;
        filler.Fill(b, e, 1, one);
        const double nan = std::numeric_limits<double>::quiet_NaN();
        out.assign(columns, MinMaxData<double>{nan, nan});
        out[0] = one[0];
    } else {
        filler.Fill(b, e, columns, out);
    }
    for (MinMaxData<double>& column : out) {
        if (std::isnan(column.min)) continue;
        column.min = tool_.ToPhysical(column.min);
        column.max = tool_.ToPhysical(column.max);
        if (column.min > column.max) std::swap(column.min, column.max);  // a negative scale
    }
}

template <class T>
bool TrendDataReader<T>::GetMaxValidRange(double& begin, double& end, bool) {
    const uint64_t count = trend_ ? trend_->Count() : 0;
    Point first{}, last{};
    if (count == 0 || !ReadPoint(0, first) || !ReadPoint(count - 1, last)) return false;
    begin = static_cast<double>(first.time) * 1e-9;
    end = static_cast<double>(last.time) * 1e-9;
    return true;
}

template <class T>
void TrendDataReader<T>::SetLock(bool lock) const {
    if (owner_ != nullptr) owner_->OnCMD(lock ? "LOCK" : "UNLOCK", nullptr);
}

template class TrendDataReader<int8_t>;
template class TrendDataReader<uint8_t>;
template class TrendDataReader<int16_t>;
template class TrendDataReader<uint16_t>;
template class TrendDataReader<int32_t>;
template class TrendDataReader<uint32_t>;
template class TrendDataReader<int64_t>;
template class TrendDataReader<uint64_t>;
template class TrendDataReader<float>;
template class TrendDataReader<double>;
