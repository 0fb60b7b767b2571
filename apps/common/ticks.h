#pragma once
// Axis ticks for plots: round steps of 1, 2 or 5 times a power of ten, and time labels in
// engineering units (s, ms, µs, ns) chosen from the step so that every label is short.

#include <string>
#include <vector>

// The tick positions in [lo, hi] on a step of 1, 2 or 5 x 10^n that gives at most
// max_ticks of them (at least 2 when the span allows). Empty for an empty or non-finite
// span.
std::vector<double> NiceTicks(double lo, double hi, int max_ticks);

// The step that NiceTicks uses for the same arguments; 0 for an empty span.
double NiceStep(double lo, double hi, int max_ticks);

// The unit of a time axis with this tick step, the largest that ten steps reach: its
// name and its size in seconds.
struct TimeUnit {
    const char* name;
    double seconds;
};
TimeUnit TimeUnitFor(double step_seconds);

// A time in the given unit with as many decimals as the step needs: "1.25 ms".
std::string FormatTime(double seconds, double step_seconds);

// A value label with as many decimals as the step needs: "-0.5", "1200".
std::string FormatValue(double value, double step);
