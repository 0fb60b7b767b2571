#pragma once
// Bytes the program holds on its heap now: the allocator's own count under a sanitizer
// (its shadow memory and quarantine would make the resident size meaningless), else
// what malloc has handed out. The pool's chunks come from the heap too.

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// The sanitizer runtimes' count of the bytes in live allocations (their header,
// sanitizer/allocator_interface.h, doesn't come with every compiler).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

namespace reliability {

inline std::size_t HeapBytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

}  // namespace reliability
