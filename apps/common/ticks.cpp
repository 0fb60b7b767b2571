#include "common/ticks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

double NiceStep(double lo, double hi, int max_ticks) {
    const double span = hi - lo;
    if (!(span > 0) || !std::isfinite(span) || max_ticks < 2) return 0;
    const double rough = span / (max_ticks - 1);
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        if (factor * power >= rough) return factor * power;
    }
    return 10 * power;
}

std::vector<double> NiceTicks(double lo, double hi, int max_ticks) {
    const double step = NiceStep(lo, hi, max_ticks);
    std::vector<double> ticks;
    if (step == 0) return ticks;
    // Whole multiples of the step; the tolerance keeps an end that is a multiple up to
    // rounding.
    const double tolerance = step * 1e-9;
    for (double k = std::ceil((lo - tolerance) / step); k * step <= hi + tolerance; ++k) {
        const double tick = k * step;
        ticks.push_back(std::fabs(tick) < tolerance ? 0.0 : tick);
    }
    return ticks;
}

TimeUnit TimeUnitFor(double step_seconds) {
    // The largest unit that ten steps reach: labels keep at most three digits before the
    // point without turning into long fractions.
    const double step = std::fabs(step_seconds) * 10;
    if (step >= 1) return {"s", 1};
    if (step >= 1e-3) return {"ms", 1e-3};
    if (step >= 1e-6) return {"\u00b5s", 1e-6};
    return {"ns", 1e-9};
}

namespace {

// Decimals needed to tell neighbouring ticks of this step apart.
int Decimals(double step) {
    if (!(step > 0)) return 0;
    return std::clamp(static_cast<int>(-std::floor(std::log10(step) + 1e-9)), 0, 9);
}

}  // namespace

std::string FormatTime(double seconds, double step_seconds) {
    const TimeUnit unit = TimeUnitFor(step_seconds);
    const double scaled = seconds / unit.seconds;
    const double scaled_step = std::fabs(step_seconds) / unit.seconds;
    return fmt::format("{:.{}f} {}", scaled, Decimals(scaled_step), unit.name);
}

std::string FormatValue(double value, double step) {
    if (std::fabs(value) < std::fabs(step) * 1e-9) value = 0;  // no "-0"
    return fmt::format("{:.{}f}", value, Decimals(std::fabs(step)));
}
