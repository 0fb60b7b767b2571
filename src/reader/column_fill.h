#pragma once
// The fillings of a display span that has fewer samples than columns: given the samples
// that lie in the span, one flag per column (set where a column lies on a further
// sample) and the samples per column, each makes one value per column.
//
//   FillRaw     the samples in order from the first column, then invalid
//   FillHold    each column repeats the latest sample: a staircase
//   FillDots    a sample in its column, invalid between
//   FillSpline  samples in their columns, a cubic spline between
//   FillLinear  samples in their columns, straight lines between
//
// Values are doubles with NaN for "no value"; the reader converts to and from its
// element type.

#include <cstdint>
#include <vector>

namespace __internal {

enum FillMode : uint32_t { kFillRaw = 0, kFillHold = 1, kFillDots = 2, kFillSpline = 3, kFillLinear = 4 };

// One value per flag; a mode outside 0 to 4 fills nothing (all NaN).
std::vector<double> FillColumns(uint32_t mode, const std::vector<double>& samples, std::vector<unsigned char> flags,
                                double points_per_column);

}  // namespace __internal
