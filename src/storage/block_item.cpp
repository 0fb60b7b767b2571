#include "storage/block_item.h"

#include "storage/cache_block.h"

BlockItem::BlockItem(std::shared_ptr<__internal::CacheBlock> block) : block_(std::move(block)) {
    if (block_) block_->AddPin();
}

BlockItem::~BlockItem() { Drop(); }

BlockItem::BlockItem(BlockItem&& other) noexcept : block_(std::move(other.block_)) {}

BlockItem& BlockItem::operator=(BlockItem&& other) noexcept {
    if (this != &other) {
        Drop();
        block_ = std::move(other.block_);
    }
    return *this;
}

void BlockItem::Drop() {
    if (block_) block_->RemovePin();
    block_.reset();
}

void* BlockItem::Data() const {
    if (!block_) return nullptr;
    // A non-empty item always stands on memory; anything else is a cache fault.
    if (!block_->HasData()) __internal::CacheInvariantBroken("block item without memory");
    return block_->data;
}

BlockItem::operator void*() const { return Data(); }
