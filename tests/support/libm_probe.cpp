// Probes of the C library's exp, log, pow, sin and cos.
#include "support/libm_probe.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace vorlen_test {

namespace {

enum class Function { exp, log, pow, sin, cos };

struct Probe {
  Function function;
  double x, y;         // y for pow alone
  std::uint64_t bits;  // of the result of glibc 2.36 with FMA
};

// At every argument glibc 2.36 without FMA (GLIBC_TUNABLES=glibc.cpu.hwcaps=-FMA,-FMA4,-AVX2) gives a neighbouring
// double. In each group some of these results are the correctly rounded ones and some are not, so a library that
// rounds everything correctly is distinguished as well.
constexpr Probe PROBES[] = {
    {Function::exp, -4.281, 0.0, 0x3f8c5249a718a943},  {Function::exp, -7.644, 0.0, 0x3f3f62c267e2cbaf},
    {Function::exp, -9.474, 0.0, 0x3f142389a5b5c0c5},  {Function::exp, -13.054, 0.0, 0x3ec1f6dad4e53b5b},
    {Function::exp, -20.597, 0.0, 0x3e137df3bade7059}, {Function::exp, -0.6, 0.0, 0x3fe18fdd6b9604e3},
    {Function::exp, -22.3, 0.0, 0x3dec66cfa0d23f35},   {Function::exp, -0.052, 0.0, 0x3fee60e6ee87a579},
    {Function::exp, -29.84, 0.0, 0x3d3ee8d731921325},  {Function::exp, -3.543, 0.0, 0x3f9d9ee305229401},
    {Function::log, 1.3639, 0.0, 0x3fd3dcbee07608c9},  {Function::log, 1.6257, 0.0, 0x3fdf199dc30769db},
    {Function::log, 0.9107, 0.0, 0xbfb7f25a0d0b7274},  {Function::log, 1.1546, 0.0, 0x3fc26687a6431dae},
    {Function::pow, 0.362, 1.161, 0x3fd3abf0c42e8cef}, {Function::pow, 0.408, 0.251, 0x3fe98d52e19fe6e5},
    {Function::pow, 0.534, 1.291, 0x3fdc79214e95a637}, {Function::pow, 0.759, 1.621, 0x3fe47729946b4469},
    {Function::pow, 0.954, 1.791, 0x3fed6969908fec6f}, {Function::pow, 8.02, 1.451, 0x4034827495134239},
    {Function::pow, 0.305, 1.241, 0x3fcd52fe51369cef}, {Function::pow, 0.819, 1.241, 0x3fe8fa09ed42b195},
    {Function::pow, 2.997, 1.681, 0x401950871797493f}, {Function::pow, 3.304, 0.771, 0x40041a79766246e5},
    {Function::sin, 0.259, 0.0, 0x3fd0642c1d85096e},   {Function::sin, 1.622, 0.0, 0x3feff5436d5700d6},
    {Function::sin, 5.989, 0.0, 0xbfd28eb573e5cbcc},   {Function::cos, 1.31, 0.0, 0x3fd0809d6c4005c4},
    {Function::cos, 1.995, 0.0, 0xbfda579340dc9a0a},   {Function::cos, 3.809, 0.0, 0xbfe9223c1052efef},
};

double apply(const Probe& probe) {
  // volatile: the compiler must not compute the result itself.
  volatile double x = probe.x;
  volatile double y = probe.y;
  switch (probe.function) {
    case Function::exp:
      return std::exp(x);
    case Function::log:
      return std::log(x);
    case Function::pow:
      return std::pow(x, y);
    case Function::sin:
      return std::sin(x);
    case Function::cos:
      return std::cos(x);
  }
  return 0.0;
}

}  // namespace

bool libm_matches_reference() {
  for (const Probe& probe : PROBES) {
    if (std::bit_cast<std::uint64_t>(apply(probe)) != probe.bits) return false;
  }
  return true;
}

bool announced_libm_matches_reference() {
  static const bool matches = [] {
    const bool result = libm_matches_reference();
    if (!result) {
      std::printf(
          "NOTE: this C library rounds exp, log, pow, sin or cos differently from the reference library; "
          "values are compared by tolerance, not by bits\n");
    }
    return result;
  }();
  return matches;
}

}  // namespace vorlen_test
