// Reads of blocks that left the cache. A Read that copies them straight from the channel
// and one that loads them give the same units and meet a short or failing channel the
// same way. While the cache recycles, views over blocks taken where they lie hold the
// units of views over contiguous reloads, and a span for which no run of fresh atoms can
// be had still gives a view.
// (Named to run after the suites that need room in the small test pool: these fill it.)

#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"
#include "storage/read_helpers.h"
#include "storage/vectored_memory_channel.h"
#include "support/fake_channel.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace {

using __internal::BlockCache;
using __internal::BlockKey;
using namespace storage_testing;
using testing_support::FakeChannel;

// Holds all but a few atoms of the 4 MiB pool pinned through views of a storage without
// channel: the pool has no room left, and new blocks recycle the few others.
class FullPool {
public:
    FullPool() : filler_(nullptr, 4) {
        const auto block = Ramp(kUnits);
        const uint64_t keep = CMemoryManager::GetMaxPoolSize() / kBlockBytes - 12;
        for (uint64_t b = 0; b < keep; ++b) {
            filler_.Write(block.data(), kUnits);
            views_.push_back(filler_.Request(b * kUnits, kUnits));
        }
    }

private:
    CStorage filler_;
    std::vector<RawData> views_;
};

// Every unit from from to the end, gathered view by view.
std::vector<uint32_t> RequestAll(CStorage& storage, uint64_t from, uint64_t span) {
    std::vector<uint32_t> out;
    uint64_t pos = from;
    while (pos < storage.Count()) {
        RawData view = storage.Request(pos, span);
        if (view.IsNull() || view.Count() == 0) break;
        const uint64_t n = std::min<uint64_t>(view.Count(), storage.Count() - pos);
        const auto* units = static_cast<const uint32_t*>(view.Ptr());
        out.insert(out.end(), units, units + n);
        pos += n;
    }
    return out;
}

TEST(UncachedReads, CopyTheSameUnitsAsLoadsAroundCachedBlocksAndLeaveTheCacheAlone) {
    for (const auto mode : {CStorage::UncachedReads::kNever, CStorage::UncachedReads::kAlways}) {
        SCOPED_TRACE(mode == CStorage::UncachedReads::kNever ? "loading" : "uncached");
        ReadModes modes(mode);
        auto channel = std::make_shared<VectoredMemoryChannel>();
        CStorage storage(channel, 4);
        const auto data = Ramp(9 * kUnits + kUnits / 3, 77);
        storage.Write(data.data(), data.size());
        storage.Sync();
        storage.DropCache();
        // Blocks 2 and 5 come back into the cache; the rest stays on the channel only.
        std::vector<uint32_t> probe(1);
        ASSERT_EQ(storage.Read(2 * kUnits + 7, probe.data(), 1), 1u);
        ASSERT_EQ(storage.Read(5 * kUnits, probe.data(), 1), 1u);
        const std::size_t cached = BlockCache::Instance().CachedBlocks(storage.Id());

        // Unaligned pieces that start and end inside blocks, across cached and missing ones.
        EXPECT_EQ(ReadInSteps(storage, 0, data.size(), kUnits + 123), data);
        EXPECT_EQ(ReadInSteps(storage, kUnits - 5, 3 * kUnits, 3 * kUnits),
                  std::vector<uint32_t>(data.begin() + kUnits - 5, data.begin() + 4 * kUnits - 5));
        // Past the end: what there is, then nothing.
        std::vector<uint32_t> tail(kUnits);
        EXPECT_EQ(storage.Read(data.size() - 10, tail.data(), tail.size()), 10u);
        EXPECT_EQ(tail[9], data.back());
        EXPECT_EQ(storage.Read(data.size(), tail.data(), 1), 0u);

        if (mode == CStorage::UncachedReads::kAlways) {
            EXPECT_EQ(BlockCache::Instance().CachedBlocks(storage.Id()), cached);
            EXPECT_FALSE(BlockCache::Instance().Contains(BlockKey(storage.Id(), 0)));
        } else {
            EXPECT_TRUE(BlockCache::Instance().Contains(BlockKey(storage.Id(), 0)));
        }
    }
}

TEST(UncachedReads, AChannelThatEndsEarlyCutsTheStorageAsALoadDoes) {
    for (const auto mode : {CStorage::UncachedReads::kNever, CStorage::UncachedReads::kAlways}) {
        SCOPED_TRACE(mode == CStorage::UncachedReads::kNever ? "loading" : "uncached");
        ReadModes modes(mode);
        auto channel = std::make_shared<VectoredMemoryChannel>();
        CStorage storage(channel, 4);
        const auto data = Ramp(6 * kUnits + 11);
        storage.Write(data.data(), data.size());
        storage.Sync();
        storage.DropCache();
        channel->Truncate(5 * kBlockBytes / 2);  // the file holds 2.5 blocks

        std::vector<uint32_t> back(data.size());
        const uint64_t got = storage.Read(kUnits / 2, back.data(), back.size());
        ASSERT_EQ(got, 2 * kUnits);
        back.resize(got);
        EXPECT_EQ(back, std::vector<uint32_t>(data.begin() + kUnits / 2, data.begin() + 5 * kUnits / 2));
        EXPECT_EQ(storage.Count(), 5 * kUnits / 2);
    }
}

TEST(UncachedReads, AFailingChannelIsMetAsALoadMeetsIt) {
    for (const auto mode : {CStorage::UncachedReads::kNever, CStorage::UncachedReads::kAlways}) {
        SCOPED_TRACE(mode == CStorage::UncachedReads::kNever ? "loading" : "uncached");
        ReadModes modes(mode);
        auto channel = std::make_shared<FakeChannel>();
        CStorage storage(channel, 4);
        const auto data = Ramp(4 * kUnits + 3);
        storage.Write(data.data(), data.size());
        storage.Sync();
        storage.DropCache();
        channel->throw_on_read = true;

        testing_support::LogCapture log;
        std::vector<uint32_t> back(2 * kUnits);
        // The first block's load fails: the storage ends at its byte offset, 0.
        EXPECT_EQ(storage.Read(10, back.data(), back.size()), 0u);
        EXPECT_TRUE(log.Contains(LogLevel::Warning, "DataChannel Read Failed!!"));
        EXPECT_EQ(storage.Count(), 0u);
    }
}

TEST(FullPoolViews, ViewsOverBlocksWhereTheyLieHoldTheUnitsOfReloadedViews) {
    FullPool full;
    ASSERT_GT(CMemoryManager::GetMaxUsage(), 0.9f);
    auto channel = std::make_shared<VectoredMemoryChannel>();
    CStorage storage(channel, 4);
    const auto data = Ramp(40 * kUnits + 700, 11);
    storage.Write(data.data(), data.size());
    storage.Sync();
    for (const bool reload : {true, false}) {
        SCOPED_TRACE(reload ? "reloaded" : "where they lie");
        ReadModes modes(CStorage::UncachedReads::kNever, reload);
        storage.DropCache();
        std::vector<uint32_t> probe(1);
        ASSERT_EQ(storage.Read(3 * kUnits, probe.data(), 1), 1u);  // one block cached alone
        EXPECT_EQ(RequestAll(storage, 0, 8 * kUnits), data);
        EXPECT_EQ(RequestAll(storage, 77, 3 * kUnits + 1),
                  std::vector<uint32_t>(data.begin() + 77, data.end()));
    }
}

}  // namespace
