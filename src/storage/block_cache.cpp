#include "storage/block_cache.h"

#include "host/logger.h"
#include "storage/memory_pool.h"

namespace __internal {

// ---------------------------------------------------------------------------------------
// BlockTable

namespace {
constexpr int kFirstTableBits = 10;
}  // namespace

BlockTable::BlockTable()
    : slots_(std::size_t{1} << kFirstTableBits), mask_(slots_.size() - 1), shift_(64 - kFirstTableBits) {}

std::size_t BlockTable::Home(uint64_t key) const {
    // Fibonacci hashing: the blocks of a storage have neighbouring keys, and the top bits
    // of the product spread them over the whole table.
    return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ull) >> shift_);
}

std::shared_ptr<CacheBlock>* BlockTable::Find(uint64_t key) {
    for (std::size_t i = Home(key);; i = (i + 1) & mask_) {
        Slot& slot = slots_[i];
        if (!slot.block) return nullptr;
        if (slot.key == key) return &slot.block;
    }
}

void BlockTable::Put(uint64_t key, std::shared_ptr<CacheBlock> block) {
    if (std::shared_ptr<CacheBlock>* present = Find(key)) {
        *present = std::move(block);
        return;
    }
    if (2 * (size_ + 1) > slots_.size()) Grow();
    std::size_t i = Home(key);
    while (slots_[i].block) i = (i + 1) & mask_;
    slots_[i].key = key;
    slots_[i].block = std::move(block);
    ++size_;
}

bool BlockTable::Erase(uint64_t key) {
    std::size_t hole = Home(key);
    for (;; hole = (hole + 1) & mask_) {
        if (!slots_[hole].block) return false;
        if (slots_[hole].key == key) break;
    }
    slots_[hole].block.reset();
    --size_;
    // The entries after the hole, up to the next free slot, move back into it when their
    // home lies outside (hole, entry]: otherwise a probe for them would stop at the hole.
    for (std::size_t i = (hole + 1) & mask_; slots_[i].block; i = (i + 1) & mask_) {
        const std::size_t home = Home(slots_[i].key);
        const bool stays = hole < i ? (home > hole && home <= i) : (home > hole || home <= i);
        if (stays) continue;
        slots_[hole].key = slots_[i].key;
        slots_[hole].block = std::move(slots_[i].block);
        hole = i;
    }
    return true;
}

void BlockTable::Grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    mask_ = slots_.size() - 1;
    --shift_;
    for (Slot& slot : old) {
        if (!slot.block) continue;
        std::size_t i = Home(slot.key);
        while (slots_[i].block) i = (i + 1) & mask_;
        slots_[i].key = slot.key;
        slots_[i].block = std::move(slot.block);
    }
}

// ---------------------------------------------------------------------------------------
// BlockCache

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

void BlockCache::Enter(uint64_t key, const std::shared_ptr<CacheBlock>& block, IndexSet::node_type index_node) {
    block->key = key;
    blocks_.Put(key, block);
    IndexSet& index = storage_index_[static_cast<uint32_t>(key >> 32)];
    // Blocks of a storage mostly enter in rising order: the end is the likely place.
    if (index_node) {
        index_node.value() = static_cast<uint32_t>(key);
        index.insert(index.end(), std::move(index_node));
    } else {
        index.insert(index.end(), static_cast<uint32_t>(key));
    }
}

BlockCache::IndexSet::node_type BlockCache::Extract(uint64_t key) {
    blocks_.Erase(key);
    auto it = storage_index_.find(static_cast<uint32_t>(key >> 32));
    if (it == storage_index_.end()) return {};
    IndexSet::node_type node = it->second.extract(static_cast<uint32_t>(key));
    if (it->second.empty()) storage_index_.erase(it);
    return node;
}

void BlockCache::Forget(uint64_t key) { Extract(key); }

BlockHandle BlockCache::Acquire(uint64_t key, BlockHandle::Mode mode, bool* found) {
    std::lock_guard lock(mutex_);
    if (std::shared_ptr<CacheBlock>* cached = blocks_.Find(key)) {
        if (found) *found = true;
        if ((*cached)->recycle_node) Unlink((*cached)->recycle_node);
        return BlockHandle(*cached, mode);
    }
    if (found) *found = false;

    if (RecycleDue()) {
        std::shared_ptr<CacheBlock> block = oldest_->block;
        if (block->state.load() != kClean) CacheInvariantBroken("recycled block is not clean");
        Unlink(oldest_);
        // The old key's index node carries the new key: no allocation.
        IndexSet::node_type index_node;
        if (const uint64_t old = block->key; old != CacheBlock::kNoKey) index_node = Extract(old);
        if (block->pins.load() != 0 || block->recycle_node != nullptr)
            CacheInvariantBroken("recycled block is still in use");
        block->length = 0;
        block->SetState(kEmpty);
        Enter(key, block, std::move(index_node));
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
    Enter(key, block);
    return BlockHandle(block, mode);
}

bool BlockCache::RecycleDue() {
    std::lock_guard lock(mutex_);
    if (oldest_ == nullptr) return false;
    // Fullness in tenths; a pool that went past its maximum counts as full.
    const float usage = CMemoryManager::GetMaxUsage();
    const unsigned tenth = usage >= 1.0f ? 10u : static_cast<unsigned>(static_cast<int>(usage * 100) / 10);
    return sequence_.load() - oldest_->sequence > Threshold(tenth);
}

BlockHandle BlockCache::AcquireCached(uint64_t key, BlockHandle::Mode mode) {
    std::lock_guard lock(mutex_);
    std::shared_ptr<CacheBlock>* cached = blocks_.Find(key);
    if (cached == nullptr) return BlockHandle();
    if ((*cached)->recycle_node) Unlink((*cached)->recycle_node);
    return BlockHandle(*cached, mode);
}

std::shared_ptr<CacheBlock> BlockCache::Find(uint64_t key) {
    std::lock_guard lock(mutex_);
    std::shared_ptr<CacheBlock>* cached = blocks_.Find(key);
    return cached == nullptr ? nullptr : *cached;
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
    if (std::shared_ptr<CacheBlock>* cached = blocks_.Find(key)) (*cached)->key = CacheBlock::kNoKey;
    Forget(key);
}

std::size_t BlockCache::DropStorage(uint32_t storage_id) {
    std::lock_guard lock(mutex_);
    auto it = storage_index_.find(storage_id);
    if (it == storage_index_.end()) return 0;
    const std::size_t dropped = it->second.size();
    for (uint32_t index : it->second) {
        const uint64_t key = BlockKey(storage_id, index);
        std::shared_ptr<CacheBlock>* cached = blocks_.Find(key);
        if (cached == nullptr) continue;
        (*cached)->key = CacheBlock::kNoKey;
        blocks_.Erase(key);
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
    return blocks_.Size();
}

std::size_t BlockCache::CachedBlocks(uint32_t storage_id) {
    std::lock_guard lock(mutex_);
    auto it = storage_index_.find(storage_id);
    return it == storage_index_.end() ? 0 : it->second.size();
}

}  // namespace __internal
