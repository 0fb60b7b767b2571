#include "storage/sync_queue.h"

#include "host/thread_pool.h"
#include "storage/storage_sync_manager.h"
#include "storage/vectored_channel.h"

#include <exception>
#include <utility>

namespace __internal {

SyncControlBlock::SyncControlBlock(std::shared_ptr<IDeviceChannel> device, unsigned service)
    : channel(std::move(device)), service_(StorageSyncManager::ServiceName(service)) {}

void SyncControlBlock::Enqueue(BlockHandle handle, uint64_t offset) {
    ++pending;
    bool start = false;
    {
        std::lock_guard lock(queue_mutex_);
        queue_.push_back({std::move(handle), offset});
        start = !scheduled_;
        scheduled_ = true;
    }
    if (!start) return;
    // The task keeps the control block alive until the queue is empty.
    auto task = [self = shared_from_this()] { self->Drain(); };
    if (!ThreadPool::Instance().AddTask(task, service_)) Drain();
}

void SyncControlBlock::Drain() {
    for (;;) {
        {
            std::lock_guard lock(queue_mutex_);
            if (queue_.empty()) {
                scheduled_ = false;
                return;
            }
            std::swap(queue_, batch_);  // both keep their capacity
        }
        WriteBatch();
        // The handles go after the control block's mutex: state 3 becomes 4, the pin
        // goes, and the blocks may enter the recycle list.
        batch_.clear();
    }
}

void SyncControlBlock::WriteBatch() {
    for (Queued& queued : batch_) queued.handle->SetState(kSyncing);
    std::lock_guard lock(mutex);
    std::size_t first = 0;
    while (first < batch_.size()) {
        std::size_t end = first + 1;
        while (end < batch_.size() &&
               batch_[end].offset == batch_[end - 1].offset + batch_[end - 1].handle->length.load())
            ++end;
        if (channel) WriteRun(first, end);
        pending -= static_cast<uint32_t>(end - first);
        first = end;
    }
}

void SyncControlBlock::WriteRun(std::size_t first, std::size_t end) {
    std::size_t next = first;
    auto* vectored = dynamic_cast<IVectoredChannel*>(channel.get());
    if (vectored && end - first > 1) {
        pieces_.clear();
        for (std::size_t i = first; i < end; ++i)
            pieces_.push_back({batch_[i].handle->data, batch_[i].handle->length.load()});
        int64_t written = -1;
        try {
            written = vectored->WriteV(pieces_.data(), pieces_.size(), batch_[first].offset);
        } catch (const std::exception&) {
            // Nothing is known to be written: every block goes again, one at a time.
        }
        // The blocks that went through whole are done.
        uint64_t left = written > 0 ? static_cast<uint64_t>(written) : 0;
        while (next < end && left >= batch_[next].handle->length.load()) left -= batch_[next++].handle->length.load();
    }
    // The rest one write per block, as blocks were always written: the result is not
    // looked at. An incomplete write, an error or an exception all leave the block
    // counted as clean, and the writer waiting on pending must always see it go down.
    for (std::size_t i = next; i < end; ++i) {
        try {
            channel->Write(batch_[i].handle->data, batch_[i].handle->length.load(), batch_[i].offset);
        } catch (const std::exception&) {
        }
    }
}

}  // namespace __internal
