#include "reader/basic_wave_reader.h"

#include "dataset/axis.h"
#include "dataset/time_rules.h"
#include "reader/reader_internals.h"
#include "reader/summary_cursor.h"

#include <algorithm>
#include <cmath>
#include <limits>

using reader_detail::kAllOnes;
using reader_detail::Ns;

template <class T>
CBasicWaveReader<T>::CBasicWaveReader(IBaseCtr* owner, std::shared_ptr<IReader> wave, std::shared_ptr<IReader> index,
                                      std::shared_ptr<IReader> area)
    : wave_reader_(std::move(wave)),
      index_reader_(std::move(index)),
      area_reader_(std::move(area)),
      tools_(std::make_unique<__internal::DataSetTool>(owner)) {}

template <class T>
CBasicWaveReader<T>::~CBasicWaveReader() = default;

template <class T>
SummaryCursor<T>* CBasicWaveReader<T>::SummaryCursorNow() {
    if (!summary_ || !index_reader_) return nullptr;
    typename IndexSummary<T>::Snapshot snapshot;
    if (!summary_->TakeSnapshot(snapshot)) return nullptr;
    if (!summary_cursor_) summary_cursor_ = std::make_unique<SummaryCursor<T>>();
    summary_cursor_->Reset(index_reader_.get(), std::move(snapshot), index_reader_->Count());
    return summary_cursor_.get();
}

template <class T>
void CBasicWaveReader<T>::Load() {
    index_step_ = tools_->GetIndexStepTime();
    IDatasetAxis* axis = tools_->SizeAxis();
    sample_step_ = axis ? axis->GetRatio() : 0.0;
    std::tie(axis_begin_, axis_end_) = tools_->GetTimeRange();
    // A period below one nanosecond (or an axis not configured yet) reads as one second,
    // so that every division by these periods is safe.
    if (Ns(index_step_) == 0) index_step_ = 1.0;
    if (Ns(sample_step_) == 0) sample_step_ = 1.0;
}

template <class T>
uint64_t CBasicWaveReader<T>::PointsPerIndex() const {
    const int64_t sample_ns = Ns(sample_step_);
    return sample_ns == 0 ? 0 : static_cast<uint64_t>(Ns(index_step_) / sample_ns);
}

template <class T>
uint64_t CBasicWaveReader<T>::Time2WavePos(double time, const ValidDataArea& area) {
    Load();
    return AreaTimeToPosition(area, time, Ns(sample_step_));
}

template <class T>
double CBasicWaveReader<T>::WavePos2Time(uint64_t position, const ValidDataArea& area) {
    Load();
    return AreaPositionToTime(area, position, Ns(sample_step_));
}

template <class T>
void CBasicWaveReader<T>::Index2WavePos(const ValidDataArea& area, uint64_t id, uint64_t& beg, uint64_t& end) const {
    if (id == area.index_id) {
        beg = area.wave_beg_pos;
        end = area.wave_beg_pos + area.first_count - 1;
        return;
    }
    const uint64_t per_index = PointsPerIndex();
    beg = area.wave_beg_pos + area.first_count + (id - area.index_id - (area.first_count != 0 ? 1 : 0)) * per_index;
    end = std::min(beg + per_index, area.wave_end_pos);
}

template <class T>
void CBasicWaveReader<T>::CalcCurTimeToIndex(const ValidDataArea& area, uint64_t position, uint64_t& id) const {
    const uint64_t n = position - area.wave_beg_pos + 1;
    if (area.first_count < n) {
        const uint64_t per_index = std::max<uint64_t>(PointsPerIndex(), 1);
        id = area.index_id + (n - area.first_count + per_index - 1) / per_index;
    } else {
        id = area.index_id;
    }
}

template <class T>
bool CBasicWaveReader<T>::ReadArea(uint64_t index, ValidDataArea& area) const {
    return area_reader_ && area_reader_->Read(index, &area, 1) == 1;
}

template <class T>
ValidDataArea CBasicWaveReader<T>::SyntheticArea(uint64_t first_count) const {
    const uint64_t count = wave_reader_ ? wave_reader_->Count() : 0;
    ValidDataArea area{};
    area.start_time = Ns(axis_begin_);
    area.end_time = area.start_time + Ns(static_cast<double>(count) * sample_step_);
    area.index_id = 0;
    area.first_count = first_count;
    area.wave_beg_pos = 0;
    area.wave_end_pos = count;
    return area;
}

template <class T>
bool CBasicWaveReader<T>::GetArea(double time, ValidDataArea& area, uint64_t* index) {
    const uint64_t count = AreaCount();
    if (count == 0) {
        const double per_index = index_step_ / sample_step_;
        area = SyntheticArea(per_index >= 1.8446744073709552e19 ? kAllOnes
                                                                : static_cast<uint64_t>(std::max(per_index, 0.0)));
        if (index) *index = kAllOnes;
        return true;
    }
    ValidDataArea first{};
    if (!ReadArea(0, first)) return false;
    area = first;
    if (count > 1 && !ReadArea(count - 1, area)) return false;
    const double first_start = static_cast<double>(first.start_time) * 1e-9;
    const double last_end = static_cast<double>(area.end_time) * 1e-9;
    if (time < first_start || time > last_end) {
        if (time <= last_end) {  // before the first area
            if (index) *index = 0;
            return ReadArea(0, area);
        }
        area = SyntheticArea(0);  // after the last area
        if (index) *index = kAllOnes;
        return false;
    }
    const int64_t tn = Ns(time);
    int64_t lo = 0, hi = static_cast<int64_t>(count) - 1;
    while (lo <= hi) {
        const int64_t mid = (lo + hi) / 2;
        ValidDataArea probe{};
        if (!ReadArea(static_cast<uint64_t>(mid), probe)) return false;
        if (tn < probe.start_time)
            hi = mid - 1;
        else if (tn <= probe.end_time)
            break;
        else
            lo = mid + 1;
    }
    const auto found = static_cast<uint64_t>(std::max<int64_t>((lo + hi) / 2, 0));
    if (index) *index = found;
    return ReadArea(found, area);
}

template <class T>
bool CBasicWaveReader<T>::GetIndexId(double time, uint64_t& id) {
    if (!index_reader_ || index_reader_->Count() == 0) return false;
    if (AreaCount() == 0) {
        const double candidate = (time - axis_begin_) / index_step_;
        if (!(candidate >= 0.0) || candidate >= static_cast<double>(index_reader_->Count())) return false;
        id = static_cast<uint64_t>(candidate);
        return true;
    }
    ValidDataArea area{};
    if (!GetArea(time, area, nullptr)) return false;
    if (Ns(time) > area.end_time) {
        id = 0;
        return false;
    }
    const uint64_t position = Time2WavePos(time, area);
    id = AreaPositionToColumn(area, position, std::max<uint64_t>(PointsPerIndex(), 1));
    return true;
}

template <class T>
bool CBasicWaveReader<T>::GetMaxValidRange(double& begin, double& end, bool with_offset) {
    if (!wave_reader_ || wave_reader_->Count() == 0) return false;
    double offset = 0;
    if (with_offset && tools_ && tools_->SizeAxis()) offset = tools_->SizeAxis()->GetDataOffset();
    const uint64_t areas = AreaCount();
    if (areas == 0) {
        Load();
        begin = axis_begin_ + offset;
        end = begin + static_cast<double>(wave_reader_->Count()) * sample_step_;
    } else {
        ValidDataArea first{}, last{};
        if (!ReadArea(0, first)) return false;
        last = first;
        if (areas > 1 && !ReadArea(areas - 1, last)) return false;
        begin = static_cast<double>(first.start_time) * 1e-9 + offset;
        end = static_cast<double>(last.end_time) * 1e-9 + offset;
    }
    piece_.TransformToPiece(begin, end);
    return true;
}

template <class T>
double CBasicWaveReader<T>::T2Double(const T& value) {
    if (IsInvalidValue(value)) return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(value);
}

template <class T>
T CBasicWaveReader<T>::Double2T(double value) {
    if (std::isnan(value)) return InvalidValue<T>();
    if constexpr (kIsFloatingElement<T>) {
        return static_cast<T>(value);
    } else {
        // Truncation toward zero. A value beyond the type's range has no defined
        // conversion in C++: it saturates at the nearest end.
        const double t = std::trunc(value);
        if (t <= static_cast<double>(std::numeric_limits<T>::lowest())) return std::numeric_limits<T>::lowest();
        if constexpr (std::is_same_v<T, uint64_t>) {
            constexpr double kTwo63 = 9223372036854775808.0;
            if (t >= 2 * kTwo63) return std::numeric_limits<T>::max();
            if (t >= kTwo63) return static_cast<uint64_t>(t - kTwo63) + (uint64_t{1} << 63);
            return static_cast<uint64_t>(t);
        } else {
            if (t >= std::ldexp(1.0, std::numeric_limits<T>::digits)) return std::numeric_limits<T>::max();
            return static_cast<T>(t);
        }
    }
}

template <class T>
bool CBasicWaveReader<T>::AtT(double time, T* value) {
    auto fail = [&] {
        if (value) *value = InvalidValue<T>();
        return false;
    };
    if (!wave_reader_) return fail();
    if (tools_) tools_->ApplyDataOffset(&time, nullptr);
    time = piece_.P2B(time);
    Load();
    ValidDataArea area{};
    if (!GetArea(time, area, nullptr)) return fail();
    Load();
    const int64_t tn = Ns(time);
    if (tn < area.start_time || tn > area.end_time) return fail();
    const int64_t step = Ns(sample_step_);
    if (step < 1) return fail();
    // Not negative, but over an area wider than half the time range only unsigned.
    const uint64_t since_start = static_cast<uint64_t>(tn) - static_cast<uint64_t>(area.start_time);
    const uint64_t position = since_start / static_cast<uint64_t>(step) + area.wave_beg_pos;
    if (position == kAllOnes) return fail();
    T sample{};
    if (wave_reader_->Read(position, &sample, 1) != 1) return fail();
    if (value) *value = sample;
    return true;
}

template <class T>
bool CBasicWaveReader<T>::At(double time, double& value) {
    T sample{};
    if (!AtT(time, &sample)) return false;
    value = T2Double(sample);
    return true;
}

template <class T>
void CBasicWaveReader<T>::GetDataT(double& begin, double& end, std::vector<T>& out, bool with_gaps) {
    RangeScope scope(*this, begin, end);
    Load();
    if (!wave_reader_) {
        out.clear();
        return;
    }
    double vb = 0, ve = 0;
    const bool valid = GetMaxValidRange(vb, ve, false);

    if (!with_gaps) {
        constexpr uint64_t kCap = 0x100000 / sizeof(T);
        if (!valid || vb > end || begin > ve) {
            out.clear();
            return;
        }
        if (ve < end) end = ve;
        if (begin < vb) begin = vb;
        ValidDataArea area{};
        uint64_t index = 0;
        if (!GetArea(begin, area, &index)) {
            begin = end = 0;
            out.clear();
            return;
        }
        if (area.end_time < Ns(begin)) {  // the start lies in a gap: the next area
            ValidDataArea next{};
            if (!ReadArea(index + 1, next) || static_cast<double>(next.start_time) * 1e-9 >= end) {
                out.clear();
                return;
            }
            area = next;
            begin = static_cast<double>(next.start_time) * 1e-9;
        }
        end = std::min(end, static_cast<double>(area.end_time) * 1e-9);
        const uint64_t p0 = Time2WavePos(begin, area);
        const uint64_t p1 = Time2WavePos(end, area);
        // A position outside the area (all ones) makes n wrap: the cap bounds it, and a
        // read at all ones brings nothing, so out holds invalid values.
        uint64_t n = p1 - p0 + 1;
        if (n > kCap) {
            n = kCap;
            end = begin + sample_step_ * static_cast<double>(kCap - 1);
        }
        out.assign(n, InvalidValue<T>());
        wave_reader_->Read(p0, out.data(), n);
        return;
    }

    if (!valid) {
        out.clear();
        return;
    }
    const double cells = (end - begin) / sample_step_;
    // A negative or absurd span has no grid.
    const auto size = cells > 0 && cells < 4294967296.0 ? static_cast<uint32_t>(cells) : 0u;
    out.assign(size, InvalidValue<T>());
    ValidDataArea area{};
    uint64_t index = 0;
    if (!GetArea(begin, area, &index)) {
        out.clear();
        return;
    }
    // Element i stands for the time begin + i sample periods and holds the sample nearest
    // to it: a sample d periods after begin goes to element floor(d + 1/2), so a tie goes
    // to the later element. Every area follows that one rule, the area that holds begin
    // as well as the later ones; an element with no sample within half a period keeps
    // the invalid value. Times are whole nanoseconds on the truncated sample period.
    const int64_t step_ns = Ns(sample_step_);
    if (step_ns < 1) return;
    const int64_t begin_ns = Ns(begin), end_ns = Ns(end);
    const auto element_of = [&](int64_t time_ns) {  // floor((time - begin) / step + 1/2)
        const int64_t twice = 2 * (time_ns - begin_ns) + step_ns;
        const int64_t whole = 2 * step_ns;
        return twice >= 0 ? twice / whole : -((-twice + whole - 1) / whole);
    };
    const auto size_elements = static_cast<int64_t>(out.size());
    for (;;) {
        if (!(area.start_time < end_ns)) break;
        // The area's samples are consecutive elements from the one of its first sample.
        const int64_t first_element = element_of(area.start_time);
        if (first_element >= size_elements) break;
        const uint64_t samples = area.wave_end_pos >= area.wave_beg_pos ? area.wave_end_pos - area.wave_beg_pos + 1 : 0;
        const uint64_t skip = first_element < 0 ? static_cast<uint64_t>(-first_element) : 0;
        if (skip < samples) {
            const uint64_t element = static_cast<uint64_t>(first_element) + skip;
            const uint64_t count = std::min(samples - skip, static_cast<uint64_t>(size_elements) - element);
            wave_reader_->Read(area.wave_beg_pos + skip, out.data() + element, count);
        }
        ValidDataArea next{};
        if (!ReadArea(++index, next)) break;
        area = next;
    }
}

template <class T>
void CBasicWaveReader<T>::GetData(double& begin, double& end, std::vector<double>& out, bool with_gaps) {
    std::vector<T> samples;
    GetDataT(begin, end, samples, with_gaps);
    out.resize(samples.size());
    std::transform(samples.begin(), samples.end(), out.begin(), [](const T& v) { return T2Double(v); });
}

template <class T>
bool CBasicWaveReader<T>::GetDiscreteValueT(double, double, std::pair<double, double>*, unsigned int) {
    Load();
    return false;
}

template <class T>
bool CBasicWaveReader<T>::GetDiscreteValue(double begin, double end, std::pair<double, double>* out,
                                           unsigned int count) {
    return GetDiscreteValueT(begin, end, out, count);
}

template <class T>
void CBasicWaveReader<T>::SetLock(bool lock) const {
    if (tools_) tools_->Command(lock ? "Lock" : "Unlock");
}

template <class T>
void CBasicWaveReader<T>::CalcBoundary(int64_t& begin_ns, int64_t& end_ns) const {
    (void)end_ns;  // the end of a range is not snapped
    const int64_t step = Ns(index_step_);
    if (step <= 0) return;
    // The distance from 0 is taken unsigned, so that -2^63 has one; a snap to a multiple
    // of the step that has no 64-bit time leaves the begin as it is.
    const bool negative = begin_ns < 0;
    const uint64_t a = negative ? 0 - static_cast<uint64_t>(begin_ns) : static_cast<uint64_t>(begin_ns);
    const auto s = static_cast<uint64_t>(step);
    const uint64_t r = a % s;
    const double below = static_cast<double>(r) / static_cast<double>(step);
    const double above = static_cast<double>(s - r) / static_cast<double>(step);
    uint64_t snapped = a;
    if (below < 0.1)
        snapped = a - r;
    else if (above < 0.1)
        snapped = a + (s - r);  // below 2^64: a is at most 2^63 and s - r below 2^63
    const uint64_t limit = negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
    if (snapped > limit) return;
    begin_ns = negative ? static_cast<int64_t>(0 - snapped) : static_cast<int64_t>(snapped);
}

template <class T>
void CBasicWaveReader<T>::ComposeValidArea(double begin, double end, std::vector<_ValidAreaIndex>& pieces) {
    if (begin > end) return;
    double vb = 0, ve = 0;
    if (!GetMaxValidRange(vb, ve, false) || vb > end || begin > ve) return;

    const int64_t b = Ns(begin), e = Ns(end), s = Ns(sample_step_);
    if (s < 1) return;  // no sample grid to align to
    // The times of a damaged area list can lie so far apart that a sum or difference of
    // them has no 64-bit value: the view then has no pieces at all.
    bool overflow = false;
    const auto add = [&](int64_t x, int64_t y) {
        int64_t sum = 0;
        overflow = overflow || __builtin_add_overflow(x, y, &sum);
        return sum;
    };
    const auto sub = [&](int64_t x, int64_t y) {
        int64_t difference = 0;
        overflow = overflow || __builtin_sub_overflow(x, y, &difference);
        return difference;
    };
    const auto fail = [&] { pieces.clear(); };
    const double span = static_cast<double>(sub(e, b));
    if (overflow) return fail();
    // An empty span has no shares to give out.
    auto share = [&](double part) { return span > 0 ? part / span : 0.0; };

    ValidDataArea area{};
    uint64_t index = 0;
    if (!GetArea(begin, area, &index)) return;

    int64_t cur = b;
    if (b < area.start_time) {
        _ValidAreaIndex gap{};
        gap.begin_time = static_cast<double>(b) * 1e-9;
        gap.end_time = static_cast<double>(area.start_time) * 1e-9;
        gap.ratio = span > 0 ? (gap.end_time - gap.begin_time) / (span * 1e-9) : 0.0;
        gap.has_data = false;
        pieces.push_back(gap);
        cur = area.start_time;
    }

    int64_t next = b;
    double head_offset = 0;
    if (cur <= area.end_time) {
        const bool last = area.end_time >= e;
        const int64_t segment_end = std::min(area.end_time, e);
        const int64_t p = std::max(cur - cur % s, area.start_time);
        const int64_t q = segment_end - segment_end % s;
        _ValidAreaIndex data{};
        data.begin_time = static_cast<double>(p) * 1e-9;
        data.end_time = static_cast<double>(q) * 1e-9;
        data.wave_beg_pos = Time2WavePos(data.begin_time, area);
        data.wave_end_pos = Time2WavePos(data.end_time, area);
        // The times as they come back from seconds; when their fractions of a sample add
        // up to a whole one, the piece reaches one sample further.
        // A time at the end of the range has no negated 64-bit value.
        const auto back = [&](double seconds) {
            const double negated = std::trunc(seconds * -1e9);
            if (!(negated > -9223372036854775808.0 && negated < 9223372036854775808.0)) {
                overflow = true;
                return int64_t{0};
            }
            return -static_cast<int64_t>(negated);
        };
        const double fq = static_cast<double>(sub(back(data.end_time), area.start_time)) / static_cast<double>(s);
        const double fp = static_cast<double>(sub(back(data.begin_time), area.start_time)) / static_cast<double>(s);
        if ((fq - std::trunc(fq)) + (fp - std::trunc(fp)) >= 1.0) ++data.wave_end_pos;
        data.ratio = share(static_cast<double>(sub(segment_end, cur)));
        data.has_data = true;
        head_offset = (begin - std::max(static_cast<double>(area.start_time) * 1e-9, data.begin_time - sample_step_)) /
                      sample_step_;
        data.head_offset = head_offset;
        if (overflow) return fail();
        pieces.push_back(data);
        if (last) return;
        next = add(area.end_time, s);
    }

    for (uint64_t i = index + 1;; ++i) {
        ValidDataArea following{};
        if (!ReadArea(i, following)) return;
        int64_t gap_end = sub(following.start_time, s);
        int64_t area_end = following.end_time;
        bool gap_is_final = false, area_is_final = false;
        if (gap_end >= e) {
            gap_end = e;
            gap_is_final = true;
        } else if (following.end_time >= e) {
            area_end = e;
            area_is_final = true;
        }
        _ValidAreaIndex gap{};
        gap.begin_time = static_cast<double>(next) * 1e-9;
        gap.end_time = static_cast<double>(gap_end) * 1e-9;
        gap.ratio = share(static_cast<double>(sub(gap_end, next)));
        gap.has_data = false;
        gap.head_offset = head_offset;
        if (overflow) return fail();
        pieces.push_back(gap);
        if (gap_is_final) return;

        _ValidAreaIndex data{};
        data.begin_time = static_cast<double>(following.start_time) * 1e-9;
        data.end_time = static_cast<double>(area_end) * 1e-9;
        data.wave_beg_pos = following.wave_beg_pos;
        data.wave_end_pos = Time2WavePos(data.end_time, following);
        data.ratio = share(static_cast<double>(sub(area_end, following.start_time)));
        data.has_data = true;
        data.head_offset = head_offset;
        if (overflow) return fail();
        pieces.push_back(data);
        if (area_is_final) return;
        next = add(following.end_time, s);
    }
}

template class CBasicWaveReader<int8_t>;
template class CBasicWaveReader<uint8_t>;
template class CBasicWaveReader<int16_t>;
template class CBasicWaveReader<uint16_t>;
template class CBasicWaveReader<int32_t>;
template class CBasicWaveReader<uint32_t>;
template class CBasicWaveReader<int64_t>;
template class CBasicWaveReader<uint64_t>;
template class CBasicWaveReader<float>;
template class CBasicWaveReader<double>;
template class CBasicWaveReader<LongDouble>;
