#pragma once
// TrendDataReader<T>: the wave reader interface over a basic trend dataset, so that the
// display code treats a trend as a wave. Times are seconds; the trend's records hold
// nanoseconds (time x 1e9, truncated). Values come out in physical units of the data axis.
//
// At(t): the value of the point nearest to t, within reach of its window. A point stands
// for "duration" nanoseconds, trunc(duration x post_ratio) before it and trunc(duration x
// (1 - post_ratio)) after it. The points are found by a binary search over a stretch of
// positions:
//   - without areas, and with an index of buckets: the index entry after the bucket of t
//     names the stretch [its count, its position - 1 + 2 x its count]. Note that this
//     stretch starts at the entry's count, not at its first point, so in the first buckets
//     of a trend (where a bucket holds more points than stand before it) it can miss the
//     nearest point; beyond them it holds the bucket and its neighbours;
//   - without areas, t before the first bucket or in the open one: the whole trend;
//   - with areas: the stored area that holds t gives its first to last point. A time in
//     the gap after an area gives the area's last point and the first point after the gap
//     (or the rest of the trend, the open area, after the last stored area); a time before
//     the first area gives the trend up to that area's first point.
// The search ends early on an exact hit. After it: an exact time gives its value; else
// the nearer of the points before and after t that are in reach wins, the later one on a
// tie or when neither is (as long as both exist). A point after t at position 0 or 1
// stands alone, and then counts only within its window.
//
// GetData(begin, end): out is sized to (end - begin) / sample step (in ns), filled with
// 0.0, and At runs for every time from begin in steps of the sample step, handing the
// time over as its nanosecond number and writing each found value to out[0]. The other
// elements keep their fill. That is the defined behaviour of this reader.
//
// GetMinMaxData: see TrendColumns<T>. A begin below 0 is cut to 0 and the columns are
// reduced in proportion; the columns are filled from the index when one column spans at
// least one index bucket, from the points otherwise; every value passes the data axis.
// A column without a point is NaN. The fill mode of the request does not apply: a trend
// has values only at its points. whole_range: one column over the span, the rest NaN.
//
// At takes the piece placement (piece time to base time) and nothing else; GetMinMaxData
// takes the data offset of the size axis and the piece placement, and gives begin and end
// back in the caller's time; GetData takes neither.
//
// One reader belongs to one thread at a time. It takes no lock unless asked: SetLock
// sends "LOCK" / "UNLOCK" to the dataset's item.

#include "reader/basic_wave_reader.h"
#include "reader/piece_tool.h"
#include "trend/trend_records.h"
#include "trend/trend_tool.h"
#include "wave/struct_reader.h"

#include <memory>
#include <utility>
#include <vector>

class IBaseCtr;

template <class T>
class TrendDataReader : public IBasicWaveReader {
public:
    TrendDataReader(IBaseCtr* owner, const CTrendTool& tool, std::shared_ptr<IReader> trend,
                    std::shared_ptr<IReader> index, std::shared_ptr<IReader> area);

    void SetBaseRange(double begin, double end) override { piece_.SetBaseRange(begin, end); }
    void SetZeroPosition(double position, TimeMode) override { piece_.SetZero(position); }
    void SetAxis(IDatasetAxis* axis) override { piece_.SetAxis(axis); }

    bool At(double time, double& value) override;
    // A trend can't be searched for a value: false.
    bool Find(const double&, double, double&, bool) override { return false; }
    void GetData(double& begin, double& end, std::vector<double>& out, bool with_gaps) override;
    bool GetDiscreteValue(double, double, std::pair<double, double>*, unsigned int) override { return false; }
    void GetMinMaxData(double& begin, double& end, std::vector<MinMaxData<double>>& out, unsigned int columns,
                       GetDataParam param, unsigned char whole_range) override;
    // The times of the first and the last point, as stored: neither the data offset nor
    // the piece placement applies. False without points.
    bool GetMaxValidRange(double& begin, double& end, bool with_offset) override;
    void SetLock(bool lock) const override;
    __internal::DataSetTool* GetTools() override { return nullptr; }

private:
    using Point = TrendPoint<T>;

    // The stored value at time tn (base time, nanoseconds); false where no point is in reach.
    bool Lookup(int64_t tn, T& value);

    // The stretch of positions [lo, hi] that the search for tn covers.
    void Bounds(int64_t tn, uint64_t& lo, uint64_t& hi);
    bool AreaBounds(int64_t tn, uint64_t& lo, uint64_t& hi);
    bool ReadPoint(uint64_t position, Point& point) const;

    IBaseCtr* owner_;
    CTrendTool tool_;
    std::shared_ptr<IReader> trend_;
    std::shared_ptr<IReader> index_;
    std::shared_ptr<IReader> area_;
    PieceTool piece_;
};

template <class T>
struct VellumBases<TrendDataReader<T>> {
    static void* Visit(TrendDataReader<T>* object, const VellumTypeID& to) {
        return vellum_detail::CastBase<TrendDataReader<T>, IBasicWaveReader>(object, to);
    }
};

extern template class TrendDataReader<int8_t>;
extern template class TrendDataReader<uint8_t>;
extern template class TrendDataReader<int16_t>;
extern template class TrendDataReader<uint16_t>;
extern template class TrendDataReader<int32_t>;
extern template class TrendDataReader<uint32_t>;
extern template class TrendDataReader<int64_t>;
extern template class TrendDataReader<uint64_t>;
extern template class TrendDataReader<float>;
extern template class TrendDataReader<double>;
