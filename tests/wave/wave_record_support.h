#pragma once
// What the wave record and export tests share: a wave with three runs, the raw content
// of a storage, and a check of the column layout.

#include "dataset/records.h"
#include "dataset/time_rules.h"
#include "storage/storage_base.h"
#include "support/test_wave.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace wave_record_test {

// A wave dataset item of doubles with a size axis.
struct RecordWave : testing_support::TestWave<double> {
    RecordWave(double period, uint64_t index_step) : TestWave<double>("WAVEDATASET[DOUBLE]", period, index_step) {}
};

inline constexpr double kPeriod = 1e-3;
inline constexpr uint64_t kIndexStep = 100;  // samples per column

// Sample i of a run starting at `start` seconds.
inline double Value(double start, uint64_t i) { return std::sin(start * 7.0 + 0.01 * static_cast<double>(i)) * 50.0; }

// Runs: 0.0125 s with 70000 samples, 80 s with 1000 samples, 90 s with 500 samples.
inline void Produce(BasicWaveDataSet<double>& dataset) {
    WaveProducer<double> producer(dataset, kPeriod, kPeriod * kIndexStep);
    for (auto [start, count] : {std::pair{0.0125, 70000u}, std::pair{80.0, 1000u}, std::pair{90.0, 500u}}) {
        std::vector<double> samples(count);
        for (uint64_t i = 0; i < count; ++i) samples[i] = Value(start, i);
        producer.Append(start, samples.data(), samples.size());
        producer.CloseRun();
    }
}

template <class R>
std::vector<R> ReadAll(StorageBase& storage) {
    std::vector<R> records(storage.Count());
    records.resize(storage.Read(0, records.data(), records.size()));
    return records;
}

// Every area starts where the one before ended, and every column holds the min/max of
// the samples that the layout assigns to it.
template <class T>
void ExpectLayout(const std::vector<T>& samples, const std::vector<MinMaxData<T>>& columns,
                  const std::vector<ValidDataArea>& areas, uint64_t points_per_index = kIndexStep) {
    uint64_t next_column = 0, next_sample = 0;
    for (const ValidDataArea& area : areas) {
        EXPECT_EQ(area.index_id, next_column);
        EXPECT_EQ(area.wave_beg_pos, next_sample);
        uint64_t width = area.first_count;
        for (uint64_t pos = area.wave_beg_pos; pos <= area.wave_end_pos; width = points_per_index) {
            const uint64_t end = std::min(pos + width, area.wave_end_pos + 1);
            ASSERT_LT(next_column, columns.size());
            ASSERT_LE(end, samples.size());
            const auto [lo, hi] = std::minmax_element(samples.begin() + static_cast<std::ptrdiff_t>(pos),
                                                      samples.begin() + static_cast<std::ptrdiff_t>(end));
            EXPECT_TRUE(columns[next_column].min == *lo && columns[next_column].max == *hi) << "column " << next_column;
            ++next_column;
            pos = end;
        }
        next_sample = area.wave_end_pos + 1;
    }
    EXPECT_EQ(next_column, columns.size());
    EXPECT_EQ(next_sample, samples.size());
}

}  // namespace wave_record_test
