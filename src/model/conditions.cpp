// Process conditions at a time: the current stage, and T, P, flows, mole fractions and partial pressures in it. The
// integrator asks for arbitrary test times, so the current stage moves in either direction.
#include <algorithm>

#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

constexpr double TIME_TOLERANCE = 1e-8;  // of the stage bounds, s
constexpr double GALLIUM_FLOOR = 5e-08;  // least mole fraction of a gallium precursor that acts on the surface

bool holds(const StageRecord& stage, double t) {
  return stage.begin_time() - TIME_TOLERANCE < t && stage.end_time() + TIME_TOLERANCE > t;
}

bool stays(const ValueRange& range) { return range.val == range.end; }

// Nothing that the conditions are made from moves within the stage.
bool is_steady(const StageRecord& stage) {
  return stays(stage.T) && stays(stage.P) && stays(stage.rho_D) && stays(stage.omega_TDR) &&
         (!stage.flows_vary || std::all_of(stage.Q.begin(), stage.Q.end(), stays));
}

}  // namespace

double interpolate(const ValueRange& range, double fraction) {
  const double v = range.val == range.end ? range.val : (range.end - range.val) * fraction + range.val;
  return v > 0.0 ? v : 0.0;
}

void SurfChemNonst::set_stage_delta(const StageRecord& stage) {
  if (transport_model == TRANSPORT_fixed_thickness) delta.fill(stage.delta);
  if (transport_model == TRANSPORT_InGaN_GR_X) delta = stage.delta_species;
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
  // Within a steady stage the conditions are those of the last look-up, which came into the stage or was in it too.
  if (stage_changed) {
    terms.is_steady = is_steady(stage);
  } else if (terms.is_steady && reuse_terms) {
    return;
  }
  T = interpolate(stage.T, fraction);
  P = interpolate(stage.P, fraction);
  rho_D = interpolate(stage.rho_D, fraction);
  if (transport_model == TRANSPORT_thick_GaN && reactor == REACTOR_TDR) {
    omega_TDR = interpolate(stage.omega_TDR, fraction);
  }
  if (stage_changed || stage.flows_vary) {
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (gas_index[i] >= 0) Q[i] = interpolate(stage.Q[i], fraction);
    }
  }
  if (stage_changed) set_stage_delta(stage);

  // Mole fractions follow from the flows alone: while these stay so do the fractions, to the last bit, and the partial
  // pressures unless the pressure moves. No flow or pressure is ever -0, so equal ones have equal bits. A new stage may
  // have other layers: then the mixture gets a new number all the same.
  const bool flows_stay = reuse_terms && Q == terms.Q_of_x;
  if (flows_stay && P == terms.P_of_p && !stage_changed) return;
  ++terms.mixture;
  if (!flows_stay) {
    Q_total = 0.0;
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (gas_index[i] >= 0) Q_total += Q[i];
    }
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (gas_index[i] >= 0) x[i] = Q[i] / Q_total;
    }
    terms.Q_of_x = Q;
  }
  for (std::size_t i = 0; i < N_FLOWS; ++i) {
    if (gas_index[i] >= 0) p[i] = x[i] * P;
  }
  terms.P_of_p = P;
  // A trace of gallium stays in the gas of stages without a gallium flow.
  const double p_min = GALLIUM_FLOOR * P;
  if (p[TMGa_g] < p_min && p[TEGa_g] < p_min) p[TMGa_g] = p_min;
}

}  // namespace vorlen
