#pragma once
// SummaryCursor<T>: the reads of one request through an IndexSummary<T>. It answers
// exactly what the entry-by-entry reads of the index answer, reading group records where
// a whole group can stand in for its entries:
//  - Fold: the min/max of a range of index entries, folded in order with strict
//    comparisons into a running pair, through the coarsest records that fit the range;
//  - FindUp / FindDown: the upward and downward index searches of the value search, with
//    their read windows, short reads and untested neighbour pairs, skipping the groups
//    whose entries all lie on one side of the value.
//
// A group whose non-NaN fields all lie below the value (or all above it) holds no entry
// that contains the value and no neighbour pair that meets it, in either direction; two
// such groups side by side (on the same side) don't meet across their border either. The
// walks therefore skip runs of one-sided groups and test entries one by one only where
// the side changes or a group straddles the value.
//
// Entries are read through small windows that move with the walk. Records are read where
// they lie when the level storage can lend them (a pinned view of its block), else through
// windows too; the views are given back by Release, or by the next Reset.

#include "host/raw_data.h"
#include "reader/index_summary.h"
#include "wave/struct_reader.h"

#include <cstdint>
#include <utility>
#include <vector>

template <class T>
class SummaryCursor {
public:
    static constexpr uint64_t kFanout = IndexSummary<T>::kFanout;

    // Starts a request on index (held entries) with the levels of snapshot.
    void Reset(IReader* index, typename IndexSummary<T>::Snapshot snapshot, uint64_t held);
    // Gives back the blocks lent for the request: none stays pinned between requests.
    void Release();

    // A range of this many entries is worth folding through the records.
    static bool Worth(uint64_t entries) { return entries >= 2 * kFanout; }
    // Folds entries first..last (those that exist) into running; true if any was folded.
    bool Fold(uint64_t first, uint64_t last, MinMaxData<T>& running);
    // The upward index search from first to last; the downward one from last to first.
    bool FindUp(double value, uint64_t first, uint64_t last, std::pair<unsigned long long, unsigned long long>& hit);
    bool FindDown(double value, uint64_t first, uint64_t last,
                  std::pair<unsigned long long, unsigned long long>& hit);

private:
    template <class Unit>
    struct Window {
        uint64_t first = 0;
        uint64_t count = 0;
        std::vector<Unit> data;
    };
    // A group of level >= 1 that lies on one side of the value: its level and side mask.
    struct Sided {
        int level = 0;
        unsigned mask = 0;
    };

    // Entries per record of a level (kFanout to the power level), and its logarithm.
    static constexpr int kFanoutShift = 7;
    static_assert(kFanout == uint64_t{1} << kFanoutShift);
    static int Shift(int level) { return kFanoutShift * level; }
    static uint64_t Span(int level);
    // 1: all below value, 2: all above, 3: no value at all, 0: neither.
    static unsigned Side(const T& lo, const T& hi, double value);
    static unsigned EntrySide(const MinMaxData<T>& entry, double value);

    // Records of a level lent in place, from first on.
    struct Lent {
        uint64_t first = 0;
        uint64_t count = 0;
        RawData view;
    };
    // The records of level k + 1 from group on, in place, and how many of them there are
    // (available); null when the level storage doesn't lend them.
    const SummaryRecord<T>* Lend(std::size_t k, uint64_t group, uint64_t& available);

    // Copies of one entry or record, read through the windows; false if it can't be read.
    bool EntryAt(uint64_t pos, bool forward, MinMaxData<T>& out);
    bool RecordAt(int level, uint64_t group, bool forward, SummaryRecord<T>& out);
    // Where a window is read when it doesn't hold a unit: ahead of it, behind it, or its
    // aligned group of kFanout.
    enum class Around { kAhead, kBehind, kGroup };
    // The unit at pos from window, read anew around pos when the window doesn't hold it;
    // null if it can't be read.
    template <class Unit, class Source>
    const Unit* Fetch(Window<Unit>& window, Source& source, uint64_t available, uint64_t pos, Around around);
    // The coarsest level whose group starting at pos (or ending at pos, downward) lies
    // within [lo, hi] and exists; 0 if none.
    int LevelAt(uint64_t pos, uint64_t lo, uint64_t hi, bool forward) const;
    Sided SidedAt(uint64_t pos, uint64_t lo, uint64_t hi, double value, bool forward);
    // From the one-sided group of level (side mask) on, the number of groups of that level
    // (at most limit, upward or downward) that each share a side with the one before;
    // mask becomes the side of the last one.
    uint64_t SidedRun(int level, uint64_t group, uint64_t limit, bool forward, double value, unsigned& mask);
    // The walks over [from, to]: the first entry holding the value or pair meeting it,
    // in the order of the entry walk. Upward, a pair whose upper entry starts a read
    // window (in chunk_starts) is not tested.
    bool WalkUp(double value, uint64_t from, uint64_t to, const std::vector<uint64_t>& chunk_starts,
                std::pair<unsigned long long, unsigned long long>& hit);
    bool WalkDown(double value, uint64_t from, uint64_t to, std::pair<unsigned long long, unsigned long long>& hit);

    IReader* index_ = nullptr;
    uint64_t held_ = 0;
    typename IndexSummary<T>::Snapshot snapshot_;
    Window<MinMaxData<T>> entries_;
    std::vector<Window<SummaryRecord<T>>> records_;
    std::vector<Lent> lent_;
    std::vector<uint64_t> chunk_starts_;
};

extern template class SummaryCursor<int8_t>;
extern template class SummaryCursor<uint8_t>;
extern template class SummaryCursor<int16_t>;
extern template class SummaryCursor<uint16_t>;
extern template class SummaryCursor<int32_t>;
extern template class SummaryCursor<uint32_t>;
extern template class SummaryCursor<int64_t>;
extern template class SummaryCursor<uint64_t>;
extern template class SummaryCursor<float>;
extern template class SummaryCursor<double>;
extern template class SummaryCursor<LongDouble>;
