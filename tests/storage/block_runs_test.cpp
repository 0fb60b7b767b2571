// Runs of blocks moved in one call: the sync service writes queued neighbours with one
// vectored write and finishes a run cut short block by block; reads load the blocks they
// miss with one vectored read, cut at cached blocks, at the end of the channel and at
// the end of the data, and a sequential reader reads ahead.
// (Named to run before the suites that fill the small test pool for good.)

#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"
#include "storage/read_helpers.h"
#include "storage/vectored_memory_channel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <numeric>
#include <thread>
#include <vector>

namespace {

using namespace storage_testing;

std::vector<uint32_t> AsUnits(const std::vector<unsigned char>& bytes) {
    std::vector<uint32_t> units(bytes.size() / 4);
    std::memcpy(units.data(), bytes.data(), units.size() * 4);
    return units;
}

void Forget(CStorage& storage, uint64_t block) {
    __internal::BlockCache::Instance().Remove(__internal::BlockKey(storage.Id(), block));
}

TEST(WriteRuns, ARunCutShortInTheMiddleIsFinishedBlockByBlock) {
    auto channel = std::make_shared<VectoredMemoryChannel>();
    channel->write_budget = 5 * kBlockBytes / 2;  // the disk takes 2.5 blocks of a run
    CStorage storage(channel, 4);
    const auto data = Ramp(8 * kUnits + 1);
    // The first block's write waits, so that the next seven queue up behind it.
    channel->CloseGate();
    ASSERT_EQ(storage.Write(data.data(), kUnits + 1), kUnits + 1);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!channel->Waiting() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    if (!channel->Waiting()) {
        channel->OpenGate();
        FAIL() << "block 0 never reached the channel";
    }
    ASSERT_EQ(storage.Write(data.data() + kUnits + 1, 7 * kUnits), 7 * kUnits);
    channel->OpenGate();
    storage.Sync();

    EXPECT_EQ(AsUnits(channel->Content()), data);
    const auto runs = channel->WriteCalls();
    ASSERT_EQ(runs.size(), 1u);  // blocks 1 to 7 in one call
    EXPECT_EQ(runs[0].offset, kBlockBytes);
    EXPECT_EQ(runs[0].pieces, 7u);
    EXPECT_EQ(runs[0].bytes, 5 * kBlockBytes / 2);
    // Block 0 alone, blocks 3 to 7 again one at a time (3 was written half), the tail by
    // the sync (the 500 ms timer may have written a tail once more).
    EXPECT_GE(channel->PlainWrites(), 1u + 5u + 1u);
}

TEST(WriteRuns, AStorageWithoutChannelRecyclesItsFullBlocksAtOnce) {
    CStorage storage(nullptr, 4);
    const auto data = Ramp(3 * kUnits + 5);
    ASSERT_EQ(storage.Write(data.data(), data.size()), data.size());
    // The three full blocks are clean and unpinned, the tail stays pinned.
    for (uint64_t b = 0; b < 3; ++b) {
        auto block = __internal::BlockCache::Instance().Find(__internal::BlockKey(storage.Id(), b));
        ASSERT_TRUE(block);
        EXPECT_EQ(block->state.load(), __internal::kClean) << b;
        EXPECT_EQ(block->pins.load(), 0) << b;
    }
    auto tail = __internal::BlockCache::Instance().Find(__internal::BlockKey(storage.Id(), 3));
    ASSERT_TRUE(tail);
    EXPECT_EQ(tail->pins.load(), 1);
    EXPECT_EQ(tail->state.load(), __internal::kDirty);
    std::vector<uint32_t> back(data.size());
    EXPECT_EQ(storage.Read(0, back.data(), back.size()), data.size());
    EXPECT_EQ(back, data);
}

TEST(ReadRuns, ARunStopsAtACachedBlockAndAtTheBlockBeingWritten) {
    auto channel = std::make_shared<VectoredMemoryChannel>();
    CStorage storage(channel, 4);
    const auto data = Ramp(12 * kUnits + kUnits / 2);
    storage.Write(data.data(), data.size());
    storage.Sync();
    ASSERT_TRUE(__internal::BlockCache::Instance().Contains(__internal::BlockKey(storage.Id(), 5)));
    for (uint64_t b = 0; b < 12; ++b)
        if (b != 5) Forget(storage, b);  // block 5 stays cached, block 12 is the writer's
    channel->ForgetCalls();

    std::vector<uint32_t> back(data.size());
    ASSERT_EQ(storage.Read(0, back.data(), back.size()), data.size());
    EXPECT_EQ(back, data);
    const auto runs = channel->ReadCalls();
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0].offset, 0u);
    EXPECT_EQ(runs[0].pieces, 5u);
    EXPECT_EQ(runs[1].offset, 6 * kBlockBytes);
    EXPECT_EQ(runs[1].pieces, 6u);
    EXPECT_EQ(channel->PlainReads(), 0u);
}

TEST(ReadRuns, ARunStopsAtTheEndOfAChannelThatEndsEarly) {
    auto channel = std::make_shared<VectoredMemoryChannel>();
    CStorage storage(channel, 4);
    const auto data = Ramp(12 * kUnits + kUnits / 2);
    storage.Write(data.data(), data.size());
    storage.Sync();
    storage.DropCache();
    channel->Truncate(7 * kBlockBytes / 2);  // the file holds 3.5 blocks
    channel->ForgetCalls();

    std::vector<uint32_t> back(data.size());
    const uint64_t got = storage.Read(0, back.data(), back.size());
    ASSERT_EQ(got, 7 * kUnits / 2);
    back.resize(got);
    EXPECT_EQ(back, std::vector<uint32_t>(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(got)));
    const auto runs = channel->ReadCalls();
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].pieces, 4u);  // blocks 0 to 3, the last one half
    EXPECT_EQ(runs[0].bytes, 7 * kBlockBytes / 2);
    // The storage ends where the file does.
    EXPECT_EQ(storage.Count(), 7 * kUnits / 2);
}

TEST(ReadRuns, ASequentialReaderReadsAheadUpToTheEndOfTheData) {
    auto channel = std::make_shared<VectoredMemoryChannel>();
    CStorage storage(channel, 4);
    const auto data = Ramp(6 * kUnits + kUnits / 2, 100);
    storage.Write(data.data(), data.size());
    storage.Sync();
    storage.DropCache();
    channel->ForgetCalls();
    const bool room = CMemoryManager::GetMaxUsage() < 0.9f;

    std::vector<uint32_t> back(data.size());
    ASSERT_EQ(storage.Read(0, back.data(), kUnits), kUnits);           // one block, not sequential
    ASSERT_EQ(storage.Read(kUnits, back.data() + kUnits, kUnits), kUnits);  // sequential
    if (room) {
        // Blocks 1 to 6: the read ahead ends with the half block at the end of the data.
        const auto runs = channel->ReadCalls();
        ASSERT_EQ(runs.size(), 1u);
        EXPECT_EQ(runs[0].offset, kBlockBytes);
        EXPECT_EQ(runs[0].pieces, 6u);
        EXPECT_EQ(runs[0].bytes, 11 * kBlockBytes / 2);
        EXPECT_EQ(channel->PlainReads(), 1u);
    } else {
        // A full pool reads only what is asked for.
        EXPECT_TRUE(channel->ReadCalls().empty());
        EXPECT_EQ(channel->PlainReads(), 2u);
    }
    const uint64_t rest = data.size() - 2 * kUnits;
    ASSERT_EQ(storage.Read(2 * kUnits, back.data() + 2 * kUnits, rest + 100), rest);
    EXPECT_EQ(back, data);
    if (room) {
        EXPECT_EQ(channel->ReadCalls().size(), 1u);  // all of it from the blocks read ahead
        EXPECT_EQ(channel->PlainReads(), 1u);
    }
    uint32_t past = 0;
    EXPECT_EQ(storage.Read(data.size(), &past, 1), 0u);
}

}  // namespace
