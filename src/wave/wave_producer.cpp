#include "wave/wave_producer.h"

#include "dataset/extremes.h"
#include "dataset/time_rules.h"
#include "storage/storage_base.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

template <class T>
MinMaxData<T> EmptyColumn() {
    if constexpr (kIsFloatingElement<T>)
        return {std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity()};
    else
        return {std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest()};
}

uint64_t CountOf(const DataSetBase& dataset, const char* id) {
    auto storage = dataset.GetStorage(id);
    return storage ? storage->Count() : 0;
}

// Floor division for possibly negative times.
int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

template <class T>
WaveProducer<T>::WaveProducer(BasicWaveDataSet<T>& dataset, double sample_period, double index_period)
    : dataset_(dataset),
      sample_ns_(SecondsToNs(sample_period)),
      index_ns_(SecondsToNs(index_period)),
      points_per_index_(IndexStepSamples(index_period, sample_period)),
      wave_pos_(CountOf(dataset, "Wave")),
      index_pos_(CountOf(dataset, "Index")) {}

template <class T>
WaveProducer<T>::~WaveProducer() {
    CloseRun();  // an open run would otherwise stay without an area, invisible to readers
}

template <class T>
int64_t WaveProducer<T>::NextSampleNs() const {
    return area_.start_time + static_cast<int64_t>(run_samples_) * sample_ns_;
}

template <class T>
void WaveProducer<T>::StartRun(int64_t start_ns) {
    open_ = true;
    run_samples_ = 0;
    area_ = ValidDataArea{};
    area_.start_time = start_ns;
    area_.index_id = index_pos_;
    area_.wave_beg_pos = wave_pos_;
    // The first column ends at the next point of the index grid.
    uint64_t first = points_per_index_;
    if (index_ns_ > 0) {
        const int64_t boundary = (FloorDiv(start_ns, index_ns_) + 1) * index_ns_;
        const int64_t to_boundary = boundary - start_ns;
        first = static_cast<uint64_t>((to_boundary + sample_ns_ - 1) / sample_ns_);
    }
    area_.first_count = std::clamp<uint64_t>(first, 1, points_per_index_);
    column_ = EmptyColumn<T>();
    column_fill_ = 0;
    column_capacity_ = area_.first_count;
}

template <class T>
void WaveProducer<T>::FinishColumn() {
    finished_.push_back(column_);
    ++index_pos_;
    column_ = EmptyColumn<T>();
    column_fill_ = 0;
    column_capacity_ = points_per_index_;
}

template <class T>
void WaveProducer<T>::AddToColumns(const T* samples, uint64_t count) {
    for (uint64_t i = 0; i < count;) {
        // The samples that the open column still takes, in one run.
        const uint64_t n = std::min(count - i, column_capacity_ - column_fill_);
        FoldExtremes(samples + i, n, column_.min, column_.max);
        column_fill_ += n;
        i += n;
        if (column_fill_ == column_capacity_) FinishColumn();
    }
}

template <class T>
bool WaveProducer<T>::Append(double time, const T* samples, uint64_t count) {
    if (sample_ns_ < 1) return false;
    const int64_t start_ns = SecondsToNs(time);
    if (open_ && std::llabs(start_ns - NextSampleNs()) * 2 >= sample_ns_) CloseRun();
    if (!open_) StartRun(start_ns);
    return Append(samples, count);
}

template <class T>
bool WaveProducer<T>::Append(const T* samples, uint64_t count) {
    if (sample_ns_ < 1) return false;
    if (samples == nullptr || count == 0) return true;
    if (!open_) StartRun(0);
    dataset_.Push(samples, count);
    AddToColumns(samples, count);
    wave_pos_ += count;
    run_samples_ += count;
    if (!finished_.empty()) {
        dataset_.Push(finished_.data(), finished_.size());
        finished_.clear();
    }
    return true;
}

template <class T>
void WaveProducer<T>::CloseRun() {
    if (!open_) return;
    open_ = false;
    if (run_samples_ == 0) return;
    if (column_fill_ > 0) FinishColumn();
    if (!finished_.empty()) {
        dataset_.Push(finished_.data(), finished_.size());
        finished_.clear();
    }
    area_.end_time = area_.start_time + static_cast<int64_t>(run_samples_ - 1) * sample_ns_;
    area_.wave_end_pos = wave_pos_ - 1;
    dataset_.Push(&area_, 1);
}

template class WaveProducer<int8_t>;
template class WaveProducer<uint8_t>;
template class WaveProducer<int16_t>;
template class WaveProducer<uint16_t>;
template class WaveProducer<int32_t>;
template class WaveProducer<uint32_t>;
template class WaveProducer<int64_t>;
template class WaveProducer<uint64_t>;
template class WaveProducer<float>;
template class WaveProducer<double>;
template class WaveProducer<LongDouble>;
