// Seeks to random global positions in the merge of 8 record sources of 1e6 records each
// (16-byte records, irregular times 1 to 2000 ns apart, so about 10 records per source in
// each 10 us step of the time indexes). Our side: CMultiSourceReader over SingleDataReader
// items on SimpleReaders of block storages (on memory channels over the records), each
// with its time index built by a producer's pushes. Baseline, measured
// in the same run on the same records: a k-way merge of the same records kept as plain
// arrays in memory, seeking the same way (bisection on time, counting with binary searches
// over the arrays, then stepping with a linear minimum over the 8 heads).
//   ratio_vs_arrays  = our time per seek / the arrays' time per seek
// The benchmark fails if the two disagree on any (source, position).
//
// Run: build/release/bench/multisource_bench

#include <wavestore/wavestore.h>

#include "bench_setup.h"

#include "host/item_binding.h"
#include "host/struct_type.h"
#include "reader/multi_source_reader.h"
#include "reader/simple_reader.h"
#include "reader/single_data_reader.h"
#include "storage/block_storage.h"
#include "storage/time_index.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr unsigned kSources = 8;
constexpr uint64_t kRecordsPerSource = 1000000;
constexpr uint64_t kPeriod = 10000;  // ns per time index step
constexpr int kSeeksPerRound = 2000;

struct Record {
    uint64_t nano_time;
    uint32_t source_id;
    uint32_t value;
};

// The item of one source: its records through a SimpleReader and its time index. Both
// storages lie on memory channels over arrays of the fixture, as a loaded capture's do:
// blocks are read from the arrays, and nothing depends on the pool keeping them.
class SourceItem final : public CBaseItem {
public:
    SourceItem(const std::vector<Record>& records, const std::vector<uint32_t>& index)
        : CBaseItem("records"),
          reader_(std::make_shared<CStorage>(CreateMemCache(records.data(), records.size() * sizeof(Record)),
                                             sizeof(Record)),
                  sizeof(Record)),
          index_(CreateTimeIndexOperatorUnique(
              kPeriod, std::make_shared<CStorage>(CreateMemCache(index.data(), index.size() * 4), 4))) {}
    std::shared_ptr<CtrVar> GetExtendCtr(const VellumTypeID& type, bool flag, const std::string& name) override {
        if (type == VellumTypeOf<IReader>()) return MakeCtrVar<IReader>(&reader_);
        if (type == VellumTypeOf<ITimeIndexOperator>()) return MakeCtrVar<ITimeIndexOperator>(index_.get());
        return CBaseItem::GetExtendCtr(type, flag, name);
    }

private:
    SimpleReader reader_;
    std::unique_ptr<ITimeIndexOperator> index_;
};

// The elements of a time index over times: the producer's pushes (each time with the
// count of records so far) into a storage of its own, read back.
std::vector<uint32_t> IndexElements(const std::vector<uint64_t>& times) {
    auto storage = std::make_shared<CStorage>(nullptr, 4);
    std::unique_ptr<ITimeIndexOperator> index = CreateTimeIndexOperatorUnique(kPeriod, storage);
    for (uint64_t i = 0; i < times.size(); ++i) index->Push(times[i], static_cast<uint32_t>(i + 1));
    std::vector<uint32_t> elements(storage->Count());
    if (storage->Read(0, elements.data(), elements.size()) != elements.size()) elements.clear();
    return elements;
}

struct Fixture {
    std::vector<std::vector<uint64_t>> times;  // the baseline's arrays
    std::vector<std::vector<Record>> records;  // behind the sources' storages
    std::vector<std::vector<uint32_t>> indexes;
    std::vector<std::unique_ptr<SourceItem>> items;
    std::vector<std::unique_ptr<IBaseCtr>> readers;
    std::unique_ptr<IMultiSourceReader> merge{CreateMultiSourceReader()};
    uint64_t total = 0;

    explicit Fixture(ILocalSource* scope) {
        IStructType* type = nullptr;
        StructBuilder(type, scope, "BenchMergeRecord")
            .AddVar("nano_time", "UINT64", {0, 8})
            .AddVar("source_id", "UINT32", {8, 4})
            .AddVar("value", "UINT32", {12, 4});
        std::unique_ptr<IBaseCtr> record(type->CreateItem("record"));
        IItemType* reader_type = RegisterClassType<SingleDataReader>("SingleDataReader", scope);
        std::mt19937_64 random(2024);
        for (unsigned s = 0; s < kSources; ++s) {
            std::vector<uint64_t> t(kRecordsPerSource);
            std::vector<Record> r(kRecordsPerSource);
            uint64_t now = 1000 + random() % 1000;
            for (uint64_t i = 0; i < kRecordsPerSource; ++i) {
                now += 1 + random() % 2000;
                t[i] = now;
                r[i] = {now, s + 1, static_cast<uint32_t>(i)};
            }
            indexes.push_back(IndexElements(t));
            times.push_back(std::move(t));
            records.push_back(std::move(r));
            auto item = std::make_unique<SourceItem>(records.back(), indexes.back());
            std::unique_ptr<IBaseCtr> reader(reader_type->CreateItem("single"));
            reader->SetLinkItem(record.get(), "TYPE");
            reader->SetLinkItem(record.get(), "SORT");
            reader->SetLinkItem(record.get(), "SourceId");
            reader->SetLinkItem(item.get(), "DATASOURCE");
            merge->AddSource(reader.get());
            items.push_back(std::move(item));
            readers.push_back(std::move(reader));
            total += kRecordsPerSource;
        }
        merge->ResetPositions();
    }

    // The baseline: (source, position) of global position index in the arrays' merge.
    std::pair<unsigned, uint64_t> ArraySeek(uint64_t index) const {
        auto count_before = [&](uint64_t t, std::vector<uint64_t>* at) {
            uint64_t sum = 0;
            for (unsigned s = 0; s < kSources; ++s) {
                const uint64_t n = std::lower_bound(times[s].begin(), times[s].end(), t) - times[s].begin();
                if (at) (*at)[s] = n;
                sum += n;
            }
            return sum;
        };
        uint64_t lo = ~uint64_t{0}, hi = 0;
        for (const auto& t : times) {
            lo = std::min(lo, t.front());
            hi = std::max(hi, t.back() + 1);
        }
        // The largest time with at most index records before it.
        while (hi - lo > 1) {
            const uint64_t mid = lo + (hi - lo) / 2;
            if (count_before(mid, nullptr) <= index)
                lo = mid;
            else
                hi = mid;
        }
        std::vector<uint64_t> heads(kSources);
        uint64_t consumed = count_before(lo, &heads);
        for (;;) {
            int best = -1;
            std::tuple<uint64_t, uint64_t, unsigned> best_key{};
            for (unsigned s = 0; s < kSources; ++s) {
                if (heads[s] >= times[s].size()) continue;
                const auto key = std::make_tuple(times[s][heads[s]], heads[s], s);
                if (best < 0 || key < best_key) {
                    best = static_cast<int>(s);
                    best_key = key;
                }
            }
            if (consumed == index) return {static_cast<unsigned>(best), heads[best]};
            ++heads[best];
            ++consumed;
        }
    }
};

Fixture* TheFixture = nullptr;

void BM_SeekVsArrayMerge(benchmark::State& state) {
    Fixture& f = *TheFixture;
    std::mt19937_64 random(99);
    double ours = 0, arrays = 0;
    int64_t seeks = 0;
    std::vector<uint64_t> targets(kSeeksPerRound);
    std::vector<std::pair<unsigned, uint64_t>> got(kSeeksPerRound), expected(kSeeksPerRound);
    for (auto _ : state) {
        for (auto& target : targets) target = random() % f.total;
        auto start = Clock::now();
        for (int i = 0; i < kSeeksPerRound; ++i) {
            unsigned source = 0;
            uint64_t position = 0;
            if (!f.merge->Seek(targets[i], &source, &position)) {
                state.SkipWithError("a seek failed");
                return;
            }
            got[i] = {source, position};
        }
        const double our_time = std::chrono::duration<double>(Clock::now() - start).count();
        start = Clock::now();
        for (int i = 0; i < kSeeksPerRound; ++i) expected[i] = f.ArraySeek(targets[i]);
        arrays += std::chrono::duration<double>(Clock::now() - start).count();
        ours += our_time;
        seeks += kSeeksPerRound;
        state.SetIterationTime(our_time);
        if (got != expected) {
            state.SkipWithError("the merge and the arrays disagree");
            return;
        }
    }
    state.counters["us_per_seek"] = 1e6 * ours / static_cast<double>(seeks);
    state.counters["arrays_us_per_seek"] = 1e6 * arrays / static_cast<double>(seeks);
    state.counters["ratio_vs_arrays"] = ours / arrays;
}
BENCHMARK(BM_SeekVsArrayMerge)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
    bench::Start();
    Fixture fixture(&bench::Scope());
    TheFixture = &fixture;
    return bench::RunAndCleanUp(argc, argv);
}
