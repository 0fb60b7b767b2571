#pragma once
// Time in seconds and nanoseconds, and the relation of time, sample position and index
// column within one area.
//
// Seconds become nanoseconds by multiplying with 1e9 and truncating toward zero, and
// come back by multiplying with 1e-9. Two times in seconds are equal when they differ
// by less than 1e-12.

#include "dataset/records.h"

#include <cstdint>

// trunc(seconds x 1e9). NaN gives 0; values beyond the 64-bit range saturate.
int64_t SecondsToNs(double seconds);
// Unsigned form for record fields that hold unsigned nanoseconds; negative gives 0.
uint64_t SecondsToUnsignedNs(double seconds);
inline double NsToSeconds(int64_t ns) { return static_cast<double>(ns) * 1e-9; }
inline double NsToSeconds(uint64_t ns) { return static_cast<double>(ns) * 1e-9; }

bool TimesEqual(double a, double b);

// Position of time t in the area: the invalid position when t lies outside
// [start_time, end_time] or sample_ns < 1.
uint64_t AreaTimeToPosition(const ValidDataArea& area, double t, int64_t sample_ns);
// Time in seconds of a sample position of the area.
double AreaPositionToTime(const ValidDataArea& area, uint64_t position, int64_t sample_ns);
// Samples per index column: trunc(index period in ns) / trunc(sample period in ns), 1 if that is 0.
uint64_t IndexStepSamples(double index_period, double sample_period);
// The "Index" column that covers a sample position of the area.
uint64_t AreaPositionToColumn(const ValidDataArea& area, uint64_t position, uint64_t step);

// The one area a reader works from when a dataset has no stored area. Unlike a stored
// area its wave_end_pos is count, one past the last sample.
ValidDataArea SyntheticArea(double offset_seconds, uint64_t count, double sample_period, double index_period);
