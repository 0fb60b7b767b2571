// Min/max extraction of CBasicWaveReader<T>: the display path.
//
// A request becomes a list of pieces (data or gap); each piece gets its share of the
// columns, and each data piece is served from the raw samples (a scan per column), from
// the "Index" columns patched at both ends by short raw scans, or, with fewer samples
// than columns, by placing the samples and filling between them.

#include "dataset/extremes.h"
#include "reader/basic_wave_reader.h"
#include "reader/column_fill.h"
#include "reader/column_scan.h"
#include "reader/reader_internals.h"
#include "reader/summary_cursor.h"

#include <algorithm>
#include <cmath>
#include <limits>

using reader_detail::Ns;

namespace minmax_detail {

template <class T>
MinMaxData<T> InvalidColumn() {
    return {InvalidValue<T>(), InvalidValue<T>()};
}

// Merges b into a; the comparisons are strict, so a NaN changes nothing.
template <class T>
void Merge(MinMaxData<T>& a, const MinMaxData<T>& b) {
    if (b.min < a.min) a.min = b.min;
    if (b.max > a.max) a.max = b.max;
}

// Where the fold of index entries starts: +inf and -inf for the floating types. For the
// integer types the same start is 0 for both, so a column served by the index always
// spans zero.
template <class T>
MinMaxData<T> IndexFoldStart() {
    MinMaxData<T> running{};
    if constexpr (kIsFloatingElement<T>) {
        running.min = std::numeric_limits<T>::infinity();
        running.max = -std::numeric_limits<T>::infinity();
    } else {
        running.min = static_cast<T>(0);
        running.max = static_cast<T>(0);
    }
    return running;
}

// Whether seconds round to a 64-bit count of nanoseconds.
inline bool HasNsCount(double seconds) {
    const double ns = std::round(seconds * 1e9);
    return ns >= -9223372036854775808.0 && ns < 9223372036854775808.0;
}

}  // namespace minmax_detail

template <class T>
void CBasicWaveReader<T>::GetMinMaxData(double& begin, double& end, std::vector<MinMaxData<double>>& out,
                                        unsigned int columns, GetDataParam param, unsigned char whole_range) {
    if (columns == 0 || begin >= end) return;
    std::vector<MinMaxData<T>> typed;
    GetMinMaxDataT(begin, end, typed, columns, param, whole_range);
    out.resize(typed.size());
    if (DirectColumnScan()) {
        // T2Double in line: the invalid value becomes quiet NaN, any other value converts.
        const auto to_double = [](const T& v) {
            return IsInvalidValue(v) ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(v);
        };
        for (std::size_t i = 0; i < typed.size(); ++i) out[i] = {to_double(typed[i].min), to_double(typed[i].max)};
    } else {
        for (std::size_t i = 0; i < typed.size(); ++i) out[i] = {T2Double(typed[i].min), T2Double(typed[i].max)};
    }
}

template <class T>
void CBasicWaveReader<T>::GetMinMaxDataT(double& begin, double& end, std::vector<MinMaxData<T>>& out,
                                         unsigned int columns, GetDataParam param, unsigned char whole_range) {
    RangeScope scope(*this, begin, end);
    const auto [request_begin, request_end] = scope.Request();
    window_first_ = window_count_ = 0;  // the wave may have changed since the last request
    const double width = request_end - request_begin;
    if (columns == 0 || begin >= end) return;
    Load();
    const uint64_t samples = wave_reader_ ? wave_reader_->Count() : 0;

    if (samples > 0 && whole_range == 0) {
        // A span whose ends, or whose length, have no 64-bit count of nanoseconds can't be
        // put on the sample grid: no columns.
        if (!minmax_detail::HasNsCount(begin) || !minmax_detail::HasNsCount(end)) {
            out.clear();
            return;
        }
        int64_t b = std::llround(begin * 1e9), e = std::llround(end * 1e9);
        double ratio;
        if (end - begin < 1e7) {
            ratio = ((std::floor(end * 1e12) - std::ceil(begin * 1e12)) / std::round(sample_step_ * 1e15) /
                     columns) * 1000;
        } else {
            int64_t span_ns = 0;
            if (__builtin_sub_overflow(e, b, &span_ns)) {
                out.clear();
                return;
            }
            ratio = static_cast<double>(span_ns) / std::round(sample_step_ * 1e9) / columns;
        }
        // One unit in the last place up: an exact quotient stays on the higher side.
        points_per_column_ = std::nextafter(ratio, ratio * 10);
        const int64_t index_ns = Ns(index_step_);
        if (points_per_column_ >= static_cast<double>(PointsPerIndex()) && index_ns != 0 && b % index_ns != 0) {
            CalcBoundary(b, e);
            begin = static_cast<double>(b) * 1e-9;
            end = static_cast<double>(e) * 1e-9;
        }
    }
    if (samples == 0) {
        IndexOnlyColumns(begin, end, out, columns);
        return;
    }

    std::vector<_ValidAreaIndex> pieces;
    pieces.reserve(1000);
    if (AreaCount() > 0) {
        double vb = 0, ve = 0;
        if (!GetMaxValidRange(vb, ve, false)) return;
        if (vb > request_end || request_begin > ve) {
            out.clear();
            return;
        }
        ComposeValidArea(request_begin, request_end, pieces);
    } else {
        // The wave is one implicit area over the size axis.
        double vb = axis_begin_;
        double ve = static_cast<double>(samples) * sample_step_ + axis_begin_;
        const double s = sample_step_;
        if (vb > end || begin > ve) {
            out.clear();
            return;
        }
        const double before = vb - s;
        const double tail = (end > ve + s ? ve : end) + s;
        ve = std::min(ve, end);
        vb = std::max(vb, begin);
        _ValidAreaIndex piece{};
        piece.begin_time = vb;
        piece.end_time = ve;
        const double step_ns = std::round(s * 1e9);
        piece.wave_beg_pos = static_cast<uint64_t>(std::max(0.0, std::round((vb - axis_begin_) * 1e9) / step_ns));
        piece.wave_end_pos = static_cast<uint64_t>(std::max(0.0, std::round((ve - axis_begin_) * 1e9) / step_ns));
        piece.has_data = true;
        // Shares of the view in whole nanoseconds; a view narrower than one has none.
        const double width_ns = std::trunc(width * 1e9);
        auto share = [&](double span) { return width_ns > 0 ? std::trunc(std::fabs(span) * 1e9) / width_ns : 0.0; };
        if (columns <= 2 || ve - vb >= width) {
            piece.head_offset = (begin - before) / s;
            piece.ratio = 1.0;
            pieces.push_back(piece);
        } else {
            if (vb - s > request_begin) {
                _ValidAreaIndex gap = piece;
                gap.has_data = false;
                gap.ratio = share(vb - s - request_begin);
                pieces.push_back(gap);
            } else {
                piece.head_offset = (begin - before) / s;
            }
            piece.ratio = share(tail - (vb - s));
            pieces.push_back(piece);
            if (request_end > ve + s) {
                _ValidAreaIndex gap = piece;
                gap.has_data = false;
                gap.ratio = share(request_end - (ve + s));
                pieces.push_back(gap);
            }
        }
    }
    if (pieces.empty()) return;
    out.assign(columns, minmax_detail::InvalidColumn<T>());
    GetWave(pieces, out, columns, whole_range, param);
}

template <class T>
void CBasicWaveReader<T>::IndexOnlyColumns(double& begin, double& end, std::vector<MinMaxData<T>>& out,
                                           unsigned int columns) {
    const uint64_t entries = index_reader_ ? index_reader_->Count() : 0;
    if (entries == 0) {
        out.clear();
        return;
    }
    const double column_span = (end - begin) / columns;
    const double index_time = (axis_end_ - axis_begin_) / static_cast<double>(entries);
    const double per_column = column_span / index_time;
    begin = std::max(begin, axis_begin_);
    end = std::min(end, axis_end_);
    const double wanted = std::ceil((end - begin) / column_span);
    // An axis without extent, or a span that doesn't fit the columns, has nothing to show.
    if (!std::isfinite(per_column) || per_column <= 0 || !std::isfinite(wanted) || wanted > 4294967295.0) {
        out.clear();
        return;
    }
    const auto count = std::max<uint32_t>(1, wanted > 0 ? static_cast<uint32_t>(wanted) : 0);
    out.assign(count, minmax_detail::InvalidColumn<T>());
    std::vector<MinMaxData<T>> scratch(static_cast<std::size_t>(std::ceil(per_column)) + 1);
    // The index is read from its start, whatever begin is.
    uint64_t pos = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const double x = (i + 1) * per_column;
        const auto n = std::max<uint64_t>(1, static_cast<uint64_t>(std::max(0.0, x - static_cast<double>(pos))));
        if (scratch.size() < n) scratch.resize(n);
        const uint64_t got = index_reader_->Read(pos, scratch.data(), n);
        if (got > 0) {
            MinMaxData<T> column = scratch[0];
            for (uint64_t j = 1; j < got; ++j) minmax_detail::Merge(column, scratch[j]);
            out[i] = column;
        }
        pos = static_cast<uint64_t>(std::floor(x));
    }
}

template <class T>
void CBasicWaveReader<T>::GetWave(std::vector<_ValidAreaIndex>& pieces, std::vector<MinMaxData<T>>& out,
                                  unsigned int columns, unsigned char whole_range, GetDataParam param) {
    std::vector<MinMaxData<T>> scratch(columns, minmax_detail::InvalidColumn<T>());
    double carry = 0.0;
    uint64_t p = 0;
    const double total = columns;
    for (_ValidAreaIndex& piece : pieces) {
        const double clamped = std::clamp(std::isnan(piece.ratio) ? 0.0 : piece.ratio, 0.0, 1.0);
        if (clamped != piece.ratio) piece.ratio = clamped;
        const double x = total * piece.ratio + carry;
        auto n = static_cast<uint64_t>(x);
        carry = x - static_cast<double>(n);
        if (x - 1 < 0) {  // every piece gets at least one column
            carry = std::max(0.0, carry - (1 - x));
            n = 1;
        }
        if (p < scratch.size()) {
            const uint64_t room = std::min<uint64_t>(n, scratch.size() - p);
            if (!piece.has_data) {
                std::fill_n(scratch.begin() + static_cast<std::ptrdiff_t>(p), room, minmax_detail::InvalidColumn<T>());
            } else {
                std::vector<MinMaxData<T>> columns_of_piece(n, minmax_detail::InvalidColumn<T>());
                GetWaveMinMaxAtIndex(piece, columns_of_piece.data(), n, whole_range, param);
                std::copy_n(columns_of_piece.begin(), room, scratch.begin() + static_cast<std::ptrdiff_t>(p));
            }
        }
        p += n;
    }
    out = std::move(scratch);
}

template <class T>
bool CBasicWaveReader<T>::GetWaveMinMaxAtIndex(const _ValidAreaIndex& piece, MinMaxData<T>* out, uint64_t count,
                                               unsigned char whole_range, GetDataParam param) {
    const uint64_t s = piece.wave_beg_pos;
    const uint64_t e = piece.wave_end_pos + 1;  // the first sample past the piece joins its last column
    if (s > e || count == 0) return false;
    std::vector<MinMaxData<T>> columns(count, minmax_detail::InvalidColumn<T>());
    bool ok;
    uint64_t written = count;
    if (e - s + 1 <= count) {
        ok = UseOtherFind(piece, columns.data(), count, param);
    } else if (points_per_column_ >= static_cast<double>(PointsPerIndex()) && index_reader_ &&
               index_reader_->Count() > 0) {
        ok = UseIndexFind(s, e, columns.data(), count);
    } else if (whole_range != 0) {
        ok = UseVolGet(s, e, columns[0]);
        written = 1;
    } else {
        ok = UseVolFind(s, e, columns.data(), count);
    }
    if (ok) std::copy_n(columns.begin(), written, out);
    return ok;
}

template <class T>
bool CBasicWaveReader<T>::UseIndexFind(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count) {
    if (!index_cache_) index_cache_ = std::make_unique<IndexCache>();
    IndexCache& cache = *index_cache_;
    cache.first = cache.last = 0;
    const uint64_t ppi = std::max<uint64_t>(PointsPerIndex(), 1);
    double x = static_cast<double>(first);
    const double end = static_cast<double>(last);
    const uint64_t index_end = last / ppi;
    uint64_t previous_lo = 0;
    // Index summary: a column over many entries folds group records (the same bits), and
    // the entry window is not reloaded for it.
    SummaryCursor<T>* summary = SummaryCursorNow();
    for (uint64_t column = 0; column < count; ++column) {
        const double y = x + points_per_column_;
        const double limit = y <= end ? y : end;
        if (column > 0 && previous_lo > last) break;
        const uint64_t lo = static_cast<uint64_t>(std::llround(std::max(0.0, x)));
        const uint64_t hi = static_cast<uint64_t>(std::llround(std::max(0.0, limit - 1.0)));
        previous_lo = lo;
        // Index entry i summarises samples i x ppi to (i + 1) x ppi - 1.
        int64_t i0 = static_cast<int64_t>(lo / ppi);
        const uint64_t r = lo % ppi;
        int64_t i1 = static_cast<int64_t>(hi / ppi);
        const bool summarized =
            summary != nullptr && i1 > i0 && SummaryCursor<T>::Worth(static_cast<uint64_t>(i1 - i0) - 1);
        if (!summarized && (static_cast<uint64_t>(i0) < cache.first || cache.last < static_cast<uint64_t>(i1))) {
            const uint64_t wanted =
                index_end > static_cast<uint64_t>(i0) ? std::min<uint64_t>(index_end - i0, IndexCache::kEntries) : 0;
            const uint64_t got = wanted ? index_reader_->Read(static_cast<uint64_t>(i0), cache.entries.data(), wanted) : 0;
            cache.first = static_cast<uint64_t>(i0);
            cache.last = cache.first + got;
        }
        MinMaxData<T> result{};
        bool have = false;
        auto take = [&](const MinMaxData<T>& part) {
            if (!have) {
                result = part;
                have = true;
            } else {
                minmax_detail::Merge(result, part);
            }
        };
        MinMaxData<T> part{};
        if (r != 0) {  // the head of the column is not on an entry boundary
            ++i0;
            if (UseVolGet(lo, static_cast<uint64_t>(i0) * ppi - 1, part)) take(part);
        }
        if (hi != 0 && (hi + 1) % ppi != 0) {
            // The tail isn't either: the raw scan starts one whole entry before the one
            // that holds hi, which the index covers as well; extremes don't mind. In a
            // column shorter than two entries that start lies before lo, and the column
            // shows those samples too. Only when hi lies in entry 0 is there no entry
            // before it: i1 would wrap below 0 and pull the whole index into the column,
            // so there the scan starts at lo and the index is left out (i1 < i0).
            const int64_t from = i1 > 0 ? (i1 - 1) * static_cast<int64_t>(ppi) : static_cast<int64_t>(lo);
            --i1;
            if (UseVolGet(static_cast<uint64_t>(from), hi, part, hi + ppi)) take(part);
        }
        if (i0 <= i1) {
            bool folded;
            if (summarized) {
                part = minmax_detail::IndexFoldStart<T>();
                folded = summary->Fold(static_cast<uint64_t>(i0), static_cast<uint64_t>(i1), part);
            } else {
                folded = UseIndexGet(static_cast<uint64_t>(i0), static_cast<uint64_t>(i1), part);
            }
            if (folded) take(part);
        }
        out[column] = have ? result : minmax_detail::InvalidColumn<T>();
        x += points_per_column_;
    }
    if (summary != nullptr) summary->Release();
    return true;
}

template <class T>
bool CBasicWaveReader<T>::UseIndexGet(uint64_t first, uint64_t last, MinMaxData<T>& out) {
    if (!index_cache_) index_cache_ = std::make_unique<IndexCache>();
    IndexCache& cache = *index_cache_;
    MinMaxData<T> running = minmax_detail::IndexFoldStart<T>();
    bool seen = false;
    uint64_t pos = first;
    while (pos <= last) {
        if (pos < cache.first || pos >= cache.last) {
            // The window is used up (or elsewhere): the next 65536 entries from pos.
            const uint64_t got = index_reader_->Read(pos, cache.entries.data(), IndexCache::kEntries);
            cache.first = pos;
            cache.last = pos + got;
            if (got == 0) break;
        }
        const uint64_t stop = std::min(last + 1, cache.last);
        FoldColumns(cache.entries.data() + (pos - cache.first), stop - pos, running.min, running.max);
        if (stop > pos) seen = true;
        pos = stop;
    }
    out = running;
    return seen;
}

template <class T>
const T* CBasicWaveReader<T>::WindowSamples(uint64_t first, uint64_t last, uint64_t prefetch_last, uint64_t& got) {
    constexpr uint64_t kRun = 0x100000 / sizeof(T);
    if (first >= window_first_ && last < window_first_ + window_count_) {
        got = last - first + 1;
        return scan_buffer_.data() + (first - window_first_);
    }
    const uint64_t run_end = first + kRun - 1;
    const uint64_t want_last = std::min(std::max(last, prefetch_last), run_end);
    const uint64_t want = want_last - first + 1;
    if (scan_buffer_.size() < want) scan_buffer_.resize(want);
    window_first_ = first;
    window_count_ = wave_reader_->Read(first, scan_buffer_.data(), want);
    got = std::min(window_count_, last - first + 1);
    return scan_buffer_.data();
}

template <class T>
bool CBasicWaveReader<T>::UseVolGet(uint64_t first, uint64_t last, MinMaxData<T>& out, uint64_t prefetch_last) {
    if (first > last) return false;
    // The samples come in runs of at most 1 MiB, through the window; the first sample
    // starts both extremes.
    constexpr uint64_t kRun = 0x100000 / sizeof(T);
    MinMaxData<T> running{};
    bool started = false;
    for (uint64_t pos = first; pos <= last;) {
        const uint64_t run_last = std::min(last, pos + kRun - 1);
        uint64_t got = 0;
        const T* samples = WindowSamples(pos, run_last, prefetch_last, got);
        if (got == 0) break;
        uint64_t i = 0;
        if (!started) {
            running = {samples[0], samples[0]};
            started = true;
            i = 1;
        }
        FoldExtremes(samples + i, got - i, running.min, running.max);
        pos += got;
        if (pos <= run_last) break;  // a short read: nothing more
    }
    if (!started) return false;
    out = running;
    return true;
}

template <class T>
bool CBasicWaveReader<T>::UseVolFind(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count) {
    if (DirectColumnScan()) return ScanColumns(first, last, out, count);
    double x = static_cast<double>(first);
    const double end = static_cast<double>(last);
    for (uint64_t column = 0; column < count; ++column) {
        if (x > end) break;
        const double y = std::min(end, points_per_column_ + x - 1.0);
        if (x >= y) {
            out[column] = minmax_detail::InvalidColumn<T>();  // shorter than one sample
        } else {
            // Neighbouring columns share their boundary sample.
            MinMaxData<T> column_value{};
            if (UseVolGet(static_cast<uint64_t>(std::floor(x)), static_cast<uint64_t>(std::ceil(y)), column_value,
                          last))
                out[column] = column_value;
        }
        x += points_per_column_;
    }
    return true;
}

template <class T>
bool CBasicWaveReader<T>::ScanColumns(uint64_t first, uint64_t last, MinMaxData<T>* out, uint64_t count) {
    // The columns of UseVolFind, folded where the sample window holds them; a column it
    // doesn't hold (the first, or one past a run) is read through it as UseVolFind reads.
    constexpr uint64_t kRun = 0x100000 / sizeof(T);
    const double step = points_per_column_;
    double x = static_cast<double>(first);
    const double end = static_cast<double>(last);
    const T* window = scan_buffer_.data();
    uint64_t window_first = window_first_, window_count = window_count_;
    for (uint64_t column = 0; column < count; ++column, x += step) {
        if (x > end) break;
        const double y = std::min(end, step + x - 1.0);
        if (x >= y) {
            out[column] = minmax_detail::InvalidColumn<T>();  // shorter than one sample
            continue;
        }
        // Neighbouring columns share their boundary sample.
        uint64_t lo = 0, hi = 0;
        column_scan::Span(x, y, lo, hi);
        if (lo >= window_first && hi - lo < kRun && hi - window_first < window_count) {
            out[column] = column_scan::FoldRun(window + (lo - window_first), hi - lo + 1);
            continue;
        }
        MinMaxData<T> column_value{};
        if (UseVolGet(lo, hi, column_value, last)) out[column] = column_value;
        window = scan_buffer_.data();
        window_first = window_first_;
        window_count = window_count_;
        if (lo >= window_first && last - window_first < window_count && last < (uint64_t{1} << 52)) {
            // The window now holds every column left (it is at most one run long, and
            // no column ends past last), so they are folded without the checks.
            for (++column, x += step; column < count && x <= end; ++column, x += step) {
                const double y_next = std::min(end, step + x - 1.0);
                if (x >= y_next) {
                    out[column] = minmax_detail::InvalidColumn<T>();
                    continue;
                }
                column_scan::Span(x, y_next, lo, hi);
                out[column] = column_scan::FoldRun(window + (lo - window_first), hi - lo + 1);
            }
            break;
        }
    }
    return true;
}

template <class T>
bool CBasicWaveReader<T>::UseOtherFind(const _ValidAreaIndex& piece, MinMaxData<T>* out, uint64_t count,
                                       GetDataParam param) {
    const std::vector<unsigned char> flags = __internal::DataFillingTool::GetScreenValidPointVec(
        static_cast<unsigned int>(count), points_per_column_, piece.head_offset);
    constexpr uint64_t kCap = 0x100000 / sizeof(T);
    T first_sample{};
    if (wave_reader_->Read(piece.wave_beg_pos, &first_sample, 1) != 1) return false;
    std::vector<T> buffer;
    uint64_t written = 0;
    for (uint64_t s = piece.wave_beg_pos, e = piece.wave_end_pos; written < count && s <= e;) {
        const uint64_t n = e - s < kCap ? e - s + 2 : kCap;
        buffer.assign(n, T{});
        const uint64_t got = wave_reader_->Read(s, buffer.data(), n);
        if (got == 0) break;
        if (got >= flags.size()) {
            for (uint64_t i = 0; i < got && written < count; ++i, ++written) out[written] = {buffer[i], buffer[i]};
        } else {
            std::vector<double> samples(got);
            for (uint64_t i = 0; i < got; ++i) samples[i] = T2Double(buffer[i]);
            const std::vector<double> values =
                __internal::FillColumns(param.mode, samples, flags, points_per_column_);
            for (std::size_t i = 0; i < values.size() && written < count; ++i, ++written) {
                const T v = Double2T(values[i]);
                out[written] = {v, v};
            }
        }
        s += got;
    }
    return true;
}

// The members above, for the eleven element types; the rest of the class is made in
// basic_wave_reader.cpp.
#define WAVESTORE_MINMAX_MEMBERS(T)                                                                              \
    template void CBasicWaveReader<T>::GetMinMaxData(double&, double&, std::vector<MinMaxData<double>>&,          \
                                                     unsigned int, GetDataParam, unsigned char);                 \
    template void CBasicWaveReader<T>::GetMinMaxDataT(double&, double&, std::vector<MinMaxData<T>>&, unsigned int, \
                                                      GetDataParam, unsigned char);                               \
    template void CBasicWaveReader<T>::IndexOnlyColumns(double&, double&, std::vector<MinMaxData<T>>&,           \
                                                        unsigned int);                                            \
    template void CBasicWaveReader<T>::GetWave(std::vector<_ValidAreaIndex>&, std::vector<MinMaxData<T>>&,        \
                                               unsigned int, unsigned char, GetDataParam);                        \
    template bool CBasicWaveReader<T>::GetWaveMinMaxAtIndex(const _ValidAreaIndex&, MinMaxData<T>*, uint64_t,    \
                                                            unsigned char, GetDataParam);                         \
    template bool CBasicWaveReader<T>::UseIndexFind(uint64_t, uint64_t, MinMaxData<T>*, uint64_t);                \
    template bool CBasicWaveReader<T>::UseIndexGet(uint64_t, uint64_t, MinMaxData<T>&);                           \
    template const T* CBasicWaveReader<T>::WindowSamples(uint64_t, uint64_t, uint64_t, uint64_t&);                \
    template bool CBasicWaveReader<T>::UseVolGet(uint64_t, uint64_t, MinMaxData<T>&, uint64_t);                   \
    template bool CBasicWaveReader<T>::UseVolFind(uint64_t, uint64_t, MinMaxData<T>*, uint64_t);                  \
    template bool CBasicWaveReader<T>::ScanColumns(uint64_t, uint64_t, MinMaxData<T>*, uint64_t);                 \
    template bool CBasicWaveReader<T>::UseOtherFind(const _ValidAreaIndex&, MinMaxData<T>*, uint64_t, GetDataParam);

WAVESTORE_MINMAX_MEMBERS(int8_t)
WAVESTORE_MINMAX_MEMBERS(uint8_t)
WAVESTORE_MINMAX_MEMBERS(int16_t)
WAVESTORE_MINMAX_MEMBERS(uint16_t)
WAVESTORE_MINMAX_MEMBERS(int32_t)
WAVESTORE_MINMAX_MEMBERS(uint32_t)
WAVESTORE_MINMAX_MEMBERS(int64_t)
WAVESTORE_MINMAX_MEMBERS(uint64_t)
WAVESTORE_MINMAX_MEMBERS(float)
WAVESTORE_MINMAX_MEMBERS(double)
WAVESTORE_MINMAX_MEMBERS(LongDouble)

#undef WAVESTORE_MINMAX_MEMBERS
