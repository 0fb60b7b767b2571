#include "host/aligned_memory.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace Vellum::Memory {

std::size_t PageSize() noexcept {
    static const std::size_t size = [] {
        const long value = ::sysconf(_SC_PAGESIZE);
        return value > 0 ? static_cast<std::size_t>(value) : std::size_t{4096};
    }();
    return size;
}

void* PageAlignedMalloc(std::size_t bytes) noexcept {
    // No object may exceed PTRDIFF_MAX; refusing such sizes here also keeps allocators
    // that abort on absurd requests (e.g. sanitizer runtimes) from being asked at all.
    if (bytes == 0 || bytes > static_cast<std::size_t>(PTRDIFF_MAX) - PageSize()) return nullptr;
    void* p = nullptr;
    if (::posix_memalign(&p, PageSize(), bytes) != 0) return nullptr;
    return p;
}

void AlignedFree(void* p) noexcept { std::free(p); }

}  // namespace Vellum::Memory
