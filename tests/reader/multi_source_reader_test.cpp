// The merge of several record sources: merge order, stepping against bisection, the
// one-source shortcut, look-ups by time and by record, and adding sources.

#include "host/item_binding.h"
#include "host/struct_type.h"
#include "reader/multi_source_reader.h"
#include "reader/single_data_reader.h"
#include "storage/block_storage.h"
#include "storage/time_index.h"
#include "support/log_capture.h"
#include "support/test_wave.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>

namespace {

struct Record {
    uint64_t nano_time;
    uint32_t source_id;
    uint32_t value;
};

IStructType* RecordType() {
    static IStructType* type = [] {
        IStructType* made = nullptr;
        StructBuilder(made, &testing_support::ModuleScope(), "MergeRecord")
            .AddVar("nano_time", "UINT64", {0, 8})
            .AddVar("source_id", "UINT32", {8, 4})
            .AddVar("value", "UINT32", {12, 4});
        return made;
    }();
    return type;
}

// Records in memory with a time index beside them; counts the reads and index look-ups.
class Records : public IReader, public ITimeIndexOperator {
public:
    static constexpr uint64_t kPeriod = 100;
    std::vector<Record> records;
    int reads = 0;
    int index_calls = 0;

    explicit Records(uint64_t period = kPeriod)
        : index_(CreateTimeIndexOperatorUnique(period, std::make_shared<CStorage>(nullptr, 4))) {}

    // A producer pushes each record's time with the count of records so far, so that
    // the index finds the records before a time step.
    void Add(uint64_t time, uint32_t id) {
        index_->Push(time, static_cast<uint32_t>(records.size() + 1));
        records.push_back({time, id, static_cast<uint32_t>(records.size())});
    }

    uint64_t Count() override { return records.size(); }
    uint64_t Read(uint64_t pos, void* out, uint64_t count) override {
        ++reads;
        if (pos >= records.size()) return 0;
        const uint64_t n = std::min<uint64_t>(count, records.size() - pos);
        std::memcpy(out, &records[pos], n * sizeof(Record));
        return n;
    }

    uint64_t Push(uint64_t time, uint32_t position) override { return index_->Push(time, position); }
    uint32_t Find(uint64_t time, bool* clamped) override {
        ++index_calls;
        return index_->Find(time, clamped);
    }
    void Range(uint64_t* begin, uint64_t* end) override {
        ++index_calls;
        index_->Range(begin, end);
    }
    uint32_t Last() override { return index_->Last(); }
    uint64_t Period() override { return index_->Period(); }
    void Clear() override { index_->Clear(); }
    void SetPeriod(uint64_t period) override { index_->SetPeriod(period); }

private:
    std::unique_ptr<ITimeIndexOperator> index_;
};

// The item of a record source: answers IReader and ITimeIndexOperator.
class SourceItem final : public CBaseItem {
public:
    explicit SourceItem(Records* records) : CBaseItem("records"), records_(records) {}
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<IReader>()) return MakeCtrVar<IReader>(records_);
        if (type == VellumTypeOf<ITimeIndexOperator>()) return MakeCtrVar<ITimeIndexOperator>(records_);
        return CBaseItem::GetExtendCtr(type, flag, name);
    }

private:
    Records* records_;
};

// A SingleDataReader item over records, sorted by "nano_time", identified by "source_id".
struct Source {
    Records records;
    std::unique_ptr<IBaseCtr> item = std::make_unique<SourceItem>(&records);
    std::unique_ptr<IBaseCtr> reader;

    explicit Source(uint64_t period = Records::kPeriod) : records(period) {
        IItemType* type = RegisterClassType<SingleDataReader>("SingleDataReader", &testing_support::ModuleScope());
        reader.reset(type->CreateItem("single"));
        std::unique_ptr<IBaseCtr> record(RecordType()->CreateItem("record"));
        reader->SetLinkItem(record.get(), "TYPE");
        reader->SetLinkItem(record.get(), "SORT");
        reader->SetLinkItem(record.get(), "SourceId");
        reader->SetLinkItem(item.get(), "DATASOURCE");
    }
    void ResetCounts() { records.reads = records.index_calls = 0; }
};

// (source, position) of every record in merge order, sorted independently of the reader.
std::vector<std::pair<unsigned, uint64_t>> ExpectedMerge(const std::vector<Source*>& sources) {
    std::vector<std::tuple<uint64_t, uint64_t, unsigned>> keys;
    for (unsigned s = 0; s < sources.size(); ++s)
        for (uint64_t p = 0; p < sources[s]->records.records.size(); ++p)
            keys.emplace_back(sources[s]->records.records[p].nano_time, p, s);
    std::sort(keys.begin(), keys.end());
    std::vector<std::pair<unsigned, uint64_t>> order;
    for (const auto& [time, position, source] : keys) order.emplace_back(source, position);
    return order;
}

std::pair<unsigned, uint64_t> SeekTo(IMultiSourceReader& merge, uint64_t index) {
    unsigned source = 99;
    uint64_t position = 99;
    EXPECT_TRUE(merge.Seek(index, &source, &position)) << "index " << index;
    return {source, position};
}

std::unique_ptr<IMultiSourceReader> Merge(std::initializer_list<Source*> sources) {
    std::unique_ptr<IMultiSourceReader> merge(CreateMultiSourceReader());
    for (Source* s : sources) EXPECT_TRUE(merge->AddSource(s->reader.get()));
    merge->ResetPositions();
    return merge;
}

TEST(MultiSourceReader, EqualKeysGoByPositionThenBySourceAndTheMergeIsNotRead) {
    Source a, b;
    for (uint64_t t : {1000, 1000, 2000}) a.records.Add(t, 1);
    for (uint64_t t : {1000, 2000, 2000}) b.records.Add(t, 2);
    EXPECT_EQ(std::unique_ptr<IMultiSourceReader>(CreateMultiSourceReader())->Count(), 0u);
    auto merge = Merge({&a, &b});
    EXPECT_EQ(merge->Count(), 6u);
    EXPECT_EQ(merge->SourceSize(1), 3u);
    EXPECT_EQ(merge->SourceSize(0), 0u);
    EXPECT_EQ(merge->SourceSize(3), 0u);
    char buffer[64];
    EXPECT_EQ(merge->Read(0, buffer, 1), 0u);
    const std::vector<std::pair<unsigned, uint64_t>> expected = {{0, 0}, {1, 0}, {0, 1}, {1, 1}, {0, 2}, {1, 2}};
    for (uint64_t i = 0; i < expected.size(); ++i) EXPECT_EQ(SeekTo(*merge, i), expected[i]) << i;
    for (uint64_t i = expected.size(); i-- > 0;) EXPECT_EQ(SeekTo(*merge, i), expected[i]) << i;
    EXPECT_FALSE(merge->Seek(6, nullptr, nullptr));
}

// Three sources of 700 records at random steps.
class LongMerge : public ::testing::Test {
protected:
    Source a, b, c;
    std::unique_ptr<IMultiSourceReader> merge;
    std::vector<std::pair<unsigned, uint64_t>> expected;

    void SetUp() override {
        std::mt19937_64 random(7);
        uint64_t ta = 5, tb = 5, tc = 400;
        for (int i = 0; i < 700; ++i) {
            a.records.Add(ta += random() % 60, 1);
            b.records.Add(tb += random() % 90, 2);
            c.records.Add(tc += random() % 40, 3);
        }
        merge = Merge({&a, &b, &c});
        expected = ExpectedMerge({&a, &b, &c});
    }
    // The index look-ups (or reads) that seeking from `from` to `to` takes.
    int Calls(uint64_t from, uint64_t to, bool reads = false) {
        EXPECT_EQ(SeekTo(*merge, from), expected[from]);
        for (Source* s : {&a, &b, &c}) s->ResetCounts();
        EXPECT_EQ(SeekTo(*merge, to), expected[to]);
        int calls = 0;
        for (Source* s : {&a, &b, &c}) calls += reads ? s->records.reads : s->records.index_calls;
        return calls;
    }
};

TEST_F(LongMerge, StepsBelow250AwayAndBisectsFrom250) {
    EXPECT_EQ(Calls(0, 249), 0);
    EXPECT_GT(Calls(0, 250), 0);
    EXPECT_EQ(Calls(250, 1), 0);  // 249 back: steps
    EXPECT_LT(Calls(0, expected.size() - 1, true), 3 * 2 * 260);  // one far jump and a few steps
    EXPECT_FALSE(merge->Seek(expected.size(), nullptr, nullptr));
}

TEST_F(LongMerge, LookUpsByTimeAndByRecord) {
    testing_support::LogCapture log;
    const uint64_t at_zero = merge->IndexAtTime(0.0);
    // No record consumed: the look-up for the last one logs the positions.
    EXPECT_TRUE(log.Contains(LogLevel::Info, "MaxIndexOf positions.size = 3"));
    EXPECT_TRUE(log.Contains(LogLevel::Info, "positions.value = 0"));
    EXPECT_EQ(at_zero, CMultiSourceReader::kNone);  // no record by time 0
    EXPECT_EQ(merge->IndexAtTime(-3.0), at_zero);   // negative acts as 0
    // The time indexes count by whole periods: the answer lies before the time, short of
    // it by at most the records of the last two periods.
    const uint64_t t = 20000;
    const uint64_t index = merge->IndexAtTime(t * 1e-9);
    uint64_t at_or_before = 0, near = 0;
    for (Source* s : {&a, &b, &c})
        for (const Record& r : s->records.records) {
            at_or_before += r.nano_time <= t;
            near += r.nano_time <= t && r.nano_time + 2 * Records::kPeriod > t;
        }
    ASSERT_GT(near, 0u);
    EXPECT_LT(index, at_or_before);
    EXPECT_LE(at_or_before - (index + 1), near + 3);

    for (auto [source, position] : {std::pair<unsigned, uint64_t>{1, 0}, {2, 350}, {0, 699}, {1, 420}}) {
        const uint64_t found = merge->IndexOfRecord(source + 1, position);
        ASSERT_LT(found, expected.size());
        EXPECT_EQ(expected[found], std::make_pair(source, position));
    }
    EXPECT_EQ(merge->IndexOfRecord(9, 3), CMultiSourceReader::kNone);    // no source has the id
    EXPECT_EQ(merge->IndexOfRecord(1, 700), CMultiSourceReader::kNone);  // past its end
}

TEST(MultiSourceReader, AnIndexThatCountsNothingRewindsAndStepsTheWholeWay) {
    // One time step holds everything: the indexes count 0 at any time, so a far seek
    // rewinds and steps, and a step count above 10000 is logged and carried out.
    Source a(1000000000), b(1000000000);
    for (uint64_t t = 1; t <= 6000; ++t) {
        a.records.Add(2 * t, 1);
        b.records.Add(2 * t + 1, 2);
    }
    auto merge = Merge({&a, &b});
    testing_support::LogCapture log;
    EXPECT_EQ(SeekTo(*merge, 11001), std::make_pair(1u, uint64_t{5500}));
    EXPECT_TRUE(log.Contains(LogLevel::Info, "Next count = 11001"));
    EXPECT_EQ(SeekTo(*merge, 11999), std::make_pair(1u, uint64_t{5999}));
    EXPECT_FALSE(merge->Seek(12000, nullptr, nullptr));
}

TEST(MultiSourceReader, OneSourceIsSeekedWithoutReadingARecord) {
    Source a;
    for (uint64_t t = 1; t <= 20; ++t) a.records.Add(t * 150, 1);
    auto merge = Merge({&a});
    a.ResetCounts();
    EXPECT_EQ(SeekTo(*merge, 17), std::make_pair(0u, uint64_t{17}));
    EXPECT_EQ(SeekTo(*merge, 3), std::make_pair(0u, uint64_t{3}));
    EXPECT_EQ(a.records.reads + a.records.index_calls, 0);
}

}  // namespace
