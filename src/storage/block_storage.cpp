#include "storage/block_storage.h"

#include "host/logger.h"
#include "host/string_utils.h"
#include "host/thread_pool.h"
#include "host/time_span.h"
#include "storage/block_cache.h"
#include "storage/device_channels.h"
#include "storage/export_manager.h"
#include "storage/memory_pool.h"
#include "storage/raw_data_views.h"
#include "storage/storage_sync_manager.h"
#include "storage/vectored_channel.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

using __internal::BlockCache;
using __internal::BlockHandle;
using __internal::CacheBlock;
using __internal::SyncControlBlock;

namespace {

std::atomic<uint32_t> g_next_storage_id{0};
std::atomic<unsigned int> g_pending_limit{2};
// Off by default: a reader that comes back to the same blocks (the index summary's
// column ends, say) would read them from the channel every time.
std::atomic<CStorage::UncachedReads> g_uncached_reads{CStorage::UncachedReads::kNever};
std::atomic<bool> g_reload_at_full_pool{false};

uint64_t AtomSize() { return CMemoryManager::GetAtomSize(); }

// Atoms of one pool expansion: the longest contiguous reload is half of it.
uint64_t ExpansionAtoms() { return CMemoryManager::GetPoolExpandSize() / AtomSize(); }

// Atoms that the pool can still give before it reaches its maximum.
uint64_t PoolRoomAtoms() {
    const double max_atoms = static_cast<double>(CMemoryManager::GetMaxPoolSize() / AtomSize());
    const double used = static_cast<double>(CMemoryManager::GetMaxUsage()) * max_atoms;
    return used >= max_atoms ? 0 : static_cast<uint64_t>(max_atoms - used + 0.5);
}

// The longest run of blocks that one vectored read loads, and how far a sequential
// reader reads ahead.
constexpr uint64_t kMaxRunBlocks = 64;
constexpr uint64_t kReadAheadBlocks = 8;
// The most blocks that one uncached read copies with the cache mutex held.
constexpr uint64_t kMaxUncachedBlocks = 256;

}  // namespace

void CStorage::SetPendingLimit(unsigned int limit) { g_pending_limit = limit == 0 ? 1 : limit; }
unsigned int CStorage::PendingLimit() { return g_pending_limit; }
void CStorage::SetUncachedReads(UncachedReads mode) { g_uncached_reads = mode; }
CStorage::UncachedReads CStorage::GetUncachedReads() { return g_uncached_reads; }
void CStorage::SetReloadAtFullPool(bool reload) { g_reload_at_full_pool = reload; }

CStorage::CStorage(std::shared_ptr<IDeviceChannel> channel, uint32_t unit_size)
    : id_(g_next_storage_id++), unit_size_(unit_size), control_(std::make_shared<SyncControlBlock>(nullptr, id_ % __internal::StorageSyncManager::kServices)) {
    __internal::StorageSyncManager::Instance().Register(this);
    if (channel) Bind(std::move(channel));
}

CStorage::~CStorage() {
    Clear();
    __internal::StorageSyncManager::Instance().Unregister(this);
}

uint64_t CStorage::BlockUnits() { return unit_size_ == 0 ? 0 : AtomSize() / unit_size_; }

uint64_t CStorage::UsableBlockBytes() const { return unit_size_ == 0 ? 0 : AtomSize() - AtomSize() % unit_size_; }

uint64_t CStorage::Key(uint64_t block) const { return __internal::BlockKey(id_, block); }

uint64_t CStorage::Count() { return size_ - start_; }

std::shared_ptr<SyncControlBlock> CStorage::Control() const {
    std::lock_guard lock(control_mutex_);
    return control_;
}

void CStorage::SetOption(const std::string& name, const Vellum::Var& value) {
    if (StringCompare(name, "enable_throttle", true) == 0) throttle_ = value.ToBool();
}

bool CStorage::ChangeUnitSize(uint32_t unit, uint32_t* old) {
    if (size_ != 0) return false;
    if (old) *old = unit_size_;
    unit_size_ = unit;
    return true;
}

void CStorage::SetSizeLimit(uint64_t bytes) {
    if (auto* file = dynamic_cast<IFileCache*>(channel_.get())) file->SetSizeLimit(bytes);
}

int CStorage::DropCache() { return static_cast<int>(BlockCache::Instance().DropStorage(id_)); }

// ---------------------------------------------------------------------------------------
// Appending

uint64_t CStorage::Write(const void* data, uint64_t count) {
    const uint64_t units_per_block = BlockUnits();
    // A unit larger than an atom (or of no size) fits in no block.
    if (data == nullptr || count == 0 || units_per_block == 0) return 0;
    // A storage without channel has nothing to write to: its full blocks turn clean at
    // once, nothing is queued, and there is nothing for a throttle to wait on.
    std::shared_ptr<SyncControlBlock> control;
    if (channel_) {
        control = Control();
        if (throttle_)
            while (control->pending >= g_pending_limit) SystemSleep(TimeSpan::FromMicroseconds(10));
    }
    BlockCache& cache = BlockCache::Instance();
    const auto* source = static_cast<const unsigned char*>(data);
    uint64_t block = size_ / units_per_block;
    uint64_t offset = size_ % units_per_block;
    uint64_t done = 0;
    while (done < count) {
        CacheBlock* target = nullptr;
        if (tail_block_ && tail_key_ == Key(block) && tail_block_->key.load() == tail_key_) {
            // The block being filled, pinned by the writer: no look-up, no lock.
            target = tail_block_.get();
        } else {
            BlockHandle queued;
            BlockHandle cached;
            {
                std::lock_guard lock(cache.Mutex());
                bool found = false;
                BlockHandle handle = cache.Acquire(Key(block), BlockHandle::kWrite, &found);
                if (found) {
                    cached = std::move(handle);  // a cached partial tail that isn't ours
                } else {
                    // A new block: the one filled before is done. It goes even when
                    // there is no memory for the new one, so that it can be recycled.
                    queued = FinishTail(block, control != nullptr);
                    if (handle) {
                        // The handle's pin becomes the writer's extra pin.
                        tail_block_ = handle.Detach();
                        tail_key_ = Key(block);
                        target = tail_block_.get();
                    } else {
                        handle.SetMode(BlockHandle::kRead);
                    }
                }
            }
            if (queued.Block()) control->Enqueue(std::move(queued), UsableBlockBytes() * (block - 1));
            if (cached.Block()) {
                const uint64_t have = cached->length / unit_size_;
                const uint64_t n = std::min(count - done, units_per_block - std::min(have, units_per_block));
                std::memcpy(cached->data + unit_size_ * offset, source + unit_size_ * done, unit_size_ * n);
                cached->length = static_cast<uint32_t>((n + have) * unit_size_);
                done += n;
                ++block;
                offset = 0;
                continue;  // the handle's release marks it dirty
            }
            if (target == nullptr) {
                CLogger::DefaultLogger().Debug("Can not alloc cache, retry after 1ms");
                SystemSleep(TimeSpan::FromMilliseconds(1));
                continue;
            }
            // A new block is filled from its start.
            const uint64_t n = std::min(count - done, units_per_block);
            std::memcpy(target->data, source + unit_size_ * done, unit_size_ * n);
            target->length = static_cast<uint32_t>(unit_size_ * n);
            target->SetState(__internal::kDirty);
            done += n;
            ++block;
            offset = 0;
            continue;
        }
        const uint64_t have = target->length / unit_size_;
        const uint64_t n = std::min(count - done, units_per_block - std::min(have, units_per_block));
        std::memcpy(target->data + unit_size_ * offset, source + unit_size_ * done, unit_size_ * n);
        target->length = static_cast<uint32_t>((n + have) * unit_size_);
        // As a write handle's release: empty, syncing or clean become dirty.
        target->SetState(__internal::kDirty);
        done += n;
        ++block;
        offset = 0;
    }
    size_ += done;
    if (write_callback_) write_callback_(done, data);
    return done;
}

BlockHandle CStorage::FinishTail(uint64_t block, bool to_channel) {
    if (!tail_block_) return {};
    std::shared_ptr<CacheBlock> previous = std::move(tail_block_);
    // A tail whose cache entry was dropped meanwhile is left alone: its pin went with it.
    if (previous->key.load() != tail_key_) return {};
    BlockCache& cache = BlockCache::Instance();
    if (block == 0 || tail_key_ != Key(block - 1)) {
        // The size was cut under the writer (a channel read failed): the old tail is not
        // the block before this one, and it isn't written.
        cache.Unpin(previous);
        return {};
    }
    previous->SetState(__internal::kSyncQueued);
    if (to_channel) return BlockHandle::Adopt(std::move(previous), BlockHandle::kSync);  // the pin goes with it
    // Written to nowhere: done at once, as the sync task would leave it.
    previous->SetState(__internal::kSyncing);
    previous->SetState(__internal::kClean);
    cache.Unpin(previous);
    return {};
}

// ---------------------------------------------------------------------------------------
// Reading

CStorage::LoadResult CStorage::LoadBlock(uint64_t block, bool extra_pin) {
    if (size_ < BlockUnits() * block || !channel_) return LoadResult::kFailed;
    const uint64_t offset = UsableBlockBytes() * block;
    const uint64_t channel_size = channel_->Size();
    if (channel_size <= offset) {
        // A channel that ends early cuts the storage back.
        if (size_ > channel_size / unit_size_) size_ = channel_size / unit_size_;
        return LoadResult::kFailed;
    }
    BlockHandle handle = BlockCache::Instance().Acquire(Key(block), BlockHandle::kWrite);
    if (!handle) {
        CLogger::DefaultLogger().Warning("Cache Alloc Failed, Can not load data!!");
        return LoadResult::kNoMemory;
    }
    if (!ReadIntoBlock(handle, block)) return LoadResult::kFailed;
    if (extra_pin) handle->AddPin();
    return LoadResult::kLoaded;
}

bool CStorage::ReadIntoBlock(BlockHandle& handle, uint64_t block) {
    const uint64_t offset = UsableBlockBytes() * block;
    int64_t n = 0;
    try {
        n = channel_->Read(handle->data, unit_size_ * BlockUnits(), offset);
    } catch (const std::exception&) {
        // The size takes the byte offset of the block, as units: the storage ends there.
        size_ = offset;
        handle.SetMode(BlockHandle::kRead);
        handle->state = __internal::kClean;
        BlockCache::Instance().Remove(Key(block));
        CLogger::DefaultLogger().Warning("DataChannel Read Failed!!");
        return true;
    }
    if (n < 1) return false;
    loaded_blocks_.fetch_add(1, std::memory_order_relaxed);
    handle->length = static_cast<uint32_t>(n);
    handle.SetMode(BlockHandle::kRead);
    handle->SetState(__internal::kClean);
    return true;
}

uint64_t CStorage::LoadRun(uint64_t first, uint64_t last) {
    auto* vectored = dynamic_cast<IVectoredChannel*>(channel_.get());
    if (vectored == nullptr || last <= first) return 0;
    BlockCache& cache = BlockCache::Instance();
    const uint64_t usable = UsableBlockBytes();
    const uint64_t units_per_block = BlockUnits();
    const uint64_t channel_size = channel_->Size();
    // The run ends at a cached block (one being written, say), at the end of the data and
    // at the end of the channel.
    uint64_t end = first;
    while (end <= last && end - first < kMaxRunBlocks && units_per_block * end < size_ && usable * end < channel_size &&
           !cache.Contains(Key(end)))
        ++end;
    if (end - first < 2) return 0;
    std::vector<BlockHandle> run;
    std::vector<iovec> pieces;
    run.reserve(end - first);
    pieces.reserve(end - first);
    for (uint64_t b = first; b < end; ++b) {
        BlockHandle handle = cache.Acquire(Key(b), BlockHandle::kWrite);
        if (!handle) {
            handle.SetMode(BlockHandle::kRead);
            break;  // the pool is out of blocks for now: the run is what there is
        }
        pieces.push_back({handle->data, usable});
        run.push_back(std::move(handle));
    }
    int64_t got = -1;
    if (run.size() >= 2) {
        try {
            got = vectored->ReadV(pieces.data(), pieces.size(), usable * first);
        } catch (const std::exception&) {
            // Nothing is loaded; the block-by-block way meets the error again and acts on it.
        }
    }
    uint64_t left = got > 0 ? static_cast<uint64_t>(got) : 0;
    uint64_t loaded = 0;
    for (BlockHandle& handle : run) {
        handle.SetMode(BlockHandle::kRead);
        if (left == 0) {
            // Not read: as if never asked for.
            cache.Remove(handle->key.load());
            continue;
        }
        const uint64_t n = std::min(left, usable);
        handle->length = static_cast<uint32_t>(n);
        handle->SetState(__internal::kClean);
        left -= n;
        ++loaded;
    }
    loaded_blocks_.fetch_add(loaded, std::memory_order_relaxed);
    return loaded;
}

uint64_t CStorage::ReadUncached(uint64_t from, uint64_t to, unsigned char* out) {
    if (!channel_ || to <= from) return 0;
    BlockCache& cache = BlockCache::Instance();
    const uint64_t units_per_block = BlockUnits();
    // Unit u lies at byte unit size x u of the channel, whatever the block geometry.
    const uint64_t channel_units = channel_->Size() / unit_size_;
    const uint64_t first = from / units_per_block;
    uint64_t end = first;
    while (end - first < kMaxUncachedBlocks && units_per_block * end < to && !cache.Contains(Key(end))) ++end;
    uint64_t stop = std::min(to, units_per_block * end);
    // A block that the channel holds only in part is left to a load, which cuts the
    // storage back to the channel.
    if (channel_units < stop) stop = channel_units / units_per_block * units_per_block;
    if (stop <= from) return 0;
    const uint64_t bytes = unit_size_ * (stop - from);
    int64_t got = -1;
    try {
        got = channel_->Read(out, bytes, unit_size_ * from);
    } catch (const std::exception&) {
        // The loading way reads the block again and acts on the error.
    }
    return got == static_cast<int64_t>(bytes) ? stop - from : 0;
}

uint64_t CStorage::Read(uint64_t pos, void* buffer, uint64_t count) {
    if (unit_size_ == 0 || buffer == nullptr) return 0;
    if (!cached_) {
        if (!channel_) return 0;
        const int64_t bytes = channel_->Read(buffer, unit_size_ * count, unit_size_ * pos);
        return bytes <= 0 ? 0 : static_cast<uint64_t>(bytes) / unit_size_;
    }
    const uint64_t abs = pos + start_;
    if (pos >= size_ - start_) return 0;
    const uint64_t units_per_block = BlockUnits();
    BlockCache& cache = BlockCache::Instance();
    auto* out = static_cast<unsigned char*>(buffer);
    uint64_t block = abs / units_per_block;
    uint64_t offset = abs % units_per_block;
    uint64_t done = 0;
    // A reader that goes on where it stopped gets the next blocks too, while the pool has
    // room: from 90 % fullness on every new block recycles an old one.
    const bool read_ahead = next_read_.load(std::memory_order_relaxed) == abs && CMemoryManager::GetMaxUsage() < 0.9f;
    const UncachedReads uncached = g_uncached_reads;
    const bool read_uncached = uncached == UncachedReads::kAlways ||
                               (uncached == UncachedReads::kWhileRecycling && cache.RecycleDue());
    while (done < count) {
        std::unique_lock lock(cache.Mutex());
        const uint64_t size = size_;
        if (done + abs >= size) break;
        BlockHandle handle = cache.AcquireCached(Key(block), BlockHandle::kRead);
        if (!handle.Block() && read_uncached) {
            const uint64_t copied =
                ReadUncached(abs + done, std::min(abs + count, size), out + unit_size_ * done);
            if (copied > 0) {
                done += copied;
                block = (abs + done) / units_per_block;
                offset = (abs + done) % units_per_block;
                continue;
            }
        }
        if (!handle.Block()) {
            // The blocks that this read misses from here on come in one vectored read.
            uint64_t last = (std::min(abs + count, size) - 1) / units_per_block;
            if (read_ahead) last = std::min(last + kReadAheadBlocks, (size - 1) / units_per_block);
            const LoadResult loaded = LoadRun(block, last) > 0 ? LoadResult::kLoaded : LoadBlock(block, false);
            if (loaded == LoadResult::kNoMemory) {
                // The pool is full of pinned blocks for now: wait for one to come free.
                lock.unlock();
                SystemSleep(TimeSpan::FromMicroseconds(10));
                continue;
            }
            // Nothing can ever bring the block back (no channel, or the channel lacks
            // it): the read ends with what it has.
            if (loaded == LoadResult::kFailed && !cache.Contains(Key(block))) break;
            if (done + abs >= size_) break;
            handle = cache.Acquire(Key(block), BlockHandle::kRead);
        }
        const uint64_t in_block = handle->length / unit_size_;
        // Units of this block that belong to the storage: data beyond size belongs to an
        // append that has not finished. The size is the one taken before the length: the
        // writer sets the length first, so the block holds at least what that size says.
        const uint64_t to_end = size - (abs + done);
        const uint64_t left = std::min(count - done, to_end);
        const uint64_t n = std::min(left, in_block > offset ? in_block - offset : 0);
        if (n == 0) return done;
        std::memcpy(out + unit_size_ * done, handle->data + unit_size_ * offset, unit_size_ * n);
        done += n;
        // The read has reached the end of the data as it stood: what the writer appends
        // meanwhile goes on in this block, not at the start of the next one.
        if (n == to_end) break;
        // A block that came back short of its full length before the end, while its
        // channel goes on past it (a gap in a file's map), ends the read: the next
        // block's units belong further on and must not take the place of the missing
        // ones. Where the channel itself ends, the next load finds that and cuts the size.
        if (offset + n < units_per_block && done < count && abs + done < size_ &&
            (!channel_ || channel_->Size() > UsableBlockBytes() * (block + 1)))
            break;
        ++block;
        offset = 0;
    }
    next_read_.store(abs + done, std::memory_order_relaxed);
    return done;
}

RawData CStorage::Request(uint64_t pos, uint64_t count) {
    const uint64_t abs = start_ + pos;
    if (unit_size_ == 0 || abs >= size_) return RawData::NullData();
    count = std::min(count, size_ - abs);
    if (!cached_) {
        auto* memory = dynamic_cast<MemoryCache*>(channel_.get());
        const void* base = nullptr;
        uint64_t length = 0;
        if (memory) memory->GetRange(&base, &length);
        if (base == nullptr) return RawData::NullData();
        const uint64_t units = std::min(size_ - abs, count);
        return RawData(std::make_unique<RawDataImpl::ExtMemRawData>(static_cast<const unsigned char*>(base) +
                                                                         unit_size_ * abs,
                                                                     static_cast<uint32_t>(units)));
    }
    return RequestCached(abs, count);
}

RawData CStorage::RequestCached(uint64_t abs, uint64_t count) {
    BlockCache& cache = BlockCache::Instance();
    std::lock_guard lock(cache.Mutex());
    const uint64_t units_per_block = BlockUnits();
    const uint64_t first = abs / units_per_block;
    const uint64_t offset = abs % units_per_block;

    if (AtomSize() % unit_size_ != 0) {
        // Blocks don't lie back to back in the channel's units: one block at a time.
        if (!cache.Contains(Key(first)) && LoadBlock(first, false) != LoadResult::kLoaded) return RawData::NullData();
        std::shared_ptr<CacheBlock> block = cache.Find(Key(first));
        if (!block || block->length / unit_size_ <= offset) return RawData::NullData();
        cache.Pin(block);
        const uint64_t units = std::min<uint64_t>(block->length / unit_size_ - offset, size_ - abs);
        return RawData(std::make_unique<RawDataImpl::CacheRawData>(
            std::vector<std::shared_ptr<CacheBlock>>{block}, block->data + unit_size_ * offset,
            static_cast<uint32_t>(units)));
    }

    const uint64_t end = (abs + count) / units_per_block;
    uint64_t last = end;
    const uint64_t half_expansion = ExpansionAtoms() / 2;
    if (last - first > half_expansion) last = first + half_expansion;

    auto same_memory = [&](uint64_t from, uint64_t to) {
        std::shared_ptr<CacheBlock> base = cache.Find(Key(from));
        if (!base) return false;
        for (uint64_t b = from + 1; b <= to; ++b) {
            std::shared_ptr<CacheBlock> block = cache.Find(Key(b));
            if (!block || block->memory != base->memory) return false;
        }
        return true;
    };

    // A reload replaces cached blocks by what the channel holds: never a block whose data
    // the channel may lack (not clean) or that someone holds (the writer's tail, say),
    // whose changes would be lost.
    auto replaceable = [&](uint64_t b) {
        std::shared_ptr<CacheBlock> block = cache.Find(Key(b));
        return !block || (block->state.load() == __internal::kClean && block->pins.load() == 0);
    };
    // A pool without room for two fresh atoms can't give a run: every try would fail,
    // each one logged by the pool. The missing blocks then come into recycled atoms with
    // one vectored read, and the view covers the blocks that lie in one piece; the caller
    // asks again for the rest.
    const bool keep_blocks = last > first && channel_ && !g_reload_at_full_pool && PoolRoomAtoms() < 2;
    if (!keep_blocks) {
        for (uint64_t b = first; b <= last; ++b) {
            if (!replaceable(b)) {
                last = b > first ? b - 1 : first;
                break;
            }
        }
    }

    if (keep_blocks) {
        if (LoadRun(first, last) == 0 && !cache.Contains(Key(first))) LoadBlock(first, false);
    } else if (last == first) {
        if (!cache.Contains(Key(first))) LoadBlock(first, false);
    } else if (same_memory(first, last)) {
        // The span lies in one run of atoms already.
    } else if (channel_) {
        // Reload the span into one run of atoms so that it reads as one piece.
        std::shared_ptr<CMemoryBlock> memory;
        for (;;) {
            try {
                memory = CMemoryManager::Malloc(static_cast<unsigned>(last - first + 1));
            } catch (const std::exception&) {
                memory = nullptr;  // the search can fault on a run in a full-size chunk
            }
            if (memory || last <= first) break;
            --last;
        }
        // Not even one fresh atom: the first block comes as a single block does, into a
        // recycled atom, rather than the view being null while the cache recycles.
        if (!memory && !cache.Contains(Key(first))) LoadBlock(first, false);
        if (memory) {
            const uint64_t atoms = last - first + 1;
            const uint64_t usable = UsableBlockBytes();
            uint64_t block = first;
            uint64_t j = 0;
            // The blocks that the channel holds lie back to back in it as in the new
            // memory: one read brings them all. What it doesn't bring goes block by block.
            uint64_t held = 0;
            const uint64_t channel_size = channel_->Size();
            while (first + held <= last && size_ >= units_per_block * (first + held) &&
                   channel_size > usable * (first + held))
                ++held;
            int64_t got = -1;
            if (held >= 2) {
                try {
                    got = channel_->Read(memory->Ptr(), usable * held, usable * first);
                } catch (const std::exception&) {
                    // The block-by-block way meets the error again and acts on it.
                }
            }
            for (uint64_t left = got > 0 ? static_cast<uint64_t>(got) : 0; left > 0 && j < held; ++j, ++block) {
                auto* data = static_cast<unsigned char*>(memory->SubUnit(static_cast<int>(j)));
                auto fresh = std::make_shared<CacheBlock>(memory, data, static_cast<uint32_t>(AtomSize()));
                cache.Insert(Key(block), fresh);
                // The load's pin stays until the storage drops its cache: the view's
                // test of the last block for the same memory only holds while no atom of
                // this run can be recycled under another key.
                fresh->AddPin();
                const uint64_t n = std::min(left, usable);
                fresh->length = static_cast<uint32_t>(n);
                left -= n;
                loaded_blocks_.fetch_add(1, std::memory_order_relaxed);
            }
            for (; j < atoms && block <= last; ++j) {
                auto* data = static_cast<unsigned char*>(memory->SubUnit(static_cast<int>(j)));
                auto fresh = std::make_shared<CacheBlock>(memory, data, static_cast<uint32_t>(AtomSize()));
                cache.Insert(Key(block), fresh);
                // The load's pin stays until the storage drops its cache: the view's
                // test of the last block for the same memory only holds while no atom of
                // this run can be recycled under another key.
                fresh->AddPin();
                BlockHandle handle(fresh, BlockHandle::kWrite);
                const bool in_channel = size_ >= units_per_block * block && channel_->Size() > UsableBlockBytes() * block;
                if (in_channel && ReadIntoBlock(handle, block)) {
                    ++block;
                } else {
                    // A block that can't be read leaves its atom unused, and no empty
                    // block under its key (the writer would take it for its tail).
                    handle.SetMode(BlockHandle::kRead);
                    cache.Remove(Key(block));
                }
            }
        }
    } else if (!cache.Contains(Key(first))) {
        LoadBlock(first, false);
    }


    std::shared_ptr<CacheBlock> head = cache.Find(Key(first));
    if (!head || head->length / unit_size_ <= offset) return RawData::NullData();
    std::vector<std::shared_ptr<CacheBlock>> blocks{head};
    uint64_t units = head->length / unit_size_ - offset;
    for (uint64_t b = first + 1; b <= end; ++b) {
        std::shared_ptr<CacheBlock> block = cache.Find(Key(b));
        const CacheBlock& previous = *blocks.back();
        if (!block || block->memory != previous.memory) break;
        // Units after a block that is short of its full length don't continue it.
        if (previous.length < UsableBlockBytes()) break;
        if (b < end && block->data != previous.data + previous.capacity) break;
        blocks.push_back(block);
        units += block->length / unit_size_;
    }
    for (const auto& block : blocks) cache.Pin(block);
    // Whole blocks are counted, but never past the units that the storage holds.
    units = std::min(units, size_ - abs);
    return RawData(std::make_unique<RawDataImpl::CacheRawData>(std::move(blocks), head->data + unit_size_ * offset,
                                                               static_cast<uint32_t>(units)));
}

BlockItem CStorage::GetBlock(uint64_t pos, uint64_t* offset, uint64_t* units) {
    const uint64_t abs = pos + start_;
    if (unit_size_ == 0 || pos >= size_ - start_) return BlockItem();
    const uint64_t units_per_block = BlockUnits();
    const uint64_t block = abs / units_per_block;
    BlockCache& cache = BlockCache::Instance();
    std::lock_guard lock(cache.Mutex());
    bool extra_pin = false;
    if (!cache.Contains(Key(block))) {
        if (LoadBlock(block, true) != LoadResult::kLoaded || !cache.Contains(Key(block))) return BlockItem();
        extra_pin = true;
    }
    if (offset) *offset = abs % units_per_block;
    const uint64_t count = size_ - start_;
    if (units) *units = block == count / units_per_block ? count % units_per_block : units_per_block;
    BlockHandle handle = cache.Acquire(Key(block), BlockHandle::kWrite);
    BlockItem item(handle.Block());
    if (extra_pin) handle->RemovePin();
    return item;
}

// ---------------------------------------------------------------------------------------
// Syncing

void CStorage::PeriodicSync() {
    std::unique_lock pass(sync_pass_, std::try_to_lock);
    if (!pass.owns_lock() || size_ == synced_) return;  // a pass is running already, or nothing is new
    SyncPass();
}

void CStorage::SyncPass() {
    const uint64_t units_per_block = BlockUnits();
    if (!channel_ || units_per_block == 0 || !channel_->Writable()) return;
    BlockCache& cache = BlockCache::Instance();
    const std::shared_ptr<SyncControlBlock> control = Control();
    bool wrote = false, behind_service = false;
    const uint64_t last_block = size_ == 0 ? 0 : (size_ - 1) / units_per_block;
    for (uint64_t block = synced_ / units_per_block;; ++block) {
        std::lock_guard lock(cache.Mutex());
        if (!cache.Contains(Key(block))) {
            // A block before the tail that left the cache was recycled, and only clean
            // blocks are: the channel has it. Going on keeps the pass from stalling at
            // the first recycled block and never reaching the tail.
            if (block < last_block) continue;
            break;
        }
        BlockHandle handle = cache.Acquire(Key(block), BlockHandle::kRead);
        const int32_t state = handle->state.load();
        // A block that a sync service has yet to write: queued, or being written while
        // writes are pending (once none is, the write is done and only its release is
        // behind). A write further on would move the file's end, and the flush below make
        // durable an extent over a block that the disk lacks: the pass ends here, and a
        // later one goes on. The flush still runs: the service's writes before this block
        // have moved the end meanwhile, over blocks that are all written.
        if (state == __internal::kSyncQueued || (state == __internal::kSyncing && control->pending > 0)) {
            behind_service = true;
            break;
        }
        handle.SetMode(BlockHandle::kSync);
        if (state == __internal::kDirty) {
            handle->SetState(__internal::kSyncQueued);
            handle->SetState(__internal::kSyncing);
            const uint32_t length = handle->length;
            int64_t written = -1;
            try {
                written = channel_->Write(handle->data, length, UsableBlockBytes() * block);
            } catch (const std::exception&) {
                // A channel that throws has written nothing: the same as a full disk.
            }
            wrote = true;
            if (written != static_cast<int64_t>(length)) {
                CLogger::DefaultLogger().Error("Storage Write Failed! Maybe Disk Full?");
                break;
            }
        }
        // One block less than reached: the next pass looks at this block again.
        const uint64_t length_units = handle->length / unit_size_;
        synced_ = block != 0 ? units_per_block * (block - 1) + length_units : length_units;
    }
    if (wrote || behind_service) {
        if (auto* file = dynamic_cast<IFileCache*>(channel_.get())) file->Flush();
    }
}

void CStorage::WaitPending() const {
    const std::shared_ptr<SyncControlBlock> control = Control();
    while (control->pending > 0) SystemSleep(TimeSpan::FromMicroseconds(1));
}

int CStorage::Sync() {
    WaitPending();
    // A pass of the timer that is under way ends first, its flush included, and this pass
    // runs even when the synced count has caught up with the size: that pass may have
    // counted units that the writer appended to the block while it was being written.
    std::lock_guard pass(sync_pass_);
    std::lock_guard lock(BlockCache::Instance().Mutex());
    SyncPass();
    WaitPending();
    return 0;
}

// ---------------------------------------------------------------------------------------
// Lifecycle

int CStorage::Clear() {
    {
        const std::shared_ptr<SyncControlBlock> old = Control();
        std::lock_guard lock(old->mutex);
        old->channel.reset();
    }
    {
        std::lock_guard lock(control_mutex_);
        control_ = std::make_shared<SyncControlBlock>(channel_, id_ % __internal::StorageSyncManager::kServices);
    }
    BlockCache& cache = BlockCache::Instance();
    if (tail_block_) {
        std::lock_guard lock(cache.Mutex());
        if (cache.Find(tail_key_) == tail_block_) {
            BlockHandle tail = cache.Acquire(tail_key_, BlockHandle::kRead);
            tail->RemovePin();
            if (tail->state.load() != __internal::kClean) {
                // Unwritten: the data is dropped with the storage's content.
                tail->SetState(__internal::kSyncQueued);
                tail->SetState(__internal::kSyncing);
                tail->SetState(__internal::kClean);
            }
        }
    }
    tail_block_.reset();
    size_ = 0;
    synced_ = 0;
    start_ = 0;
    // A read-only file (one of a loaded project) is never emptied by a storage.
    if (channel_ && channel_->Type() == IDeviceChannel::kManagedFile && channel_->Writable()) {
        if (auto* file = dynamic_cast<IFileCache*>(channel_.get())) file->Clear();
    }
    if (channel_ && unit_size_ != 0) {
        size_ = channel_->Size() / unit_size_;
        synced_ = size_.load();
    }
    cache.DropStorage(id_);
    return 0;
}

void CStorage::Bind(std::shared_ptr<IDeviceChannel> channel) {
    Clear();
    cached_ = true;
    channel_ = std::move(channel);
    if (channel_ && unit_size_ != 0) {
        size_ = channel_->Size() / unit_size_;
        synced_ = size_.load();
        cached_ = (channel_->Features() & IDeviceChannel::kFeatureAddressable) == 0;
        if (size_ != 0 && BlockUnits() != 0) {
            BlockCache& cache = BlockCache::Instance();
            std::lock_guard lock(cache.Mutex());
            const uint64_t last = (size_ - 1) / BlockUnits();
            if (LoadBlock(last, true) == LoadResult::kLoaded) {
                std::shared_ptr<CacheBlock> block = cache.Find(Key(last));
                if (block && size_ % BlockUnits() != 0) {
                    // A partial last block is the writer's tail: appends continue it, and
                    // it goes to the sync service with the load's pin when the writer
                    // moves on, as every tail does.
                    tail_block_ = std::move(block);
                    tail_key_ = Key(last);
                } else if (block) {
                    // A full one has nothing to continue: held, it could never be recycled.
                    cache.Unpin(block);
                }
            }
        }
    }
    const std::shared_ptr<SyncControlBlock> control = Control();
    std::lock_guard lock(control->mutex);
    control->channel = channel_;
}

std::string CStorage::Persist() {
    if (channel_ && channel_->Type() == IDeviceChannel::kManagedFile) {
        auto* file = dynamic_cast<IFileCache*>(channel_.get());
        if (file == nullptr) return {};
        file->Flush();
        file->SetKeep(true);
        return file->GetId();
    }
    if (channel_ && channel_->Type() == IDeviceChannel::kExternalFile &&
        (channel_->Features() & IDeviceChannel::kFeatureCopyable) == 0)
        return {};
    std::shared_ptr<IDeviceChannel> target = CreateLocalFileCache(0);
    auto* file = dynamic_cast<IFileCache*>(target.get());
    if (file == nullptr) return {};
    if (channel_) {
        file->SetKeep(true);
        file->SetFileReady(0);
        ExportManager::Instance().Enqueue(channel_, target);
        return file->GetId();
    }
    // No channel: the cached blocks are the content. Their offset counts units, not
    // bytes, as files written this way have always been laid out.
    BlockCache& cache = BlockCache::Instance();
    for (uint64_t block = 0;; ++block) {
        std::lock_guard lock(cache.Mutex());
        if (!cache.Contains(Key(block))) break;
        BlockHandle handle = cache.Acquire(Key(block), BlockHandle::kRead);
        target->Write(handle->data, handle->length, BlockUnits() * block);
    }
    file->Flush();
    file->SetKeep(true);
    return file->GetId();
}

bool CStorage::Swap(StorageBase* other) {
    auto* peer = dynamic_cast<CStorage*>(other);
    if (peer == nullptr || peer == this) return false;
    std::swap(cached_, peer->cached_);
    std::swap(channel_, peer->channel_);
    for (CStorage* storage : {this, peer}) {
        const std::shared_ptr<SyncControlBlock> control = storage->Control();
        std::lock_guard lock(control->mutex);
        control->channel = storage->channel_;
    }
    if (cached_) BlockCache::Instance().DropStorage(peer->id_);
    if (peer->cached_) BlockCache::Instance().DropStorage(id_);
    return false;
}
