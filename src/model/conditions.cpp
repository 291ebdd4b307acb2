// Process conditions at a time (docs/physics.md, section 2): the current stage, and T, P, flows, mole fractions and
// partial pressures in it. The integrator evaluates at trial times, so the current stage moves in either direction.
//
// In order: steady stages, mole fractions, interpolation, current stage, conditions in it.
#include <algorithm>

#include "model/constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

constexpr double TIME_TOLERANCE = 1e-8;  // of the stage bounds, s

bool holds(const StageRecord& stage, double t) {
  return stage.begin_time() - TIME_TOLERANCE < t && stage.end_time() + TIME_TOLERANCE > t;
}

bool stays(const ValueRange& range) { return range.val == range.end; }

// Whether all conditions stay constant during the stage.
bool is_steady(const StageRecord& stage) {
  return stays(stage.T) && stays(stage.P) && stays(stage.rho_D) && stays(stage.omega_TDR) &&
         (!stage.flows_vary || std::all_of(stage.Q.begin(), stage.Q.end(), stays));
}

// Mole fractions in the inlet gas.
void compute_mixture(const SurfChemNonst& m, Mixture& mixture) {
  mixture.Q_total = 0.0;
  for (std::size_t i = 0; i < N_FLOWS; ++i) {
    if (m.gas_present[i]) mixture.Q_total += m.Q[i];
  }
  for (std::size_t i = 0; i < N_FLOWS; ++i) {
    if (m.gas_present[i]) mixture.x[i] = m.Q[i] / mixture.Q_total;
  }
}

}  // namespace

double interpolate(const ValueRange& range, double fraction) {
  const double v = range.val == range.end ? range.val : (range.end - range.val) * fraction + range.val;
  return v > 0.0 ? v : 0.0;
}

std::int32_t SurfChemNonst::update_conditions(double t_new, bool stage_changed) {
  t = t_new;
  const std::int64_t n = static_cast<std::int64_t>(active_stages.size());
  const StageRecord& current = active_stages[stage_index];
  if (current.end_time() + TIME_TOLERANCE < t) {
    std::int64_t k = static_cast<std::int64_t>(stage_index) + 1;
    while (k < n && !holds(active_stages[static_cast<std::size_t>(k)], t)) ++k;
    if (k >= n) {
      error_text = "t > t_end";
      return 1;
    }
    stage_index = static_cast<std::uint32_t>(k);
    stage_changed = true;
  } else if (current.begin_time() - TIME_TOLERANCE > t) {
    std::int64_t k = static_cast<std::int64_t>(stage_index) - 1;
    while (k >= 0 && !holds(active_stages[static_cast<std::size_t>(k)], t)) --k;
    if (k < 0) {
      error_text = "t < t_begin";
      return 1;
    }
    stage_index = static_cast<std::uint32_t>(k);
    stage_changed = true;
  }

  const StageRecord& stage = active_stages[stage_index];
  set_conditions((t - stage.begin_time()) / stage.tau, stage_changed);
  return 0;
}

void SurfChemNonst::set_conditions(double fraction, bool stage_changed) {
  const StageRecord& stage = active_stages[stage_index];
  terms.t_conditions = t;
  if (stage_changed) {
    terms.stage_is_steady = is_steady(stage);
  } else if (terms.stage_is_steady && reuse_terms) {
    return;
  }
  terms.have_terms = false;
  T = interpolate(stage.T, fraction);
  P = interpolate(stage.P, fraction);
  rho_D = interpolate(stage.rho_D, fraction);
  if (transport_model == TRANSPORT_thick_GaN && reactor == REACTOR_TDR) {
    omega_TDR = interpolate(stage.omega_TDR, fraction);
  }
  if (stage_changed || stage.flows_vary) {
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (gas_present[i]) Q[i] = interpolate(stage.Q[i], fraction);
    }
  }

  const Mixture& mixture = terms.mixtures.get(Q, reuse_terms, [this](Mixture& m) { compute_mixture(*this, m); });
  for (std::size_t i = 0; i < N_FLOWS; ++i) {
    if (gas_present[i]) p[i] = mixture.x[i] * P;
  }
  // A trace of gallium stays in the gas of stages without a gallium flow.
  const double p_min = GALLIUM_FLOOR * P;
  if (p[TMGa_g] < p_min && p[TEGa_g] < p_min) p[TMGa_g] = p_min;
}

}  // namespace vorlen
