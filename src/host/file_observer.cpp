#include "host/file_observer.h"

#include "host/process_hook.h"

namespace Tessel {

namespace {

ProcessHook<FileChangeObserver>& Observer() {
    static ProcessHook<FileChangeObserver> observer;
    return observer;
}

}  // namespace

void SetFileChangeObserver(FileChangeObserver observer) { Observer().Set(std::move(observer)); }

bool FileChangeObserved() { return Observer().Installed(); }

void NotifyFileChange(const std::string& path, FileChange change, uint64_t offset, const void* data, uint64_t bytes) {
    if (FileChangeObserved()) Observer().Function()(path, change, offset, data, bytes);
}

}  // namespace Tessel
