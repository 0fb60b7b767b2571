// The producer helper: the stored columns and areas keep the layout that readers rely on.

#include "dataset/time_rules.h"
#include "storage/storage_base.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

template <class R>
std::vector<R> ReadAll(DataSetBase& dataset, const char* id) {
    auto storage = dataset.GetStorage(id);
    std::vector<R> records(storage->Count());
    EXPECT_EQ(storage->Read(0, records.data(), records.size()), records.size());
    return records;
}

// Every column equals the min/max of the samples that the contract assigns to it.
template <class T>
void ExpectContract(BasicWaveDataSet<T>& dataset, uint64_t points_per_index) {
    const auto samples = ReadAll<T>(dataset, "Wave");
    const auto columns = ReadAll<MinMaxData<T>>(dataset, "Index");
    const auto areas = ReadAll<ValidDataArea>(dataset, "Area");
    uint64_t next_column = 0, next_sample = 0;
    for (const ValidDataArea& area : areas) {
        EXPECT_EQ(area.index_id, next_column);
        EXPECT_EQ(area.wave_beg_pos, next_sample);
        EXPECT_GE(area.wave_end_pos, area.wave_beg_pos);
        uint64_t pos = area.wave_beg_pos;
        uint64_t width = area.first_count;
        while (pos <= area.wave_end_pos) {
            const uint64_t end = std::min(pos + width, area.wave_end_pos + 1);
            ASSERT_LT(next_column, columns.size());
            const auto [lo, hi] = std::minmax_element(samples.begin() + pos, samples.begin() + end);
            EXPECT_EQ(columns[next_column].min, *lo) << "column " << next_column;
            EXPECT_EQ(columns[next_column].max, *hi) << "column " << next_column;
            ++next_column;
            pos = end;
            width = points_per_index;
        }
        next_sample = area.wave_end_pos + 1;
    }
    EXPECT_EQ(next_column, columns.size());
    EXPECT_EQ(next_sample, samples.size());
}

std::vector<float> Noise(std::size_t count, float phase) {
    std::vector<float> values(count);
    for (std::size_t i = 0; i < count; ++i) values[i] = std::sin(phase + 0.37f * static_cast<float>(i)) * 100.0f;
    return values;
}

TEST(WaveProducer, ARunBetweenGridPointsGetsAShortFirstColumn) {
    BasicWaveDataSet<float> dataset;
    {
        WaveProducer<float> producer(dataset, 1e-3, 0.1);  // 100 samples per column
        EXPECT_EQ(producer.PointsPerIndex(), 100u);
        const auto first = Noise(120, 0.0f), rest = Noise(130, 1.0f);
        producer.Append(0.0125, first.data(), first.size());
        producer.Append(0.0125 + 0.120, rest.data(), rest.size());  // continues the run
        const auto later = Noise(150, 2.0f);
        producer.Append(1.0, later.data(), later.size());  // a gap: a new run on the grid
    }  // the producer closes its open run
    const auto areas = ReadAll<ValidDataArea>(dataset, "Area");
    ASSERT_EQ(areas.size(), 2u);
    EXPECT_EQ(areas[0].start_time, SecondsToNs(0.0125));
    EXPECT_EQ(areas[0].first_count, 88u);  // 87.5 ms to the grid point at 100 ms
    EXPECT_EQ(areas[0].end_time, SecondsToNs(0.0125) + 249 * 1'000'000);
    EXPECT_EQ(areas[0].wave_end_pos, 249u);
    EXPECT_EQ(areas[1].start_time, 1'000'000'000);
    EXPECT_EQ(areas[1].first_count, 100u);
    EXPECT_EQ(areas[1].index_id, 3u);  // 88 + 100 + 62 samples before
    EXPECT_EQ(dataset.GetStorage("Index")->Count(), 5u);
    ExpectContract(dataset, 100);
}

TEST(WaveProducer, IntegerSamplesManySmallBlocksAndAContinuedDataset) {
    BasicWaveDataSet<int16_t> dataset;
    std::vector<int16_t> all;
    {
        WaveProducer<int16_t> producer(dataset, 1e-6, 1e-4);
        for (int block = 0; block < 40; ++block) {
            std::vector<int16_t> values(37);
            for (std::size_t i = 0; i < values.size(); ++i)
                values[i] = static_cast<int16_t>((block * 131 + static_cast<int>(i) * 17) % 2000 - 1000);
            producer.Append(values.data(), values.size());  // one run from time 0
        }
        producer.CloseRun();
        EXPECT_FALSE(producer.HasOpenRun());
        producer.CloseRun();  // nothing more
    }
    EXPECT_EQ(dataset.GetStorage("Area")->Count(), 1u);
    {
        WaveProducer<int16_t> more(dataset, 1e-6, 1e-4);  // continues after what is stored
        const int16_t tail[5] = {5, -5, 7, 0, 1};
        more.Append(0.5, tail, 5);
    }
    EXPECT_EQ(dataset.GetStorage("Area")->Count(), 2u);
    ExpectContract(dataset, 100);
}

TEST(WaveProducer, RefusesPeriodsBelowOneNanosecond) {
    BasicWaveDataSet<double> dataset;
    WaveProducer<double> producer(dataset, 1e-12, 1e-6);
    const double value = 1;
    EXPECT_FALSE(producer.Append(0.0, &value, 1));
    EXPECT_EQ(dataset.GetStorage("Wave")->Count(), 0u);
}

}  // namespace
