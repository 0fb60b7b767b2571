// The index summary of a wave dataset kept in step with "Index": live pushes, a clear, a
// rebuild in the background while columns keep coming, the switch, and columns written
// past the dataset.

#include "reader/index_summary.h"
#include "storage/storage_base.h"
#include "support/test_wave.h"
#include "wave/basic_wave_dataset.h"
#include "wave/wave_producer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace {

std::vector<MinMaxData<double>> Columns(uint64_t from, uint64_t count) {
    std::vector<MinMaxData<double>> columns(count);
    for (uint64_t i = 0; i < count; ++i) {
        const double x = static_cast<double>((from + i) * 7919 % 1000);
        columns[i] = {x, x + static_cast<double>((from + i) % 13)};
    }
    return columns;
}

// Every record of every level against the fold of the entries it covers.
void ExpectRecordsMatchIndex(BasicWaveDataSet<double>& dataset) {
    auto index = dataset.GetStorage("Index");
    const uint64_t count = index->Count();
    std::vector<MinMaxData<double>> entries(count);
    ASSERT_EQ(index->Read(0, entries.data(), count), count);
    std::shared_ptr<const IndexSummary<double>> summary = dataset.Summary();
    ASSERT_EQ(summary->Entries(), count);
    IndexSummary<double>::Snapshot snapshot;
    ASSERT_TRUE(summary->TakeSnapshot(snapshot));
    uint64_t span = 1;
    for (std::size_t level = 0; level < snapshot.levels.size(); ++level) {
        span *= IndexSummary<double>::kFanout;
        ASSERT_EQ(snapshot.records[level], count / span) << "level " << level + 1;
        std::vector<SummaryRecord<double>> records(snapshot.records[level]);
        snapshot.levels[level]->Read(0, records.data(), records.size());
        for (uint64_t g = 0; g < records.size(); ++g) {
            SummaryRecord<double> expected = IndexSummary<double>::EmptyRecord();
            for (uint64_t i = g * span; i < (g + 1) * span; ++i) IndexSummary<double>::FoldEntry(expected, entries[i]);
            ASSERT_TRUE(records[g].min == expected.min && records[g].max == expected.max &&
                        records[g].lo == expected.lo && records[g].hi == expected.hi)
                << "level " << level + 1 << " record " << g;
        }
    }
}

void Push(BasicWaveDataSet<double>& dataset, uint64_t from, uint64_t count) {
    const auto columns = Columns(from, count);
    dataset.Push(columns.data(), columns.size());
}

// What a dataset goes through before its summary is checked against "Index".
struct Scenario {
    const char* name;
    void (*run)(BasicWaveDataSet<double>&);
};

const Scenario kScenarios[] = {
    {"PushesInBlocks",
     [](BasicWaveDataSet<double>& d) {
         for (uint64_t done = 0; done < 40000; done += 777) Push(d, done, 777);
     }},
    {"ClearThenPushes",
     [](BasicWaveDataSet<double>& d) {
         Push(d, 0, 30000);
         d.Clear();
         EXPECT_EQ(d.IndexSummaryBytes(), 0u);
         Push(d, 5, 20000);
     }},
    {"OffKeepsNothingAndOnRebuilds",
     [](BasicWaveDataSet<double>& d) {
         Push(d, 0, 30000);
         d.SetIndexSummary(false);
         Push(d, 30000, 10000);
         EXPECT_EQ(d.IndexSummaryBytes(), 0u);
         d.Clear();  // stays off
         EXPECT_FALSE(d.Summary()->Ready());
         Push(d, 30000, 10000);
         d.SetIndexSummary(true);
     }},
    {"ColumnsWrittenPastTheDatasetStartARebuild",
     [](BasicWaveDataSet<double>& d) {
         Push(d, 0, 20000);
         const auto columns = Columns(0, 5000);
         d.GetStorage("Index")->Write(columns.data(), columns.size());  // the next push finds the summary behind
         Push(d, 20000, 3000);
     }},
    {"RebuildsWhileColumnsKeepComing",
     [](BasicWaveDataSet<double>& d) {
         std::atomic<bool> done{false};
         std::thread producer([&] {
             for (uint64_t pushed = 0; pushed < 300000; pushed += 1000) Push(d, pushed, 1000);
             done = true;
         });
         while (!done) {  // rebuilds, as after loads or group switches
             d.OnDataChanged();
             std::this_thread::sleep_for(std::chrono::milliseconds(2));
         }
         producer.join();
     }},
};

class SummaryBuilder : public ::testing::TestWithParam<Scenario> {};

TEST_P(SummaryBuilder, RecordsMatchTheIndex) {
    testing_support::ModuleScope();
    BasicWaveDataSet<double> dataset;
    GetParam().run(dataset);
    EXPECT_TRUE(dataset.WaitIndexSummary());
    ExpectRecordsMatchIndex(dataset);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, SummaryBuilder, ::testing::ValuesIn(kScenarios),
                         [](const auto& test) { return std::string(test.param.name); });

// Readers use the summary while it grows (run under the thread sanitizer as well).
TEST(SummaryReaders, BesideAGrowingSummary) {
    testing_support::TestWave<double> wave("WAVEDATASET[DOUBLE]", 1e-3, 2);
    std::atomic<bool> done{false};
    std::thread producer([&] {
        WaveProducer<double> push(*wave.dataset, 1e-3, 2e-3);
        std::vector<double> block(5000);
        for (int round = 0; round < 60; ++round) {
            for (std::size_t i = 0; i < block.size(); ++i) block[i] = std::sin(0.001 * static_cast<double>(i + 5000 * round));
            push.Append(static_cast<double>(round) * 6.0, block.data(), block.size());  // a gap after each
        }
        done = true;
    });
    auto reader = std::unique_ptr<CBasicWaveReader<double>>(wave.dataset->CreateBasicWaveReader());
    std::vector<MinMaxData<double>> out;
    int views = 0;
    while (!done || views < 20) {
        double begin = 0, end = 400, found = 0;
        reader->GetMinMaxData(begin, end, out, 300, GetDataParam{}, 0);
        reader->Find(0.99, 0.0, found, true);
        ++views;
    }
    producer.join();
    EXPECT_TRUE(wave.dataset->WaitIndexSummary());
    EXPECT_EQ(wave.dataset->Summary()->Entries(), wave.dataset->GetStorage("Index")->Count());
}

}  // namespace
