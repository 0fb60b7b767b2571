#pragma once
// A channel for fault injection: bytes in memory like a managed cache file (a region
// never written reads as nothing, not as zeros), whose N-th write or read fails, once or
// from then on, by an error result or by an exception.

#include "host/storage_interfaces.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace reliability {

enum class FailureKind { ErrorResult, Exception };

// Which call fails: the at-th call (1-based) counted over every channel that shares
// this plan; persistent: every call from then on.
struct FaultPlan {
    std::atomic<uint64_t> calls{0};
    uint64_t at = 0;  // 0: nothing fails
    bool persistent = false;
    FailureKind kind = FailureKind::ErrorResult;
    std::atomic<bool> enabled{true};
    std::atomic<uint64_t> failed{0};

    bool Fails() {
        if (!enabled || at == 0) return false;
        const uint64_t n = ++calls;
        const bool fail = persistent ? n >= at : n == at;
        if (fail) ++failed;
        return fail;
    }
};

class FaultChannel : public IFileCache {
public:
    FaultChannel(FaultPlan* writes, FaultPlan* reads) : writes_(writes), reads_(reads) {}

    int Type() const override { return IDeviceChannel::kManagedFile; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override {
        if (reads_ && reads_->Fails()) {
            if (reads_->kind == FailureKind::Exception) throw std::runtime_error("injected read failure");
            return -1;
        }
        std::lock_guard lock(mutex_);
        // Only the written bytes from offset on: a hole reads as nothing.
        uint64_t n = 0;
        while (n < bytes && offset + n < bytes_.size() && written_[offset + n]) ++n;
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), n, static_cast<uint8_t*>(buffer));
        return static_cast<int64_t>(n);
    }
    uint64_t Size() override {
        std::lock_guard lock(mutex_);
        return bytes_.size();
    }
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override {
        if (writes_ && writes_->Fails()) {
            if (writes_->kind == FailureKind::Exception) throw std::runtime_error("injected write failure");
            return -1;
        }
        std::lock_guard lock(mutex_);
        if (offset == kAppend) offset = bytes_.size();
        if (bytes_.size() < offset + bytes) {
            bytes_.resize(offset + bytes);
            written_.resize(offset + bytes, false);
        }
        std::copy_n(static_cast<const uint8_t*>(buffer), bytes, bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
        std::fill_n(written_.begin() + static_cast<std::ptrdiff_t>(offset), bytes, true);
        return static_cast<int64_t>(bytes);
    }
    bool Writable() override { return true; }
    uint64_t Features() override { return 0; }
    std::string Description() override { return "Fault"; }
    std::string GetId() override { return "fault"; }
    void Clear() override {
        std::lock_guard lock(mutex_);
        bytes_.clear();
        written_.clear();
    }
    void SetKeep(bool) override {}
    void SetFileReady(uint64_t) override {}
    bool IsValid() override { return true; }
    void Flush() override {}
    bool Trim(uint64_t) override { return false; }
    void SetSizeLimit(uint64_t) override {}

private:
    FaultPlan* writes_;
    FaultPlan* reads_;
    std::mutex mutex_;
    std::vector<uint8_t> bytes_;
    std::vector<bool> written_;
};

}  // namespace reliability
