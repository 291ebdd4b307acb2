// The decimal digits of a number, as many as the rows of the result file show.
#pragma once

#include <cstdint>

namespace vorlen {

// 17 significant digits: those of the multiple of 10^(exponent - 16) nearest to the exact value, without its sign;
// 10^16 <= digits < 10^17. Of zero all digits and the exponent are 0.
struct DecimalDigits {
  std::uint64_t digits = 0;
  std::int32_t exponent = 0;
  // False when the value lies halfway between two such multiples, or so close to it that 60 bits after the last digit
  // do not decide, and for values that are not finite. The other two are undefined then.
  bool is_decided = false;
};

DecimalDigits decimal_digits(double value);

}  // namespace vorlen
