#include "storage/cache_block.h"

#include "storage/block_cache.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace __internal {

void CacheInvariantBroken(const char* what) {
    std::fprintf(stderr, "wavestore: block cache invariant broken: %s\n", what);
    std::abort();
}

CacheBlock::CacheBlock(std::shared_ptr<CMemoryBlock> memory_block, unsigned char* block_data, uint32_t block_capacity)
    : memory(std::move(memory_block)), data(block_data), capacity(block_capacity) {}

bool CacheBlock::SetState(int32_t to) {
    int32_t from = state.load();
    const bool allowed = from == kEmpty || from == kClean || (from == kDirty && to == kSyncQueued) ||
                         (from == kSyncQueued && to == kSyncing) ||
                         (from == kSyncing && (to == kClean || to == kDirty));
    return allowed && state.compare_exchange_strong(from, to);
}

void CacheBlock::AddPin() {
    if (pins.fetch_add(1) < 0) CacheInvariantBroken("pin count below zero");
}

int32_t CacheBlock::RemovePin() {
    const int32_t before = pins.fetch_sub(1);
    if (before < 1) CacheInvariantBroken("pin removed from an unpinned block");
    return before - 1;
}

BlockHandle::BlockHandle(std::shared_ptr<CacheBlock> block, Mode mode) : block_(std::move(block)), mode_(mode) {
    if (block_) block_->AddPin();
}

BlockHandle BlockHandle::Adopt(std::shared_ptr<CacheBlock> block, Mode mode) {
    BlockHandle handle;
    handle.block_ = std::move(block);
    handle.mode_ = mode;
    return handle;
}

BlockHandle::BlockHandle(BlockHandle&& other) noexcept : block_(std::move(other.block_)), mode_(other.mode_) {}

BlockHandle& BlockHandle::operator=(BlockHandle&& other) noexcept {
    if (this != &other) {
        Release();
        block_ = std::move(other.block_);
        mode_ = other.mode_;
    }
    return *this;
}

void BlockHandle::Release() {
    if (!block_) return;
    if (mode_ == kWrite) {
        block_->SetState(kDirty);
    } else if (mode_ == kSync) {
        block_->SetState(kClean);
    }
    BlockCache::Instance().Unpin(block_);
    block_.reset();
}

}  // namespace __internal
