// Maximum and minimum that compare their arguments in the order written: where the comparison fails, not-a-number
// included, the result is the second argument. The step control relies on this to get past a not-a-number.
#pragma once

namespace vorlen {

constexpr double OrderedMax(double a, double b) { return a > b ? a : b; }

constexpr double OrderedMin(double a, double b) { return a < b ? a : b; }

}  // namespace vorlen
