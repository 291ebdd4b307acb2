// What a sequence of stages hardly means.
//
// In order: abrupt changes while something grows, missing ammonia, stages without the metal of their name, and stages
// that may have each other's values.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "check/recipe_reading.h"
#include "check/stage_conditions.h"
#include "check/stage_names.h"

namespace vorlen::recipe {

namespace {

using vorlen::ValueRange;

constexpr double JUMP_MAX = 20.0;            // K; a reactor needs 10 s for more
constexpr double CARRIER_CHANGE_MAX = 0.5;   // of the share of hydrogen in the carrier gas
constexpr double PREFLOW_MAX = 30.0;         // s; a longer flow of TMAl alone is not a pre-flow or a pulse
constexpr double DECOMPOSES_IN_H2 = 900.0;   // K; above, nitrides lose nitrogen in hydrogen, InGaN in any gas
constexpr double DECOMPOSES_IN_N2 = 1150.0;  // K; below, p-GaN is annealed in nitrogen
constexpr double MOSTLY_AlN = 0.5;           // aluminium fraction of a template that can be baked in hydrogen
constexpr double HOTTER_MIN = 10.0;          // K
constexpr const char* RAMP_HINT = "reactors change their temperature by 1 to 3 K/s: add a stage with a ramp";

Problem warning_at(const char* kind, const TiXmlElement& element, const StagePlace& place, std::string text,
                   std::string hint) {
  return problem_at(Severity::warning, kind, element, nullptr, place, std::move(text), std::move(hint));
}

// ---- Abrupt changes while something grows

// Share of hydrogen in the carrier gas at one end of a stage; NaN without a carrier gas.
double hydrogen_share(const ReadStage& stage, double ValueRange::*end) {
  const double H2 = flow_at(stage, vorlen::H2_g, end);
  return H2 / (H2 + flow_at(stage, vorlen::N2_g, end));
}

void look_at_change(const ReadStage& before, const ReadStage& after, bool with_temperature, Causes& causes) {
  if (!flows_known(before) || !flows_known(after)) return;
  if (!(metal_flow(before, &ValueRange::end) > 0.0) || !(metal_flow(after, &ValueRange::val) > 0.0)) return;
  if (with_temperature && before.T && after.T && std::fabs(after.T->val - before.T->end) > JUMP_MAX) {
    causes.add("jump", warning_at("abrupt-change", child_of(*after.element, {"T"}), after.place,
                                  fmt::format("the temperature jumps from {:.6g} K at the end of {} to {:.6g} K in {} "
                                              "while metals flow",
                                              before.T->end, before.place.label, after.T->val, after.place.label),
                                  RAMP_HINT));
  }
  const double from = hydrogen_share(before, &ValueRange::end);
  const double to = hydrogen_share(after, &ValueRange::val);
  if (std::fabs(to - from) > CARRIER_CHANGE_MAX) {
    causes.add("carrier", warning_at("abrupt-change", child_of(*after.element, {"gas_species", "Q"}), after.place,
                                     fmt::format("the carrier gas changes from {} at the end of {} to {} in {} while "
                                                 "metals flow",
                                                 from > to ? "hydrogen" : "nitrogen", before.place.label,
                                                 from > to ? "nitrogen" : "hydrogen", after.place.label),
                                     "change the carrier gas in a pause"));
  }
}

// ---- Missing ammonia

bool has_no_ammonia(const ReadStage& stage) {
  return stage.Q[vorlen::NH3_g] && largest(*stage.Q[vorlen::NH3_g]) <= 0.0;
}

void look_at_growth_without_ammonia(const ReadStage& stage, Causes& causes) {
  if (!flows_known(stage) || !stage.Q[vorlen::NH3_g]) return;
  const bool only_TMAl = !with_gallium(stage) && !is_flowing(stage, vorlen::TMIn_g);
  if (only_TMAl && stage.tau <= PREFLOW_MAX && !is_named_after_nitride(stage.place.name)) return;
  for (double ValueRange::*end : {&ValueRange::val, &ValueRange::end}) {
    if (!(metal_flow(stage, end) > 0.0) || flow_at(stage, vorlen::NH3_g, end) > 0.0) continue;
    if (std::isnan((*stage.Q[vorlen::NH3_g]).*end)) continue;
    causes.add("growing", warning_at("no-ammonia", child_of(*stage.element, {"gas_species", "Q", "NH3"}), stage.place,
                                     fmt::format("metals flow without NH3 in {}", stage.place.label),
                                     "nitrides need ammonia to grow; give NH3 in sccm"));
    return;
  }
}

// Whether anything that loses nitrogen lies below the first stage.
bool has_layer_below(const Reading& reading) {
  const std::vector<vorlen::PrePostStageRecord>& layers = reading.recipe.pre_stages;
  return !layers.empty() && !(layers.back().X_Al_average > MOSTLY_AlN);
}

void look_at_hot_stages(const Reading& reading, const std::vector<const ReadStage*>& order, Causes& causes) {
  bool has_layer = has_layer_below(reading);
  std::size_t last_growth = 0;
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (with_metals(*order[k])) last_growth = k;
  }
  for (std::size_t k = 0; k < order.size(); ++k) {
    const ReadStage& stage = *order[k];
    has_layer = has_layer || with_metals(stage);
    if (!has_layer || !stage.T || !without_metals(stage) || !has_no_ammonia(stage)) continue;
    const double T = largest(*stage.T);
    const bool matters = is_flowing(stage, vorlen::H2_g) || k < last_growth;
    if (!(T >= (matters ? DECOMPOSES_IN_H2 : DECOMPOSES_IN_N2))) continue;
    causes.add("hot", warning_at("no-ammonia", child_of(*stage.element, {"gas_species", "Q", "NH3"}), stage.place,
                                 fmt::format("NH3 is off in {} at {:.6g} K", stage.place.label, T),
                                 "hot nitrides lose nitrogen without ammonia; give NH3 in sccm"));
  }
}

// ---- Stages that differ from their names, and stages that may have each other's values

bool is_steady(const ReadStage& stage) { return stage.T && stage.T->val == stage.T->end && flows_known(stage); }

// The next steady stage with metals in one direction; null if there is none.
const ReadStage* next_layer(const std::vector<const ReadStage*>& order, std::size_t from, std::ptrdiff_t step) {
  const auto size = static_cast<std::ptrdiff_t>(order.size());
  for (std::ptrdiff_t k = static_cast<std::ptrdiff_t>(from) + step; k >= 0 && k < size; k += step) {
    const ReadStage* stage = order[static_cast<std::size_t>(k)];
    if (is_steady(*stage) && with_metals(*stage)) return stage;
  }
  return nullptr;
}

// A well of GaN between barriers of AlGaN, under a name without a formula.
bool is_between_aluminium(const std::vector<const ReadStage*>& order, const ReadStage& stage) {
  const auto place = static_cast<std::size_t>(std::find(order.begin(), order.end(), &stage) - order.begin());
  for (const std::ptrdiff_t step : {-1, 1}) {
    const ReadStage* layer = next_layer(order, place, step);
    if (layer != nullptr && is_flowing(*layer, vorlen::TMAl_g)) return true;
  }
  return is_flowing(stage, vorlen::TMAl_g);
}

// A part or a neighbour of a layer that has its name: "InGaN pre-flow", "QW spacer".
bool names_part(const std::string& name) {
  constexpr std::string_view WORDS[] = {"pre", "post", "interrupt", "pause", "cool", "heat", "free", "no ", "without"};
  constexpr std::string_view NEIGHBOURS[] = {"spacer", "interlayer"};
  const std::string lower = lower_case(name);
  return contains_any(lower, WORDS) || (!has_formula(name) && contains_any(lower, NEIGHBOURS));
}

// Whether the stage lacks a metal that its name says and the material has.
bool lacks_metal(const Reading& reading, const std::vector<const ReadStage*>& order, const ReadStage& stage,
                 const Metal& metal) {
  const std::int32_t other = metal.species == vorlen::TMIn_g ? vorlen::MATERIAL_AlGaN : vorlen::MATERIAL_InGaN;
  if (reading.recipe.material == other || is_flowing(stage, metal.species)) return false;
  const std::string& name = stage.place.name;
  if (named_with(name, metal) != true || names_part(name)) return false;
  return metal.species != vorlen::TMIn_g || has_formula(name) || !is_between_aluminium(order, stage);
}

void look_at_missing_metal(const Reading& reading, const std::vector<const ReadStage*>& order, const Metal& metal,
                           Causes& causes) {
  for (const ReadStage& stage : reading.stages) {
    if (!is_steady(stage) || !with_metals(stage) || !lacks_metal(reading, order, stage, metal)) continue;
    causes.add(std::string("missing") + metal.flow,
               warning_at("missing-metal", child_of(*stage.element, {"gas_species", "Q", metal.flow}), stage.place,
                          fmt::format("{} is named \"{}\", but no {} flows", stage.place.label,
                                      short_name(stage.place.name), metal.flow),
                          fmt::format("give {} in sccm, or name the stage after what grows", metal.flow)));
  }
}

void look_at_names(const Reading& reading, const std::vector<const ReadStage*>& order, Causes& causes) {
  for (const Metal& metal : NAMED_METALS) {
    std::array<const ReadStage*, 2> odd{};  // first stage without the metal of its name, first with another metal
    for (const ReadStage& stage : reading.stages) {
      if (!is_steady(stage) || !with_metals(stage)) continue;
      const std::optional<bool> named = named_with(stage.place.name, metal);
      const bool has_flow = is_flowing(stage, metal.species);
      if (!named || *named == has_flow) continue;
      if (odd[has_flow ? 1 : 0] == nullptr) odd[has_flow ? 1 : 0] = &stage;
    }
    if (odd[1] == nullptr) look_at_missing_metal(reading, order, metal, causes);
    if (odd[0] == nullptr || odd[1] == nullptr) continue;
    const ReadStage& without = *odd[0];
    const ReadStage& with = *odd[1];
    causes.add(metal.flow,
               warning_at("swapped-stages", child_of(*without.element, {"gas_species", "Q", metal.flow}), without.place,
                          fmt::format("{}, \"{}\", grows without {}, and {}, \"{}\", with it", without.place.label,
                                      short_name(without.place.name), metal.flow, with.place.label,
                                      short_name(with.place.name)),
                          "the two stages may be exchanged"));
  }
}

// Indium needs lower temperatures than what is grown without it on both sides.
void look_at_wells(const std::vector<const ReadStage*>& order, const std::set<const ReadStage*>& odd, Causes& causes) {
  for (std::size_t k = 0; k < order.size(); ++k) {
    const ReadStage& stage = *order[k];
    if (!is_steady(stage) || !is_flowing(stage, vorlen::TMIn_g) || !with_gallium(stage)) continue;
    const ReadStage* below = next_layer(order, k, -1);
    const ReadStage* above = next_layer(order, k, 1);
    if (below == nullptr || above == nullptr || odd.count(&stage) + odd.count(below) + odd.count(above) > 0) continue;
    const auto is_cooler = [T = stage.T->val](const ReadStage& other) {
      return !is_flowing(other, vorlen::TMIn_g) && T - other.T->val > HOTTER_MIN;
    };
    if (!is_cooler(*below) || !is_cooler(*above)) continue;
    const std::string others =
        below == above ? below->place.label : fmt::format("{} and {}", below->place.label, above->place.label);
    causes.add("hotter", warning_at("swapped-stages", child_of(*stage.element, {"T"}), stage.place,
                                    fmt::format("{} grows with TMIn at {:.6g} K, hotter than {} without it",
                                                stage.place.label, stage.T->val, others),
                                    "the temperatures may be exchanged: layers with indium are grown colder"));
  }
}

}  // namespace

void warn_of_sequence(const Reading& reading, const std::set<const ReadStage*>& odd, std::vector<Problem>& warnings) {
  const std::vector<const ReadStage*> order = grown_order(reading.stages);
  Causes causes;
  for (std::size_t k = 1; k < order.size(); ++k) {
    look_at_change(*order[k - 1], *order[k], odd.count(order[k - 1]) + odd.count(order[k]) == 0, causes);
  }
  for (const ReadStage& stage : reading.stages) look_at_growth_without_ammonia(stage, causes);
  look_at_hot_stages(reading, order, causes);
  look_at_names(reading, order, causes);
  look_at_wells(order, odd, causes);
  causes.report(warnings);
}

}  // namespace vorlen::recipe
