// Dense output: the cubic polynomial through the start of the step, the two inner stages and the end, in Newton form,
// with s = 0 at the end and s = -1 at the start.
#include "integrator/dense_output.h"

#include "integrator/radau_constants.h"
#include "integrator/radau_integrator.h"

namespace vorlen {

constinit thread_local DenseOutput dense_output;

double RadauDenseValue(std::int32_t i, double t, const double* CONT, std::int32_t /*cont_size*/) {
  const DenseOutput& record = dense_output;
  const double s = (t - record.x_sol) / record.h_sol;
  const double* block = CONT + (i - 1);
  const std::int32_t n = record.n;
  return block[0] + s * (block[n] + (s - radau::c2_minus_1) * (block[2 * n] + (s - radau::c1_minus_1) * block[3 * n]));
}

}  // namespace vorlen
