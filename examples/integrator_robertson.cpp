// Robertson's chemical kinetics, a stiff system of three components whose rates span nine orders of magnitude:
//
//   y1' = -0.04 y1 + 1e4 y2 y3
//   y2' =  0.04 y1 - 1e4 y2 y3 - 3e7 y2^2
//   y3' =                        3e7 y2^2
//
// integrated from (1, 0, 0) to x = 1e11 with a Jacobian by difference quotients. Prints the end values and the work.
#include <vorlen_radau.h>

#include <cstdint>
#include <cstdio>

namespace radau = vorlen::radau;

static void Robertson(std::int32_t, double, const double* y, double* f, void*) {
  f[0] = -0.04 * y[0] + 1e4 * y[1] * y[2];
  f[2] = 3e7 * y[1] * y[1];
  f[1] = -f[0] - f[2];
}

int main() {
  // 1. The problem: the right-hand side and the number of components.
  radau::Problem problem;
  problem.n = 3;
  problem.rhs = Robertson;

  // 2. The tolerances. y2 stays below 1e-4, so the absolute tolerance is far below that.
  radau::Options options;
  options.relative_tolerance = 1e-8;
  options.absolute_tolerance = 1e-16;

  // 3. The start.
  double y[3] = {1.0, 0.0, 0.0};
  radau::State state;
  state.y = y;
  state.step = 1e-6;

  // 4. Integrate to x = 1e11.
  const radau::Result result = radau::Integrate(problem, options, 1e11, state);

  // 5. The result.
  std::printf("%s at x = %g\n", radau::Describe(result), state.x);
  std::printf("y = %.9e %.9e %.9e\n", y[0], y[1], y[2]);
  const radau::Counters& work = state.counters;
  std::printf("rhs_calls            %d\n", work.rhs_calls);
  std::printf("jacobian_rhs_calls   %d\n", work.jacobian_rhs_calls);
  std::printf("jacobian_count       %d\n", work.jacobian_count);
  std::printf("step_count           %d\n", work.step_count);
  std::printf("accepted_count       %d\n", work.accepted_count);
  std::printf("rejected_count       %d\n", work.rejected_count);
  std::printf("factorisation_count  %d\n", work.factorisation_count);
  std::printf("solve_count          %d\n", work.solve_count);
  return result == radau::Result::REACHED_END ? 0 : 1;
}
