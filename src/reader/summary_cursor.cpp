#include "reader/summary_cursor.h"

#include "dataset/extremes.h"
#include "reader/index_entry_tests.h"
#include "storage/storage_base.h"

#include <algorithm>
#include <cmath>

using value_search_detail::kFirstLook;
using value_search_detail::kIndexChunk;
using value_search_detail::UpwardWindow;

namespace {

// Units read into a window at a time.
constexpr uint64_t kWindowUnits = 512;

}  // namespace

template <class T>
void SummaryCursor<T>::Reset(IReader* index, typename IndexSummary<T>::Snapshot snapshot, uint64_t held) {
    index_ = index;
    held_ = held;
    snapshot_ = std::move(snapshot);
    entries_.count = 0;
    records_.resize(snapshot_.levels.size());
    for (auto& window : records_) window.count = 0;
    Release();
    lent_.resize(snapshot_.levels.size());
}

template <class T>
void SummaryCursor<T>::Release() {
    for (Lent& lent : lent_) {
        lent.view = RawData();
        lent.count = 0;
    }
}

template <class T>
const SummaryRecord<T>* SummaryCursor<T>::Lend(std::size_t k, uint64_t group, uint64_t& available) {
    Lent& lent = lent_[k];
    if (group < lent.first || group - lent.first >= lent.count) {
        lent.view = RawData();  // the block lent before goes back first
        lent.count = 0;
        StorageBase& storage = *snapshot_.levels[k];
        // The rest of the block of group, short of its last unit: a view asked to reach
        // into the next block would have the storage gather both into new memory. (The
        // view it gives holds the whole rest of the block all the same.)
        const uint64_t units = storage.BlockUnits();
        const uint64_t rest = units == 0 ? 0 : units - group % units;
        if (rest < 2) return nullptr;
        lent.view = storage.Request(group, rest - 1);
        if (lent.view.IsNull()) return nullptr;
        lent.first = group;
        lent.count = std::min(lent.view.Count(), snapshot_.records[k] - group);
    }
    available = lent.first + lent.count - group;
    return available == 0 ? nullptr : static_cast<const SummaryRecord<T>*>(lent.view.Ptr()) + (group - lent.first);
}

template <class T>
uint64_t SummaryCursor<T>::Span(int level) {
    return uint64_t{1} << Shift(level);
}

template <class T>
unsigned SummaryCursor<T>::Side(const T& lo, const T& hi, double value) {
    using value_search_detail::AsDouble;
    return (AsDouble(hi) < value ? 1u : 0u) | (AsDouble(lo) > value ? 2u : 0u);
}

template <class T>
unsigned SummaryCursor<T>::EntrySide(const MinMaxData<T>& entry, double value) {
    SummaryRecord<T> record = IndexSummary<T>::EmptyRecord();
    IndexSummary<T>::FoldEntry(record, entry);
    return Side(record.lo, record.hi, value);
}

template <class T>
template <class Unit, class Source>
const Unit* SummaryCursor<T>::Fetch(Window<Unit>& window, Source& source, uint64_t available, uint64_t pos,
                                    Around around) {
    if (pos >= window.first && pos - window.first < window.count) return &window.data[pos - window.first];
    if (pos >= available) return nullptr;
    // Ahead: from the unit before pos (the lower partner of a pair); behind: up to the unit
    // after it; group: the aligned group of pos, the tail of one column and the head of
    // the next.
    uint64_t start = 0, units = kWindowUnits;
    if (around == Around::kAhead) {
        start = pos > 0 ? pos - 1 : 0;
    } else if (around == Around::kBehind) {
        start = pos + 2 > kWindowUnits ? pos + 2 - kWindowUnits : 0;
    } else {
        units = kFanout;
        start = pos / kFanout * kFanout;
    }
    const uint64_t n = std::min(units, available - start);
    window.data.resize(std::max<std::size_t>(window.data.size(), units));
    window.first = start;
    window.count = source.Read(start, window.data.data(), n);
    if (pos - start >= window.count) return nullptr;
    return &window.data[pos - start];
}

template <class T>
bool SummaryCursor<T>::EntryAt(uint64_t pos, bool forward, MinMaxData<T>& out) {
    const MinMaxData<T>* entry = Fetch(entries_, *index_, held_, pos, forward ? Around::kAhead : Around::kBehind);
    if (entry == nullptr) return false;
    out = *entry;
    return true;
}

template <class T>
bool SummaryCursor<T>::RecordAt(int level, uint64_t group, bool forward, SummaryRecord<T>& out) {
    const auto k = static_cast<std::size_t>(level - 1);
    const SummaryRecord<T>* record =
        Fetch(records_[k], *snapshot_.levels[k], snapshot_.records[k], group, forward ? Around::kAhead : Around::kBehind);
    if (record == nullptr) return false;
    out = *record;
    return true;
}

template <class T>
int SummaryCursor<T>::LevelAt(uint64_t pos, uint64_t lo, uint64_t hi, bool forward) const {
    for (int level = static_cast<int>(snapshot_.levels.size()); level >= 1; --level) {
        const uint64_t span = Span(level);
        const uint64_t records = snapshot_.records[static_cast<std::size_t>(level - 1)];
        if (forward) {
            // The group that starts at pos.
            if ((pos & (span - 1)) == 0 && hi - pos >= span - 1 && (pos >> Shift(level)) < records) return level;
        } else {
            // The group that ends at pos.
            if (((pos + 1) & (span - 1)) == 0 && pos + 1 - lo >= span && ((pos + 1) >> Shift(level)) - 1 < records)
                return level;
        }
    }
    return 0;
}

template <class T>
typename SummaryCursor<T>::Sided SummaryCursor<T>::SidedAt(uint64_t pos, uint64_t lo, uint64_t hi, double value,
                                                           bool forward) {
    // From the coarsest group that fits down to the finest, the first one on one side.
    for (int level = LevelAt(pos, lo, hi, forward); level >= 1; --level) {
        const uint64_t span = Span(level);
        const bool fits = forward ? (pos & (span - 1)) == 0 && hi - pos >= span - 1
                                  : ((pos + 1) & (span - 1)) == 0 && pos + 1 - lo >= span;
        if (!fits) continue;
        const uint64_t group = forward ? pos >> Shift(level) : ((pos + 1) >> Shift(level)) - 1;
        SummaryRecord<T> record{};
        if (group >= snapshot_.records[static_cast<std::size_t>(level - 1)] ||
            !RecordAt(level, group, forward, record))
            continue;
        if (const unsigned side = Side(record.lo, record.hi, value)) return {level, side};
    }
    return {};
}

template <class T>
uint64_t SummaryCursor<T>::SidedRun(int level, uint64_t group, uint64_t limit, bool forward, double value,
                                    unsigned& mask) {
    const auto k = static_cast<std::size_t>(level - 1);
    Window<SummaryRecord<T>>& window = records_[k];
    const SummaryRecord<T>* first = Fetch(window, *snapshot_.levels[k], snapshot_.records[k], group,
                                          forward ? Around::kAhead : Around::kBehind);
    if (first == nullptr) return 1;
    // Records in the window on the side of the walk, the first one included.
    const uint64_t held = forward ? window.first + window.count - group : group - window.first + 1;
    const uint64_t n_max = std::min(limit, held);
    uint64_t n = 1;
    for (; n < n_max; ++n) {
        const SummaryRecord<T>& next = forward ? first[n] : *(first - n);
        const unsigned side = Side(next.lo, next.hi, value);
        if ((side & mask) == 0) break;
        mask = side;
    }
    return n;
}

template <class T>
bool SummaryCursor<T>::Fold(uint64_t first, uint64_t last, MinMaxData<T>& running) {
    if (first > last || first >= held_) return false;
    const uint64_t end = std::min(last, held_ - 1);
    bool seen = false;
    // Folded in locals, which the compiler keeps in registers, and stored once at the end.
    T lo = running.min, hi = running.max;
    for (uint64_t pos = first; pos <= end;) {
        if (const int level = LevelAt(pos, first, end, true)) {
            // A run of records of this level: those that fit, exist, and come before the
            // border of the level above (where a coarser record may take over).
            const auto k = static_cast<std::size_t>(level - 1);
            const uint64_t span = Span(level);
            const uint64_t group = pos >> Shift(level);
            const uint64_t run = std::min({(end - pos + 1) >> Shift(level), snapshot_.records[k] - group,
                                           kFanout - group % kFanout});
            uint64_t available = 0;
            const SummaryRecord<T>* records = Lend(k, group, available);
            if (records == nullptr) {
                records = Fetch(records_[k], *snapshot_.levels[k], snapshot_.records[k], group, Around::kAhead);
                if (records != nullptr) available = records_[k].first + records_[k].count - group;
            }
            if (records != nullptr) {
                const uint64_t n = std::min(run, available);
                // The same fold in order as for the entries they stand for.
                FoldInOrder(records, n, lo, hi);
                seen = true;
                pos += n * span;
                continue;
            }
        }
        // Entries up to the next group border.
        const uint64_t stop = std::min(end, (pos / kFanout + 1) * kFanout - 1);
        while (pos <= stop) {
            const MinMaxData<T>* entries = Fetch(entries_, *index_, held_, pos, Around::kGroup);
            if (entries == nullptr) {  // a short read ends the fold, as it ends the entry walk
                running = {lo, hi};
                return seen;
            }
            const uint64_t n = std::min(entries_.first + entries_.count - pos, stop - pos + 1);
            FoldColumns(entries, n, lo, hi);
            seen = true;
            pos += n;
        }
    }
    running = {lo, hi};
    return seen;
}

template <class T>
bool SummaryCursor<T>::FindUp(double value, uint64_t first, uint64_t last,
                              std::pair<unsigned long long, unsigned long long>& hit) {
    // NaN meets nothing: the entry walk ends without a hit on every path.
    if (std::isnan(value)) return false;
    chunk_starts_.clear();
    // The first look at 30 entries, which a short read ends with false.
    if (last - first >= kFirstLook + 1) {
        if (first > held_ || held_ - first < kFirstLook) return false;
        if (WalkUp(value, first, first + kFirstLook - 1, chunk_starts_, hit)) return true;
    }
    // The read windows of the entry walk, up to the first one that would read short (or
    // read nothing): the walk ends there without a hit. A pair across two windows is
    // never tested.
    uint64_t end = first;
    for (uint64_t p = first; p <= last;) {
        const uint64_t count = UpwardWindow(p, last, held_);
        if (count == 0 || count > held_ || p > held_ - count) break;
        if (p != first) chunk_starts_.push_back(p);
        p += count;
        end = p;
    }
    if (end == first) return false;
    return WalkUp(value, first, end - 1, chunk_starts_, hit);
}

template <class T>
bool SummaryCursor<T>::FindDown(double value, uint64_t first, uint64_t last,
                                std::pair<unsigned long long, unsigned long long>& hit) {
    if (last < first || last >= held_ || std::isnan(value)) return false;
    // The entry walk tests windows [p, last] that double downward and gives up before one
    // would reach below first: what it ever tests is the last window it reaches.
    uint64_t p = last - first <= kIndexChunk ? first : last - kIndexChunk;
    for (;;) {
        const uint64_t read = last - p + 1;
        if (p < read || p - read < first) break;
        p -= read;
    }
    return WalkDown(value, p, last, hit);
}

template <class T>
bool SummaryCursor<T>::WalkUp(double value, uint64_t from, uint64_t to, const std::vector<uint64_t>& chunk_starts,
                              std::pair<unsigned long long, unsigned long long>& hit) {
    using value_search_detail::Holds;
    using value_search_detail::MeetsUpward;
    const auto starts_window = [&](uint64_t j) {
        return std::binary_search(chunk_starts.begin(), chunk_starts.end(), j);
    };
    // pending: the pair (pos - 1, pos) is still to be tested; prev: the side of pos - 1.
    uint64_t pos = from;
    bool pending = false;
    unsigned prev = 0;
    MinMaxData<T> a{}, b{};
    while (pos <= to) {
        const Sided sided = SidedAt(pos, from, to, value, true);
        if (sided.level > 0) {
            // Nothing inside the group; its border with the entry before needs a test only
            // when the two don't share a side.
            if (pending && (prev & sided.mask) == 0) {
                if (!EntryAt(pos - 1, true, a) || !EntryAt(pos, true, b)) return false;
                if (MeetsUpward(a, b, value)) {
                    hit = {pos - 1, pos};
                    return true;
                }
            }
            // The groups of this level after it, as long as each shares a side with the one
            // before, up to the border of the level above.
            const int shift = Shift(sided.level);
            const uint64_t group = pos >> shift;
            const uint64_t limit = std::min((to - pos + 1) >> shift, kFanout - group % kFanout);
            unsigned mask = sided.mask;
            pos += SidedRun(sided.level, group, limit, true, value, mask) << shift;
            prev = mask;
            pending = pos <= to && !starts_window(pos);
            continue;
        }
        // Entry by entry up to the next group border.
        const uint64_t stop = std::min(to, (pos / kFanout + 1) * kFanout - 1);
        if (pending) {
            if (!EntryAt(pos - 1, true, a) || !EntryAt(pos, true, b)) return false;
            if (MeetsUpward(a, b, value)) {
                hit = {pos - 1, pos};
                return true;
            }
        }
        if (!EntryAt(pos, true, a)) return false;
        for (uint64_t j = pos;; ++j) {
            if (Holds(a, value)) {
                hit = {j, j};
                return true;
            }
            if (j == stop) break;
            if (!EntryAt(j + 1, true, b)) return false;
            if (!starts_window(j + 1) && MeetsUpward(a, b, value)) {
                hit = {j, j + 1};
                return true;
            }
            a = b;
        }
        prev = EntrySide(a, value);
        pos = stop + 1;
        pending = pos <= to && !starts_window(pos);
    }
    return false;
}

template <class T>
bool SummaryCursor<T>::WalkDown(double value, uint64_t from, uint64_t to,
                                std::pair<unsigned long long, unsigned long long>& hit) {
    using value_search_detail::Holds;
    using value_search_detail::MeetsDownward;
    // At each entry from the top: first the pair with the entry above it, then the entry.
    // pending: the pair (pos, pos + 1) is still to be tested; prev: the side of pos + 1.
    uint64_t pos = to;
    bool pending = false;
    unsigned prev = 0;
    MinMaxData<T> a{}, b{};
    for (;;) {
        const Sided sided = SidedAt(pos, from, to, value, false);
        if (sided.level > 0) {
            if (pending && (prev & sided.mask) == 0) {
                if (!EntryAt(pos, false, a) || !EntryAt(pos + 1, false, b)) return false;
                if (MeetsDownward(a, b, value)) {
                    hit = {pos, pos + 1};
                    return true;
                }
            }
            const int shift = Shift(sided.level);
            const uint64_t group = ((pos + 1) >> shift) - 1;
            const uint64_t limit = std::min((pos + 1 - from) >> shift, group % kFanout + 1);
            unsigned mask = sided.mask;
            const uint64_t group_first = pos + 1 - (SidedRun(sided.level, group, limit, false, value, mask) << shift);
            if (group_first == from) return false;
            pos = group_first - 1;
            prev = mask;
            pending = true;
            continue;
        }
        const uint64_t stop = std::max(from, pos / kFanout * kFanout);
        bool upper = pos < to;
        if (upper && !EntryAt(pos + 1, false, b)) return false;
        for (uint64_t q = pos;; --q) {
            if (!EntryAt(q, false, a)) return false;
            if (upper && MeetsDownward(a, b, value)) {
                hit = {q, q + 1};
                return true;
            }
            if (Holds(a, value)) {
                hit = {q, q};
                return true;
            }
            if (q == stop) break;
            b = a;
            upper = true;
        }
        if (stop == from) return false;
        prev = EntrySide(a, value);
        pending = true;
        pos = stop - 1;
    }
}

template class SummaryCursor<int8_t>;
template class SummaryCursor<uint8_t>;
template class SummaryCursor<int16_t>;
template class SummaryCursor<uint16_t>;
template class SummaryCursor<int32_t>;
template class SummaryCursor<uint32_t>;
template class SummaryCursor<int64_t>;
template class SummaryCursor<uint64_t>;
template class SummaryCursor<float>;
template class SummaryCursor<double>;
template class SummaryCursor<LongDouble>;
