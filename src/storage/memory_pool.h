#pragma once
// The process-wide memory pool that holds all bulk sample data.
//
// Memory comes from the system in page-aligned chunks of at most 512 atoms, is never
// given back while the process runs, and is handed out as reference-counted
// CMemoryBlock runs of whole atoms; dropping the last reference returns the atoms.
// CMemoryManager is the static face; the state lives in one MemoryPool built on first
// use from the settings, which must therefore be set before anything allocates.
//
// Units: the atom setting counts 32 KiB, the expand and maximum settings count MiB.
// The setters compare the raw numbers with each other on purpose.

#include <atomic>
#include <cstdint>
#include <memory>

namespace __internal {
class MemoryPool;
}

class CMemoryBlock {
public:
    // A block of the process pool.
    CMemoryBlock(void* key, int offset, int size);
    // A block of another pool (tests build their own).
    CMemoryBlock(void* key, int offset, int size, __internal::MemoryPool* pool);
    ~CMemoryBlock();
    CMemoryBlock(const CMemoryBlock&) = delete;
    CMemoryBlock& operator=(const CMemoryBlock&) = delete;

    void* MemKey() const { return key_; }
    int MemOffset() const { return offset_; }
    int MemSize() const { return size_; }

    // Start of the block's memory and its length in bytes.
    void* Ptr() const;
    int32_t Size() const;
    // Start of atom i of the block; no range check.
    void* SubUnit(int i) const;

    // A counter of users; unbalanced calls are logged at critical level, not stopped.
    void Lock();
    void UnLock();
    int LockCount() const { return lock_.load(); }
    bool IsLocked() const { return lock_.load() != 0; }

private:
    void* key_;
    int offset_;
    int size_;
    std::atomic<int32_t> lock_{0};
    __internal::MemoryPool* pool_;
};

class CMemoryManager {
public:
    // Setters of the settings; each throws std::runtime_error("bad argument!!") for a
    // value out of range and keeps the value all the same.
    static void SetAtomSize(unsigned int atoms_of_32k);
    static void SetPoolExpandSize(unsigned int mib);
    static void SetMaxPoolSize(unsigned int mib);

    static uint64_t GetAtomSize();
    static uint64_t GetPoolExpandSize();
    static uint64_t GetMaxPoolSize();
    // Used atoms / atoms obtained so far (0 while nothing is used).
    static float GetCurrentUsage();
    // Used atoms / atoms the pool may hold; the block cache recycles by this value.
    static float GetMaxUsage();
    // Each pointer may be null: bytes obtained, maximum bytes, and the two usages.
    static void GetMemoryInfo(uint64_t* size, uint64_t* max_size, double* current, double* max);

    // A block of n atoms, null when the pool can't give it. A request for more than
    // one atom can end in std::out_of_range from the search in a full-size chunk.
    static std::shared_ptr<CMemoryBlock> Malloc(unsigned int atoms);
    // Resizes a block; flags bit value 2: the block may move; low bits exactly 2: it must.
    static std::shared_ptr<CMemoryBlock> ReAlloc(std::shared_ptr<CMemoryBlock> block, unsigned int atoms, int flags);

private:
    friend class CMemoryBlock;
    static void Free(void* key, int offset, int size);
};
