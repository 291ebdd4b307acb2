// Robertson's chemical kinetics, a stiff system of three components whose rates span nine orders of magnitude:
//
//   y1' = -0.04 y1 + 1e4 y2 y3
//   y2' =  0.04 y1 - 1e4 y2 y3 - 3e7 y2^2
//   y3' =                        3e7 y2^2
//
// integrated from (1, 0, 0) to x = 1e11 with a numerical Jacobian. Prints the end values and the work done.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "integrator/radau_integrator.h"

static void Robertson(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = -0.04 * y[0] + 1e4 * y[1] * y[2];
  f[2] = 3e7 * y[1] * y[1];
  f[1] = -f[0] - f[2];
}

int main() {
  const std::int32_t n = 3;
  const std::int32_t lwork = 20 + 12 * n + 4 * n * n;  // full Jacobian, no mass matrix
  const std::int32_t liwork = 20 + 3 * n;
  std::vector<double> WORK(lwork, 0.0);  // 0 in a parameter slot selects its default
  std::vector<std::int32_t> IWORK(liwork, 0);
  double x = 0.0, y[n] = {1.0, 0.0, 0.0}, h = 1e-6, rtol = 1e-8, atol = 1e-16;
  std::int32_t mljac = n, mujac = n, mumas = 0, idid = 0;

  vorlen::RadauIntegrator(n, Robertson, x, y, 1e11, h, &rtol, &atol, 0, nullptr, 0, mljac, mujac, nullptr, 0, 0, mumas,
                          nullptr, 0, WORK.data(), lwork, IWORK.data(), liwork, nullptr, nullptr, idid);

  std::printf("idid %d at x = %g\n", idid, x);
  std::printf("y = %.9e %.9e %.9e\n", y[0], y[1], y[2]);
  const char* names[] = {"rhs_calls",      "jacobian_count",      "step_count", "accepted_count",
                         "rejected_count", "factorisation_count", "solve_count"};
  for (std::size_t k = 0; k < 7; ++k) std::printf("%-20s %d\n", names[k], IWORK[13 + k]);
  return idid == 1 ? 0 : 1;
}
