#pragma once
// SyncControlBlock: what the background writes of one storage share. The writer queues
// its full blocks here; one task at a time on the storage's sync service takes all that
// is queued and writes each run of neighbouring blocks with one vectored write, where
// the channel offers it (IVectoredChannel), else one write per block. Blocks are written
// in the order they were queued.
//
// pending counts the blocks queued and not written, which is what the writer's throttle
// waits on. Clear makes a new control block and takes the channel away from the old one,
// so that writes of the past go nowhere.

#include "host/storage_interfaces.h"
#include "storage/cache_block.h"

#include <sys/uio.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace __internal {

class SyncControlBlock : public std::enable_shared_from_this<SyncControlBlock> {
public:
    SyncControlBlock(std::shared_ptr<IDeviceChannel> device, unsigned service);

    std::shared_ptr<IDeviceChannel> channel;  // guarded by mutex
    std::atomic<uint32_t> pending{0};
    std::mutex mutex;  // held around each write, so that Clear can take the channel away

    // Queues a block (its handle of mode sync holds a pin) to be written at offset, and
    // starts a task on the service unless one is running. pending counts the block.
    void Enqueue(BlockHandle handle, uint64_t offset);

private:
    struct Queued {
        BlockHandle handle;
        uint64_t offset;
    };

    // The task: writes what is queued until nothing is.
    void Drain();
    void WriteBatch();
    // Writes batch_[first, end), a run of blocks back to back in the channel.
    void WriteRun(std::size_t first, std::size_t end);

    std::string service_;
    std::mutex queue_mutex_;
    std::vector<Queued> queue_;  // guarded by queue_mutex_
    bool scheduled_ = false;     // guarded by queue_mutex_: a task is queued or running
    // The running task's own: only one runs at a time.
    std::vector<Queued> batch_;
    std::vector<iovec> pieces_;
};

}  // namespace __internal
