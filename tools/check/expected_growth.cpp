// Diffusion of a dilute species through a stagnant layer to a surface that takes up all of it (Bird, Stewart,
// Lightfoot, Transport Phenomena, chapter 18): the flux of precursor i is
//   J_i = p_i D_i / (R T delta_i)                       [kmol/(m^2 s)]
// with its partial pressure p_i in the inlet gas, its diffusion coefficient D_i in the mixture and the thickness
// delta_i of its layer. A metal atom takes the molar volume V of its nitride, so that the layer grows at
//   GR = sum over the precursors of J_i V_i.            [m/s]
// Diffusion, mixture and layer are those of the model under the conditions of the stage.
#include "check/expected_growth.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_map>

#include "model/constants.h"

namespace vorlen::recipe {

namespace {

// Intervals of Simpson's rule over a stage with a ramp. The rate is a smooth function of the conditions.
constexpr int RAMP_INTERVALS = 16;

bool has_metals(const vorlen::StageRecord& stage) {
  return std::any_of(stage.Q.begin(), stage.Q.begin() + vorlen::N2_g,
                     [](const vorlen::ValueRange& flow) { return std::max(flow.val, flow.end) > 0.0; });
}

bool is_constant(const vorlen::StageRecord& stage) {
  const auto stays = [](const vorlen::ValueRange& range) { return range.val == range.end; };
  return stays(stage.T) && stays(stage.P) && stays(stage.omega_TDR) &&
         std::all_of(stage.Q.begin(), stage.Q.end(), stays);
}

// Mean over the stage by Simpson's rule.
double mean_rate(vorlen::SurfChemNonst& model) {
  double sum = 0.0;
  for (int k = 0; k <= RAMP_INTERVALS; ++k) {
    const double weight = k == 0 || k == RAMP_INTERVALS ? 1.0 : k % 2 == 1 ? 4.0 : 2.0;
    sum += weight * expected_rate(model, static_cast<double>(k) / RAMP_INTERVALS);
  }
  return sum / (3.0 * RAMP_INTERVALS);
}

}  // namespace

double expected_rate(vorlen::SurfChemNonst& model, double fraction) {
  model.set_conditions(fraction, true);
  const vorlen::ConditionTerms& terms = model.condition_terms();
  double rate = 0.0;  // m/s
  // The metal precursors are the gas species before nitrogen. The trace of gallium that the model keeps in the gas
  // without a gallium flow is left out.
  for (std::size_t i = 0; i < vorlen::N2_g; ++i) {
    if (!model.gas_present[i] || !(model.Q[i] > 0.0)) continue;
    const vorlen::SpeciesRecord& gas = model.gas_species[i];
    const std::size_t nitride = gas.n_In > 0 ? vorlen::InN_b : gas.n_Ga > 0 ? vorlen::GaN_b : vorlen::AlN_b;
    rate += model.p[i] / terms.R_transport[i] * model.bulk_species[nitride].molar_volume;
  }
  return rate * vorlen::M_TO_NM;
}

std::vector<ExpectedGrowth> expected_growth(vorlen::SurfChemNonst& model) {
  std::vector<ExpectedGrowth> growth(model.active_stages.size());
  std::unordered_map<std::string_view, std::size_t> first;  // stage of the first period, by element name
  for (std::size_t k = 0; k < growth.size(); ++k) {
    const vorlen::StageRecord& stage = model.active_stages[k];
    if (!has_metals(stage)) continue;
    if (stage.period > 1) {
      growth[k] = growth[first.at(stage.label)];
      continue;
    }
    if (stage.period == 1) first[stage.label] = k;
    model.stage_index = static_cast<std::uint32_t>(k);
    growth[k].rate = is_constant(stage) ? expected_rate(model, 0.0) : mean_rate(model);
    growth[k].thickness = growth[k].rate * stage.tau;
  }
  return growth;
}

}  // namespace vorlen::recipe
