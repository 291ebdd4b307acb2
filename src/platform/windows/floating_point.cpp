// The C library's FE_DFL_ENV leaves the control register of the SSE unit as it is, so both units are set here. Its exp,
// log and pow use the x87 unit, which programs of other compilers run with a shorter mantissa.
#include "platform/floating_point.h"

#include <xmmintrin.h>

#include <cstdint>
#include <cstring>

namespace vorlen {

namespace {

// As fnstenv stores it: control, status and tag words, addresses of the last instruction and operand.
struct X87State {
  std::uint32_t words[7];
};

struct FloatingPointState {
  X87State x87;
  std::uint32_t mxcsr;
};
static_assert(sizeof(FloatingPointState) <= sizeof(DefaultFloatingPoint));

// Rounding to nearest, no traps, subnormal numbers kept, no flags; in the x87 unit a mantissa of 64 bits.
constexpr std::uint32_t DEFAULT_MXCSR = 0x1f80;

}  // namespace

DefaultFloatingPoint::DefaultFloatingPoint() {
  FloatingPointState host;
  __asm__ volatile("fnstenv %0" : "=m"(host.x87));
  host.mxcsr = _mm_getcsr();
  std::memcpy(host_, &host, sizeof host);
  __asm__ volatile("fninit");
  _mm_setcsr(DEFAULT_MXCSR);
}

DefaultFloatingPoint::~DefaultFloatingPoint() {
  FloatingPointState host;
  std::memcpy(&host, host_, sizeof host);
  __asm__ volatile("fldenv %0" : : "m"(host.x87));
  _mm_setcsr(host.mxcsr);
}

}  // namespace vorlen
