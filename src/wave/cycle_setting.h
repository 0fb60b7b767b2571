#pragma once
// The `cycle` entry of a wave dataset's configuration: "cycle=SIZE(1G,100M)" keeps the
// wave below 1 GiB by cutting 100 MiB at a time, "cycle=TIME(10M,1)" below ten minutes
// by cutting one second at a time.

#include <cstdint>
#include <optional>
#include <string>

// Whether a configuration key names the cycle entry: the 32-bit FNV-1a hash of the
// lower-case key and its terminating zero byte against that of "cycle". Another key with
// the same hash is taken as well.
bool IsCycleKey(const std::string& key);

// A number with an optional unit word: "n", "u", "m", "M" (minutes), "h", "d"; anything
// else, and no unit, is seconds. Units are case sensitive. Throws std::runtime_error
// ("bad argument!!") for a text without a number.
double ReadCycleTime(const std::string& text);
// A number with an optional unit word: "K", "M", "G" (powers of 1024); anything else,
// and no unit, is bytes. Throws like ReadCycleTime.
double ReadCycleSize(const std::string& text);

// A parsed cycle entry; empty for a kind that is neither "TIME" nor "SIZE".
struct CycleSetting {
    enum class Kind { kSize, kTime };
    Kind kind;
    double limit;  // bytes or seconds
    double step;   // bytes or seconds cut per event
};

// Reads "NAME(limit,step)". Throws like ReadCycleTime when a TIME or SIZE argument has
// no number.
std::optional<CycleSetting> ParseCycleSetting(const std::string& value);

// A non-negative amount (bytes, samples) as an unsigned count: truncated; negative and
// NaN give 0, values beyond the range the largest count.
uint64_t TruncateToCount(double amount);
