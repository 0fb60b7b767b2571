#pragma once
// The two kinds of RawData that storages lend: a view of memory outside the cache
// (a memory channel), and a view over pinned cached blocks.

#include "host/raw_data.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace __internal {
class CacheBlock;
}

namespace RawDataImpl {

// Memory of someone else; the view owns nothing and the memory must outlive it.
class ExtMemRawData final : public RawData::MyData {
public:
    ExtMemRawData(const void* pointer, uint32_t count) : pointer_(pointer), count_(count) {}
    const void* Ptr() const override { return pointer_; }
    uint64_t Count() const override { return count_; }

private:
    const void* pointer_;
    uint32_t count_;
};

// Cached blocks, each carrying one pin of the view. Destruction removes the pins in
// order; a block whose last pin goes enters the recycle list.
class CacheRawData final : public RawData::MyData {
public:
    CacheRawData(std::vector<std::shared_ptr<__internal::CacheBlock>> blocks, const void* pointer, uint32_t count);
    ~CacheRawData() override;
    CacheRawData(const CacheRawData&) = delete;
    CacheRawData& operator=(const CacheRawData&) = delete;
    const void* Ptr() const override { return pointer_; }
    uint64_t Count() const override { return count_; }

private:
    std::vector<std::shared_ptr<__internal::CacheBlock>> blocks_;
    const void* pointer_;
    uint32_t count_;
};

}  // namespace RawDataImpl
