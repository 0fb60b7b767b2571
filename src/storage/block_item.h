#pragma once
// BlockItem: the handle through which outside code holds a cached block of a storage
// (StorageBase::GetBlock). It keeps one pin while it lives. Releasing it does not put
// the block on the recycle list, even when the last pin goes: the block stays cached
// until a reader or writer takes and releases it again.
//
// An empty item (out-of-range position) compares equal to nullptr and tests false.

#include <memory>

namespace __internal {
class CacheBlock;
}

class BlockItem {
public:
    BlockItem() = default;
    explicit BlockItem(std::shared_ptr<__internal::CacheBlock> block);
    ~BlockItem();
    BlockItem(BlockItem&& other) noexcept;
    BlockItem& operator=(BlockItem&& other) noexcept;
    BlockItem(const BlockItem&) = delete;
    BlockItem& operator=(const BlockItem&) = delete;

    // The block's data, null for an empty item.
    operator void*() const;
    explicit operator bool() const { return Data() != nullptr; }
    bool operator==(std::nullptr_t) const { return Data() == nullptr; }
    bool operator!=(std::nullptr_t) const { return Data() != nullptr; }

private:
    void* Data() const;
    void Drop();
    std::shared_ptr<__internal::CacheBlock> block_;
};
