#pragma once
// CStorage: the block storage. It cuts the array into blocks of one pool atom, keeps
// recently used blocks in the process-wide BlockCache, writes full blocks to its
// channel on the sync services in the background, and brings blocks back on demand.
//
// Geometry: a block holds BlockUnits = atom / unit size units; its bytes in the
// channel start at (atom - atom % unit size) x block index, so the channel holds
// whole units only. One writer thread appends; any thread reads.

#include "storage/cache_block.h"
#include "storage/storage_base.h"
#include "storage/sync_queue.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>


class CStorage final : public StorageBase {
public:
    // A storage on channel (which goes through Bind), or on none.
    CStorage(std::shared_ptr<IDeviceChannel> channel, uint32_t unit_size);
    ~CStorage() override;
    CStorage(const CStorage&) = delete;
    CStorage& operator=(const CStorage&) = delete;

    // Queued block writes per storage before a throttled writer waits; default 2.
    // A limit of 0 would stop every throttled writer for good and is taken as 1.
    static void SetPendingLimit(unsigned int limit);
    static unsigned int PendingLimit();

    // Whether a Read copies blocks missing from the cache straight from the channel into
    // the caller's buffer, without loading them: never; while the cache recycles (a
    // loaded block would push an older one out, and the load costs a second copy through
    // cold memory); or always. Process-wide, never by default; the answers are the same
    // bytes either way, only what stays cached differs.
    enum class UncachedReads { kNever, kWhileRecycling, kAlways };
    static void SetUncachedReads(UncachedReads mode);
    static UncachedReads GetUncachedReads();
    // Whether a Request whose span isn't in one run of atoms still tries to reload it into
    // fresh atoms when the pool has no room for two (true), or takes the blocks where
    // they lie, loading the missing ones into recycled atoms, and gives the part that is
    // in one piece (false, the default). Views hold the same units either way; only
    // their lengths differ.
    static void SetReloadAtFullPool(bool reload);

    int Clear() override;
    std::string Persist() override;
    uint64_t Count() override;
    uint64_t UnitSize() override { return unit_size_; }
    uint64_t Read(uint64_t pos, void* buffer, uint64_t count) override;
    uint64_t Write(const void* data, uint64_t count) override;
    uint64_t BlockUnits() override;
    int Sync() override;
    void Bind(std::shared_ptr<IDeviceChannel> channel) override;
    RawData Request(uint64_t pos, uint64_t count) override;
    void SetSizeLimit(uint64_t bytes) override;
    uint64_t CutHead(uint64_t) override { return 0; }
    void SetOption(const std::string& name, const Vellum::Var& value) override;
    bool Swap(StorageBase* other) override;
    int DropCache() override;
    WriteCallback& WriteSignal() override { return write_callback_; }
    bool ChangeUnitSize(uint32_t unit, uint32_t* old) override;
    BlockItem GetBlock(uint64_t pos, uint64_t* offset, uint64_t* units) override;

    uint32_t Id() const { return id_; }
    bool ThrottleEnabled() const { return throttle_; }
    std::shared_ptr<IDeviceChannel> Channel() const { return channel_; }
    // Units that the periodic sync has brought to the channel.
    uint64_t Synced() const { return synced_.load(); }
    // Blocks brought (back) from the channel into the cache so far: a statistic.
    uint64_t LoadedBlocks() const { return loaded_blocks_.load(std::memory_order_relaxed); }
    // Writes the dirty blocks from the synced position on; run by the 500 ms timer.
    // Nothing happens while another pass of this storage is under way.
    void PeriodicSync();

private:
    enum class LoadResult { kLoaded, kNoMemory, kFailed };

    uint64_t UsableBlockBytes() const;
    uint64_t Key(uint64_t block) const;
    std::shared_ptr<__internal::SyncControlBlock> Control() const;
    // With the cache mutex held.
    LoadResult LoadBlock(uint64_t block, bool extra_pin);
    bool ReadIntoBlock(__internal::BlockHandle& handle, uint64_t block);
    // Loads the blocks from first on, up to last, that are neither cached nor beyond the
    // data or the channel, with one vectored read; gives the count loaded, 0 when fewer
    // than two such blocks follow first (LoadBlock is the way for one).
    uint64_t LoadRun(uint64_t first, uint64_t last);
    // Copies units [from, to) straight from the channel into out, as far as they lie in
    // blocks that are not cached, starting with the block of from; gives the units
    // copied, 0 when the channel can't give them all (the loading way then takes over
    // and meets what went wrong). Cache mutex held.
    uint64_t ReadUncached(uint64_t from, uint64_t to, unsigned char* out);
    // The writer moves on to block: its remembered tail is done. Gives the handle to
    // queue for the sync service (empty when there is nothing to queue). Cache mutex held.
    __internal::BlockHandle FinishTail(uint64_t block, bool to_channel);
    void WaitPending() const;
    // One pass of the periodic sync, its flush included; needs sync_pass_.
    void SyncPass();
    RawData RequestCached(uint64_t abs, uint64_t count);

    const uint32_t id_;
    std::shared_ptr<IDeviceChannel> channel_;
    uint32_t unit_size_;
    std::atomic<uint64_t> size_{0};
    std::atomic<uint64_t> synced_{0};
    // Always 0 here; atomic as Clear sets it while readers count.
    std::atomic<uint64_t> start_{0};
    // Held by a pass of the periodic sync: the timer skips a storage whose pass is under
    // way, Sync waits for it to end.
    std::mutex sync_pass_;
    std::atomic<bool> throttle_{true};
    bool cached_ = true;
    // The block that holds the writer's extra pin, and its key: the pin is removed from
    // that very block, even if a failed read has cut the size or the cache has put
    // another block under the key since.
    std::shared_ptr<__internal::CacheBlock> tail_block_;
    uint64_t tail_key_ = 0;
    // Where the last Read ended: a Read that starts there is sequential and reads ahead.
    std::atomic<uint64_t> next_read_{~uint64_t{0}};
    std::atomic<uint64_t> loaded_blocks_{0};
    WriteCallback write_callback_;
    mutable std::mutex control_mutex_;
    std::shared_ptr<__internal::SyncControlBlock> control_;
};
