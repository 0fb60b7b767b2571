#pragma once
// Page-aligned heap blocks (for unbuffered file transfers).
//
// Never throws or aborts: a request of 0 bytes, a size near the address-space limit or a
// refused allocation gives nullptr. Blocks are released with AlignedFree, which accepts
// nullptr.

#include <cstddef>

namespace Vellum::Memory {

void* PageAlignedMalloc(std::size_t bytes) noexcept;
void AlignedFree(void* p) noexcept;
// The system page size (4096 if the system does not tell).
std::size_t PageSize() noexcept;

}  // namespace Vellum::Memory
