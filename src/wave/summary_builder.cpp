#include "wave/summary_builder.h"

#include "storage/storage_base.h"

#include <algorithm>
#include <vector>

namespace {

// Columns read from "Index" at a time by a rebuild.
constexpr uint64_t kRebuildBatch = 65536;

}  // namespace

template <class T>
SummaryBuilder<T>::SummaryBuilder(std::shared_ptr<StorageBase> index)
    : index_(std::move(index)), summary_(std::make_shared<IndexSummary<T>>(index_)) {
    summary_->SetReady(true);
}

template <class T>
SummaryBuilder<T>::~SummaryBuilder() {
    std::lock_guard<std::mutex> control(control_);
    StopWorker();
}

template <class T>
void SummaryBuilder<T>::OnPush(const MinMaxData<T>* data, uint64_t count) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ != State::kLive) return;  // off, or a rebuild reads them from "Index"
        const uint64_t total = index_->Count();
        const uint64_t folded = summary_->Entries();
        if (folded + count == total && summary_->DescribesIndex()) {
            summary_->Append(data, count);
            return;
        }
        if (folded == total && summary_->DescribesIndex()) return;  // a rebuild that caught up has them
    }
    // The columns don't follow the ones folded: "Index" was written some other way, or
    // has another channel now (a swap).
    std::lock_guard<std::mutex> control(control_);
    StartRebuild();
}

template <class T>
void SummaryBuilder<T>::OnClear() {
    std::lock_guard<std::mutex> control(control_);
    StopWorker();
    std::lock_guard<std::mutex> lock(mutex_);
    summary_->Reset();
    if (state_ == State::kOff) return;
    state_ = State::kLive;
    summary_->SetReady(true);
}

template <class T>
void SummaryBuilder<T>::Rebuild() {
    std::lock_guard<std::mutex> control(control_);
    StartRebuild();
}

template <class T>
void SummaryBuilder<T>::SetEnabled(bool on) {
    std::lock_guard<std::mutex> control(control_);
    if (on == Enabled()) return;
    if (on) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            state_ = State::kRebuilding;
        }
        StartRebuild();
        return;
    }
    StopWorker();
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = State::kOff;
    summary_->SetReady(false);
    summary_->Reset();
}

template <class T>
bool SummaryBuilder<T>::Enabled() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_ != State::kOff;
}

template <class T>
bool SummaryBuilder<T>::WaitReady() {
    std::lock_guard<std::mutex> control(control_);
    if (worker_.joinable()) worker_.join();
    return summary_->Ready();
}

template <class T>
void SummaryBuilder<T>::StartRebuild() {
    StopWorker();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ == State::kOff) return;
        state_ = State::kRebuilding;
        summary_->SetReady(false);
        summary_->Reset();
    }
    worker_ = std::thread([this] { Work(); });
}

template <class T>
void SummaryBuilder<T>::StopWorker() {
    if (!worker_.joinable()) return;
    stop_.store(true);
    worker_.join();
    stop_.store(false);
}

template <class T>
void SummaryBuilder<T>::Work() {
    // One pass over "Index" from the start, then live once it has caught up.
    std::vector<MinMaxData<T>> batch(kRebuildBatch);
    uint64_t pos = 0;
    while (!stop_.load()) {
        const uint64_t total = index_->Count();
        if (pos < total) {
            const uint64_t got = index_->Read(pos, batch.data(), std::min(kRebuildBatch, total - pos));
            // Columns that can't be read leave the summary unready: readers read the entries.
            if (got == 0) return;
            summary_->Append(batch.data(), got);
            pos += got;
            continue;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (index_->Count() == pos) {
            state_ = State::kLive;
            summary_->SetReady(true);
            return;
        }
    }
}

template class SummaryBuilder<int8_t>;
template class SummaryBuilder<uint8_t>;
template class SummaryBuilder<int16_t>;
template class SummaryBuilder<uint16_t>;
template class SummaryBuilder<int32_t>;
template class SummaryBuilder<uint32_t>;
template class SummaryBuilder<int64_t>;
template class SummaryBuilder<uint64_t>;
template class SummaryBuilder<float>;
template class SummaryBuilder<double>;
template class SummaryBuilder<LongDouble>;
