#include "host/file_observer.h"

#include <atomic>

namespace Tessel {

namespace {

std::atomic<bool> g_observed{false};

FileChangeObserver& Observer() {
    static FileChangeObserver observer;
    return observer;
}

}  // namespace

void SetFileChangeObserver(FileChangeObserver observer) {
    g_observed = false;
    Observer() = std::move(observer);
    g_observed = static_cast<bool>(Observer());
}

bool FileChangeObserved() { return g_observed.load(std::memory_order_acquire); }

void NotifyFileChange(const std::string& path, FileChange change, uint64_t offset, const void* data, uint64_t bytes) {
    if (FileChangeObserved()) Observer()(path, change, offset, data, bytes);
}

}  // namespace Tessel
