// Forward and back substitution with the dense real factors of dense_kernels.cpp. Rows and columns count from 0 here,
// the entries of IP from 1.
//
// Each step starts one row below the previous one, so a loop over several rows at once would wait for the stores of the
// previous step. This file is therefore compiled without vectorisation (CMakeLists.txt).
#include <type_traits>
#include <utility>

#include "integrator/elimination_helpers.h"
#include "integrator/matrix_kernels.h"

namespace vorlen {

using elimination::Column;
using elimination::RowEnd;

namespace {

// For the orders of the growth model a substitution is compiled with known lengths and unrolled steps. Each element
// goes through the same operations in the same sequence as for any other order, so the bits are the same.
template <std::int32_t N>
using Known = std::integral_constant<std::int32_t, N>;

// Calls step(k) for k = 0 to n - 2.
template <class Step>
void ForwardSteps(std::int32_t n, Step step) {
  for (std::int32_t k = 0; k < n - 1; ++k) step(k);
}

template <std::int32_t N, class Step>
void ForwardSteps(Known<N>, Step step) {
  [&]<std::int32_t... K>(std::integer_sequence<std::int32_t, K...>) { (step(Known<K>()), ...); }
  (std::make_integer_sequence<std::int32_t, N - 1>());
}

// Calls step(k) for k = n - 1 down to 1.
template <class Step>
void BackwardSteps(std::int32_t n, Step step) {
  for (std::int32_t k = n - 1; k > 0; --k) step(k);
}

template <std::int32_t N, class Step>
void BackwardSteps(Known<N>, Step step) {
  [&]<std::int32_t... K>(std::integer_sequence<std::int32_t, K...>) { (step(Known<N - 1 - K>()), ...); }
  (std::make_integer_sequence<std::int32_t, N - 1>());
}

// Order and Stride are std::int32_t or Known.
template <class Order, class Stride>
void Substitute(Order n, Stride ndim, const double* A, std::int32_t subdiagonals, double* B, const std::int32_t* IP) {
  ForwardSteps(n, [&](auto k) {
    const std::int32_t row_end = RowEnd(n, subdiagonals, k);
    const double* column_k = Column(A, ndim, k);
    const std::int32_t m = IP[k] - 1;
    const double t = B[m];
    B[m] = B[k];
    B[k] = t;
    for (std::int32_t i = k + 1; i < row_end; ++i) {
      B[i] += column_k[i] * t;
    }
  });
  BackwardSteps(n, [&](auto k) {
    const double* column_k = Column(A, ndim, k);
    B[k] = B[k] / column_k[k];
    const double t = -B[k];
    for (std::int32_t i = 0; i < k; ++i) {
      B[i] += column_k[i] * t;
    }
  });
  B[0] = B[0] / A[0];
}

}  // namespace

void LuSolve(std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP) {
  if (n == 10 && ndim == 10) {
    Substitute(Known<10>(), Known<10>(), A, 9, B, IP);
  } else if (n == 15 && ndim == 15) {
    Substitute(Known<15>(), Known<15>(), A, 14, B, IP);
  } else {
    Substitute(n, ndim, A, n - 1, B, IP);
  }
}

void LuSolveHess(std::int32_t n, std::int32_t ndim, const double* A, std::int32_t subdiagonals, double* B,
                 const std::int32_t* IP) {
  Substitute(n, ndim, A, subdiagonals, B, IP);
}

}  // namespace vorlen
