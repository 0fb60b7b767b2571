// The areas of a math result: each source's areas listed for the range, and the two
// lists merged into their intersections.

#include "math/math_dataset.h"

#include "dataset/time_rules.h"
#include "host/base_ctr.h"
#include "host/struct_type.h"
#include "storage/storage_base.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// Seconds to unsigned nanoseconds, truncated; times compare as unsigned numbers here.
uint64_t Ns(double seconds) { return static_cast<uint64_t>(SecondsToNs(seconds)); }
double Seconds(uint64_t ns) { return static_cast<double>(ns) * 1e-9; }

// A double to an unsigned 64-bit count as the processor converts it: truncation, and
// the pattern 0x8000000000000000 for NaN and for values beyond the 64-bit range.
uint64_t TruncToU64(double value) {
    constexpr uint64_t kIndefinite = uint64_t{1} << 63;
    constexpr double kTwo63 = 9223372036854775808.0;
    if (std::isnan(value) || value >= 2 * kTwo63 || value < -kTwo63) return kIndefinite;
    if (value >= kTwo63) return static_cast<uint64_t>(value - kTwo63) | kIndefinite;
    return static_cast<uint64_t>(static_cast<int64_t>(value));
}

// The piece's estimated share of an overlap of d seconds, in samples.
uint64_t EstimateSamples(double d, const _ValidAreaIndex& piece) {
    const double samples = static_cast<double>(piece.wave_end_pos - piece.wave_beg_pos + 1);
    return TruncToU64(d / (piece.end_time - piece.begin_time) * samples);
}

}  // namespace

template <class T, int Op>
bool MathDataSet<T, Op>::GetAreaData(Ctr<IInforIteratorReader> areas, ValidDataArea& area) {
    if (!areas || areas->IsNull()) return false;
    Ctr<CStruct> record = QueryInterface<CStruct>(areas->GetIteratorVar());
    if (!record || record->Data() == nullptr) return false;
    std::memcpy(&area, record->Data(), sizeof(area));
    return true;
}

template <class T, int Op>
void MathDataSet<T, Op>::SearchValidArea(Ctr<CBasicWaveReader<T>> reader, Ctr<IInforIteratorReader> areas,
                                         double start, double end, std::vector<_ValidAreaIndex>& out) {
    if (!reader || !areas || start > end) return;
    double first = 0, last_time = 0;
    if (!reader->GetMaxValidRange(first, last_time, false) || first > end || start > last_time) return;
    const uint64_t end_ns = Ns(end);
    uint64_t cursor = Ns(start);
    const double span = static_cast<double>(end_ns - cursor);
    const uint64_t sample_ns = Ns(reader->GetTools()->GetSampleTime());

    // One working record: a gap keeps the positions of the record before it.
    _ValidAreaIndex record{};
    auto push = [&](uint64_t from, uint64_t to, bool data) {
        record.begin_time = Seconds(from);
        record.end_time = Seconds(to);
        record.ratio = static_cast<double>(to - from) / span;
        record.has_data = data;
        out.push_back(record);
    };

    if (!areas->Goto("Time", Vellum::Var(Seconds(cursor)))) return;
    ValidDataArea area{};
    if (!GetAreaData(areas, area)) return;
    uint64_t next = 0;
    const auto area_start = [&] { return static_cast<uint64_t>(area.start_time); };
    const auto area_end = [&] { return static_cast<uint64_t>(area.end_time); };
    if (cursor < area_start()) {
        push(cursor, area_start() - sample_ns, false);
        cursor = area_start();
    }
    if (area_start() <= cursor && cursor <= area_end()) {
        const uint64_t last = std::min(area_end(), end_ns);
        record.wave_beg_pos = reader->Time2WavePos(Seconds(cursor), area);
        record.wave_end_pos = reader->Time2WavePos(Seconds(last), area);
        push(cursor, last, true);
        if (area_end() > end_ns) return;
        next = area_end() + sample_ns;
        areas->Next();
    } else {
        // The cursor lies behind this area: passed over, and the gap that follows
        // begins at 0. Gap records count by their place in the list only.
        areas->Next();
    }
    while (GetAreaData(areas, area)) {
        uint64_t gap_end = area_start() - sample_ns;
        uint64_t last = area_end();
        bool ends_in_gap = false, ends_in_area = false;
        if (gap_end >= end_ns) {
            gap_end = end_ns;
            ends_in_gap = true;
        }
        if (last >= end_ns) {
            last = end_ns;
            ends_in_area = true;
        }
        push(next, gap_end, false);
        if (ends_in_gap) return;
        record.wave_beg_pos = area.wave_beg_pos;
        record.wave_end_pos = reader->Time2WavePos(Seconds(last), area);
        push(area_start(), last, true);
        if (ends_in_area) return;
        next = area_end() + sample_ns;
        if (!areas->Next()) return;
    }
}

template <class T, int Op>
bool MathDataSet<T, Op>::CalcArea(const _ValidAreaIndex& left, const _ValidAreaIndex& right, ValidDataArea& area,
                                  int& code) {
    if (!left.has_data) code |= 0xF0;
    if (!right.has_data) code |= 0x0F;
    if ((code & 0xFF) != 0) return false;
    if (left.begin_time > right.end_time) {  // the right piece is done
        code = 0x0F;
        return false;
    }
    if (right.begin_time > left.end_time) {
        code = 0xF0;
        return false;
    }
    area.wave_beg_pos = m_nextWavePos;
    area.start_time = static_cast<int64_t>(std::max(Ns(left.begin_time), Ns(right.begin_time)));
    code = 0xF0;
    uint64_t end_ns = Ns(left.end_time);
    if (end_ns > Ns(right.end_time)) {
        end_ns = Ns(right.end_time);
        code = 0x0F;
    }
    area.end_time = static_cast<int64_t>(end_ns);
    if (isEqual(left.end_time, right.end_time)) code = 0xFF;
    // Both sides' share of the overlap in samples; a one-sample piece divides 0 by 0
    // and gives the processor's pattern for NaN.
    const double d = static_cast<double>(end_ns - static_cast<uint64_t>(area.start_time)) * 1e-9;
    const uint64_t from_left = EstimateSamples(d, left);
    const uint64_t from_right = EstimateSamples(d, right);
    area.wave_end_pos = area.wave_beg_pos - 1 + std::max(from_left, from_right);
    m_nextWavePos = area.wave_end_pos + 1;
    return true;
}

template <class T, int Op>
void MathDataSet<T, Op>::CalcArea(double start, double end) {
    std::vector<_ValidAreaIndex> left, right;
    SearchValidArea(m_leftReader, m_leftAreas, start, end, left);
    SearchValidArea(m_rightReader, m_rightAreas, start, end, right);
    if (left.empty() || right.empty()) return;  // the areas of an earlier calculation stay
    m_areas.clear();
    std::size_t l = 0, r = 0;
    do {
        int code = 0;
        ValidDataArea area{};
        if (CalcArea(left[l], right[r], area, code)) {
            // Only the first result area is compared, and one equal end is enough.
            const bool repeats_first = !m_areas.empty() && (area.start_time == m_areas.front().start_time ||
                                                             area.end_time == m_areas.front().end_time);
            if (!repeats_first) m_areas.push_back(area);
        }
        if ((code & 0xFF) == 0) break;
        if (code & 0xF0) ++l;
        if (code & 0x0F) ++r;
    } while (l < left.size() && r < right.size());
    if (!m_areas.empty()) m_areaOrigin = static_cast<uint64_t>(m_areas.front().start_time);
}

template <class T, int Op>
void MathDataSet<T, Op>::SaveArea() {
    if (m_areas.empty()) return;
    m_areaOrigin = static_cast<uint64_t>(m_areas.front().start_time);
    if (std::shared_ptr<StorageBase> storage = this->GetStorage("Area"))
        storage->Write(m_areas.data(), m_areas.size());
}

#define WAVESTORE_MATH_AREAS(T, O)                                                                             \
    template bool MathDataSet<T, O>::GetAreaData(Ctr<IInforIteratorReader>, ValidDataArea&);                   \
    template void MathDataSet<T, O>::SearchValidArea(Ctr<CBasicWaveReader<T>>, Ctr<IInforIteratorReader>,      \
                                                     double, double, std::vector<_ValidAreaIndex>&);           \
    template bool MathDataSet<T, O>::CalcArea(const _ValidAreaIndex&, const _ValidAreaIndex&, ValidDataArea&,  \
                                              int&);                                                           \
    template void MathDataSet<T, O>::CalcArea(double, double);                                                 \
    template void MathDataSet<T, O>::SaveArea();
WAVESTORE_MATH_INSTANCES(WAVESTORE_MATH_AREAS)
