#pragma once
// The resident size of this process, as Linux reports it, for the memory figures of the
// benchmarks.

#include <cstdint>
#include <string>

namespace bench {

// A field of /proc/self/status in KiB ("VmRSS", "VmHWM"), 0 when it is missing.
uint64_t StatusKiB(const std::string& field);

// Starts a new peak of the resident size (VmHWM).
void ResetPeak();

}  // namespace bench
