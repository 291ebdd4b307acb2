#include "integrator/integrator_call.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vorlen::test {

namespace {

constexpr std::size_t SLOTS = 20;
constexpr std::int32_t STORAGE_PATTERN = -77777;

}  // namespace

IntegratorCall::IntegratorCall(RadauRhsCallback rhs, std::vector<double> y_start, double end)
    : n(static_cast<std::int32_t>(y_start.size())),
      rhs_callback(rhs),
      y(std::move(y_start)),
      x_end(end),
      mljac(n),
      mujac(n),
      WORK(SLOTS, 0.0),
      IWORK(SLOTS, 0) {}

void IntegratorCall::SetTolerance(double relative, double absolute) {
  rtol.assign(1, relative);
  atol.assign(1, absolute);
}

void IntegratorCall::SizeArrays() {
  const std::int32_t n_reduced = n - Iwork(9);
  const bool banded = mljac < n_reduced;
  const std::int32_t jac_rows = banded ? mljac + mujac + 1 : n_reduced;
  const std::int32_t factor_rows = banded ? 2 * mljac + mujac + 1 : n_reduced;
  std::int32_t mass_rows = 0;
  if (imas != 0) mass_rows = mlmas == n_reduced ? n_reduced : mlmas + mumas + 1;
  lwork = 20 + 12 * n + n * jac_rows + n_reduced * mass_rows + 3 * n_reduced * factor_rows;
  liwork = 20 + 3 * n_reduced;
  WORK.resize(SLOTS);
  WORK.resize(static_cast<std::size_t>(lwork), std::numeric_limits<double>::quiet_NaN());
  IWORK.resize(SLOTS);
  IWORK.resize(static_cast<std::size_t>(liwork), STORAGE_PATTERN);
}

void IntegratorCall::SizeAndRun() {
  SizeArrays();
  Run();
}

void IntegratorCall::Run() {
  RadauIntegrator(n, rhs_callback, x, y.data(), x_end, h, rtol.data(), atol.data(), itol, jacobian_callback, ijac,
                  mljac, mujac, mass_callback, imas, mlmas, mumas, step_callback, iout, WORK.data(), lwork,
                  IWORK.data(), liwork, real_context, model_context, idid);
}

Counters IntegratorCall::ReadCounters() const {
  return {IWORK[13], IWORK[14], IWORK[15], IWORK[16], IWORK[17], IWORK[18], IWORK[19]};
}

void DiagonalIdentityMass(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n_reduced; ++j) {
    FMAS[j * mass_rows] = 1.0;
  }
}

void FullIdentityMass(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n_reduced; ++j) {
    std::fill(FMAS + j * mass_rows, FMAS + j * mass_rows + n_reduced, 0.0);
    FMAS[j * mass_rows + j] = 1.0;
  }
}

}  // namespace vorlen::test
