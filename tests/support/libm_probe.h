// How exp, log, pow, sin and cos of this machine's C library round the last bit.
//
// The reference values of the tests were computed with glibc 2.36 on a processor with FMA instructions. Another C
// library, or the same one without FMA, rounds some arguments the other way; results then agree to about 12
// digits, not to the last bit.
#pragma once

namespace vorlen_test {

// True when the functions give the reference library's bits at all probe arguments. The arguments are ones where the
// library's own variants with and without FMA differ in the last bit.
bool libm_matches_reference();

// The same; if false, the first call prints that values are compared with tolerances.
bool announced_libm_matches_reference();

}  // namespace vorlen_test
