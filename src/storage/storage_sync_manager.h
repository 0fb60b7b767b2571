#pragma once
// StorageSyncManager: the five background services that write full blocks
// ("__STORAGE_FILE_SYNC_TASK__.0" to ".4"; a storage uses the service of its id
// modulo 5, so its blocks are written in order) and the 500 ms timer that runs the
// periodic sync of every registered storage.
//
// Registering and unregistering set a yield flag that ends the timer's pass early, so
// they never wait longer than the sync of one storage.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>

class CStorage;

namespace __internal {

class StorageSyncManager {
public:
    static constexpr unsigned kServices = 5;
    static constexpr unsigned kPeriodMs = 500;

    // Built with the first storage, kept until the process ends.
    static StorageSyncManager& Instance();
    static std::string ServiceName(unsigned service);

    void Register(CStorage* storage);
    void Unregister(CStorage* storage);
    // One pass over the registered storages, as the timer runs it.
    void SyncAll();

private:
    StorageSyncManager();

    std::mutex mutex_;
    std::set<CStorage*> storages_;
    uint64_t timer_id_ = 0;
    std::atomic<bool> yield_{false};
};

}  // namespace __internal
