#pragma once
// An observer of what Tessel::CFile changes on disk: every completed write (with its
// offset and the bytes that went), every change of length and every completed flush, in
// the order they happen. Meant for tests that rebuild what a file could hold after a
// power loss at any point; without an observer (the default) CFile only tests one atomic
// flag per call.

#include <cstdint>
#include <functional>
#include <string>

namespace Tessel {

enum class FileChange {
    Write,   // offset, data and bytes: the bytes that reached the file at offset
    Resize,  // offset: the new length
    Sync,    // a flush that succeeded: everything before it is durable
};

using FileChangeObserver =
    std::function<void(const std::string& path, FileChange change, uint64_t offset, const void* data, uint64_t bytes)>;

// Installs the observer for the whole process; an empty one removes it. Not to be changed
// while another thread is inside CFile. It is called on the thread of the change, after
// the change, and must be thread-safe.
void SetFileChangeObserver(FileChangeObserver observer);

bool FileChangeObserved();
void NotifyFileChange(const std::string& path, FileChange change, uint64_t offset, const void* data, uint64_t bytes);

}  // namespace Tessel
