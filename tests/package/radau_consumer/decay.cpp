// A chain of two decays, y0' = -y0 and y1' = y0 - 2 y1, integrated to x = 1 by the installed integrator. The solution
// is y0 = exp(-x), y1 = exp(-x) - exp(-2 x). Prints both values and exits with 0 if they are right.
#include <vorlen_radau.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace radau = vorlen::radau;

static void Decay(std::int32_t, double, const double* y, double* f, void*) {
  f[0] = -y[0];
  f[1] = y[0] - 2.0 * y[1];
}

int main() {
  radau::Problem problem;
  problem.n = 2;
  problem.rhs = Decay;
  radau::Options options;
  options.relative_tolerance = 1e-8;
  options.absolute_tolerance = 1e-8;
  double y[2] = {1.0, 0.0};
  radau::State state;
  state.y = y;
  const radau::Result result = radau::Integrate(problem, options, 1.0, state);
  std::printf("%s: %.6f %.6f\n", radau::Describe(result), y[0], y[1]);
  const bool right = std::abs(y[0] - std::exp(-1.0)) < 1e-7 && std::abs(y[1] - std::exp(-1.0) + std::exp(-2.0)) < 1e-7;
  return result == radau::Result::REACHED_END && right ? 0 : 1;
}
