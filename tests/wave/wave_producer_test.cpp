// The producer helper: the stored columns and areas keep the layout that readers rely on.

#include "wave_record_support.h"

#include <tuple>

namespace {

using namespace wave_record_test;

template <class T>
void ExpectContract(BasicWaveDataSet<T>& dataset, uint64_t points_per_index) {
    ExpectLayout(ReadAll<T>(*dataset.GetStorage("Wave")), ReadAll<MinMaxData<T>>(*dataset.GetStorage("Index")),
                 ReadAll<ValidDataArea>(*dataset.GetStorage("Area")), points_per_index);
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
    const auto areas = ReadAll<ValidDataArea>(*dataset.GetStorage("Area"));
    ASSERT_EQ(areas.size(), 2u);
    // 87.5 ms to the grid point at 100 ms: a first column of 88 samples.
    EXPECT_EQ(std::make_tuple(areas[0].start_time, areas[0].end_time, areas[0].first_count, areas[0].wave_end_pos),
              std::make_tuple(SecondsToNs(0.0125), SecondsToNs(0.0125) + 249 * 1'000'000, uint64_t{88}, uint64_t{249}));
    EXPECT_EQ(std::make_tuple(areas[1].start_time, areas[1].first_count, areas[1].index_id),
              std::make_tuple(int64_t{1'000'000'000}, uint64_t{100}, uint64_t{3}));  // 88 + 100 + 62 samples before
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
