#pragma once
// WaveProducer<T>: builds what a wave dataset expects of its producer, from a stream of
// sample blocks that may have gaps between them.
//
// A run is a stretch of samples without a gap. For each run the producer
//  - appends the samples to "Wave";
//  - appends MinMaxData<T> columns to "Index": the run's first column ends at the next
//    point of the index grid (multiples of the index period in time), so it covers
//    first_count samples; every later column covers points_per_index samples; the last
//    one may cover fewer; no column spans two runs;
//  - when the run ends, appends its last column and then its ValidDataArea to "Area"
//    (start_time = its first sample, end_time = its last sample, in nanoseconds).
// Samples and full columns go out in each Append, in that order, so a reader never sees
// an area that points beyond the data. Times are whole nanoseconds: sample i of a run
// lies at start + i x trunc(sample period).
//
// One producer per dataset, on one thread; it must not outlive the dataset, and it closes
// its open run when it goes. It continues a dataset that holds data: its positions start
// at the counts of "Wave" and "Index" when it is made.

#include "dataset/records.h"
#include "wave/basic_wave_dataset.h"

#include <cstdint>
#include <vector>

template <class T>
class WaveProducer {
public:
    WaveProducer(BasicWaveDataSet<T>& dataset, double sample_period, double index_period);
    ~WaveProducer();
    WaveProducer(const WaveProducer&) = delete;
    WaveProducer& operator=(const WaveProducer&) = delete;

    // Appends count samples, the first at time seconds. A block that doesn't continue the
    // open run (its time is off the run's next sample by half a period or more) closes
    // that run and starts a new one. False (nothing appended) for a period below 1 ns.
    bool Append(double time, const T* samples, uint64_t count);
    // Continues the open run; without one, a run starts at time 0.
    bool Append(const T* samples, uint64_t count);
    // Ends the open run: its last column and its area. Nothing without an open run.
    void CloseRun();

    int64_t SampleNs() const { return sample_ns_; }
    uint64_t PointsPerIndex() const { return points_per_index_; }
    // Time in ns of the sample that would continue the open run.
    int64_t NextSampleNs() const;
    bool HasOpenRun() const { return open_; }

private:
    void StartRun(int64_t start_ns);
    void AddToColumns(const T* samples, uint64_t count);
    void FinishColumn();

    BasicWaveDataSet<T>& dataset_;
    int64_t sample_ns_;
    int64_t index_ns_;
    uint64_t points_per_index_;

    bool open_ = false;
    ValidDataArea area_{};
    uint64_t run_samples_ = 0;
    uint64_t wave_pos_;   // next position in "Wave"
    uint64_t index_pos_;  // next position in "Index"
    MinMaxData<T> column_{};
    uint64_t column_fill_ = 0;
    uint64_t column_capacity_ = 0;
    std::vector<MinMaxData<T>> finished_;
};

extern template class WaveProducer<int8_t>;
extern template class WaveProducer<uint8_t>;
extern template class WaveProducer<int16_t>;
extern template class WaveProducer<uint16_t>;
extern template class WaveProducer<int32_t>;
extern template class WaveProducer<uint32_t>;
extern template class WaveProducer<int64_t>;
extern template class WaveProducer<uint64_t>;
extern template class WaveProducer<float>;
extern template class WaveProducer<double>;
extern template class WaveProducer<LongDouble>;
