// The block storage on test channels: appends, reads and views across blocks and the
// tail, recycling under a full pool, and failing channels. Readers beside a writer are
// the reliability suite's stress and tail-chase tests.

#include "storage/block_cache.h"
#include "storage/block_storage.h"
#include "storage/memory_pool.h"
#include "support/fake_channel.h"
#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

using __internal::BlockCache;
using testing_support::FakeChannel;
using testing_support::LogCapture;

namespace {

constexpr uint64_t kAtom = 32768;
constexpr uint64_t kFloatsPerBlock = kAtom / 4;

std::vector<uint32_t> Sequence(uint64_t from, uint64_t count) {
    std::vector<uint32_t> values(count);
    std::iota(values.begin(), values.end(), static_cast<uint32_t>(from));
    return values;
}

// Appends count units 0, 1, 2... in batches.
void AppendSequence(CStorage& storage, uint64_t count, uint64_t batch = 4096) {
    for (const uint64_t end = storage.Count() + count; storage.Count() < end;) {
        const auto values = Sequence(storage.Count(), std::min(batch, end - storage.Count()));
        ASSERT_EQ(storage.Write(values.data(), values.size()), values.size());
    }
}

void ExpectSequence(CStorage& storage, uint64_t from, uint64_t count) {
    std::vector<uint32_t> read(count);
    ASSERT_EQ(storage.Read(from, read.data(), count), count);
    EXPECT_TRUE(read == Sequence(from, count)) << "units from " << from;
}

TEST(BlockStorage, AppendsReadBackReachTheChannelAndRequestSpansBlocksIntoTheTail) {
    auto channel = std::make_shared<FakeChannel>();
    CStorage storage(channel, 4);
    EXPECT_EQ(storage.BlockUnits(), kFloatsPerBlock);
    uint64_t callback_count = 0;
    const void* callback_data = nullptr;
    storage.WriteSignal() = [&](uint64_t count, const void* data) {
        callback_count += count;
        callback_data = data;
    };
    EXPECT_EQ(storage.Write(nullptr, 5), 0u);
    const uint32_t one = 7;
    EXPECT_EQ(storage.Write(&one, 0), 0u);
    EXPECT_EQ(callback_count, 0u);  // no callback for nothing appended

    const uint64_t total = 3 * kFloatsPerBlock + 500;
    AppendSequence(storage, total, 1000);
    EXPECT_EQ(storage.Count(), total);
    EXPECT_EQ(callback_count, total);
    EXPECT_NE(callback_data, nullptr);
    ExpectSequence(storage, 0, total);
    uint32_t past = 0;
    EXPECT_EQ(storage.Read(total, &past, 1), 0u);
    EXPECT_TRUE(storage.Request(total, 1).IsNull());

    storage.Sync();
    const std::vector<uint8_t> bytes = channel->Bytes();
    ASSERT_EQ(bytes.size(), total * 4);
    EXPECT_EQ(std::memcmp(bytes.data(), Sequence(0, total).data(), bytes.size()), 0);
    EXPECT_GE(channel->flushes.load(), 1);  // a file cache is flushed after the periodic write
    uint32_t old = 0;
    EXPECT_FALSE(storage.ChangeUnitSize(8, &old));
    EXPECT_EQ(storage.UnitSize(), 4u);

    RawData whole = storage.Request(10, 3 * kFloatsPerBlock);
    ASSERT_GE(whole.Count(), kFloatsPerBlock);  // at least the first block, maybe all of them
    const auto* values = static_cast<const uint32_t*>(whole.Ptr());
    for (uint64_t i = 0; i < whole.Count(); ++i) ASSERT_EQ(values[i], 10 + i);
    RawData tail = storage.Request(3 * kFloatsPerBlock + 100, 1000000);
    EXPECT_EQ(tail.Count(), 400u);  // the tail's length, not the count asked for
    EXPECT_EQ(static_cast<const uint32_t*>(tail.Ptr())[0], 3 * kFloatsPerBlock + 100);

    // A view keeps its blocks off the recycle list; the cleared storage's blocks stay
    // alive through it and go to the list when it ends.
    RawData held = storage.Request(0, 4);
    storage.Clear();
    EXPECT_EQ(static_cast<const uint32_t*>(held.Ptr())[3], 3u);
}

TEST(BlockStorage, RecycledBlocksComeBackFromTheChannelWithTheirBytes) {
    CStorage storage(std::make_shared<FakeChannel>(), 4);
    const uint64_t units = 4 * 1024 * 1024;  // 16 MiB through a pool of 4 MiB
    AppendSequence(storage, units, 65536);
    storage.Sync();
    EXPECT_LE(BlockCache::Instance().CachedBlocks(storage.Id()), 128u);
    uint64_t pool_bytes = 0;
    CMemoryManager::GetMemoryInfo(&pool_bytes, nullptr, nullptr, nullptr);
    EXPECT_LE(pool_bytes, 5u * 1024 * 1024);  // the pool may pass its maximum by part of one expansion
    ExpectSequence(storage, 0, 100000);
    ExpectSequence(storage, units / 2 - 5, 70000);
    ExpectSequence(storage, units - 1000, 1000);
}

TEST(BlockStorage, UnitsThatDoNotDivideTheAtomLeaveAGapFreeChannel) {
    auto channel = std::make_shared<FakeChannel>();
    CStorage storage(channel, 3);
    const uint64_t per_block = kAtom / 3;  // 10922 units, 32766 bytes
    EXPECT_EQ(storage.BlockUnits(), per_block);
    std::vector<uint8_t> units(3 * (3 * per_block + 17));
    for (std::size_t i = 0; i < units.size(); ++i) units[i] = static_cast<uint8_t>(i * 7 + i / 251);
    ASSERT_EQ(storage.Write(units.data(), units.size() / 3), units.size() / 3);
    storage.Sync();
    EXPECT_EQ(channel->Bytes(), units);
    RawData view = storage.Request(per_block - 2, 10);
    EXPECT_EQ(view.Count(), 2u);  // one block at most
    EXPECT_EQ(std::memcmp(view.Ptr(), units.data() + 3 * (per_block - 2), 6), 0);
    EXPECT_EQ(storage.Request(per_block, 3 * per_block).Count(), per_block);
}

TEST(BlockStorage, ClearEmptiesAFileButAChannelWithItsOwnDataShowsItAgain) {
    auto file = std::make_shared<FakeChannel>(IDeviceChannel::kManagedFile);
    CStorage storage(file, 4);
    AppendSequence(storage, 5000);
    storage.Sync();
    EXPECT_EQ(storage.Clear(), 0);
    EXPECT_EQ(storage.Count(), 0u);
    EXPECT_EQ(file->clears.load(), 1);

    auto external = std::make_shared<FakeChannel>(IDeviceChannel::kExternalFile);
    const auto values = Sequence(0, 3000);
    const auto* bytes = reinterpret_cast<const uint8_t*>(values.data());
    external->SetBytes({bytes, bytes + 4 * values.size()});
    CStorage reader(external, 4);
    EXPECT_EQ(reader.Count(), 3000u);
    reader.Clear();
    EXPECT_EQ(reader.Count(), 3000u);
    EXPECT_EQ(external->clears.load(), 0);
    ExpectSequence(reader, 2990, 10);
}

TEST(BlockStorage, FailingChannelsAreLoggedAFailedReadCutsTheSizeAFullDiskKeepsTheCache) {
    LogCapture log;
    auto channel = std::make_shared<FakeChannel>();
    CStorage storage(channel, 4);
    AppendSequence(storage, 3 * kFloatsPerBlock);
    storage.Sync();
    storage.DropCache();  // every block must come back from the channel now
    channel->throw_on_read = true;
    uint32_t value = 0;
    EXPECT_EQ(storage.Read(kFloatsPerBlock + 1, &value, 1), 0u);
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "DataChannel Read Failed!!"));
    EXPECT_EQ(storage.Count(), kAtom * 1);  // the byte offset of block 1, taken as units

    auto full = std::make_shared<FakeChannel>();
    full->capacity = 2 * kAtom;
    CStorage cached(full, 4);
    cached.SetOption("ENABLE_THROTTLE", Vellum::Var(false));
    AppendSequence(cached, 4 * kFloatsPerBlock + 10);
    cached.Sync();
    EXPECT_TRUE(log.Contains(LogLevel::Error, "Storage Write Failed! Maybe Disk Full?"));
    ExpectSequence(cached, 0, cached.Count());
    AppendSequence(cached, 100);  // the storage goes on working
    ExpectSequence(cached, 4 * kFloatsPerBlock, 110);
}

TEST(BlockStorage, NearlyEmptyPoolNeverRecyclesAnotherStoragesBlocks) {
    CStorage a(std::make_shared<FakeChannel>(), 4), b(std::make_shared<FakeChannel>(), 4);
    for (CStorage* storage : {&a, &b}) AppendSequence(*storage, 4 * kFloatsPerBlock);
    for (CStorage* storage : {&a, &b}) EXPECT_EQ(BlockCache::Instance().CachedBlocks(storage->Id()), 4u);
}

}  // namespace
