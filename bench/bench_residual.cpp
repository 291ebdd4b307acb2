// The residual under constant and changing conditions, the numerical Jacobian, and the part of a residual that cannot
// be avoided: transcendental functions and divisions whose arguments differ between two evaluations.
#include <benchmark/benchmark.h>

#include <cmath>
#include <string>
#include <vector>

#include "bench_support.h"
#include "integrator/numerical_jacobian.h"
#include "recipes/bench_recipes.h"

namespace vorlen::bench {

namespace {

constexpr std::size_t N_STATES = 64;
constexpr double ROUNDOFF = 1e-16;
constexpr double T_BEGIN = 1030.0;     // K, of the recipe
constexpr double T_RAMP_END = 1050.0;  // K

// InGaN under the conditions of one stage: constant, or with a temperature ramp.
Model residual_model(bool moving, bool relaxes) {
  return build_model(single_InGaN(relaxes, moving ? T_RAMP_END : T_BEGIN));
}

// Times spread over the stage.
double time_of_state(const SurfChemNonst& m, std::size_t k) {
  return m.t_begin + (m.t_end - m.t_begin) * (static_cast<double>(k) + 0.5) / static_cast<double>(N_STATES);
}

void residual(benchmark::State& state, bool moving, bool relaxes) {
  Model model = residual_model(moving, relaxes);
  SurfChemNonst& m = *model.surfchem_nonst;
  const auto states = varied_states(model, N_STATES);
  double f[N_STATE_MAX] = {};
  std::int32_t code = 0;
  std::size_t k = 0;
  for (auto _ : state) {
    code |= m.eval_rhs(time_of_state(m, k), states[k].data(), f);
    benchmark::DoNotOptimize(f);
    k = (k + 1) % N_STATES;
  }
  if (code != 0) state.SkipWithError("the conditions were not found");
  for (double value : f) {
    if (std::isnan(value)) state.SkipWithError("the residual is NaN");
  }
}
BENCHMARK_CAPTURE(residual, constant_stress_off, false, false);
BENCHMARK_CAPTURE(residual, constant_V_dislocation, false, true);
BENCHMARK_CAPTURE(residual, moving_stress_off, true, false);
BENCHMARK_CAPTURE(residual, moving_V_dislocation, true, true);

void rhs_callback(std::int32_t, double x, const double* y, double* f, void*, void* model_context) {
  static_cast<SurfChemNonst*>(model_context)->eval_rhs(x, y, f);
}

// An evaluation at a new state and the n evaluations of the Jacobian there, all at the same time t.
void jacobian(benchmark::State& state, bool moving, bool relaxes) {
  Model model = residual_model(moving, relaxes);
  SurfChemNonst& m = *model.surfchem_nonst;
  auto states = varied_states(model, N_STATES);
  const std::int32_t n = m.n_state();
  std::vector<double> matrix(static_cast<std::size_t>(n * n));
  double f[N_STATE_MAX], scratch[4 * N_STATE_MAX];
  StageSystem system;
  system.n = system.n_reduced = system.block_stride = system.mljac = system.mujac = system.jac_rows = n;
  system.matrix_case = 3;
  system.FJAC = matrix.data();
  StageArrays arrays;
  arrays.Y0 = f;
  arrays.CONT = scratch;
  const RhsFunction rhs{rhs_callback, nullptr, &m};
  std::size_t k = 0;
  for (auto _ : state) {
    const double t = time_of_state(m, k);
    rhs_callback(n, t, states[k].data(), f, nullptr, &m);
    NumericalJacobian(system, arrays, rhs, ROUNDOFF, t, states[k].data());
    benchmark::DoNotOptimize(matrix.data());
    benchmark::ClobberMemory();
    k = (k + 1) % N_STATES;
  }
}
BENCHMARK_CAPTURE(jacobian, constant_stress_off, false, false);
BENCHMARK_CAPTURE(jacobian, constant_V_dislocation, false, true);
BENCHMARK_CAPTURE(jacobian, moving_stress_off, true, false);
BENCHMARK_CAPTURE(jacobian, moving_V_dislocation, true, true);

// What one residual must compute if the conditions stay the same but surface and composition differ from the last
// evaluation. Everything that depends on T, P and the flows alone is known.
//
//   pow    3  composition-weighted factor of the nitrogen flux, one for each of In, Ga, Al
//   exp    3  activities of the bulk species
//   sqrt   1  of Kd[N2]
//   log    0  (V_dislocation: 3, relative mismatch, relaxed strain, R_disl; open V-defects add one that stays constant)
//   /     19  activities 3, vacancy law 1, Kd[N2] 1, 1/v_kin[N2] 1, fluxes over a resistance 7 (TMIn, N2, H2, NH3, In,
//             Ga, Al: the numerator or the resistance changes), k_minus 3, growth rate 3
//             (V_dislocation: 1 more, a_ref / a_bulk)
//
// In the growth rate a product with a constant is divided by the density; merging the two would change bits. Of the
// sums and products only those that form operands are kept, so that the chain N2_mix -> Kd -> sqrt -> k_minus has its
// full latency. The known values are typical of InGaN. No code of the model runs here.
struct KnownValues {
  double RT = 8314.47 * 1030.0;
  double N2_factor[N_BULK] = {0.9, 1.1, 1.3};
  double v_kin_N2 = 7e-5;
  double k_N2 = 1e12;  // Kd of N2 times v_kin
  double pressure[7] = {1.0, 2e4, 10.0, 2e4, 3.0, 4.0, 5.0};
  double resistance[7] = {1e9, 1e4, 1e8, 1e9, 2e9, 2e9, 2e9};
  double Kd[N_BULK] = {1e5, 1e3, 1e1};
  double K_eq[N_BULK] = {1e12, 1e10, 1e8};
  double molar_mass[N_BULK] = {129.0, 84.0, 41.0};
  double rho[N_BULK] = {6810.0, 6150.0, 3255.0};
  double energy[N_BULK] = {3e7, 1e7, 2e7};  // J/kmol
  double k_forward[N_BULK] = {2e9, 5e8, 5e8};
  double a_ref = 3.189;
  double log_factor = 5e7;  // 1/m
};

template <bool RELAXES>
void baseline(benchmark::State& state) {
  const auto states = varied_states(residual_model(false, RELAXES), N_STATES);
  const std::size_t first_x = RELAXES ? 11 : 6;
  KnownValues known;
  benchmark::DoNotOptimize(known);
  double flux[7], out[8] = {};
  std::size_t k = 0;
  for (auto _ : state) {
    const double* y = states[k].data();
    const double* x = y + first_x;
    double N2_mix = 1.0;
    for (std::size_t b = 0; b < 3; ++b) N2_mix *= std::pow(known.N2_factor[b], x[b]);
    const double v_kin = known.v_kin_N2 * N2_mix;
    const double Kd_N2 = known.k_N2 / v_kin;
    const double s_N2 = std::sqrt(Kd_N2);
    const double vacancy = 1.0 - y[0] / 1.901e-08;
    const double resistance_N2 = 1.0 / v_kin;
    flux[0] = known.pressure[0] * vacancy / (known.resistance[0] * vacancy + 1.0);
    flux[1] = Kd_N2 * y[3] / resistance_N2;
    for (std::size_t i = 2; i < 7; ++i) flux[i] = (known.pressure[i] - y[i - 2]) / known.resistance[i];
    double GR = 0.0;
    for (std::size_t b = 0; b < 3; ++b) {
      const double activity = std::exp((known.energy[b] * x[b]) / known.RT);
      const double k_minus = known.k_forward[b] / (known.Kd[b] * s_N2) * known.K_eq[b];
      out[b] = y[b] * y[3] - k_minus * activity * x[b];
      GR += out[b] * known.molar_mass[b] / known.rho[b];
    }
    out[3] = GR;
    if constexpr (RELAXES) {
      const double z_rel = y[5];
      for (std::size_t b = 0; b < 3; ++b) out[4 + b] = std::log(known.log_factor * z_rel * x[b] + 1.0);
      out[7] = known.a_ref / (3.0 + x[0]) - 1.0;
    }
    benchmark::DoNotOptimize(flux);
    benchmark::DoNotOptimize(out);
    k = (k + 1) % N_STATES;
  }
}
BENCHMARK_TEMPLATE(baseline, false)->Name("residual_baseline/stress_off");
BENCHMARK_TEMPLATE(baseline, true)->Name("residual_baseline/V_dislocation");

}  // namespace

}  // namespace vorlen::bench
