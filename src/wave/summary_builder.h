#pragma once
// SummaryBuilder<T>: keeps the IndexSummary<T> of a wave dataset in step with its
// "Index" storage.
//
// Live, each push of index columns is folded into the summary on the pushing thread
// (one partial group per level, a few comparisons per column). When the content of
// "Index" changes under the summary (a load, a group switch, a push that doesn't follow
// the columns folded so far), the summary is emptied and rebuilt in the background by
// one streaming pass over "Index"; pushes meanwhile are left to that pass, and readers
// read the entries until it has caught up. A clear empties it along with the dataset.
// Switched off, the summary is emptied and not kept; switched on again, it is rebuilt.
//
// The control calls (constructor, OnClear, Rebuild, SetEnabled, WaitReady, destructor)
// come from the dataset's owner, OnPush from the one thread that pushes index columns.

#include "dataset/records.h"
#include "reader/index_summary.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

class StorageBase;

template <class T>
class SummaryBuilder {
public:
    // Starts live on index, which must be empty or followed by Rebuild.
    explicit SummaryBuilder(std::shared_ptr<StorageBase> index);
    ~SummaryBuilder();
    SummaryBuilder(const SummaryBuilder&) = delete;
    SummaryBuilder& operator=(const SummaryBuilder&) = delete;

    std::shared_ptr<const IndexSummary<T>> Summary() const { return summary_; }
    // count columns were just appended to "Index" from data.
    void OnPush(const MinMaxData<T>* data, uint64_t count);
    // "Index" is about to be emptied: so is the summary.
    void OnClear();
    // "Index" holds other columns now: the summary is rebuilt from them in the background.
    void Rebuild();
    // On by default.
    void SetEnabled(bool on);
    bool Enabled() const;
    // Waits for a rebuild under way to catch up with "Index"; true if the summary is ready.
    bool WaitReady();
    // Bytes held by the summary's levels.
    uint64_t Bytes() const { return summary_->Bytes(); }

private:
    enum class State { kOff, kLive, kRebuilding };

    // With control_ held.
    void StartRebuild();
    void StopWorker();
    void Work();

    std::shared_ptr<StorageBase> index_;
    std::shared_ptr<IndexSummary<T>> summary_;
    std::mutex control_;          // the worker thread's life
    mutable std::mutex mutex_;    // state_, and the summary's writer while live
    State state_ = State::kLive;
    std::thread worker_;
    std::atomic<bool> stop_{false};
};

extern template class SummaryBuilder<int8_t>;
extern template class SummaryBuilder<uint8_t>;
extern template class SummaryBuilder<int16_t>;
extern template class SummaryBuilder<uint16_t>;
extern template class SummaryBuilder<int32_t>;
extern template class SummaryBuilder<uint32_t>;
extern template class SummaryBuilder<int64_t>;
extern template class SummaryBuilder<uint64_t>;
extern template class SummaryBuilder<float>;
extern template class SummaryBuilder<double>;
extern template class SummaryBuilder<LongDouble>;
