#pragma once
// A channel in memory that offers vectored transfers and counts them: it tells which
// runs the storage moved in one call, and can cut a vectored write short after a number
// of bytes, as a disk that fills up in the middle of a run would.

#include "host/storage_interfaces.h"
#include "storage/vectored_channel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace storage_testing {

class VectoredMemoryChannel : public IFileCache, public IVectoredChannel {
public:
    struct Call {
        uint64_t offset;
        std::size_t pieces;
        uint64_t bytes;
    };

    int Type() const override { return kManagedFile; }
    int64_t Read(void* buffer, uint64_t bytes, uint64_t offset) override {
        std::lock_guard lock(mutex_);
        ++reads;
        if (offset >= bytes_.size()) return 0;
        const uint64_t n = std::min<uint64_t>(bytes, bytes_.size() - offset);
        std::memcpy(buffer, bytes_.data() + offset, n);
        return static_cast<int64_t>(n);
    }
    uint64_t Size() override {
        std::lock_guard lock(mutex_);
        return bytes_.size();
    }
    int64_t Write(const void* buffer, uint64_t bytes, uint64_t offset) override {
        WaitAtGate();
        std::lock_guard lock(mutex_);
        ++writes;
        Put(buffer, bytes, offset);
        return static_cast<int64_t>(bytes);
    }
    int64_t ReadV(const iovec* pieces, std::size_t count, uint64_t offset) override {
        std::lock_guard lock(mutex_);
        uint64_t done = 0;
        for (std::size_t i = 0; i < count && offset + done < bytes_.size(); ++i) {
            const uint64_t n = std::min<uint64_t>(pieces[i].iov_len, bytes_.size() - offset - done);
            std::memcpy(pieces[i].iov_base, bytes_.data() + offset + done, n);
            done += n;
        }
        read_calls.push_back({offset, count, done});
        return static_cast<int64_t>(done);
    }
    int64_t WriteV(const iovec* pieces, std::size_t count, uint64_t offset) override {
        WaitAtGate();
        std::lock_guard lock(mutex_);
        uint64_t done = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const uint64_t n = std::min<uint64_t>(pieces[i].iov_len, write_budget - std::min(write_budget, done));
            Put(pieces[i].iov_base, n, offset + done);
            done += n;
            if (n < pieces[i].iov_len) break;
        }
        write_calls.push_back({offset, count, done});
        return static_cast<int64_t>(done);
    }
    std::string Description() override { return "VectoredMemory"; }
    std::string GetId() override { return "vectored"; }
    void Clear() override {
        std::lock_guard lock(mutex_);
        bytes_.clear();
    }
    void SetKeep(bool) override {}
    void SetFileReady(uint64_t) override {}
    bool IsValid() override { return true; }
    void Flush() override {}
    bool Trim(uint64_t) override { return false; }
    void SetSizeLimit(uint64_t) override {}

    // Cuts the content to bytes, as a file that ends early.
    void Truncate(uint64_t bytes) {
        std::lock_guard lock(mutex_);
        bytes_.resize(std::min<uint64_t>(bytes, bytes_.size()));
    }
    std::vector<unsigned char> Content() {
        std::lock_guard lock(mutex_);
        return bytes_;
    }
    std::vector<Call> ReadCalls() {
        std::lock_guard lock(mutex_);
        return read_calls;
    }
    std::vector<Call> WriteCalls() {
        std::lock_guard lock(mutex_);
        return write_calls;
    }
    void ForgetCalls() {
        std::lock_guard lock(mutex_);
        read_calls.clear();
        write_calls.clear();
        reads = writes = 0;
    }

    uint64_t PlainReads() {
        std::lock_guard lock(mutex_);
        return reads;
    }
    uint64_t PlainWrites() {
        std::lock_guard lock(mutex_);
        return writes;
    }
    // Closed: the next write waits until Open, so that the writer queues blocks behind it.
    void CloseGate() { gate_closed_ = true; }
    void OpenGate() { gate_closed_ = false; }
    // A write waits at the closed gate.
    bool Waiting() const { return waiting_; }

    // A vectored write stops after this many bytes (each call anew); set before use.
    uint64_t write_budget = ~uint64_t{0};

private:
    void WaitAtGate() {
        if (!gate_closed_) return;
        waiting_ = true;
        while (gate_closed_) std::this_thread::sleep_for(std::chrono::microseconds(100));
        waiting_ = false;
    }
    void Put(const void* buffer, uint64_t bytes, uint64_t offset) {
        if (bytes_.size() < offset + bytes) bytes_.resize(offset + bytes);
        std::memcpy(bytes_.data() + offset, buffer, bytes);
    }

    std::atomic<bool> gate_closed_{false};
    std::atomic<bool> waiting_{false};
    std::mutex mutex_;
    uint64_t reads = 0;
    uint64_t writes = 0;
    std::vector<unsigned char> bytes_;
    std::vector<Call> read_calls;
    std::vector<Call> write_calls;
};

}  // namespace storage_testing
