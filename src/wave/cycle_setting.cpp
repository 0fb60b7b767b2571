#include "wave/cycle_setting.h"

#include "host/string_utils.h"

#include <cmath>
#include <limits>

namespace {

constexpr uint32_t kFnvOffset = 0x811C9DC5u;
constexpr uint32_t kFnvPrime = 0x01000193u;
constexpr uint32_t kCycleKeyHash = 0xE44B3463u;  // FNV-1a of "cycle" with its zero byte

uint32_t Fnv1a(const std::string& text) {
    uint32_t hash = kFnvOffset;
    // The terminating zero byte is part of the hashed text.
    for (std::size_t i = 0; i <= text.size(); ++i) {
        hash ^= static_cast<unsigned char>(text.c_str()[i]);
        hash *= kFnvPrime;
    }
    return hash;
}

}  // namespace

bool IsCycleKey(const std::string& key) { return Fnv1a(tolower(key)) == kCycleKeyHash; }

double ReadCycleTime(const std::string& text) {
    const auto [value, unit] = ReadNumberWithUnit(text);
    double factor = 1.0;
    if (unit == "n") factor = 1e-9;
    else if (unit == "u") factor = 1e-6;
    else if (unit == "m") factor = 0.001;
    else if (unit == "M") factor = 60.0;
    else if (unit == "h") factor = 3600.0;
    else if (unit == "d") factor = 86400.0;
    return value * factor;
}

double ReadCycleSize(const std::string& text) {
    const auto [value, unit] = ReadNumberWithUnit(text);
    double factor = 1.0;
    if (unit == "K") factor = 1024.0;
    else if (unit == "M") factor = 1048576.0;
    else if (unit == "G") factor = 1073741824.0;
    return value * factor;
}

std::optional<CycleSetting> ParseCycleSetting(const std::string& value) {
    std::string name, args, first, second;
    SplitBracket(value, name, args);
    SplitString(args, ",", first, second);
    if (StringCompare(name, "TIME", true) == 0)
        return CycleSetting{CycleSetting::Kind::kTime, ReadCycleTime(first), ReadCycleTime(second)};
    if (StringCompare(name, "SIZE", true) == 0)
        return CycleSetting{CycleSetting::Kind::kSize, ReadCycleSize(first), ReadCycleSize(second)};
    return std::nullopt;
}

uint64_t TruncateToCount(double amount) {
    // A conversion of a value outside the range of the type has no defined result.
    if (!(amount > 0)) return 0;
    if (amount >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(amount);
}
