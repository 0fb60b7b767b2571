#include "reader/index_summary.h"

#include "storage/block_storage.h"
#include "storage/device_channels.h"

#include <algorithm>
#include <limits>

template <class T>
IndexSummary<T>::IndexSummary(std::shared_ptr<StorageBase> index) : index_(std::move(index)) {
    for (auto& record : partial_) record = EmptyRecord();
    source_.store(ChannelOfIndex());
}

template <class T>
IndexSummary<T>::~IndexSummary() = default;

template <class T>
SummaryRecord<T> IndexSummary<T>::EmptyRecord() {
    if constexpr (kIsFloatingElement<T>) {
        const T inf = std::numeric_limits<T>::infinity();
        return {inf, -inf, inf, -inf};
    } else {
        const T top = std::numeric_limits<T>::max(), bottom = std::numeric_limits<T>::lowest();
        return {top, bottom, top, bottom};
    }
}

template <class T>
void IndexSummary<T>::FoldEntry(SummaryRecord<T>& record, const MinMaxData<T>& entry) {
    // Strict comparisons: NaN changes nothing, and of equal values the first one stays.
    // Written as selections, which compile to min and max instructions.
    record.min = entry.min < record.min ? entry.min : record.min;
    record.max = entry.max > record.max ? entry.max : record.max;
    record.lo = entry.min < record.lo ? entry.min : record.lo;
    record.lo = entry.max < record.lo ? entry.max : record.lo;
    record.hi = entry.min > record.hi ? entry.min : record.hi;
    record.hi = entry.max > record.hi ? entry.max : record.hi;
}

template <class T>
void IndexSummary<T>::FoldRecord(SummaryRecord<T>& record, const SummaryRecord<T>& part) {
    record.min = part.min < record.min ? part.min : record.min;
    record.max = part.max > record.max ? part.max : record.max;
    record.lo = part.lo < record.lo ? part.lo : record.lo;
    record.hi = part.hi > record.hi ? part.hi : record.hi;
}

template <class T>
const void* IndexSummary<T>::ChannelOfIndex() const {
    if (auto* storage = dynamic_cast<CStorage*>(index_.get())) return storage->Channel().get();
    return index_.get();
}

template <class T>
StorageBase* IndexSummary<T>::Level(int level) {
    std::lock_guard<std::mutex> lock(levels_mutex_);
    while (levels_.size() <= static_cast<std::size_t>(level)) {
        auto storage = std::make_shared<CStorage>(CreateLocalFileCache(0), sizeof(SummaryRecord<T>));
        // A few records per index block: never worth slowing the pushing thread down for.
        storage->SetOption("enable_throttle", Vellum::Var(false));
        levels_.push_back(std::move(storage));
    }
    return levels_[static_cast<std::size_t>(level)].get();
}

template <class T>
void IndexSummary<T>::Append(const MinMaxData<T>* entries, uint64_t count) {
    if (entries == nullptr || count == 0) return;
    for (uint64_t i = 0; i < count;) {
        // The entries that the open level-1 group still takes, folded in a local record.
        const uint64_t n = std::min(count - i, kFanout - partial_count_[0]);
        SummaryRecord<T> open = partial_[0];
        for (uint64_t j = 0; j < n; ++j) FoldEntry(open, entries[i + j]);
        partial_[0] = open;
        partial_count_[0] += n;
        i += n;
        if (partial_count_[0] < kFanout) continue;
        // A group is complete: its record goes out and into the open group above, which
        // may complete in turn.
        for (int level = 0; level < kMaxLevels; ++level) {
            pending_[level].push_back(partial_[level]);
            const bool above = level + 1 < kMaxLevels;
            if (above) FoldRecord(partial_[level + 1], partial_[level]);
            partial_[level] = EmptyRecord();
            partial_count_[level] = 0;
            if (!above || ++partial_count_[level + 1] < kFanout) break;
        }
    }
    // Records after the entries they cover, the finer level first.
    for (int level = 0; level < kMaxLevels && !pending_[level].empty(); ++level) {
        Level(level)->Write(pending_[level].data(), pending_[level].size());
        pending_[level].clear();
    }
    entries_.fetch_add(count, std::memory_order_release);
}

template <class T>
void IndexSummary<T>::Reset() {
    {
        std::lock_guard<std::mutex> lock(levels_mutex_);
        for (auto& level : levels_) level->Clear();
    }
    for (int level = 0; level < kMaxLevels; ++level) {
        partial_[level] = EmptyRecord();
        partial_count_[level] = 0;
        pending_[level].clear();
    }
    entries_.store(0, std::memory_order_release);
    source_.store(ChannelOfIndex());
}

template <class T>
bool IndexSummary<T>::TakeSnapshot(Snapshot& snapshot) const {
    if (!Ready() || !DescribesIndex()) return false;
    std::lock_guard<std::mutex> lock(levels_mutex_);
    snapshot.levels = levels_;
    snapshot.records.resize(levels_.size());
    for (std::size_t k = 0; k < levels_.size(); ++k) snapshot.records[k] = levels_[k]->Count();
    return true;
}

template <class T>
uint64_t IndexSummary<T>::Bytes() const {
    std::lock_guard<std::mutex> lock(levels_mutex_);
    uint64_t bytes = 0;
    for (const auto& level : levels_) bytes += level->Count() * sizeof(SummaryRecord<T>);
    return bytes;
}

template class IndexSummary<int8_t>;
template class IndexSummary<uint8_t>;
template class IndexSummary<int16_t>;
template class IndexSummary<uint16_t>;
template class IndexSummary<int32_t>;
template class IndexSummary<uint32_t>;
template class IndexSummary<int64_t>;
template class IndexSummary<uint64_t>;
template class IndexSummary<float>;
template class IndexSummary<double>;
template class IndexSummary<LongDouble>;
