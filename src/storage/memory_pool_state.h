#pragma once
// The state behind CMemoryManager. One instance serves the process; tests build their
// own with chosen settings and a system allocator that can refuse.

#include "host/logger.h"

#include <string>
#include <utility>
#include <vector>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

class CMemoryBlock;

namespace __internal {

class MemoryPool {
public:
    static constexpr uint32_t kChunkAtoms = 512;

    struct Settings {
        int32_t atom = 1;      // units of 32 KiB
        int32_t expand = 1;    // MiB
        int32_t maximum = 2048;  // MiB
    };
    // The system side: a page-aligned allocation that gives null instead of throwing, and its release.
    struct SystemMemory {
        std::function<void*(std::size_t)> allocate;
        std::function<void(void*)> release;
    };

    explicit MemoryPool(Settings settings, SystemMemory system = DefaultSystemMemory());
    ~MemoryPool();
    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;

    static SystemMemory DefaultSystemMemory();

    uint64_t AtomSize() const { return atom_size_; }
    uint64_t AllocSize() const { return alloc_size_; }
    uint64_t MaxSize() const { return max_size_.load(std::memory_order_relaxed); }
    uint64_t CurrentSize() const { return current_size_.load(std::memory_order_relaxed); }
    uint32_t UsedAtoms() const { return used_atoms_.load(std::memory_order_relaxed); }
    uint32_t TotalAtoms() const { return total_atoms_.load(std::memory_order_relaxed); }
    std::size_t ChunkCount() const;
    float CurrentUsage() const;
    float MaxUsage() const;

    std::shared_ptr<CMemoryBlock> Malloc(uint32_t atoms);
    std::shared_ptr<CMemoryBlock> ReAlloc(std::shared_ptr<CMemoryBlock> block, uint32_t atoms, int flags);
    void Free(void* key, int offset, int size);

private:
    struct MemoryChunk {
        void* base;
        std::bitset<kChunkAtoms> used;  // bit i set: atom i is in a block
        uint32_t free;
        uint32_t total;
    };

    static bool FindRun(const MemoryChunk& chunk, uint32_t n, uint32_t& found);
    std::shared_ptr<CMemoryBlock> Take(MemoryChunk& chunk, uint32_t pos, uint32_t n);
    std::shared_ptr<CMemoryBlock> Move(std::shared_ptr<CMemoryBlock> block, uint32_t n);
    // Messages of a call, logged once the pool's lock is released: a log observer may
    // take locks of its own, which must never nest inside the pool's.
    struct Messages {
        std::vector<std::pair<LogLevel, std::string>> lines;
        void Add(LogLevel level, std::string text) { lines.emplace_back(level, std::move(text)); }
        void Flush() const;
    };
    std::shared_ptr<CMemoryBlock> MallocLocked(uint32_t atoms, Messages& messages);
    MemoryChunk* Expand(Messages& messages);

    SystemMemory system_;
    uint64_t atom_size_ = 0;
    uint64_t alloc_size_ = 0;
    std::atomic<uint64_t> max_size_{0};
    uint64_t next_expand_ = 0;
    std::atomic<uint64_t> current_size_{0};
    std::atomic<uint32_t> max_atoms_{0};
    std::atomic<uint32_t> total_atoms_{0};
    std::atomic<uint32_t> used_atoms_{0};
    bool out_of_memory_ = false;
    std::unordered_map<void*, MemoryChunk> chunks_;
    mutable std::recursive_mutex mutex_;
};

}  // namespace __internal
