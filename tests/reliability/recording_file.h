#pragma once
// What a power loss can leave of a file: a recorder logs every change the file layer makes
// to one file (writes with their bytes, changes of length, completed flushes), and a disk
// image replays any selection of that log, so that each image can be written to a fresh
// file and opened as the store would open it after a restart.

#include "host/file_observer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace reliability {

struct FileChangeRecord {
    Tessel::FileChange change;
    uint64_t offset;                  // Write: where; Resize: the new length
    std::vector<unsigned char> data;  // Write: the bytes that went
};

// Records the changes of every file, from construction until Stop() or destruction.
class FileRecorder {
public:
    FileRecorder() {
        Tessel::SetFileChangeObserver([this](const std::string& path, Tessel::FileChange change, uint64_t offset,
                                             const void* data, uint64_t bytes) {
            const auto* begin = static_cast<const unsigned char*>(data);
            std::lock_guard lock(mutex_);
            log_.push_back({path, {change, offset, begin ? std::vector<unsigned char>(begin, begin + bytes)
                                                         : std::vector<unsigned char>{}}});
        });
    }
    ~FileRecorder() { Stop(); }
    FileRecorder(const FileRecorder&) = delete;
    FileRecorder& operator=(const FileRecorder&) = delete;

    void Stop() { Tessel::SetFileChangeObserver({}); }

    // The changes of the files whose path ends with suffix, in order.
    std::vector<FileChangeRecord> Log(const std::string& suffix) const {
        std::lock_guard lock(mutex_);
        std::vector<FileChangeRecord> log;
        for (const auto& [path, record] : log_)
            if (path.size() >= suffix.size() && path.compare(path.size() - suffix.size(), suffix.size(), suffix) == 0)
                log.push_back(record);
        return log;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, FileChangeRecord>> log_;
};

// The bytes of a file as a sequence of changes leaves them.
class DiskImage {
public:
    void Apply(const FileChangeRecord& record) { Apply(record, record.data.size()); }

    // A write of which only the first `bytes` arrived.
    void Apply(const FileChangeRecord& record, std::size_t bytes) {
        switch (record.change) {
        case Tessel::FileChange::Write: {
            bytes = std::min(bytes, record.data.size());
            if (record.offset == 0 && bytes >= header_bytes_) header_written_ = true;
            if (bytes_.size() < record.offset + bytes) bytes_.resize(record.offset + bytes, 0);
            std::memcpy(bytes_.data() + record.offset, record.data.data(), bytes);
            break;
        }
        case Tessel::FileChange::Resize: bytes_.resize(record.offset, 0); break;
        case Tessel::FileChange::Sync: break;
        }
    }

    const std::vector<unsigned char>& Bytes() const { return bytes_; }
    // Whether a write of at least header_bytes at offset 0 is among the changes applied.
    bool HeaderWritten() const { return header_written_; }

    explicit DiskImage(std::size_t header_bytes = 128) : header_bytes_(header_bytes) {}

private:
    std::vector<unsigned char> bytes_;
    std::size_t header_bytes_;
    bool header_written_ = false;
};

}  // namespace reliability
