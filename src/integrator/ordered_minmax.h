// Maximum and minimum with a defined result for NaN: if the comparison is false, which includes every comparison with
// NaN, the result is the second argument. The step-size control relies on this to recover from a NaN error.
#pragma once

namespace vorlen {

constexpr double OrderedMax(double a, double b) { return a > b ? a : b; }

constexpr double OrderedMin(double a, double b) { return a < b ? a : b; }

}  // namespace vorlen
