#pragma once
// BlockCache: the process-wide cache of storage blocks.
//
// It maps block keys (storage id in the high 32 bits, block index in the low 32) to
// cached blocks, keeps an index of the blocks of each storage, and keeps unpinned
// blocks on a recycle list in release order. A block for a new key is either the
// oldest block of the list, reused, or a fresh atom of the pool; which one depends on
// how full the pool is against its maximum (the threshold table): an almost empty pool
// grows and keeps old data warm, a full one reuses the oldest block at once. Age is
// counted in releases, not in time.
//
// All operations take the cache mutex (recursive); callers that need several steps to
// be one take Mutex() around them.
//
// The blocks are found through a hash table with open addressing (BlockTable): every
// read of a storage looks its block up, and a look-up there touches one or two cache
// lines where an ordered map of thousands of blocks walks a dozen scattered nodes.

#include "storage/cache_block.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

namespace __internal {

inline uint64_t BlockKey(uint32_t storage_id, uint64_t block_index) {
    return (static_cast<uint64_t>(storage_id) << 32) | (block_index & 0xFFFFFFFFu);
}

// Block keys to cached blocks: linear probing over a power-of-two table kept at most half
// full, deletion by shifting the following entries back (no tombstones). Pointers that
// Find gives stay valid until the next Put or Erase.
class BlockTable {
public:
    BlockTable();
    std::shared_ptr<CacheBlock>* Find(uint64_t key);
    // Puts block (not null) under key, replacing what was there.
    void Put(uint64_t key, std::shared_ptr<CacheBlock> block);
    // False when key wasn't there.
    bool Erase(uint64_t key);
    std::size_t Size() const { return size_; }

private:
    struct Slot {
        uint64_t key = 0;
        std::shared_ptr<CacheBlock> block;  // null: the slot is free
    };
    std::size_t Home(uint64_t key) const;
    void Grow();

    std::vector<Slot> slots_;
    std::size_t mask_ = 0;
    int shift_ = 0;
    std::size_t size_ = 0;
};

class BlockCache {
public:
    // The process-wide cache, built on first use and kept until the process ends.
    static BlockCache& Instance();

    std::recursive_mutex& Mutex() { return mutex_; }

    // A handle on the block of key: the cached block, taken off the recycle list, or a
    // new one (recycled or fresh, state empty, length 0). Without memory, the handle
    // holds a block without data that is in no map; it tests false.
    // found, if given, tells whether the block was cached already.
    BlockHandle Acquire(uint64_t key, BlockHandle::Mode mode, bool* found = nullptr);
    // A handle on the cached block of key, taken off the recycle list; an empty handle
    // (no block at all) when the key isn't cached.
    BlockHandle AcquireCached(uint64_t key, BlockHandle::Mode mode);
    // The cached block of key, or null; the recycle list is not touched.
    std::shared_ptr<CacheBlock> Find(uint64_t key);
    bool Contains(uint64_t key) { return Find(key) != nullptr; }
    // Puts block under key, replacing (and forgetting) what was there.
    void Insert(uint64_t key, std::shared_ptr<CacheBlock> block);
    // Forgets the entry of key; the block's key becomes kNoKey.
    void Remove(uint64_t key);
    // Forgets every cached block of a storage: their keys become kNoKey. Blocks on the
    // recycle list stay there until they are reused. Gives the number dropped.
    std::size_t DropStorage(uint32_t storage_id);

    // Adds a pin to a cached block, taking it off the recycle list.
    void Pin(const std::shared_ptr<CacheBlock>& block);
    // Removes one pin; a block with data whose last pin went enters the recycle list.
    void Unpin(const std::shared_ptr<CacheBlock>& block);

    // Whether a block for a new key would be a recycled one now, not fresh memory: loading
    // a block then pushes an older one out of the cache.
    bool RecycleDue();

    // The recycle threshold for a pool fullness given in tenths (0 to 10).
    uint64_t Threshold(unsigned tenth) const { return thresholds_[tenth > 10 ? 10 : tenth]; }
    std::size_t RecycleListLength();
    // Blocks taken from the recycle list for a new key so far: a statistic.
    uint64_t RecycledBlocks() const { return recycled_.load(std::memory_order_relaxed); }
    std::size_t CachedBlocks();
    std::size_t CachedBlocks(uint32_t storage_id);

private:
    BlockCache();
    using IndexSet = std::set<uint32_t>;

    void Unlink(RecycleNode* node);
    // Puts block under key. Reuses the index node given, if any, so that a recycled block
    // costs no allocation.
    void Enter(uint64_t key, const std::shared_ptr<CacheBlock>& block, IndexSet::node_type index_node = {});
    void Forget(uint64_t key);
    // Forget, handing out the index node that held key.
    IndexSet::node_type Extract(uint64_t key);

    std::recursive_mutex mutex_;
    RecycleNode* newest_ = nullptr;
    RecycleNode* oldest_ = nullptr;
    std::size_t recycle_length_ = 0;
    BlockTable blocks_;
    std::map<uint32_t, IndexSet> storage_index_;
    std::atomic<uint64_t> sequence_{0};
    std::atomic<uint64_t> recycled_{0};
    std::array<uint64_t, 11> thresholds_{};
};

}  // namespace __internal
