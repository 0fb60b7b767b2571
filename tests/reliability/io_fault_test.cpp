// I/O errors at every call: three storages on channels of which the N-th write (or read)
// fails, once or from then on, by an error result or by an exception, for every N that
// a clean run of the scenario makes, through a pool smaller than the data. Whatever
// fails: no crash, no hang, no wrong sample (a read may come back short where a block
// was never written), and after the faults end the storages keep working. The same on
// real version-1 cache files whose file layer fails with EIO.

#include "host/file_faults.h"
#include "reliability/fault_channel.h"
#include "reliability/watchdog.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace {

using reliability::FailureKind;
using reliability::FaultChannel;
using reliability::FaultPlan;

constexpr uint64_t kUnitsPerStorage = 384 * 1024;  // 1.5 MiB of 4-byte units each, 4.5 MiB in all
constexpr uint64_t kBatch = 16 * 1024;

uint32_t Value(int storage, uint64_t position) { return static_cast<uint32_t>(position * 3 + storage); }

// Appends to the three storages in turn, syncing now and then as the periodic timer
// would, then reads everything back. Every unit read must be right; a read may end
// short. Gives the units that could not be read.
uint64_t RunScenario(std::vector<std::unique_ptr<CStorage>>& storages) {
    std::vector<uint32_t> batch(kBatch);
    for (uint64_t done = 0; done < kUnitsPerStorage; done += kBatch) {
        for (int s = 0; s < 3; ++s) {
            for (uint64_t i = 0; i < kBatch; ++i) batch[i] = Value(s, done + i);
            EXPECT_EQ(storages[s]->Write(batch.data(), kBatch), kBatch);
        }
        if (done % (128 * 1024) == 0) storages[done / kBatch % 3]->Sync();
    }
    for (auto& storage : storages) storage->Sync();
    uint64_t missing = 0;
    for (int s = 0; s < 3; ++s) {
        CStorage& storage = *storages[s];
        const uint64_t count = storage.Count();
        EXPECT_LE(count, kUnitsPerStorage);
        missing += kUnitsPerStorage - count;
        for (uint64_t from = 0; from < count; from += kBatch) {
            const uint64_t want = std::min(kBatch, count - from);
            const uint64_t got = storage.Read(from, batch.data(), want);
            missing += want - got;
            for (uint64_t i = 0; i < got; ++i) {
                if (batch[i] != Value(s, from + i)) {
                    ADD_FAILURE() << "storage " << s << " unit " << from + i << " reads " << batch[i];
                    return missing;
                }
            }
        }
    }
    return missing;
}

std::vector<std::unique_ptr<CStorage>> MakeStorages(FaultPlan& writes, FaultPlan& reads) {
    std::vector<std::unique_ptr<CStorage>> storages;
    for (int s = 0; s < 3; ++s)
        storages.push_back(std::make_unique<CStorage>(std::make_shared<FaultChannel>(&writes, &reads), 4));
    return storages;
}

struct Variant {
    bool writes;  // the fault hits writes, else reads
    FailureKind kind;
    bool persistent;
    // Reads of recycled ranges load blocks, or copy straight from the channel.
    CStorage::UncachedReads reads = CStorage::UncachedReads::kNever;
};

// Sets the storage's read path for one test and puts the default back.
struct ReadPath {
    explicit ReadPath(CStorage::UncachedReads mode) { CStorage::SetUncachedReads(mode); }
    ~ReadPath() { CStorage::SetUncachedReads(CStorage::UncachedReads::kNever); }
};

class EveryCall : public ::testing::TestWithParam<Variant> {};

TEST_P(EveryCall, FailsWithoutCrashHangOrWrongSample) {
    const Variant variant = GetParam();
    ReadPath path(variant.reads);
    // The calls a clean run makes: the range of N to try.
    FaultPlan count_writes, count_reads;
    count_writes.at = count_reads.at = ~uint64_t{0};  // counts calls, fails none in practice
    auto clean = MakeStorages(count_writes, count_reads);
    ASSERT_EQ(RunScenario(clean), 0u);
    clean.clear();
    const uint64_t calls = (variant.writes ? count_writes : count_reads).calls.load();
    ASSERT_GT(calls, 20u);
    testing_support::LogCapture log;
    uint64_t short_runs = 0, failures = 0;
    // Every N of the first 12 calls, then every 37th: the boundaries of the scenario's
    // phases (first blocks, recycling, syncs, reads) all lie in reach, and the suite
    // stays within a minute under the sanitizers.
    for (uint64_t n = 1; n <= calls && !HasFailure(); n += n < 12 ? 1 : 37) {
        FaultPlan writes, reads;
        FaultPlan& plan = variant.writes ? writes : reads;
        plan.at = n;
        plan.persistent = variant.persistent;
        plan.kind = variant.kind;
        auto storages = MakeStorages(writes, reads);
        reliability::RunWithin(std::chrono::seconds(60), "fault at call " + std::to_string(n), [&] {
            if (RunScenario(storages) != 0) ++short_runs;
            failures += plan.failed;
            // The storages start over once the faults end: everything reads back.
            writes.enabled = reads.enabled = false;
            for (auto& storage : storages) storage->Clear();
            EXPECT_EQ(RunScenario(storages), 0u) << "after the faults ended";
        });
    }
    EXPECT_GT(failures, 0u);
    RecordProperty("short_runs", static_cast<int>(short_runs));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, EveryCall,
    ::testing::Values(Variant{true, FailureKind::ErrorResult, false}, Variant{true, FailureKind::ErrorResult, true},
                      Variant{true, FailureKind::Exception, false}, Variant{true, FailureKind::Exception, true},
                      Variant{false, FailureKind::ErrorResult, false, CStorage::UncachedReads::kNever},
                      Variant{false, FailureKind::Exception, true, CStorage::UncachedReads::kNever},
                      Variant{false, FailureKind::ErrorResult, false, CStorage::UncachedReads::kAlways},
                      Variant{false, FailureKind::Exception, true, CStorage::UncachedReads::kAlways}),
    [](const auto& test) {
        return std::string(test.param.writes ? "Write" : "Read") +
               (test.param.kind == FailureKind::Exception ? "Throws" : "Errs") +
               (test.param.persistent ? "FromThenOn" : "Once") +
               (test.param.writes ? "" : test.param.reads == CStorage::UncachedReads::kNever ? "Loading" : "Uncached");
    });

// Version-1 cache files whose file layer fails with EIO from the N-th write on: the
// storages on them neither crash nor hang, not even in the Clear that follows.
TEST(ManagedFiles, EioFromTheNthWriteOnNeitherCrashesNorHangs) {
    for (uint64_t n : {1u, 2u, 5u, 17u, 60u, 150u}) {
        if (HasFailure()) break;
        std::atomic<uint64_t> writes{0};
        Tessel::SetFileFaultHook([&](Tessel::FileOperation op, const std::string& path) {
            return op == Tessel::FileOperation::Write && path.find(".wsc") != std::string::npos && ++writes >= n;
        });
        std::vector<std::unique_ptr<CStorage>> storages;
        for (int s = 0; s < 3; ++s) storages.push_back(std::make_unique<CStorage>(CreateLocalFileCache(1), 4));
        reliability::RunWithin(std::chrono::seconds(60), "EIO from write " + std::to_string(n), [&] {
            RunScenario(storages);
            for (auto& storage : storages) storage->Clear();
        });
        Tessel::SetFileFaultHook({});
        reliability::RunWithin(std::chrono::seconds(60), "recovery after EIO from write " + std::to_string(n), [&] {
            for (auto& storage : storages) storage->Clear();
            EXPECT_EQ(RunScenario(storages), 0u) << "after EIO from write " << n;
        });
    }
}

}  // namespace
