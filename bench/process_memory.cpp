#include "process_memory.h"

#include <cstdlib>
#include <fstream>

namespace bench {

uint64_t StatusKiB(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind(field + ":", 0) == 0) return std::strtoull(line.c_str() + field.size() + 1, nullptr, 10);
    return 0;
}

// Writing 5 to clear_refs resets the peak.
void ResetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

}  // namespace bench
