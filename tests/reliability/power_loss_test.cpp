// Power loss on version-1 cache files. A storage writes through the small pool to a new
// version-1 file, with flushes (and, in one case, a Clear between two generations of
// data), while every change of the file is logged. For every cut point of the log the
// file as a power loss could leave it is rebuilt and opened as after a restart:
// - everything up to the cut (the disk kept every write, in order);
// - only what the last completed flush made durable, alone and with any one later write;
// - each prefix of a header write, and the first half of any other write, on top of all
//   that came before (a torn write).
// Every reopen must succeed. A file whose header reached the disk whole opens as version
// 1 and holds a prefix of the units of one generation; only a torn header, or a file
// whose first header never reached the disk, gives raw data: the file as it is.
// The tests after it cut single flushes short.

#include "host/file_faults.h"
#include "host/project_file_manager.h"
#include "reliability/loaded_file.h"
#include "reliability/recording_file.h"
#include "reliability/watchdog.h"
#include "storage/device_channels.h"
#include "storage/file_proxy.h"
#include "storage/memory_pool.h"
#include "storage/storage_sync_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using reliability::Bytes;
using reliability::DiskImage;
using reliability::FileChangeRecord;
using reliability::LoadedFile;
using Tessel::FileChange;

constexpr uint64_t kMiB = 1024 * 1024;
constexpr uint64_t kUnit = 4;

uint32_t Value(unsigned generation, uint64_t position) {
    return static_cast<uint32_t>(position * 2 + 1) ^ (generation << 28);
}
std::vector<uint32_t> Values(unsigned generation, uint64_t count) {
    std::vector<uint32_t> units(count);
    for (uint64_t i = 0; i < count; ++i) units[i] = Value(generation, i);
    return units;
}

bool IsHeaderWrite(const FileChangeRecord& record) {
    return record.change == FileChange::Write && record.offset == 0 && record.data.size() == FileHeader::kSize;
}
Bytes HeadOf(const Bytes& image) {
    return Bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(std::min(image.size(), FileHeader::kSize)));
}
Bytes DiskBytes(const std::string& id) {
    std::ifstream in(ProjectFileManager::instance().GetProjectFolder() + "/" + id, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The file as the store opens it after a restart: its format, its count, and its units
// from the first on (of raw data at most raw_limit).
struct Reopened {
    int version;
    uint64_t count;
    std::vector<uint32_t> units;
};
Reopened Reopen(LoadedFile& file, uint64_t raw_limit = ~uint64_t{0}) {
    LoadedFile::Opened opened = file.Open(kUnit);
    const uint64_t count = opened.storage->Count();
    Reopened got{opened.version, count,
                 reliability::ReadUnits(*opened.storage, opened.version == 1 ? count : std::min(count, raw_limit))};
    file.Close(opened);
    return got;
}

// The checks of every file rebuilt from the log of one scenario.
class PowerLossCheck {
public:
    // generations[g]: units written in generation g (a Clear starts the next one).
    PowerLossCheck(std::vector<FileChangeRecord> log, const std::vector<uint64_t>& generations)
        : log_(std::move(log)), file_("power_loss.wsc") {
        for (unsigned g = 0; g < generations.size(); ++g) written_.push_back(Values(g, generations[g]));
    }

    void RunAllCuts() {
        DiskImage all;      // every change up to the cut
        DiskImage durable;  // the changes up to the last completed flush
        Check(durable, "the last flush");
        for (std::size_t k = 0; k < log_.size() && !::testing::Test::HasFailure(); ++k) {
            const FileChangeRecord& record = log_[k];
            cut_ = k;
            if (IsHeaderWrite(record)) {
                for (std::size_t t = 1; t < FileHeader::kSize; ++t) {
                    if (all.Bytes().size() >= FileHeader::kSize) {
                        // Only the head differs: the file is patched, not copied.
                        Check(all, "a torn header", true, Bytes(record.data.begin(), record.data.begin() + t));
                    } else {
                        DiskImage torn = all;
                        torn.Apply(record, t);
                        Check(torn, "a torn header", true);
                    }
                }
                headers_.insert(HeadOf(Bytes(record.data)));
            } else if (record.change == FileChange::Write && record.data.size() > 1) {
                DiskImage torn = all;
                torn.Apply(record, record.data.size() / 2);
                Check(torn, "half of the next write");
            }
            all.Apply(record);
            Check(all, "all changes up to the cut");
            if (record.change == FileChange::Sync) {
                durable = all;
                Check(durable, "the last flush");
            } else {
                DiskImage one = durable;
                one.Apply(record);
                Check(one, "the last flush and one later change");
            }
        }
    }

    // The units of the file that the last completed flush left.
    uint64_t DurableUnitsAtEnd() {
        DiskImage durable, all;
        for (const FileChangeRecord& record : log_) {
            all.Apply(record);
            if (record.change == FileChange::Sync) durable = all;
        }
        file_.Set(durable.Bytes());
        const Reopened got = Reopen(file_, 0);
        return got.version == 1 ? got.count : 0;
    }

    std::size_t states = 0, version1 = 0, raw = 0;

private:
    // The file holds the image, with its first head.size() bytes replaced by head.
    void Check(const DiskImage& disk, const char* kind, bool torn_header = false, const Bytes& head = {}) {
        const Bytes& image = disk.Bytes();
        ++states;
        Bytes first = HeadOf(image);
        std::copy(head.begin(), head.end(), first.begin());
        const bool whole_header = first.size() == FileHeader::kSize && headers_.count(first) != 0;
        file_.Set(image, head);
        const std::string what = (::testing::Message() << "cut after change " << cut_ << " of " << log_.size()
                                                       << ", " << kind << ", file of " << image.size() << " bytes")
                                     .GetString();
        reliability::RunWithin(std::chrono::seconds(60), what, [&] {
            const Reopened got = Reopen(file_, 32);
            if (got.version == 1) {
                ++version1;
                EXPECT_TRUE(whole_header) << "a version-1 open needs a header that was written whole";
                ASSERT_EQ(got.units.size(), got.count) << "the extent of the header is not readable";
                ExpectPrefixOfOneGeneration(got.units);
            } else {
                ++raw;
                EXPECT_FALSE(whole_header) << "raw data although the header on disk is whole";
                EXPECT_TRUE(torn_header || !disk.HeaderWritten()) << "raw data without a torn header";
                EXPECT_EQ(got.count, image.size() / kUnit);
                ASSERT_EQ(got.units.size(), std::min<uint64_t>(got.count, 32));
                Bytes expected(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(got.units.size() * kUnit));
                std::copy_n(first.begin(), std::min(first.size(), expected.size()), expected.begin());
                EXPECT_TRUE(expected.empty() || std::memcmp(expected.data(), got.units.data(), expected.size()) == 0);
            }
        });
    }

    void ExpectPrefixOfOneGeneration(const std::vector<uint32_t>& units) {
        if (units.empty()) return;
        std::size_t g = 0;
        while (g < written_.size() && (written_[g].empty() || units[0] != written_[g][0])) ++g;
        ASSERT_LT(g, written_.size()) << "unit 0 reads " << units[0];
        const std::vector<uint32_t>& written = written_[g];
        ASSERT_LE(units.size(), written.size());
        if (std::memcmp(units.data(), written.data(), units.size() * kUnit) == 0) return;
        const auto wrong = std::mismatch(units.begin(), units.end(), written.begin());
        ADD_FAILURE() << "unit " << wrong.first - units.begin() << " of " << units.size() << " reads " << *wrong.first
                      << ", written " << *wrong.second;
    }

    std::vector<FileChangeRecord> log_;
    std::vector<std::vector<uint32_t>> written_;
    LoadedFile file_;
    std::set<Bytes> headers_;  // every header written whole so far
    std::size_t cut_ = 0;
};

// A storage on a new version-1 file, recorded from its creation on.
struct Scenario {
    std::unique_ptr<reliability::FileRecorder> recorder = std::make_unique<reliability::FileRecorder>();
    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
    std::unique_ptr<CStorage> storage = std::make_unique<CStorage>(channel, static_cast<uint32_t>(kUnit));

    // Appends in batches that end inside blocks; every sync_every batches a flush
    // follows, as the periodic timer would do.
    void Append(unsigned generation, uint64_t units, uint64_t sync_every) {
        constexpr uint64_t kBatch = 40000;
        std::vector<uint32_t> batch(kBatch);
        for (uint64_t done = 0, round = 1; done < units; done += kBatch, ++round) {
            const uint64_t n = std::min(kBatch, units - done);
            for (uint64_t i = 0; i < n; ++i) batch[i] = Value(generation, done + i);
            ASSERT_EQ(storage->Write(batch.data(), n), n);
            if (round % sync_every == 0) storage->Sync();
        }
        // One pass that a timer pass running at the same time made skip is followed by
        // whole ones.
        for (int i = 0; i < 3; ++i) storage->Sync();
    }

    // The log; the recorder stops last, when no storage is left that a timer pass could
    // be syncing.
    std::vector<FileChangeRecord> Finish() {
        std::vector<FileChangeRecord> log = recorder->Log("/" + dynamic_cast<IFileCache&>(*channel).GetId());
        storage.reset();
        channel.reset();
        recorder->Stop();
        return log;
    }
};

struct Generations {
    const char* name;
    std::vector<uint64_t> units;       // per generation
    std::vector<uint64_t> sync_every;  // batches between flushes, per generation
};

class PowerLoss : public ::testing::TestWithParam<Generations> {};

TEST_P(PowerLoss, EveryCutReopensWithAPrefixOfOneGeneration) {
    const Generations& generations = GetParam();
    Scenario scenario;
    for (unsigned g = 0; g < generations.units.size(); ++g) {
        if (g > 0) scenario.storage->Clear();
        scenario.Append(g, generations.units[g], generations.sync_every[g]);
        ASSERT_EQ(scenario.storage->Count(), generations.units[g]);
    }
    const std::vector<FileChangeRecord> log = scenario.Finish();
    PowerLossCheck check(log, generations.units);
    // Flushed at the end: a power loss then loses nothing.
    EXPECT_EQ(check.DurableUnitsAtEnd(), generations.units.back());
    check.RunAllCuts();
    EXPECT_GT(check.version1, log.size());
    RecordProperty("changes", static_cast<int>(log.size()));
    RecordProperty("states", static_cast<int>(check.states));
    RecordProperty("raw", static_cast<int>(check.raw));
}

// More data than the pool holds: blocks are recycled, and some are read back.
INSTANTIATE_TEST_SUITE_P(, PowerLoss,
                         ::testing::Values(Generations{"OneGeneration", {5 * kMiB / kUnit}, {6}},
                                           Generations{"ClearBetweenTwo", {3 * kMiB / 2 / kUnit, kMiB / kUnit + 777}, {4, 3}}),
                         [](const auto& test) { return std::string(test.param.name); });

// A flush cut short: its first write (the block map) fails, or the writes after it (the
// header) fail, as when the process dies in between. Reopened, the file holds the
// extent of the flush before, whose units all read right; the next flush that goes
// through brings the whole extent.
struct CutFlush {
    const char* name;
    bool (*fails)(int write);  // which writes of the flush fail, from 1 on
    int attempted;             // the writes that the flush makes
};

class PartialFlush : public ::testing::TestWithParam<CutFlush> {};

TEST_P(PartialFlush, LeavesTheExtentOfTheFlushBefore) {
    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
    auto& file = dynamic_cast<IFileCache&>(*channel);
    constexpr uint64_t kFirst = 300000, kSecond = 200000;  // the second write needs new blocks
    const std::vector<uint32_t> units = Values(0, kFirst + kSecond);
    ASSERT_EQ(channel->Write(units.data(), kFirst * kUnit, 0), static_cast<int64_t>(kFirst * kUnit));
    file.Flush();
    ASSERT_EQ(channel->Write(units.data() + kFirst, kSecond * kUnit, kFirst * kUnit),
              static_cast<int64_t>(kSecond * kUnit));
    int writes = 0;
    Tessel::SetFileFaultHook([&](Tessel::FileOperation operation, const std::string& path) {
        return operation == Tessel::FileOperation::Write && path.ends_with(file.GetId()) && GetParam().fails(++writes);
    });
    file.Flush();
    Tessel::SetFileFaultHook({});
    EXPECT_EQ(writes, GetParam().attempted);

    LoadedFile loaded("cut_flush.wsc");
    loaded.Set(DiskBytes(file.GetId()));
    const Reopened got = Reopen(loaded);
    ASSERT_EQ(got.version, 1);
    EXPECT_EQ(got.count, kFirst);
    EXPECT_TRUE(got.units == Values(0, kFirst)) << got.units.size() << " units read";

    file.Flush();
    loaded.Set(DiskBytes(file.GetId()));
    EXPECT_EQ(Reopen(loaded).units, units);
}

INSTANTIATE_TEST_SUITE_P(Write, PartialFlush,
                         ::testing::Values(CutFlush{"MapFails", [](int write) { return write == 1; }, 1},
                                           CutFlush{"HeaderFails", [](int write) { return write > 1; }, 2}),
                         [](const auto& test) { return std::string(test.param.name); });

// A managed file whose writes from other threads than the test's (the sync services')
// wait until released, so that a periodic pass can run while blocks are queued.
class HeldBackgroundWrites final : public IFileCache {
public:
    explicit HeldBackgroundWrites(std::shared_ptr<IDeviceChannel> inner)
        : inner_(std::move(inner)), file_(dynamic_cast<IFileCache&>(*inner_)), owner_(std::this_thread::get_id()) {}

    void Release() {
        std::lock_guard lock(mutex_);
        held_ = false;
        changed_.notify_all();
    }
    void WaitUntilHolding() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return waiting_ > 0; });
    }

    int Type() const override { return inner_->Type(); }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override { return inner_->Read(buffer, bytes, offset); }
    uint64_t Size() override { return inner_->Size(); }
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override {
        if (std::this_thread::get_id() != owner_) {
            std::unique_lock lock(mutex_);
            ++waiting_;
            changed_.notify_all();
            changed_.wait(lock, [&] { return !held_; });
            --waiting_;
        }
        return inner_->Write(buffer, bytes, offset);
    }
    std::string Description() override { return "Held"; }
    std::string GetId() override { return file_.GetId(); }
    void Clear() override { file_.Clear(); }
    void SetKeep(bool keep) override { file_.SetKeep(keep); }
    void SetFileReady(uint64_t ready) override { file_.SetFileReady(ready); }
    bool IsValid() override { return file_.IsValid(); }
    void Flush() override { file_.Flush(); }
    bool Trim(uint64_t bytes) override { return file_.Trim(bytes); }
    void SetSizeLimit(uint64_t bytes) override { file_.SetSizeLimit(bytes); }

private:
    std::shared_ptr<IDeviceChannel> inner_;
    IFileCache& file_;
    std::thread::id owner_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = true;
    int waiting_ = 0;
};

// A periodic pass while full blocks wait for their sync service: the header it flushes
// must not describe the partial tail it could write, past blocks that are not on disk.
TEST(PeriodicPass, DoesNotFlushAnExtentPastQueuedBlocks) {
    auto held = std::make_shared<HeldBackgroundWrites>(CreateLocalFileCache(1));
    const uint64_t block_units = CMemoryManager::GetAtomSize() / kUnit;
    const std::vector<uint32_t> units = Values(0, 2 * block_units + block_units / 2);  // two blocks and a half
    LoadedFile loaded("queued_blocks.wsc");
    CStorage storage(held, static_cast<uint32_t>(kUnit));
    ASSERT_EQ(storage.Write(units.data(), units.size()), units.size());  // blocks 0 and 1 are queued
    held->WaitUntilHolding();
    __internal::StorageSyncManager::Instance().SyncAll();

    // A power loss now: whatever the file holds is a prefix of the units.
    loaded.Set(DiskBytes(held->GetId()));
    const Reopened got = Reopen(loaded);
    EXPECT_EQ(got.version, 1);
    ASSERT_EQ(got.units.size(), got.count);
    EXPECT_TRUE(std::equal(got.units.begin(), got.units.end(), units.begin())) << got.count << " units kept";

    held->Release();
    storage.Sync();
    loaded.Set(DiskBytes(held->GetId()));
    EXPECT_EQ(Reopen(loaded).units, units);
}

}  // namespace
