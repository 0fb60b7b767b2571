#pragma once
// Helpers of the storage read tests: ramps of 4-byte units, the process-wide read switches
// set for one test, and reads in pieces.

#include "storage/block_storage.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace storage_testing {

inline constexpr uint64_t kUnits = 8192;  // 4-byte units per 32 KiB block
inline constexpr uint64_t kBlockBytes = 32768;

inline std::vector<uint32_t> Ramp(uint64_t count, uint32_t from = 0) {
    std::vector<uint32_t> values(count);
    std::iota(values.begin(), values.end(), from);
    return values;
}

// Sets the process-wide read switches for one test and puts the defaults back.
class ReadModes {
public:
    explicit ReadModes(CStorage::UncachedReads uncached, bool reload = false) {
        CStorage::SetUncachedReads(uncached);
        CStorage::SetReloadAtFullPool(reload);
    }
    ~ReadModes() {
        CStorage::SetUncachedReads(CStorage::UncachedReads::kNever);
        CStorage::SetReloadAtFullPool(false);
    }
    ReadModes(const ReadModes&) = delete;
    ReadModes& operator=(const ReadModes&) = delete;
};

// Reads [from, from + count) in pieces of step units.
inline std::vector<uint32_t> ReadInSteps(CStorage& storage, uint64_t from, uint64_t count, uint64_t step) {
    std::vector<uint32_t> out(count);
    uint64_t done = 0;
    while (done < count) {
        const uint64_t got = storage.Read(from + done, out.data() + done, std::min(step, count - done));
        if (got == 0) break;
        done += got;
    }
    out.resize(done);
    return out;
}

}  // namespace storage_testing
