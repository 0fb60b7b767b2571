#pragma once
// IndexSummary<T>: levels of min/max summaries over the "Index" storage of a wave
// dataset, so that a view or a value search over many index entries reads a few records
// instead of every entry.
//
// Level 1 holds one record per aligned group of kFanout index entries (entries
// g x kFanout .. (g + 1) x kFanout - 1), level k one record per aligned group of kFanout
// records of level k - 1. A record exists only once its group is complete; the open
// group of each level is kept in memory, so building costs one partial record per level.
// Each level is a block storage of its own (pool memory, a cache file behind it), kept
// beside "Index" and never saved with the dataset.
//
// A record holds, over the entries of its group:
//   min, max  the fold of the entries' min and max with strict comparisons from +inf and
//             -inf (the largest and lowest value for the integer types): NaN changes
//             nothing, and of equal values the first one met stays, as in a fold entry by
//             entry, so folding records gives the same bits as folding their entries;
//   lo, hi    the smallest and largest of all non-NaN min and max fields, which lets a
//             search rule out a group whose entries all lie on one side of a value, also
//             for entries whose min is above their max.
//
// One writer appends (the pushing thread, or the rebuild that streams "Index"); readers
// take a Snapshot and read records below its counts.

#include "dataset/element_types.h"
#include "dataset/records.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

class StorageBase;

template <class T>
struct SummaryRecord {
    T min;
    T max;
    T lo;
    T hi;
};

template <class T>
class IndexSummary {
public:
    static constexpr uint64_t kFanout = 128;
    static constexpr int kMaxLevels = 8;

    // What a reader uses for one request: the level storages and their record counts,
    // taken once; level k - 1 at [k - 1].
    struct Snapshot {
        std::vector<std::shared_ptr<StorageBase>> levels;
        std::vector<uint64_t> records;
    };

    // index: the dataset's "Index" storage, which the summary describes.
    explicit IndexSummary(std::shared_ptr<StorageBase> index);
    ~IndexSummary();
    IndexSummary(const IndexSummary&) = delete;
    IndexSummary& operator=(const IndexSummary&) = delete;

    // Folds entries that follow the ones folded so far (index positions Entries() on).
    void Append(const MinMaxData<T>* entries, uint64_t count);
    // Forgets everything (the level storages are emptied, their files stay) and takes
    // the present content of "Index" as the one to describe.
    void Reset();
    // Index entries folded so far.
    uint64_t Entries() const { return entries_.load(std::memory_order_acquire); }
    // Readers use the summary only while it is ready: set by the builder once it has
    // caught up with "Index", cleared while it is off or rebuilding.
    void SetReady(bool ready) { ready_.store(ready, std::memory_order_release); }
    bool Ready() const { return ready_.load(std::memory_order_acquire); }
    // The levels, if the summary is ready and still describes the storage "Index" has
    // now (a rebind or a swap of its channel makes it stale until it is rebuilt).
    bool TakeSnapshot(Snapshot& snapshot) const;
    // Whether "Index" still has the channel it had when the summary was last reset.
    bool DescribesIndex() const { return ChannelOfIndex() == source_.load(); }
    // Bytes held in the level storages.
    uint64_t Bytes() const;
    const std::shared_ptr<StorageBase>& Index() const { return index_; }

    // The empty record that every group starts from.
    static SummaryRecord<T> EmptyRecord();
    // Folds an index entry, or a record of the level below, into record.
    static void FoldEntry(SummaryRecord<T>& record, const MinMaxData<T>& entry);
    static void FoldRecord(SummaryRecord<T>& record, const SummaryRecord<T>& part);

private:
    const void* ChannelOfIndex() const;
    StorageBase* Level(int level);

    std::shared_ptr<StorageBase> index_;
    mutable std::mutex levels_mutex_;  // guards levels_ (grows while readers take snapshots)
    std::vector<std::shared_ptr<StorageBase>> levels_;
    SummaryRecord<T> partial_[kMaxLevels];  // the open group of each level
    uint64_t partial_count_[kMaxLevels] = {};
    std::vector<SummaryRecord<T>> pending_[kMaxLevels];  // finished records of one Append
    std::atomic<uint64_t> entries_{0};
    std::atomic<bool> ready_{false};
    std::atomic<const void*> source_{nullptr};  // the channel of "Index" when last reset
};

extern template class IndexSummary<int8_t>;
extern template class IndexSummary<uint8_t>;
extern template class IndexSummary<int16_t>;
extern template class IndexSummary<uint16_t>;
extern template class IndexSummary<int32_t>;
extern template class IndexSummary<uint32_t>;
extern template class IndexSummary<int64_t>;
extern template class IndexSummary<uint64_t>;
extern template class IndexSummary<float>;
extern template class IndexSummary<double>;
extern template class IndexSummary<LongDouble>;
