// The memory pool: search, expansion, exhaustion, usages and the settings.

#include "storage/memory_pool.h"
#include "storage/memory_pool_state.h"
#include "support/log_capture.h"
#include "support/small_pool.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

using __internal::MemoryPool;
using testing_support::LogCapture;

namespace {

constexpr uint64_t kMiB = 1048576;

// A system allocator that refuses sizes above a limit, and counts what it gives.
struct FakeSystem {
    uint64_t largest = ~uint64_t{0};
    int given = 0;
    std::vector<uint64_t> asked;

    MemoryPool::SystemMemory Memory() {
        return {[this](std::size_t bytes) -> void* {
                    asked.push_back(bytes);
                    if (bytes > largest) return nullptr;
                    ++given;
                    return std::aligned_alloc(4096, bytes);
                },
                [](void* p) { std::free(p); }};
    }
};

TEST(MemoryPool, FirstFitFillsAChunkThenExpands) {
    FakeSystem system;
    MemoryPool pool({1, 1, 2048}, system.Memory());
    EXPECT_EQ(pool.AtomSize(), 32768u);
    EXPECT_EQ(pool.AllocSize(), kMiB);
    EXPECT_EQ(pool.CurrentUsage(), 0.0f);
    EXPECT_EQ(pool.MaxUsage(), 0.0f);

    std::vector<std::shared_ptr<CMemoryBlock>> blocks;
    for (int i = 0; i < 32; ++i) blocks.push_back(pool.Malloc(1));
    EXPECT_EQ(pool.ChunkCount(), 1u);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(blocks[i]->MemOffset(), i);
    EXPECT_EQ(static_cast<char*>(blocks[3]->Ptr()) - static_cast<char*>(blocks[0]->Ptr()), 3 * 32768);
    EXPECT_FLOAT_EQ(pool.CurrentUsage(), 1.0f);

    blocks[5].reset();  // a freed atom is found again without expanding
    blocks[5] = pool.Malloc(1);
    EXPECT_EQ(blocks[5]->MemOffset(), 5);
    EXPECT_EQ(pool.ChunkCount(), 1u);

    blocks.push_back(pool.Malloc(1));
    EXPECT_EQ(pool.ChunkCount(), 2u);
    EXPECT_EQ(blocks.back()->MemOffset(), 0);
    EXPECT_NE(blocks.back()->MemKey(), blocks[0]->MemKey());
    EXPECT_EQ(pool.CurrentSize(), 2 * kMiB);
    EXPECT_FLOAT_EQ(pool.MaxUsage(), 33.0f / 65536.0f);
    EXPECT_FLOAT_EQ(pool.CurrentUsage(), 33.0f / 64.0f);

    EXPECT_EQ(pool.Malloc(33), nullptr);  // more than one expansion: null, nothing logged
    auto empty = pool.Malloc(0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->Size(), 0);
}

TEST(MemoryPool, SearchStepsPastTheAtomAfterAFailedRun) {
    FakeSystem system;
    MemoryPool pool({1, 1, 2048}, system.Memory());
    std::vector<std::shared_ptr<CMemoryBlock>> singles;
    for (int i = 0; i < 6; ++i) singles.push_back(pool.Malloc(1));
    // Atoms: 0 used, 1 free, 2 used, 3 free, 4 free, 5 free.
    singles[1].reset();
    singles[3].reset();
    singles[4].reset();
    singles[5].reset();
    auto pair = pool.Malloc(2);
    ASSERT_NE(pair, nullptr);
    EXPECT_EQ(pair->MemOffset(), 4);  // the run 3-4 is stepped over
}

TEST(MemoryPool, FullPoolRefusesUntilSomethingIsFreed) {
    FakeSystem system;
    MemoryPool pool({1, 1, 2}, system.Memory());
    std::vector<std::shared_ptr<CMemoryBlock>> blocks;
    for (int i = 0; i < 64; ++i) blocks.push_back(pool.Malloc(1));
    ASSERT_NE(blocks.back(), nullptr);
    {
        LogCapture log;
        EXPECT_EQ(pool.Malloc(1), nullptr);
        EXPECT_EQ(pool.Malloc(1), nullptr);
        int errors = 0;
        for (const auto& [level, text] : log.Lines())
            errors += level == LogLevel::Error && text == "MemoryPool: Memory Expand Failed!!";
        EXPECT_EQ(errors, 2);
    }
    EXPECT_FLOAT_EQ(pool.MaxUsage(), 1.0f);
    blocks[40].reset();
    EXPECT_NE(pool.Malloc(1), nullptr);
    EXPECT_EQ(system.given, 2);
}

TEST(MemoryPool, ExpansionHalvesThenGoesOutOfMemoryForGood) {
    FakeSystem system;
    system.largest = kMiB;
    MemoryPool pool({1, 4, 64}, system.Memory());
    auto first = pool.Malloc(1);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(system.asked, (std::vector<uint64_t>{4 * kMiB, 2 * kMiB, kMiB}));
    EXPECT_EQ(pool.TotalAtoms(), 32u);  // a chunk of the halved size

    system.largest = 0;  // the system refuses everything from now on
    std::vector<std::shared_ptr<CMemoryBlock>> blocks;
    for (int i = 0; i < 31; ++i) blocks.push_back(pool.Malloc(1));
    LogCapture log;
    EXPECT_EQ(pool.Malloc(1), nullptr);
    EXPECT_TRUE(log.Contains(LogLevel::Warning, "MemoryPool::Expand false, OOM:true, SIZE: 1 MB, MAX_SIZE: 1 MB"));
    EXPECT_TRUE(log.Contains(LogLevel::Error, "MemoryPool: Memory Expand Failed!!"));
    EXPECT_EQ(pool.MaxSize(), kMiB);
    EXPECT_FLOAT_EQ(pool.MaxUsage(), pool.CurrentUsage());
    const auto asked = system.asked.size();
    EXPECT_EQ(pool.Malloc(1), nullptr);
    EXPECT_EQ(system.asked.size(), asked);  // no retry after the out-of-memory event
}

TEST(MemoryPool, OversizedExpansionIsAdjustedTo512Atoms) {
    FakeSystem system;
    LogCapture log;
    MemoryPool pool({1, 1024, 2048}, system.Memory());
    EXPECT_EQ(pool.AllocSize(), 16 * kMiB);
    EXPECT_TRUE(log.Contains(LogLevel::Warning,
                             "MemoryPool::Constructor: AllocSize(1073741824) too large, over 512 times to "
                             "AtomSize(32768), adjusted to 16777216"));
    auto big = pool.Malloc(512);
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(big->Size(), 16 * 1024 * 1024);
}

TEST(MemoryPool, ReAllocMovesCopiesAndGrowsInPlace) {
    FakeSystem system;
    MemoryPool pool({1, 1, 2048}, system.Memory());
    auto block = pool.Malloc(1);
    std::memset(block->Ptr(), 0x5A, 32768);
    auto moved = pool.ReAlloc(block, 2, 2);  // must move
    ASSERT_NE(moved, nullptr);
    EXPECT_NE(moved->Ptr(), block->Ptr());
    EXPECT_EQ(static_cast<unsigned char*>(moved->Ptr())[32767], 0x5A);
    EXPECT_EQ(pool.ReAlloc(moved, 2, 0), moved);            // same size: same block
    EXPECT_EQ(pool.ReAlloc(moved, 33, 2), nullptr);         // above one expansion
    auto fresh = pool.ReAlloc(nullptr, 1, 0);               // null block: a new one
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->MemSize(), 1);
}

TEST(MemoryPool, ThreadsAllocateAndFreeConcurrently) {
    MemoryPool pool({1, 1, 2048});
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&pool, t] {
            std::vector<std::shared_ptr<CMemoryBlock>> mine;
            for (int i = 0; i < 500; ++i) {
                mine.push_back(pool.Malloc(1));
                ASSERT_NE(mine.back(), nullptr);
                static_cast<unsigned char*>(mine.back()->Ptr())[0] = static_cast<unsigned char>(t);
                if (i % 3 == 0) mine.erase(mine.begin());
            }
            for (const auto& block : mine) EXPECT_EQ(static_cast<unsigned char*>(block->Ptr())[0], t);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(pool.UsedAtoms(), 0u);
}

}  // namespace
