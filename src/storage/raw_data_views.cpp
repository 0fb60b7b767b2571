#include "storage/raw_data_views.h"

#include "storage/block_cache.h"

namespace RawDataImpl {

CacheRawData::CacheRawData(std::vector<std::shared_ptr<__internal::CacheBlock>> blocks, const void* pointer,
                           uint32_t count)
    : blocks_(std::move(blocks)), pointer_(pointer), count_(count) {}

CacheRawData::~CacheRawData() {
    for (const auto& block : blocks_) __internal::BlockCache::Instance().Unpin(block);
}

}  // namespace RawDataImpl
