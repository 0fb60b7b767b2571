// The summary cursor's fold against the fold entry by entry, bit for bit, where only the
// order of the fold decides: signed zeros, NaN fields and infinities; and what it reads.

#include "dataset/extremes.h"
#include "reader/index_summary.h"
#include "reader/summary_cursor.h"
#include "storage/storage_base.h"
#include "support/test_wave.h"
#include "wave/basic_wave_dataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <tuple>

namespace {

// Counts the entries read through it.
class CountingReader : public IReader {
public:
    explicit CountingReader(std::shared_ptr<StorageBase> storage) : storage_(std::move(storage)) {}
    uint64_t Count() override { return storage_->Count(); }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override {
        const uint64_t got = storage_->Read(pos, out, count);
        read += got;
        return got;
    }
    uint64_t read = 0;

private:
    std::shared_ptr<StorageBase> storage_;
};

bool SameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

TEST(SummaryCursor, FoldsLikeTheEntriesBitForBit) {
    testing_support::ModuleScope();
    BasicWaveDataSet<float> dataset;
    // Signed zeros, NaN in one or both fields, and infinities, in runs so that whole
    // groups hold nothing but zeros of both signs.
    std::mt19937 rng(11);
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    const float pool[] = {0.0f, -0.0f, 0.0f, -0.0f, 1.0f, -1.0f, nan, inf, -inf};
    std::vector<MinMaxData<float>> entries(300000);
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const bool zeros_only = (i / 20000) % 2 == 0;
        const auto pick = [&] { return zeros_only ? pool[rng() % 4] : pool[rng() % 9]; };
        entries[i] = {pick(), pick()};
    }
    dataset.Push(entries.data(), entries.size());
    IndexSummary<float>::Snapshot snapshot;
    ASSERT_TRUE(dataset.Summary()->TakeSnapshot(snapshot));
    ASSERT_GE(snapshot.levels.size(), 2u);  // two levels to fold through

    CountingReader index(dataset.GetStorage("Index"));
    SummaryCursor<float> cursor;
    for (int round = 0; round < 3000; ++round) {
        uint64_t first = rng() % (entries.size() + 10), last = rng() % (entries.size() + 10);
        if (first > last) std::swap(first, last);
        cursor.Reset(&index, snapshot, entries.size());
        MinMaxData<float> folded{inf, -inf}, expected{inf, -inf};
        const bool seen = cursor.Fold(first, last, folded);
        if (first < entries.size())
            FoldColumns(entries.data() + first, std::min<uint64_t>(last, entries.size() - 1) - first + 1, expected.min,
                        expected.max);
        ASSERT_EQ(seen, first < entries.size() && first <= last);
        ASSERT_TRUE(SameBits(folded.min, expected.min) && SameBits(folded.max, expected.max))
            << first << ".." << last << ": " << folded.min << " " << folded.max;
    }
    // A fold over everything reads the ends of the range, not the entries between.
    index.read = 0;
    cursor.Reset(&index, snapshot, entries.size());
    MinMaxData<float> all{inf, -inf};
    ASSERT_TRUE(cursor.Fold(5, entries.size() - 5, all));
    EXPECT_LT(index.read, 2 * 128u);
}

TEST(SummaryCursor, SkipsGroupsOnOneSideOfTheValue) {
    testing_support::ModuleScope();
    BasicWaveDataSet<int16_t> dataset;
    // All entries below 100 but one pair that meets it near the end.
    std::vector<MinMaxData<int16_t>> entries(200000, MinMaxData<int16_t>{0, 50});
    entries[190000] = {0, 99};
    entries[190001] = {101, 150};
    dataset.Push(entries.data(), entries.size());
    IndexSummary<int16_t>::Snapshot snapshot;
    ASSERT_TRUE(dataset.Summary()->TakeSnapshot(snapshot));
    CountingReader index(dataset.GetStorage("Index"));
    SummaryCursor<int16_t> cursor;
    using Hit = std::pair<unsigned long long, unsigned long long>;
    // Upward the pair meets 100; downward the pair above comes first, its entries lying apart
    // around the value; a value no entry reaches: nothing. Each after reading little.
    for (auto [up, value, found, expected] : {std::tuple{true, 100.0, true, Hit{190000, 190001}},
                                              {false, 100.0, true, Hit{190001, 190002}}, {true, 1000.0, false, Hit{}}}) {
        index.read = 0;
        cursor.Reset(&index, snapshot, entries.size());
        Hit hit{};
        EXPECT_EQ(up ? cursor.FindUp(value, 0, entries.size() - 1, hit) : cursor.FindDown(value, 0, entries.size() - 1, hit),
                  found);
        EXPECT_EQ(hit, expected);
        EXPECT_LT(index.read, 4000u);
    }
}

}  // namespace
