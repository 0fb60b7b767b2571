#include "storage/storage_sync_manager.h"

#include "host/thread_pool.h"
#include "host/timer_task_manager.h"
#include "storage/block_storage.h"

#include <fmt/format.h>

namespace __internal {

StorageSyncManager& StorageSyncManager::Instance() {
    static auto* manager = new StorageSyncManager;  // the timer may run until the process ends
    return *manager;
}

std::string StorageSyncManager::ServiceName(unsigned service) {
    return fmt::format("{}.{}", "__STORAGE_FILE_SYNC_TASK__", service);
}

StorageSyncManager::StorageSyncManager() {
    for (unsigned n = 0; n < kServices; ++n) ThreadPool::Instance().AddService(ServiceName(n), 1, 3);
    timer_id_ = ITimerTaskManager::GetInstance().AddTimerTask([this] { SyncAll(); }, kPeriodMs);
}

void StorageSyncManager::Register(CStorage* storage) {
    yield_ = true;
    std::lock_guard lock(mutex_);
    storages_.insert(storage);
}

void StorageSyncManager::Unregister(CStorage* storage) {
    yield_ = true;
    std::lock_guard lock(mutex_);
    storages_.erase(storage);
}

void StorageSyncManager::SyncAll() {
    std::lock_guard lock(mutex_);
    for (CStorage* storage : storages_) {
        storage->PeriodicSync();
        if (yield_.exchange(false)) break;
    }
}

}  // namespace __internal
