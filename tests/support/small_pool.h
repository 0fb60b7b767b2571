#pragma once
// The process pool of a test program: 1 MiB expansions, 4 MiB at most, 32 KiB atoms,
// so that storages recycle blocks after a few MiB. The settings take effect when the
// pool is built, which the program's first test does.

namespace testing_support {

inline constexpr unsigned kSmallPoolExpandMiB = 1;
inline constexpr unsigned kSmallPoolMaxMiB = 4;

// Applies the settings (again); call before the pool is built.
void ConfigureSmallPool();

}  // namespace testing_support
