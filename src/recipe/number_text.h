// Numbers in the attributes of a recipe.
#pragma once

#include <cstdint>

namespace vorlen {

// Both read the number at the start of a text, after blanks, and return where it ends. They return null, and leave
// value, if there is none. No locale matters except that of to_double.

// Digits with a point and an exponent, 0x with hexadecimal digits and an exponent after p, inf, infinity or nan, in
// small or capital letters, with or without a sign. A number above the range of double is infinity, one below it zero.
const char* read_real(const char* text, double& value);

// Digits with or without a sign. Outside of the range of 64 bits it is the end of that range; of the result, the lower
// 32 bits are value.
const char* read_integer(const char* text, std::int32_t& value);

}  // namespace vorlen
