// Power loss on version-1 cache files. A storage writes a few MiB through the small pool
// to a version-1 file, with several flushes, while every change of the file is logged.
// Then, for every cut point of the log, the file as a power loss could leave it is
// rebuilt and opened as after a restart:
// - everything up to the cut (the disk kept every write, in order);
// - only what the last completed flush made durable (the disk kept none of the later
//   writes), and that plus any single later write (the disk kept one of them, out of
//   order);
// - for every header write, each prefix of its bytes on top of all that came before (a
//   torn header), and for every other write its first half.
// Every reopen must succeed. A file whose header reached the disk whole opens as
// version 1 and holds a prefix of the units written; only a torn header gives raw data,
// besides a file whose first header never reached the disk (no unit was written yet).

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
#include <mutex>
#include <thread>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
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

bool IsHeaderWrite(const FileChangeRecord& record) {
    return record.change == FileChange::Write && record.offset == 0 && record.data.size() == FileHeader::kSize;
}

Bytes HeadOf(const Bytes& image) {
    return Bytes(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(std::min(image.size(), FileHeader::kSize)));
}

// What one scenario wrote, and the checks of every file rebuilt from its log.
class PowerLossCheck {
public:
    // generations[g]: units written in generation g (a Clear starts the next one).
    PowerLossCheck(std::vector<FileChangeRecord> log, std::vector<uint64_t> generations)
        : log_(std::move(log)), generations_(std::move(generations)), file_("power_loss.wsc") {}

    void RunAllCuts() {
        DiskImage all;      // every change up to the cut
        DiskImage durable;  // the changes up to the last completed flush
        Check(durable, Kind::Durable);
        for (std::size_t k = 0; k < log_.size() && !::testing::Test::HasFailure(); ++k) {
            const FileChangeRecord& record = log_[k];
            cut_ = k;
            if (IsHeaderWrite(record)) {
                for (std::size_t t = 1; t < FileHeader::kSize; ++t) {
                    if (all.Bytes().size() >= FileHeader::kSize) {
                        // Only the head differs: the file is patched, not copied.
                        Check(all, Kind::Torn, Bytes(record.data.begin(), record.data.begin() + t));
                    } else {
                        DiskImage torn = all;
                        torn.Apply(record, t);
                        Check(torn, Kind::Torn);
                    }
                }
                headers_.insert(HeadOf(Bytes(record.data)));
            }
            if (record.change == FileChange::Write && !IsHeaderWrite(record) && record.data.size() > 1) {
                DiskImage torn = all;
                torn.Apply(record, record.data.size() / 2);
                Check(torn, Kind::TornWrite);
            }
            all.Apply(record);
            Check(all, Kind::Ordered);
            if (record.change == FileChange::Sync) {
                durable = all;
                Check(durable, Kind::Durable);
            } else {
                DiskImage one = durable;
                one.Apply(record);
                Check(one, Kind::OneLater);
            }
        }
    }

    // The file that the last completed flush left: the data written before it.
    uint64_t DurableUnitsAtEnd() {
        DiskImage durable, all;
        for (const FileChangeRecord& record : log_) {
            all.Apply(record);
            if (record.change == FileChange::Sync) durable = all;
        }
        file_.Set(durable.Bytes());
        LoadedFile::Opened opened = file_.Open(kUnit);
        const uint64_t count = opened.version == 1 ? opened.storage->Count() : 0;
        file_.Close(opened);
        return count;
    }

    std::size_t states() const { return states_; }
    std::size_t version1() const { return version1_; }
    std::size_t raw() const { return raw_; }

private:
    enum class Kind { Ordered, Durable, OneLater, Torn, TornWrite };

    static const char* Name(Kind kind) {
        switch (kind) {
        case Kind::Ordered: return "all changes up to the cut";
        case Kind::Durable: return "the last flush";
        case Kind::OneLater: return "the last flush and one later change";
        case Kind::Torn: return "a torn header";
        case Kind::TornWrite: return "all changes before the cut and half of the next write";
        }
        return "";
    }

    // The file holds image, with its first head.size() bytes replaced by head.
    void Check(const DiskImage& disk, Kind kind, const Bytes& head = {}) {
        const Bytes& image = disk.Bytes();
        ++states_;
        const std::string what = (::testing::Message() << "cut after change " << cut_ << " of " << log_.size() << ", "
                                                       << Name(kind) << ", file of " << image.size() << " bytes")
                                     .GetString();
        file_.Set(image, head);
        Bytes first = HeadOf(image);
        std::copy(head.begin(), head.end(), first.begin());
        reliability::RunWithin(std::chrono::seconds(60), what, [&] {
            LoadedFile::Opened opened = file_.Open(kUnit);
            ASSERT_TRUE(opened.channel);
            const bool whole_header = first.size() == FileHeader::kSize && headers_.count(first) != 0;
            CStorage& storage = *opened.storage;
            if (opened.version == 1) {
                ++version1_;
                EXPECT_TRUE(whole_header) << "a version-1 open needs a header that was written whole";
                ExpectPrefixOfWhatWasWritten(storage);
            } else {
                ++raw_;
                // Raw data: the file as it is. Before a header reached the disk (the file
                // was being created) nothing had been written to it yet.
                EXPECT_FALSE(whole_header) << "raw data although the header on disk is whole";
                EXPECT_TRUE(kind == Kind::Torn || !disk.HeaderWritten()) << "raw data without a torn header";
                EXPECT_EQ(storage.Count(), image.size() / kUnit);
                const std::vector<uint32_t> units = reliability::ReadUnits(storage, std::min<uint64_t>(storage.Count(), 32));
                ASSERT_EQ(units.size(), std::min<uint64_t>(storage.Count(), 32));
                Bytes expected(image.begin(), image.begin() + static_cast<std::ptrdiff_t>(units.size() * kUnit));
                std::copy(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(std::min(first.size(), expected.size())),
                          expected.begin());
                EXPECT_TRUE(std::equal(expected.begin(), expected.end(), reinterpret_cast<const unsigned char*>(units.data())));
            }
            file_.Close(opened);
        });
    }

    // All units of the storage, of one generation, from its first unit on.
    void ExpectPrefixOfWhatWasWritten(CStorage& storage) {
        const uint64_t count = storage.Count();
        if (count == 0) return;
        const std::vector<uint32_t> units = reliability::ReadUnits(storage, count);
        ASSERT_EQ(units.size(), count) << "the extent of the header is not readable";
        unsigned generation = 0;
        while (generation < generations_.size() && units[0] != Value(generation, 0)) ++generation;
        ASSERT_LT(generation, generations_.size()) << "unit 0 reads " << units[0];
        ASSERT_LE(count, generations_[generation]);
        const std::vector<uint32_t>& written = Written(generation);
        if (std::memcmp(units.data(), written.data(), count * kUnit) == 0) return;
        const auto wrong = std::mismatch(units.begin(), units.end(), written.begin());
        if (wrong.first != units.end())
            ADD_FAILURE() << "unit " << wrong.first - units.begin() << " of " << count << " reads " << *wrong.first
                          << ", written " << *wrong.second;
    }

    const std::vector<uint32_t>& Written(unsigned generation) {
        if (written_.size() <= generation) written_.resize(generation + 1);
        std::vector<uint32_t>& units = written_[generation];
        if (units.empty())
            for (uint64_t i = 0; i < generations_[generation]; ++i) units.push_back(Value(generation, i));
        return units;
    }

    std::vector<FileChangeRecord> log_;
    std::vector<uint64_t> generations_;
    std::vector<std::vector<uint32_t>> written_;
    LoadedFile file_;
    std::set<Bytes> headers_;  // every header written whole so far
    std::size_t cut_ = 0;
    std::size_t states_ = 0, version1_ = 0, raw_ = 0;
};

// A storage on a new version-1 file, recorded from its creation on. Appends run in batches
// that end inside blocks; `sync_every` batches a flush follows, as the periodic timer
// would do.
struct Scenario {
    std::unique_ptr<reliability::FileRecorder> recorder = std::make_unique<reliability::FileRecorder>();
    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
    std::unique_ptr<CStorage> storage = std::make_unique<CStorage>(channel, static_cast<uint32_t>(kUnit));

    void Append(unsigned generation, uint64_t units, uint64_t sync_every) {
        constexpr uint64_t kBatch = 40000;  // 160000 bytes: batches end inside blocks
        std::vector<uint32_t> batch(kBatch);
        const uint64_t first = storage->Count();
        for (uint64_t done = 0, round = 1; done < units; done += kBatch, ++round) {
            const uint64_t n = std::min(kBatch, units - done);
            for (uint64_t i = 0; i < n; ++i) batch[i] = Value(generation, first + done + i);
            ASSERT_EQ(storage->Write(batch.data(), n), n);
            if (round % sync_every == 0) storage->Sync();
        }
        // Three passes: one that a timer pass running at the same time made skip is
        // followed by whole ones.
        for (int i = 0; i < 3; ++i) storage->Sync();
    }

    // The log; the storage and its file go. The recorder stops last, when no storage is
    // left that a timer pass could be syncing.
    std::vector<FileChangeRecord> Finish() {
        std::vector<FileChangeRecord> log = recorder->Log("/" + dynamic_cast<IFileCache&>(*channel).GetId());
        storage.reset();
        channel.reset();
        recorder->Stop();
        return log;
    }
};

// Generations of appends, a Clear between two: at every cut the file holds a prefix of
// the units of one generation, never old units under a new extent.
struct Generations {
    const char* name;
    std::vector<uint64_t> units;       // of each generation
    std::vector<uint64_t> sync_every;  // batches between flushes, per generation
};

void PrintTo(const Generations& generations, std::ostream* out) { *out << generations.name; }

class PowerLossCut : public ::testing::TestWithParam<Generations> {};

TEST_P(PowerLossCut, EveryCutReopensWithAPrefixOfOneGeneration) {
    const Generations& generations = GetParam();
    Scenario scenario;
    for (unsigned g = 0; g < generations.units.size(); ++g) {
        if (g > 0) scenario.storage->Clear();
        scenario.Append(g, generations.units[g], generations.sync_every[g]);
        ASSERT_EQ(scenario.storage->Count(), generations.units[g]);
    }
    const std::vector<FileChangeRecord> log = scenario.Finish();
    ASSERT_GT(log.size(), 50u);

    PowerLossCheck check(log, generations.units);
    // Flushed at the end: a power loss then loses nothing.
    EXPECT_EQ(check.DurableUnitsAtEnd(), generations.units.back());
    check.RunAllCuts();
    EXPECT_GT(check.version1(), log.size());
    std::printf("[ power loss ] %zu changes, %zu files opened: %zu version 1, %zu raw\n", log.size(), check.states(),
                check.version1(), check.raw());
}

// Appends: more data than the small pool holds (4 MiB), so blocks are recycled and some
// are read back.
INSTANTIATE_TEST_SUITE_P(Scenarios, PowerLossCut,
                         ::testing::Values(Generations{"Appends", {5 * kMiB / kUnit}, {6}},
                                           Generations{"ClearBetween", {3 * kMiB / 2 / kUnit, kMiB / kUnit + 777}, {4, 3}}),
                         [](const auto& test) { return std::string(test.param.name); });

// A flush whose map write fails leaves the header of the flush before on disk: the file
// reopens with that extent and its units, not with blocks that its map on disk lacks.
TEST(PowerLoss, AFlushWhoseMapWriteFailsKeepsThePreviousHeader) {
    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
    auto& file = dynamic_cast<IFileCache&>(*channel);
    constexpr uint64_t kFirst = 300000, kSecond = 200000;  // the second write needs a new block
    std::vector<uint32_t> units(kFirst + kSecond);
    for (uint64_t i = 0; i < units.size(); ++i) units[i] = Value(0, i);
    ASSERT_EQ(channel->Write(units.data(), kFirst * kUnit, 0), static_cast<int64_t>(kFirst * kUnit));
    file.Flush();
    ASSERT_EQ(channel->Write(units.data() + kFirst, kSecond * kUnit, kFirst * kUnit),
              static_cast<int64_t>(kSecond * kUnit));
    int writes = 0;
    Tessel::SetFileFaultHook([&](Tessel::FileOperation operation, const std::string& path) {
        return operation == Tessel::FileOperation::Write && path.ends_with(file.GetId()) && ++writes == 1;
    });
    file.Flush();  // the map fails, the header would go
    Tessel::SetFileFaultHook({});
    ASSERT_GE(writes, 1);

    const std::string path = ProjectFileManager::instance().GetProjectFolder() + "/" + file.GetId();
    std::ifstream in(path, std::ios::binary);
    const Bytes disk((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LoadedFile loaded("failed_map.wsc");
    loaded.Set(disk);
    LoadedFile::Opened opened = loaded.Open(kUnit);
    ASSERT_EQ(opened.version, 1);
    ASSERT_EQ(opened.storage->Count(), kFirst);
    const std::vector<uint32_t> back = reliability::ReadUnits(*opened.storage, kFirst);
    ASSERT_EQ(back.size(), kFirst);
    EXPECT_EQ(std::memcmp(back.data(), units.data(), kFirst * kUnit), 0);
    loaded.Close(opened);

    // The next flush that goes through brings the whole extent.
    file.Flush();
    std::ifstream again(path, std::ios::binary);
    loaded.Set(Bytes((std::istreambuf_iterator<char>(again)), std::istreambuf_iterator<char>()));
    opened = loaded.Open(kUnit);
    EXPECT_EQ(opened.storage->Count(), kFirst + kSecond);
    loaded.Close(opened);
}

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

Bytes DiskBytes(const std::string& id) {
    std::ifstream in(ProjectFileManager::instance().GetProjectFolder() + "/" + id, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// A periodic pass while full blocks wait for their sync service: the header it flushes
// must not describe the partial tail it could write, past blocks that are not on disk.
TEST(PowerLoss, APeriodicPassDoesNotFlushAnExtentPastQueuedBlocks) {
    auto held = std::make_shared<HeldBackgroundWrites>(CreateLocalFileCache(1));
    const uint64_t block_units = CMemoryManager::GetAtomSize() / kUnit;
    const uint64_t count = 2 * block_units + block_units / 2;  // two full blocks and a half
    std::vector<uint32_t> units(count);
    for (uint64_t i = 0; i < count; ++i) units[i] = Value(0, i);
    LoadedFile loaded("queued_blocks.wsc");
    {
        CStorage storage(held, static_cast<uint32_t>(kUnit));
        ASSERT_EQ(storage.Write(units.data(), count), count);  // blocks 0 and 1 are queued
        held->WaitUntilHolding();
        __internal::StorageSyncManager::Instance().SyncAll();

        // A power loss now: whatever the file holds is a prefix of the units.
        loaded.Set(DiskBytes(held->GetId()));
        LoadedFile::Opened opened = loaded.Open(kUnit);
        EXPECT_EQ(opened.version, 1);
        const uint64_t kept = opened.storage->Count();
        const std::vector<uint32_t> back = reliability::ReadUnits(*opened.storage, kept);
        ASSERT_EQ(back.size(), kept);
        EXPECT_TRUE(std::equal(back.begin(), back.end(), units.begin())) << kept << " units kept";
        loaded.Close(opened);

        held->Release();
        storage.Sync();
        loaded.Set(DiskBytes(held->GetId()));
        opened = loaded.Open(kUnit);
        EXPECT_EQ(opened.storage->Count(), count);
        EXPECT_EQ(reliability::ReadUnits(*opened.storage, count), units);
        loaded.Close(opened);
    }
}

}  // namespace
