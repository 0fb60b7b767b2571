#include "storage/memory_pool.h"

#include "host/aligned_memory.h"
#include "host/logger.h"
#include "storage/memory_pool_state.h"

#include <fmt/format.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

// Settings, read once when the process pool is built.
std::atomic<int32_t> g_atom_setting{1};
std::atomic<int32_t> g_expand_setting{1};
std::atomic<int32_t> g_max_setting{2048};
std::atomic<int32_t> g_ratio{1};  // kept by the setters; nothing reads it

[[noreturn]] void BadArgument() { throw std::runtime_error("bad argument!!"); }

uint64_t Scaled(int32_t setting, int shift) {
    // Sign-extended, then shifted as an unsigned number.
    return static_cast<uint64_t>(static_cast<int64_t>(setting)) << shift;
}

// Never destroyed: blocks may be released by background tasks until the process ends,
// and the system takes the memory back then.
__internal::MemoryPool& ProcessPool() {
    static auto* pool = new __internal::MemoryPool(
        __internal::MemoryPool::Settings{g_atom_setting.load(), g_expand_setting.load(), g_max_setting.load()});
    return *pool;
}

}  // namespace

namespace __internal {

MemoryPool::SystemMemory MemoryPool::DefaultSystemMemory() {
    return {[](std::size_t bytes) {
                void* chunk = Vellum::Memory::PageAlignedMalloc(bytes);
                // Blocks are copied into and out of whole: large pages spare the copies
                // most of their TLB misses, and the first fill most of its page faults.
                // Only a hint; where the system doesn't take it nothing changes.
                if (chunk) ::madvise(chunk, bytes, MADV_HUGEPAGE);
                return chunk;
            },
            [](void* p) { Vellum::Memory::AlignedFree(p); }};
}

MemoryPool::MemoryPool(Settings settings, SystemMemory system) : system_(std::move(system)) {
    chunks_.max_load_factor(1.0f);
    chunks_.reserve(8);
    atom_size_ = Scaled(settings.atom, 15);
    alloc_size_ = Scaled(settings.expand, 20);
    max_size_ = Scaled(settings.maximum, 20);
    if (atom_size_ == 0) {
        // Nothing can be counted in atoms of no size: such a pool hands out nothing.
        CLogger::DefaultLogger().Error("MemoryPool::Constructor: AtomSize is 0, no memory can be allocated");
        out_of_memory_ = true;
        return;
    }
    if (alloc_size_ / atom_size_ > kChunkAtoms) {
        const uint64_t adjusted = atom_size_ * kChunkAtoms;
        CLogger::DefaultLogger().Warning(
            "MemoryPool::Constructor: AllocSize({}) too large, over 512 times to AtomSize({}), adjusted to {}",
            alloc_size_, atom_size_, adjusted);
        alloc_size_ = adjusted;
    }
    max_atoms_ = static_cast<uint32_t>(max_size_.load() / atom_size_);
    next_expand_ = alloc_size_;
}

MemoryPool::~MemoryPool() {
    std::lock_guard lock(mutex_);
    for (auto& entry : chunks_) system_.release(entry.second.base);
    chunks_.clear();
}

std::size_t MemoryPool::ChunkCount() const {
    std::lock_guard lock(mutex_);
    return chunks_.size();
}

float MemoryPool::CurrentUsage() const {
    const uint32_t used = UsedAtoms();
    const uint32_t total = TotalAtoms();
    return used == 0 || total == 0 ? 0.0f : static_cast<float>(used) / static_cast<float>(total);
}

float MemoryPool::MaxUsage() const {
    const uint32_t used = UsedAtoms();
    const uint32_t max = max_atoms_.load(std::memory_order_relaxed);
    // A pool that may hold no atom at all counts as full once anything is in use.
    if (max == 0) return used == 0 ? 0.0f : 1.0f;
    return static_cast<float>(used) / static_cast<float>(max);
}

void MemoryPool::Messages::Flush() const {
    for (const auto& [level, text] : lines) CLogger::DefaultLogger().Log(level, text);
}

std::shared_ptr<CMemoryBlock> MemoryPool::Malloc(uint32_t n) {
    Messages messages;
    std::shared_ptr<CMemoryBlock> block = MallocLocked(n, messages);
    messages.Flush();
    return block;
}

std::shared_ptr<CMemoryBlock> MemoryPool::MallocLocked(uint32_t n, Messages& messages) {
    std::lock_guard lock(mutex_);
    if (atom_size_ == 0 || n > alloc_size_ / atom_size_) return nullptr;
    for (auto& entry : chunks_) {
        uint32_t pos = 0;
        if (FindRun(entry.second, n, pos)) return Take(entry.second, pos, n);
    }
    if (MemoryChunk* chunk = Expand(messages)) return Take(*chunk, 0, n);
    messages.Add(LogLevel::Error, "MemoryPool: Memory Expand Failed!!");
    return nullptr;
}

// First fit within one chunk. After a failed run the search steps one atom past the
// next clear atom, so that atom is never tried as a start; for same-sized requests,
// which is what the storages make, this costs nothing.
bool MemoryPool::FindRun(const MemoryChunk& chunk, uint32_t n, uint32_t& found) {
    if (n > chunk.free) return false;
    bool any_clear = false;
    for (uint32_t i = 0; i < chunk.total && !any_clear; ++i) any_clear = !chunk.used.test(i);
    if (!any_clear) return false;
    const uint32_t limit = chunk.total - n;
    uint32_t pos = 0;
    while (pos <= limit && chunk.used.test(pos)) ++pos;
    if (pos > limit) return false;
    for (;;) {
        bool clear = true;
        for (uint32_t i = 0; i < n && clear; ++i) clear = !chunk.used.test(pos + i);
        if (clear) {
            found = pos;
            return true;
        }
        // The last set bit of the run, the one just behind it included, is the new start.
        for (uint32_t e = pos + n; e > pos; --e) {
            if (chunk.used.test(e)) {
                pos = e;
                break;
            }
        }
        while (pos <= limit && chunk.used.test(pos)) ++pos;
        ++pos;
        if (pos > limit) return false;
    }
}

std::shared_ptr<CMemoryBlock> MemoryPool::Take(MemoryChunk& chunk, uint32_t pos, uint32_t n) {
    used_atoms_ += n;
    chunk.free -= n;
    for (uint32_t i = pos; i < pos + n; ++i) chunk.used.set(i);
    return std::make_shared<CMemoryBlock>(chunk.base, static_cast<int>(pos), static_cast<int>(n), this);
}

MemoryPool::MemoryChunk* MemoryPool::Expand(Messages& messages) {
    if (out_of_memory_ || CurrentSize() >= MaxSize()) return nullptr;
    const uint64_t floor = std::max<uint64_t>(atom_size_, 1048576);
    uint64_t size = next_expand_;
    void* base = nullptr;
    do {
        next_expand_ = size;
        base = system_.allocate(size);
        size /= 2;
    } while (base == nullptr && size >= floor);
    if (base == nullptr) {
        max_size_ = CurrentSize();
        max_atoms_ = TotalAtoms();
        out_of_memory_ = true;
        messages.Add(LogLevel::Warning, fmt::format("MemoryPool::Expand false, OOM:{}, SIZE: {} MB, MAX_SIZE: {} MB",
                                                    true, CurrentSize() >> 20, MaxSize() >> 20));
        return nullptr;
    }
    current_size_ += next_expand_;
    const auto atoms = static_cast<uint32_t>(next_expand_ / atom_size_);
    auto [it, inserted] = chunks_.try_emplace(base, MemoryChunk{base, {}, atoms, atoms});
    if (!inserted) {
        messages.Add(LogLevel::Warning, "MemoryPool::Expand, something went wrong!!");
        return &it->second;
    }
    total_atoms_ += atoms;
    return &it->second;
}

void MemoryPool::Free(void* key, int offset, int size) {
    if (key == nullptr) return;
    std::lock_guard lock(mutex_);
    try {
        MemoryChunk& chunk = chunks_.at(key);
        used_atoms_ -= static_cast<uint32_t>(size);
        chunk.free += static_cast<uint32_t>(size);
        for (int i = offset; i < offset + size; ++i) chunk.used.reset(static_cast<std::size_t>(i));
    } catch (const std::exception& error) {
        CLogger::DefaultLogger().Critical("MemoryPool::Free: Error, message is \"{}\"", error.what());
    }
}

std::shared_ptr<CMemoryBlock> MemoryPool::Move(std::shared_ptr<CMemoryBlock> block, uint32_t n) {
    std::shared_ptr<CMemoryBlock> moved = Malloc(n);
    if (!moved) return nullptr;
    std::memcpy(moved->Ptr(), block->Ptr(), static_cast<std::size_t>(std::min(moved->Size(), block->Size())));
    block.reset();
    return moved;
}

std::shared_ptr<CMemoryBlock> MemoryPool::ReAlloc(std::shared_ptr<CMemoryBlock> block, uint32_t n, int flags) {
    std::lock_guard lock(mutex_);
    if (!block) return Malloc(n);
    if (atom_size_ == 0 || n > alloc_size_ / atom_size_) return nullptr;
    if ((flags & 3) == 2) return Move(std::move(block), n);

    MemoryChunk* chunk = nullptr;
    try {
        chunk = &chunks_.at(block->MemKey());
    } catch (const std::exception& error) {
        CLogger::DefaultLogger().Critical("MemoryPool::ReAlloc: Error, message is \"{}\"", error.what());
        return nullptr;
    }
    const auto offset = static_cast<uint32_t>(block->MemOffset());
    const auto size = static_cast<uint32_t>(block->MemSize());
    if (n == size) return block;
    if (n > size) {
        bool room = offset + n <= chunk->total;
        for (uint32_t i = offset + size; room && i < offset + n; ++i) room = !chunk->used.test(i);
        if (!room) return (flags & 2) ? Move(std::move(block), n) : nullptr;
        chunk->free -= n - size;
        used_atoms_ += n - size;
        for (uint32_t i = offset + size; i < offset + n; ++i) chunk->used.set(i);
    } else {
        chunk->free += size - n;
        used_atoms_ -= size - n;
        for (uint32_t i = offset + n; i < offset + size; ++i) chunk->used.reset(i);
    }
    // If this was the old block's last reference, its destructor frees its whole old
    // extent although the new block covers the same atoms. The module never resizes
    // blocks; the exported operation behaves so and callers must keep the old block
    // alive as long as the new one if they need the accounting to hold.
    void* key = block->MemKey();
    block.reset();
    return std::make_shared<CMemoryBlock>(key, static_cast<int>(offset), static_cast<int>(n), this);
}

}  // namespace __internal

CMemoryBlock::CMemoryBlock(void* key, int offset, int size) : CMemoryBlock(key, offset, size, &ProcessPool()) {}

CMemoryBlock::CMemoryBlock(void* key, int offset, int size, __internal::MemoryPool* pool)
    : key_(key), offset_(offset), size_(size), pool_(pool ? pool : &ProcessPool()) {}

CMemoryBlock::~CMemoryBlock() { pool_->Free(key_, offset_, size_); }

void* CMemoryBlock::Ptr() const {
    return static_cast<char*>(key_) + pool_->AtomSize() * static_cast<uint64_t>(static_cast<int64_t>(offset_));
}

int32_t CMemoryBlock::Size() const { return static_cast<int32_t>(pool_->AtomSize() * static_cast<uint64_t>(size_)); }

void* CMemoryBlock::SubUnit(int i) const {
    return static_cast<char*>(Ptr()) + pool_->AtomSize() * static_cast<uint64_t>(static_cast<int64_t>(i));
}

void CMemoryBlock::Lock() {
    const int32_t before = lock_.fetch_add(1);
    if (before < 0)
        CLogger::DefaultLogger().Critical(
            "CMemoryBlock::Lock before lock, lock counter value is less than ZERO!!({})", before);
}

void CMemoryBlock::UnLock() {
    const int32_t before = lock_.fetch_sub(1);
    if (before < 1)
        CLogger::DefaultLogger().Critical(
            "CMemoryBlock::Lock before unlock, lock counter value is NOT great than ZERO!!({})", before);
}

void CMemoryManager::SetAtomSize(unsigned int atoms_of_32k) {
    g_atom_setting = static_cast<int32_t>(atoms_of_32k);
    // An atom setting of 0 leaves no ratio to compute: refused like a ratio below 1.
    if (g_atom_setting == 0) BadArgument();
    g_ratio = g_expand_setting / g_atom_setting;
    if (g_ratio < 1) BadArgument();
}

void CMemoryManager::SetPoolExpandSize(unsigned int mib) {
    g_expand_setting = static_cast<int32_t>(mib);
    if (g_atom_setting == 0) BadArgument();
    g_ratio = g_expand_setting / g_atom_setting;
    if (g_ratio < 1) BadArgument();
}

void CMemoryManager::SetMaxPoolSize(unsigned int mib) {
    g_max_setting = static_cast<int32_t>(mib);
    if (g_max_setting < g_expand_setting) BadArgument();
}

uint64_t CMemoryManager::GetAtomSize() { return ProcessPool().AtomSize(); }
uint64_t CMemoryManager::GetPoolExpandSize() { return ProcessPool().AllocSize(); }
uint64_t CMemoryManager::GetMaxPoolSize() { return ProcessPool().MaxSize(); }
float CMemoryManager::GetCurrentUsage() { return ProcessPool().CurrentUsage(); }
float CMemoryManager::GetMaxUsage() { return ProcessPool().MaxUsage(); }

void CMemoryManager::GetMemoryInfo(uint64_t* size, uint64_t* max_size, double* current, double* max) {
    __internal::MemoryPool& pool = ProcessPool();
    if (size) *size = pool.CurrentSize();
    if (max_size) *max_size = pool.MaxSize();
    if (current) *current = pool.CurrentUsage();
    if (max) *max = pool.MaxUsage();
}

std::shared_ptr<CMemoryBlock> CMemoryManager::Malloc(unsigned int atoms) { return ProcessPool().Malloc(atoms); }

std::shared_ptr<CMemoryBlock> CMemoryManager::ReAlloc(std::shared_ptr<CMemoryBlock> block, unsigned int atoms,
                                                      int flags) {
    return ProcessPool().ReAlloc(std::move(block), atoms, flags);
}

void CMemoryManager::Free(void* key, int offset, int size) { ProcessPool().Free(key, offset, size); }
