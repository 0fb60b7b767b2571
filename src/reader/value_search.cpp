// Value search of CBasicWaveReader<T>: from a time, in a direction, when does the wave
// next reach a value?
//
// It is a crossing search, not an equality search: two neighbouring samples on both
// sides of the value are a hit, and the one nearer to the value is the answer. With an
// index, entries whose span can't hold the value are skipped and raw samples are read
// only around a candidate; without one the samples are scanned. The search walks area
// by area: it ends in an area or moves on to the next one.
//
// The search keeps these rules although they look like slips; callers rely on the exact
// results:
//  - Backward from a time outside the area found for it (a gap, after the last area) the
//    search steps one area back from that area and starts at its first sample.
//  - The start position is computed once. Backward, the raw scan of every earlier area
//    runs up to it again, over the samples in between.
//  - The index walk never takes the sample at the start position itself, and after a
//    false candidate it searches again from one entry after its previous start, so the
//    same candidate can be found and scanned again, one step at a time.
//  - Upward, the first read from entry 0 takes one entry less than the range; a pair of
//    neighbours is only tested within one read.
//  - Downward, the index window grows from the top and the search gives up once the
//    next window would reach below its floor: the lowest entries of a long range are
//    never tested.
//  - A raw read of fewer than two samples is no hit, so a run of one sample never is.
//  - The downward scan reads one sample below its range, answers one sample later than
//    the buffer position (exactly, when it reads from position 0) and takes its read
//    positions to their low 32 bits.
//
// Each call allocates its own buffers; nothing is kept between calls.

#include "reader/basic_wave_reader.h"
#include "reader/index_entry_tests.h"
#include "reader/reader_internals.h"
#include "reader/summary_cursor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

using reader_detail::kAllOnes;
using reader_detail::Ns;

namespace value_search_detail {

using Position = unsigned long long;

// Raw reads take at most 1 MiB of samples.
template <class T>
constexpr Position ScanCap() {
    return 0x100000 / sizeof(T);
}

// x above and prev below the value is an upward crossing; x not above and prev not below
// a downward one, or a touch. A sample at the value is a hit as well: within 1e-12 for
// the floating types, exactly for the integer ones. NaN fails both comparisons of the
// first test, so it compares equal there.
template <class T>
bool Crosses(double prev, double x, double value) {
    if ((x > value) == (value > prev)) return true;
    if constexpr (kIsFloatingElement<T>)
        return std::fabs(x - value) < 1e-12;
    else
        return x == value;
}

}  // namespace value_search_detail

template <class T>
bool CBasicWaveReader<T>::Find(const double& value, double time, double& result, bool forward) {
    // NaN asks for the invalid value of T; anything else is truncated to T.
    return FindT(Double2T(value), time, result, forward);
}

template <class T>
bool CBasicWaveReader<T>::FindT(const T& value, double time, double& result, bool forward) {
    using value_search_detail::Position;
    // result goes back to piece time on every way out, found or not. The data offset is
    // not applied: time and result are base time apart from the piece transform.
    struct ToPiece {
        const PieceTool& piece;
        double& result;
        ~ToPiece() { result = piece.B2P(result); }
    } to_piece{piece_, result};

    double t = piece_.P2B(time);
    double vb = 0, ve = 0;
    if (!GetMaxValidRange(vb, ve, false)) return false;
    if (forward ? !(t <= ve) : !(t >= vb)) return false;  // also for a NaN time

    Load();
    ValidDataArea area{};
    uint64_t i = 0;
    GetArea(t, area, &i);  // a time in a gap gives the area before it: tested below
    const int64_t tn = Ns(t);
    if (forward) {
        if (area.end_time < tn) {  // in a gap: the next area
            if (!ReadArea(++i, area)) return false;
            t = static_cast<double>(area.start_time) * 1e-9;
        }
        if (tn < area.start_time) t = static_cast<double>(area.start_time) * 1e-9;
    } else if (area.end_time < tn || tn < area.start_time) {
        // One area back from the one found, starting at its first sample.
        if (!ReadArea(--i, area)) return false;
        t = static_cast<double>(area.start_time) * 1e-9;
    }
    Position pos = Time2WavePos(t, area);
    // A start that misses its area (an area start that doesn't survive the way through
    // seconds, or an area record that doesn't fit the axis) has no position to scan from.
    if (pos == kAllOnes) return false;

    const double v = value_search_detail::AsDouble(value);
    const bool indexed = index_reader_ && index_reader_->Count() > 0;
    // A scan that reports a hit through a NaN comparison leaves the position alone: it
    // then reports the sample the scan started from.
    Position found = pos;
    for (;;) {
        if (pos < area.wave_beg_pos) pos = area.wave_beg_pos;
        bool hit = false;
        if (!indexed) {
            found = pos;
            hit = forward ? ForwardFindValue(v, pos, area.wave_end_pos, found)
                          : ForwardFindValueForward(v, area.wave_beg_pos, pos, found);
        } else {
            // The samples that index entry id covers, its end one past a full entry.
            const auto span = [&](Position id) {
                uint64_t beg = 0, end = 0;
                Index2WavePos(area, id, beg, end);
                return std::pair<Position, Position>(beg, end);
            };
            uint64_t c = 0;
            CalcCurTimeToIndex(area, pos, c);
            const Position start_c = c;
            uint64_t stop = 0;
            // The lowest entry; an area whose first entry covers none of its samples starts
            // at the next one (ceiling(1 / ppi) is 1 for every ppi of at least 1).
            const Position floor_id = area.first_count == 0 ? area.index_id + 1 : area.index_id;
            std::pair<Position, Position> entries{};
            bool candidate;
            if (forward) {
                CalcCurTimeToIndex(area, area.wave_end_pos, stop);
                candidate = FindNextIndex(v, c, stop, entries);
            } else {
                candidate = FindPreIndex(v, floor_id, c, entries);
            }
            for (Position tries = 1; candidate; ++tries) {
                Position a = 0, z = 0;
                if (entries.first != entries.second) {  // neighbours: both of them
                    a = span(entries.first).first;
                    z = span(entries.second).second;
                } else if (tries == 1 && entries.first == start_c) {
                    // The entry the walk began at: pos may stand in its middle and the
                    // crossing lie against the neighbour ahead, so that one is added.
                    if (forward) {
                        a = span(entries.first).first;
                        z = span(entries.first + 1).second;
                    } else {
                        // From the area's first entry the entry before it lies 2 x ppi -
                        // first_count samples back, in the area before.
                        a = span(entries.first - 1).first;
                        z = span(entries.first).second;
                    }
                } else {
                    a = span(entries.first).first;
                    z = span(entries.first).second;
                }
                if (forward) {
                    const Position s = pos < a ? a : pos + 1;
                    found = s;
                    hit = ForwardFindValue(v, s, z, found);
                } else if (pos > 0) {
                    // From position 0 the scan would start below the first sample and run
                    // through the whole range of positions: there is nothing below it.
                    const Position s = z < pos ? z : pos - 1;
                    found = s;
                    hit = ForwardFindValueForward(v, a, s, found);
                }
                if (hit) break;
                if (forward) {
                    if (stop < c) break;
                    ++c;
                    candidate = FindNextIndex(v, c, stop, entries);
                } else {
                    --c;
                    candidate = FindPreIndex(v, floor_id, c, entries);
                }
            }
        }
        if (hit) {
            result = WavePos2Time(found, area);
            return true;
        }
        if (!ReadArea(forward ? ++i : --i, area)) return false;
    }
}

template <class T>
bool CBasicWaveReader<T>::FindNextIndex(double value, unsigned long long first, unsigned long long last,
                                        std::pair<unsigned long long, unsigned long long>& hit) {
    using namespace value_search_detail;
    if (!index_reader_) return false;
    // Index summary: the same walk, skipping the groups that can't hold a hit.
    if (SummaryCursor<T>* summary = SummaryCursorNow()) return summary->FindUp(value, first, last, hit);
    std::vector<MinMaxData<T>> entries;
    const auto test = [&](Position p, Position n) {
        for (Position j = 0; j < n; ++j) {
            if (Holds(entries[j], value)) {
                hit = {p + j, p + j};
                return true;
            }
            if (j + 1 < n && MeetsUpward(entries[j], entries[j + 1], value)) {
                hit = {p + j, p + j + 1};
                return true;
            }
        }
        return false;
    };
    // A first look at a few entries. A range given upside down counts as a long one
    // here, so the look reads on past its end.
    if (last - first >= kFirstLook + 1) {
        entries.resize(kFirstLook);
        if (index_reader_->Read(first, entries.data(), kFirstLook) != kFirstLook) return false;
        if (test(first, kFirstLook)) return true;
    }
    const Position held = index_reader_->Count();
    for (Position p = first; p <= last;) {
        const Position count = UpwardWindow(p, last, held);
        // Nothing to read (a range of entry 0 alone, or one entry past the index) would
        // never move on.
        if (count == 0) return false;
        entries.resize(count);
        if (index_reader_->Read(p, entries.data(), count) < count) return false;
        if (test(p, count)) return true;
        p += count;
    }
    return false;
}

template <class T>
bool CBasicWaveReader<T>::FindPreIndex(double value, unsigned long long first, unsigned long long last,
                                       std::pair<unsigned long long, unsigned long long>& hit) {
    using namespace value_search_detail;
    if (!index_reader_) return false;
    // Nothing lies between a first above last. A last beyond the index makes the first
    // read of every window short.
    if (last < first || last >= index_reader_->Count()) return false;
    // Index summary: the same walk, skipping the groups that can't hold a hit.
    if (SummaryCursor<T>* summary = SummaryCursorNow()) return summary->FindDown(value, first, last, hit);
    Position p = last - first <= kIndexChunk ? first : last - kIndexChunk;
    std::vector<MinMaxData<T>> piece;
    for (;;) {
        // The window [p, last], tested from the top down: at each entry first the pair
        // with the entry above it, then the entry itself. It is read from the top in
        // pieces of at most kIndexChunk entries; upper is the lowest entry of the piece
        // above, the partner of the top of the next piece.
        MinMaxData<T> upper{};
        for (Position hi = last + 1; hi > p;) {
            const Position n = std::min<Position>(hi - p, kIndexChunk);
            const Position lo = hi - n;
            piece.resize(n);
            if (index_reader_->Read(lo, piece.data(), n) != n) return false;
            for (Position j = n; j-- > 0;) {
                const Position q = lo + j;
                if (q < last && MeetsDownward(piece[j], j + 1 < n ? piece[j + 1] : upper, value)) {
                    hit = {q, q + 1};
                    return true;
                }
                if (Holds(piece[j], value)) {
                    hit = {q, q};
                    return true;
                }
            }
            upper = piece[0];
            hi = lo;
        }
        // No hit: the window grows downward by its own size; its upper part is read again.
        const Position read = last - p + 1;
        if (p < read || p - read < first) return false;
        p -= read;
    }
}

template <class T>
bool CBasicWaveReader<T>::ForwardFindValue(double value, unsigned long long first, unsigned long long last,
                                           unsigned long long& found) {
    using namespace value_search_detail;
    if (!wave_reader_) return false;
    constexpr Position kCap = ScanCap<T>();
    T sample{};
    if (wave_reader_->Read(first, &sample, 1) != 1) sample = T{};
    double prev = AsDouble(sample);  // the first sample is compared with itself
    std::vector<T> buffer;
    for (Position p = first; p <= last;) {
        const Position n = std::min(last - p + 1, kCap);
        buffer.assign(n, T{});
        // Fewer than two samples hold no pair. The zeroes of a short read are tested too.
        if (wave_reader_->Read(p, buffer.data(), n) < 2) return false;
        for (Position j = 0; j < n; ++j) {
            const double x = AsDouble(buffer[j]);
            if (Crosses<T>(prev, x, value)) {
                // The nearer of the two, the later one on a tie.
                const double to_prev = std::fabs(prev - value), to_x = std::fabs(x - value);
                if (to_prev >= to_x)
                    found = p + j;
                else if (to_prev < to_x)
                    found = p + j - 1;
                return true;
            }
            prev = x;
        }
        p += n;
    }
    return false;
}

template <class T>
bool CBasicWaveReader<T>::ForwardFindValueForward(double value, unsigned long long first, unsigned long long last,
                                                  unsigned long long& found) {
    using namespace value_search_detail;
    if (!wave_reader_) return false;
    constexpr Position kCap = ScanCap<T>();
    T sample{};
    if (wave_reader_->Read(last, &sample, 1) != 1) sample = T{};
    double prev = AsDouble(sample);
    if (first > last) return false;
    std::vector<T> buffer;
    for (Position p = last; first <= p;) {
        const Position n = std::min(p - first + 1, kCap);
        // A range of all 2^64 positions counts zero samples: reading none would never move on.
        if (n == 0) return false;
        buffer.assign(n, T{});
        // The buffer holds p - n .. p - 1, one below the range; from 0 where that is below
        // the first sample, and then it holds 0 .. p.
        const Position from = (p < n ? 0 : p - n) & 0xFFFFFFFFull;
        if (wave_reader_->Read(from, buffer.data(), n) != n) return false;
        for (Position j = n; j-- > 0;) {
            const double x = AsDouble(buffer[j]);
            if (Crosses<T>(prev, x, value)) {
                // Wraps to j and j + 1 exactly when the read was taken from 0.
                const double to_prev = std::fabs(prev - value), to_x = std::fabs(x - value);
                if (to_prev >= to_x)
                    found = p - n + j + 1;
                else if (to_prev < to_x)
                    found = p - n + j + 2;
                return true;
            }
            prev = x;
        }
        if (p < n) break;  // read from 0: nothing is left below
        p -= n;
    }
    return false;
}

// The members above, for the eleven element types; the rest of the class is made in
// basic_wave_reader.cpp.
#define WAVESTORE_SEARCH_MEMBERS(T)                                                                          \
    template bool CBasicWaveReader<T>::Find(const double&, double, double&, bool);                           \
    template bool CBasicWaveReader<T>::FindT(const T&, double, double&, bool);                               \
    template bool CBasicWaveReader<T>::FindNextIndex(double, unsigned long long, unsigned long long,         \
                                                     std::pair<unsigned long long, unsigned long long>&);    \
    template bool CBasicWaveReader<T>::FindPreIndex(double, unsigned long long, unsigned long long,          \
                                                    std::pair<unsigned long long, unsigned long long>&);     \
    template bool CBasicWaveReader<T>::ForwardFindValue(double, unsigned long long, unsigned long long,      \
                                                        unsigned long long&);                                \
    template bool CBasicWaveReader<T>::ForwardFindValueForward(double, unsigned long long, unsigned long long, \
                                                               unsigned long long&);

WAVESTORE_SEARCH_MEMBERS(int8_t)
WAVESTORE_SEARCH_MEMBERS(uint8_t)
WAVESTORE_SEARCH_MEMBERS(int16_t)
WAVESTORE_SEARCH_MEMBERS(uint16_t)
WAVESTORE_SEARCH_MEMBERS(int32_t)
WAVESTORE_SEARCH_MEMBERS(uint32_t)
WAVESTORE_SEARCH_MEMBERS(int64_t)
WAVESTORE_SEARCH_MEMBERS(uint64_t)
WAVESTORE_SEARCH_MEMBERS(float)
WAVESTORE_SEARCH_MEMBERS(double)
WAVESTORE_SEARCH_MEMBERS(LongDouble)

#undef WAVESTORE_SEARCH_MEMBERS
