// Memory stays bounded on a slow and then a full disk: ten times the pool is appended to
// a storage on a version-1 managed file whose writes first take long and then fail (as
// on a full disk) from half-way on. The heap never grows by more than the pool and
// 64 MiB, the writer is held back to the disk's pace instead of running ahead, and what
// the storage still holds reads right: what the disk took in full, and the blocks
// still cached at the end. The disk-full error is logged.

#include "host/file_faults.h"
#include "reliability/heap_usage.h"
#include "reliability/pattern.h"
#include "reliability/watchdog.h"
#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/device_channels.h"
#include "storage/memory_pool.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kUnit = 8;
constexpr uint64_t kStream = 7;
constexpr uint64_t kBatch = 3000;  // units per append: appends cross blocks at odd places
constexpr auto kSlowWrite = std::chrono::microseconds(300);
constexpr std::size_t kMiB = std::size_t{1} << 20;

struct Peaks {
    std::atomic<std::size_t> heap{0};
    std::atomic<uint64_t> pool{0};
    std::atomic<uint64_t> lead{0};  // bytes appended and not yet in the file, at most
};

TEST(MemoryBound, TenPoolsOnASlowThenFullDiskStayWithinThePoolAndKeepWhatIsCached) {
    testing_support::LogCapture log(LogLevel::Warning);
    uint64_t max_pool = 0;
    CMemoryManager::GetMemoryInfo(nullptr, &max_pool, nullptr, nullptr);
    const uint64_t total = 10 * max_pool / kUnit;  // units
    const uint64_t full_from = total / 2;

    std::atomic<uint64_t> appended{0};
    std::atomic<bool> disk_full{false};
    std::atomic<uint64_t> slow_writes{0}, failed_writes{0};
    Tessel::SetFileFaultHook([&](Tessel::FileOperation op, const std::string& path) {
        if (op != Tessel::FileOperation::Write || path.find(".wsc") == std::string::npos) return false;
        if (disk_full.load()) {
            ++failed_writes;
            return true;
        }
        ++slow_writes;
        std::this_thread::sleep_for(kSlowWrite);
        return false;
    });

    std::shared_ptr<IDeviceChannel> channel = CreateLocalFileCache(1);
    CStorage storage(channel, kUnit);
    const std::size_t heap_before = reliability::HeapBytes();
    Peaks peaks;
    std::atomic<bool> done{false};
    uint64_t in_file_when_full = 0;

    reliability::RunWithin(std::chrono::seconds(300), "appending ten pools", [&] {
        std::thread monitor([&] {
            while (!done.load()) {
                peaks.heap = std::max(peaks.heap.load(), reliability::HeapBytes());
                uint64_t pool = 0;
                CMemoryManager::GetMemoryInfo(&pool, nullptr, nullptr, nullptr);
                peaks.pool = std::max(peaks.pool.load(), pool);
                if (!disk_full.load()) {
                    const uint64_t ahead = appended.load() * kUnit;
                    const uint64_t in_file = channel->Size();
                    if (ahead > in_file) peaks.lead = std::max(peaks.lead.load(), ahead - in_file);
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        std::vector<unsigned char> batch(kBatch * kUnit);
        for (uint64_t position = 0; position < total; position += kBatch) {
            if (position >= full_from && !disk_full.load()) {
                storage.Sync();
                in_file_when_full = channel->Size() / kUnit;
                disk_full = true;
            }
            reliability::FillPattern(kStream, position, kBatch, kUnit, batch.data());
            if (storage.Write(batch.data(), kBatch) != kBatch) {
                ADD_FAILURE() << "append at " << position << " came back short";
                break;
            }
            appended = position + kBatch;
        }
        storage.Sync();  // its pass meets the full disk
        done = true;
        monitor.join();
    });
    Tessel::SetFileFaultHook({});

    const std::size_t growth = peaks.heap.load() > heap_before ? peaks.heap.load() - heap_before : 0;
    RecordProperty("heap_growth_mib", static_cast<int>(growth / kMiB));
    EXPECT_LE(growth, max_pool + 64 * kMiB);
    // A pool may end above its maximum by part of one expansion, never more.
    EXPECT_LE(peaks.pool.load(), max_pool + CMemoryManager::GetPoolExpandSize());
    // The writer waited for the disk: it never got further ahead than its tail, the two
    // blocks queued for the disk and what one append adds, by far less than the pool.
    EXPECT_LE(peaks.lead.load(), 8 * storage.BlockUnits() * kUnit);
    EXPECT_GT(slow_writes.load(), 0u);
    EXPECT_GT(failed_writes.load(), 0u);
    EXPECT_TRUE(log.Contains(LogLevel::Error, "Storage Write Failed! Maybe Disk Full?"));

    // The blocks still cached at the end, the tail among them, read right: first, before
    // a read of a block the full disk lost cuts the storage back.
    const uint64_t count = storage.Count();
    ASSERT_EQ(count, appended.load());
    const uint64_t per_block = storage.BlockUnits();
    uint64_t cached_from = count;
    while (cached_from > 0 &&
           __internal::BlockCache::Instance().Contains(__internal::BlockKey(storage.Id(), (cached_from - 1) / per_block)))
        cached_from = (cached_from - 1) / per_block * per_block;
    ASSERT_LT(cached_from, count) << "the tail is not cached";
    std::vector<unsigned char> buffer((count - cached_from) * kUnit);
    ASSERT_EQ(storage.Read(cached_from, buffer.data(), count - cached_from), count - cached_from);
    EXPECT_EQ(reliability::FirstWrongUnit(kStream, cached_from, count - cached_from, kUnit, buffer.data()),
              count - cached_from)
        << "cached units from " << cached_from;

    // What the disk took before it filled reads right, from the file.
    ASSERT_GT(in_file_when_full, 0u);
    buffer.resize(in_file_when_full * kUnit);
    ASSERT_EQ(storage.Read(0, buffer.data(), in_file_when_full), in_file_when_full);
    EXPECT_EQ(reliability::FirstWrongUnit(kStream, 0, in_file_when_full, kUnit, buffer.data()), in_file_when_full);
}

}  // namespace
