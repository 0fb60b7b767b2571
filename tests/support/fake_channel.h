#pragma once
// A channel for tests: bytes in memory, with the failures of a real device on demand.

#include "host/storage_interfaces.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace testing_support {

class FakeChannel : public IFileCache {
public:
    explicit FakeChannel(int type = IDeviceChannel::kManagedFile, uint64_t features = 0)
        : type_(type), features_(features) {}

    // Writes beyond this many bytes of the channel come back short (a full disk).
    std::atomic<uint64_t> capacity{~uint64_t{0}};
    // Reads throw, as a file whose block map can't address the offset does.
    std::atomic<bool> throw_on_read{false};
    std::atomic<bool> writable{true};
    std::atomic<int> writes{0};
    std::atomic<int> flushes{0};
    std::atomic<int> clears{0};

    std::vector<uint8_t> Bytes() const {
        std::lock_guard lock(mutex_);
        return bytes_;
    }
    void SetBytes(std::vector<uint8_t> bytes) {
        std::lock_guard lock(mutex_);
        bytes_ = std::move(bytes);
    }

    int Type() const override { return type_; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override {
        if (throw_on_read) throw std::out_of_range("block beyond the map");
        std::lock_guard lock(mutex_);
        if (offset >= bytes_.size()) return 0;
        const uint64_t n = std::min<uint64_t>(bytes, bytes_.size() - offset);
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), n, static_cast<uint8_t*>(buffer));
        return static_cast<int64_t>(n);
    }
    uint64_t Size() override {
        std::lock_guard lock(mutex_);
        return bytes_.size();
    }
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override {
        std::lock_guard lock(mutex_);
        ++writes;
        if (offset == kAppend) offset = bytes_.size();
        const uint64_t room = offset >= capacity ? 0 : capacity - offset;
        const uint64_t n = std::min(bytes, room);
        if (bytes_.size() < offset + n) bytes_.resize(offset + n);
        std::copy_n(static_cast<const uint8_t*>(buffer), n, bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
        return static_cast<int64_t>(n);
    }
    bool Writable() override { return writable; }
    uint64_t Features() override { return features_; }
    std::string Description() override { return "Fake"; }

    std::string GetId() override { return "fake"; }
    void Clear() override {
        std::lock_guard lock(mutex_);
        ++clears;
        bytes_.clear();
    }
    void SetKeep(bool) override {}
    void SetFileReady(uint64_t) override {}
    bool IsValid() override { return true; }
    void Flush() override { ++flushes; }
    bool Trim(uint64_t) override { return false; }
    void SetSizeLimit(uint64_t bytes) override { size_limit = bytes; }
    uint64_t size_limit = 0;

private:
    int type_;
    uint64_t features_;
    mutable std::mutex mutex_;
    std::vector<uint8_t> bytes_;
};

}  // namespace testing_support
