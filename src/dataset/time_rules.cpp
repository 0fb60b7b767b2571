#include "dataset/time_rules.h"

#include <cmath>
#include <limits>

int64_t SecondsToNs(double seconds) {
    const double ns = std::trunc(seconds * 1e9);
    if (std::isnan(ns)) return 0;
    // 2^63 is the first double beyond the signed range.
    if (ns >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
    if (ns < -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(ns);
}

uint64_t SecondsToUnsignedNs(double seconds) {
    const double ns = std::trunc(seconds * 1e9);
    if (std::isnan(ns) || ns <= 0.0) return 0;
    if (ns >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(ns);
}

bool TimesEqual(double a, double b) { return std::fabs(a - b) < 1e-12; }

uint64_t AreaTimeToPosition(const ValidDataArea& area, double t, int64_t sample_ns) {
    const int64_t tn = SecondsToNs(t);
    if (tn > area.end_time || tn < area.start_time || sample_ns < 1) return kInvalidPosition;
    // tn - start_time is not negative here, but an area that spans more than half the
    // time range has no signed difference: it is taken unsigned.
    const uint64_t since_start = static_cast<uint64_t>(tn) - static_cast<uint64_t>(area.start_time);
    return area.wave_beg_pos + since_start / static_cast<uint64_t>(sample_ns);
}

double AreaPositionToTime(const ValidDataArea& area, uint64_t position, int64_t sample_ns) {
    // Two's-complement arithmetic, so that positions before the area give earlier times.
    const uint64_t ns = static_cast<uint64_t>(area.start_time) +
                        (position - area.wave_beg_pos) * static_cast<uint64_t>(sample_ns);
    return static_cast<double>(static_cast<int64_t>(ns)) * 1e-9;
}

uint64_t IndexStepSamples(double index_period, double sample_period) {
    const int64_t sample_ns = SecondsToNs(sample_period);
    const int64_t index_ns = SecondsToNs(index_period);
    // A sample period below one nanosecond would divide by zero: the step is then 1.
    const int64_t step = sample_ns == 0 ? 0 : index_ns / sample_ns;
    return step <= 0 ? 1 : static_cast<uint64_t>(step);
}

uint64_t AreaPositionToColumn(const ValidDataArea& area, uint64_t position, uint64_t step) {
    if (step == 0) step = 1;
    const uint64_t rel = position - area.wave_beg_pos;
    if (area.first_count <= rel) return area.index_id + 1 + (rel - area.first_count) / step;
    return area.index_id;
}

ValidDataArea SyntheticArea(double offset_seconds, uint64_t count, double sample_period, double index_period) {
    ValidDataArea area{};
    area.start_time = SecondsToNs(offset_seconds);
    area.end_time = area.start_time + SecondsToNs(static_cast<double>(count) * sample_period);
    area.index_id = 0;
    const double per_column = sample_period == 0.0 ? 0.0 : index_period / sample_period;
    area.first_count = per_column >= 1.8446744073709552e19 || !(per_column > 0.0)
                           ? (per_column > 0.0 ? std::numeric_limits<uint64_t>::max() : 0)
                           : static_cast<uint64_t>(per_column);
    area.wave_beg_pos = 0;
    area.wave_end_pos = count;
    return area;
}
