#include "storage/block_cache.h"

#include "host/logger.h"
#include "storage/memory_pool.h"

namespace __internal {

BlockCache& BlockCache::Instance() {
    static auto* cache = new BlockCache;  // blocks may be released until the process ends
    return *cache;
}

BlockCache::BlockCache() {
    const uint64_t n = CMemoryManager::GetPoolExpandSize() / CMemoryManager::GetAtomSize();
    const uint64_t all = ~uint64_t{0};
    thresholds_ = {all, all, n * 32, n * 32, n * 8, n * 8, n * 2, n * 2, n / 2, 0, 0};
}

void BlockCache::Unlink(RecycleNode* node) {
    (node->previous ? node->previous->next : oldest_) = node->next;
    (node->next ? node->next->previous : newest_) = node->previous;
    node->next = node->previous = nullptr;
    --recycle_length_;
    // The node lives in its block: let go of the block last.
    std::shared_ptr<CacheBlock> block = std::move(node->block);
    block->recycle_node = nullptr;
}

void BlockCache::Enter(uint64_t key, const std::shared_ptr<CacheBlock>& block) {
    auto hint = blocks_.lower_bound(key);
    if (hint != blocks_.end() && hint->first == key) {
        block->key = key;
        hint->second = block;
        storage_index_[static_cast<uint32_t>(key >> 32)].insert(static_cast<uint32_t>(key));
        return;
    }
    Enter(key, block, hint);
}

void BlockCache::Enter(uint64_t key, const std::shared_ptr<CacheBlock>& block, BlockMap::const_iterator hint,
                       BlockMap::node_type map_node, IndexSet::node_type index_node) {
    block->key = key;
    if (map_node) {
        map_node.key() = key;
        map_node.mapped() = block;
        blocks_.insert(hint, std::move(map_node));
    } else {
        blocks_.emplace_hint(hint, key, block);
    }
    IndexSet& index = storage_index_[static_cast<uint32_t>(key >> 32)];
    // Blocks of a storage mostly enter in rising order: the end is the likely place.
    if (index_node) {
        index_node.value() = static_cast<uint32_t>(key);
        index.insert(index.end(), std::move(index_node));
    } else {
        index.insert(index.end(), static_cast<uint32_t>(key));
    }
}

std::pair<BlockCache::BlockMap::node_type, BlockCache::IndexSet::node_type> BlockCache::Extract(uint64_t key) {
    std::pair<BlockMap::node_type, IndexSet::node_type> nodes;
    nodes.first = blocks_.extract(key);
    auto it = storage_index_.find(static_cast<uint32_t>(key >> 32));
    if (it == storage_index_.end()) return nodes;
    nodes.second = it->second.extract(static_cast<uint32_t>(key));
    if (it->second.empty()) storage_index_.erase(it);
    return nodes;
}

void BlockCache::Forget(uint64_t key) { Extract(key); }

BlockHandle BlockCache::Acquire(uint64_t key, BlockHandle::Mode mode, bool* found) {
    std::lock_guard lock(mutex_);
    // One look-up: the block of key, or the place where a new one goes.
    const auto it = blocks_.lower_bound(key);
    const bool cached = it != blocks_.end() && it->first == key;
    if (found) *found = cached;
    if (cached) {
        if (it->second->recycle_node) Unlink(it->second->recycle_node);
        return BlockHandle(it->second, mode);
    }

    // Fullness in tenths; a pool that went past its maximum counts as full.
    const float usage = CMemoryManager::GetMaxUsage();
    const unsigned tenth = usage >= 1.0f ? 10u : static_cast<unsigned>(static_cast<int>(usage * 100) / 10);
    if (oldest_ != nullptr && sequence_.load() - oldest_->sequence > Threshold(tenth)) {
        std::shared_ptr<CacheBlock> block = oldest_->block;
        if (block->state.load() != kClean) CacheInvariantBroken("recycled block is not clean");
        Unlink(oldest_);
        std::pair<BlockMap::node_type, IndexSet::node_type> nodes;
        // The old key's nodes carry the new key: no allocation. If the old key's node is
        // the hint itself, the one behind it takes its place.
        auto hint = it;
        if (const uint64_t old = block->key; old != CacheBlock::kNoKey) {
            if (hint != blocks_.end() && hint->first == old) ++hint;
            nodes = Extract(old);
        }
        if (block->pins.load() != 0 || block->recycle_node != nullptr)
            CacheInvariantBroken("recycled block is still in use");
        block->length = 0;
        block->SetState(kEmpty);
        Enter(key, block, hint, std::move(nodes.first), std::move(nodes.second));
        recycled_.fetch_add(1, std::memory_order_relaxed);
        return BlockHandle(block, mode);
    }

    std::shared_ptr<CMemoryBlock> memory = CMemoryManager::Malloc(1);
    if (!memory) {
        CLogger::DefaultLogger().Warning("Cache Block Alloc Failed!!");
        return BlockHandle(std::make_shared<CacheBlock>(nullptr, nullptr, 0), mode);
    }
    auto* data = static_cast<unsigned char*>(memory->Ptr());
    auto block = std::make_shared<CacheBlock>(std::move(memory), data,
                                              static_cast<uint32_t>(CMemoryManager::GetAtomSize()));
    block->SetState(kEmpty);
    Enter(key, block, it);
    return BlockHandle(block, mode);
}

BlockHandle BlockCache::AcquireCached(uint64_t key, BlockHandle::Mode mode) {
    std::lock_guard lock(mutex_);
    auto it = blocks_.find(key);
    if (it == blocks_.end()) return BlockHandle();
    if (it->second->recycle_node) Unlink(it->second->recycle_node);
    return BlockHandle(it->second, mode);
}

std::shared_ptr<CacheBlock> BlockCache::Find(uint64_t key) {
    std::lock_guard lock(mutex_);
    auto it = blocks_.find(key);
    return it == blocks_.end() ? nullptr : it->second;
}

void BlockCache::Insert(uint64_t key, std::shared_ptr<CacheBlock> block) {
    std::lock_guard lock(mutex_);
    Remove(key);
    Enter(key, block);
}

void BlockCache::Remove(uint64_t key) {
    std::lock_guard lock(mutex_);
    // The block forgets its key too: if it waits on the recycle list, its reuse must not
    // remove a newer block of the same key.
    if (auto it = blocks_.find(key); it != blocks_.end()) it->second->key = CacheBlock::kNoKey;
    Forget(key);
}

std::size_t BlockCache::DropStorage(uint32_t storage_id) {
    std::lock_guard lock(mutex_);
    auto it = storage_index_.find(storage_id);
    if (it == storage_index_.end()) return 0;
    const std::size_t dropped = it->second.size();
    for (uint32_t index : it->second) {
        auto block = blocks_.find(BlockKey(storage_id, index));
        if (block == blocks_.end()) continue;
        block->second->key = CacheBlock::kNoKey;
        blocks_.erase(block);
    }
    storage_index_.erase(it);
    return dropped;
}

void BlockCache::Pin(const std::shared_ptr<CacheBlock>& block) {
    std::lock_guard lock(mutex_);
    if (block->recycle_node) Unlink(block->recycle_node);
    block->AddPin();
}

void BlockCache::Unpin(const std::shared_ptr<CacheBlock>& block) {
    // Under the mutex, so that no Acquire can pin the block between the last pin going
    // and its entry into the list.
    std::lock_guard lock(mutex_);
    if (block->RemovePin() != 0 || !block->HasData()) return;
    if (block->recycle_node != nullptr) CacheInvariantBroken("released block is on the recycle list already");
    block->state = kClean;
    RecycleNode* node = &block->node_storage;
    node->next = nullptr;
    node->previous = newest_;
    node->block = block;
    node->sequence = sequence_++;
    (newest_ ? newest_->next : oldest_) = node;
    newest_ = node;
    block->recycle_node = node;
    ++recycle_length_;
}

std::size_t BlockCache::RecycleListLength() {
    std::lock_guard lock(mutex_);
    return recycle_length_;
}

std::size_t BlockCache::CachedBlocks() {
    std::lock_guard lock(mutex_);
    return blocks_.size();
}

std::size_t BlockCache::CachedBlocks(uint32_t storage_id) {
    std::lock_guard lock(mutex_);
    auto it = storage_index_.find(storage_id);
    return it == storage_index_.end() ? 0 : it->second.size();
}

}  // namespace __internal
