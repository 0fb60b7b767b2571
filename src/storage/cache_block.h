#pragma once
// CacheBlock: one block of a storage held in pool memory, its state machine and pins;
// BlockHandle: a scoped pin with the state change that its release makes.
//
// States: 0 empty (just assigned), 1 dirty (the channel lacks its data), 2 sync queued,
// 3 syncing, 4 clean. From 0 and 4 any state may follow; from 1 only 2; from 2 only 3;
// from 3 only 4 or 1. Other requests are ignored. A change is one compare-and-swap, so a
// change that raced away leaves the other writer's state.
//
// Broken pin or state invariants end the process: they mean the cache has lost track of
// memory that readers may still use.

#include <atomic>
#include <cstdint>
#include <memory>

class CMemoryBlock;

namespace __internal {

enum BlockState : int32_t { kEmpty = 0, kDirty = 1, kSyncQueued = 2, kSyncing = 3, kClean = 4 };

class CacheBlock;

// A place on the recycle list. Each block carries its own, so that the list costs no
// allocation; while linked, the node holds the block.
struct RecycleNode {
    RecycleNode* next = nullptr;      // towards the newest end
    RecycleNode* previous = nullptr;  // towards the oldest end
    std::shared_ptr<CacheBlock> block;
    uint64_t sequence = 0;
};

// Reports a broken invariant of the block cache and aborts.
[[noreturn]] void CacheInvariantBroken(const char* what);

class CacheBlock {
public:
    static constexpr uint64_t kNoKey = ~uint64_t{0};

    // A block on an atom of memory; data null when there was no memory.
    CacheBlock(std::shared_ptr<CMemoryBlock> memory, unsigned char* data, uint32_t capacity);

    std::atomic<uint32_t> length{0};  // bytes of valid data
    std::shared_ptr<CMemoryBlock> memory;
    std::atomic<int32_t> state{kClean};
    unsigned char* const data;
    const uint32_t capacity;
    // Changed under the cache mutex; read without it by the writer, which tests whether
    // its tail block still stands under its key.
    std::atomic<uint64_t> key{kNoKey};
    RecycleNode* recycle_node = nullptr;  // guarded by the cache mutex; &node_storage while listed
    RecycleNode node_storage;
    std::atomic<int32_t> pins{0};

    bool HasData() const { return data != nullptr; }
    // The guarded setter; false when the change is not allowed or raced away.
    bool SetState(int32_t to);
    void AddPin();
    // Gives the count after removal.
    int32_t RemovePin();
};

class BlockHandle {
public:
    enum Mode : int { kRead = 0, kWrite = 1, kSync = 2 };

    BlockHandle() = default;
    // Pins block.
    BlockHandle(std::shared_ptr<CacheBlock> block, Mode mode);
    // A handle that takes over a pin the block carries already.
    static BlockHandle Adopt(std::shared_ptr<CacheBlock> block, Mode mode);
    ~BlockHandle() { Release(); }
    BlockHandle(BlockHandle&& other) noexcept;
    BlockHandle& operator=(BlockHandle&& other) noexcept;
    BlockHandle(const BlockHandle&) = delete;
    BlockHandle& operator=(const BlockHandle&) = delete;

    void SetMode(Mode mode) { mode_ = mode; }
    // Lets go of the block without a state change, leaving its pin to the caller.
    std::shared_ptr<CacheBlock> Detach() { return std::move(block_); }
    CacheBlock* operator->() const { return block_.get(); }
    const std::shared_ptr<CacheBlock>& Block() const { return block_; }
    // True when the block has memory.
    explicit operator bool() const { return block_ && block_->HasData(); }

    // Write mode: 0, 3 or 4 become 1; sync mode: 0, 3 or 4 become 4. Then the pin goes,
    // and a block with data whose last pin went enters the recycle list.
    void Release();

private:
    std::shared_ptr<CacheBlock> block_;
    Mode mode_ = kRead;
};

}  // namespace __internal
