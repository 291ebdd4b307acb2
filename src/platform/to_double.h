// The double nearest to a number in text.
#pragma once

namespace vorlen {

// The number that starts at first and ends before last: an optional sign, digits with at most one point among them, and
// an optional exponent; with is_hexadecimal 0x after the sign, and an exponent of two after p. At least one digit.
// Above the range of double infinity, below it zero, with the sign. After it comes a character that is not part of the
// number, or zero. The thread's locale has a decimal point (ClassicLocaleScope).
double to_double(const char* first, const char* last, bool is_hexadecimal);

}  // namespace vorlen
