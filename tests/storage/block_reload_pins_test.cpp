// Pins that a load leaves: blocks of a contiguous reload keep the load's pin until their
// storage drops its cache (an atom of such a run recycled under another key would pass the
// view's same-memory test at the span's end); the last block loaded by Bind is the
// writer's tail when partial, and recyclable when full.
// (Named to run before the suites that fill the small test pool for good: a contiguous
// reload needs fresh atoms.)

#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/read_helpers.h"
#include "storage/vectored_memory_channel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

namespace {

using __internal::BlockCache;
using __internal::BlockKey;
using namespace storage_testing;

TEST(RequestReload, BlocksOfAContiguousReloadKeepTheirPinUntilTheStorageDropsThem) {
    ReadModes modes(CStorage::UncachedReads::kNever, true);
    const auto data = Ramp(6 * kUnits + 40, 9);
    auto channel = std::make_shared<VectoredMemoryChannel>();
    channel->Write(data.data(), 4 * data.size(), 0);
    CStorage storage(channel, 4);
    storage.DropCache();
    BlockCache& cache = BlockCache::Instance();
    // Block 1 alone: the span 0 to 3 is then not one run of atoms, and is reloaded.
    std::vector<uint32_t> probe(1);
    ASSERT_EQ(storage.Read(kUnits, probe.data(), 1), 1u);
    {
        RawData view = storage.Request(5, 3 * kUnits);
        ASSERT_GT(view.Count(), kUnits) << "the span was not reloaded in one piece";
        const auto* units = static_cast<const uint32_t*>(view.Ptr());
        for (uint64_t i = 0; i < view.Count(); ++i) ASSERT_EQ(units[i], data[5 + i]);
    }
    for (uint64_t b = 0; b <= 3; ++b) {
        auto block = cache.Find(BlockKey(storage.Id(), b));
        ASSERT_TRUE(block) << "block " << b;
        EXPECT_EQ(block->pins.load(), 1) << "block " << b;
        EXPECT_EQ(block->recycle_node, nullptr) << "block " << b;
    }
    storage.DropCache();
    for (uint64_t b = 0; b <= 3; ++b) EXPECT_FALSE(cache.Find(BlockKey(storage.Id(), b))) << "block " << b;
}

TEST(BindLastBlock, APartialLastBlockIsContinuedAndLeftToTheSyncServiceWhenTheWriterMovesOn) {
    const auto data = Ramp(3 * kUnits + kUnits / 2, 5);
    auto channel = std::make_shared<VectoredMemoryChannel>();
    channel->Write(data.data(), 4 * (3 * kUnits / 2), 0);
    CStorage storage(nullptr, 4);
    storage.Bind(channel);
    ASSERT_EQ(storage.Count(), 3 * kUnits / 2);
    ASSERT_EQ(storage.Write(data.data() + 3 * kUnits / 2, data.size() - 3 * kUnits / 2), data.size() - 3 * kUnits / 2);
    storage.Sync();
    EXPECT_EQ(ReadInSteps(storage, 0, data.size(), kUnits), data);
    std::vector<unsigned char> bytes = channel->Content();
    ASSERT_EQ(bytes.size(), data.size() * 4);
    EXPECT_EQ(std::memcmp(bytes.data(), data.data(), bytes.size()), 0);
    // The block loaded by Bind went through the sync service and carries no pin.
    auto block = BlockCache::Instance().Find(BlockKey(storage.Id(), 1));
    ASSERT_TRUE(block);
    EXPECT_EQ(block->pins.load(), 0);
    EXPECT_EQ(block->state.load(), __internal::kClean);
}

TEST(BindLastBlock, AFullLastBlockStaysRecyclable) {
    const auto data = Ramp(2 * kUnits, 1);
    auto channel = std::make_shared<VectoredMemoryChannel>();
    channel->Write(data.data(), 4 * data.size(), 0);
    CStorage storage(channel, 4);
    auto block = BlockCache::Instance().Find(BlockKey(storage.Id(), 1));
    ASSERT_TRUE(block);
    EXPECT_EQ(block->pins.load(), 0);
    EXPECT_NE(block->recycle_node, nullptr);
    const auto more = Ramp(10, 2 * kUnits + 1);
    ASSERT_EQ(storage.Write(more.data(), more.size()), more.size());
    std::vector<uint32_t> back(3);
    ASSERT_EQ(storage.Read(2 * kUnits - 1, back.data(), 3), 3u);
    EXPECT_EQ(back, (std::vector<uint32_t>{2 * kUnits, 2 * kUnits + 1, 2 * kUnits + 2}));
}

}  // namespace
