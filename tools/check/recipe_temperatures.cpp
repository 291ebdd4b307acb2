// Temperatures of active stages outside of the usual ranges, and those that are probably in degrees Celsius.
//
// Some temperatures in °C are far too low for what grows, others are usual temperatures of something else: 840 K and
// 840 °C are both temperatures of GaN. When the first kind is found, the unit of the other stages is the one with
// which the temperature of the process is steadiest, found by dynamic programming over the stages in the order in which
// they are grown (Viterbi's algorithm).
#include <fmt/core.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "check/value_search.h"

namespace vorlen::recipe {

namespace {

using vorlen::ValueRange;

constexpr double THICK = 300.0;       // nm; nucleation layers and wells are thinner
constexpr double UNIT_CHANGE = 30.0;  // K; a change of the unit within a recipe counts like such a jump
constexpr std::size_t N_UNITS = 2;    // K and °C
constexpr double IMPOSSIBLE = std::numeric_limits<double>::infinity();

const OtherUnit& celsius() { return usual_range(Quantity::T_other).others[0]; }

Quantity temperature_range(const ReadStage& stage) {
  const bool indium = is_flowing(stage, vorlen::TMIn_g);
  const bool aluminium = is_flowing(stage, vorlen::TMAl_g);
  const bool gallium = with_gallium(stage);
  const auto mean = [&](vorlen::GasSpecies gas) { return stage.Q[gas] ? stage.Q[gas]->average() : 0.0; };
  if (indium && (gallium || aluminium)) return Quantity::T_indium;
  if (!gallium) return Quantity::T_other;
  if (aluminium && mean(vorlen::H2_g) > mean(vorlen::N2_g)) return Quantity::T_AlGaN;
  return Quantity::T_gallium;
}

bool is_thick(const Reading& reading, std::size_t k) {
  return k < reading.growth.size() && reading.growth[k].thickness > THICK &&
         !is_flowing(reading.stages[k], vorlen::TMIn_g);
}

// The end of a stage at which the temperature is not in the range; null if there is none. Only while something grows: a
// process cools down afterwards.
double ValueRange::*odd_end(const ReadStage& stage, Quantity quantity) {
  if (!stage.T || !flows_known(stage)) return nullptr;
  for (double ValueRange::*end : {&ValueRange::val, &ValueRange::end}) {
    const double T = (*stage.T).*end;
    if (metal_flow(stage, end) > 0.0 && T > 0.0 && side_of(usual_range(quantity), T) != 0) return end;
  }
  return nullptr;
}

// Whether the temperatures of a stage would be usual in °C.
bool is_usual_in_celsius(const ReadStage& stage, Quantity quantity) {
  if (!stage.T || !flows_known(stage)) return false;
  for (double ValueRange::*end : {&ValueRange::val, &ValueRange::end}) {
    const double T = (*stage.T).*end + celsius().offset;
    if (T > usual_range(Quantity::T_other).high) return false;
    if (metal_flow(stage, end) > 0.0 && side_of(usual_range(quantity), T) != 0) return false;
  }
  return true;
}

// ---- Stages in degrees Celsius

// A stage of which a temperature is not usual.
struct OddStage {
  Quantity quantity = Quantity::T_other;
  double ValueRange::*end = nullptr;
};

// The place of each stage of the grown order in the list of stages.
std::vector<std::size_t> grown_places(const std::vector<ReadStage>& stages) {
  std::vector<std::size_t> places;
  for (const ReadStage* stage : grown_order(stages)) {
    if (stage->T) places.push_back(static_cast<std::size_t>(stage - stages.data()));
  }
  return places;
}

// Which stages are in °C. Those of odd that become usual are, and the others where this makes the temperature steadier.
std::vector<bool> stages_in_celsius(const std::vector<ReadStage>& stages, const std::vector<OddStage>& odd) {
  const std::vector<std::size_t> places = grown_places(stages);
  std::vector<bool> found(stages.size());
  if (places.empty()) return found;
  const auto own_cost = [&](std::size_t k, std::size_t unit) {
    const bool usual =
        is_usual_in_celsius(stages[k], odd[k].end != nullptr ? odd[k].quantity : temperature_range(stages[k]));
    if (unit == 1) return usual ? 0.0 : IMPOSSIBLE;
    return usual && odd[k].end != nullptr ? IMPOSSIBLE : 0.0;
  };
  std::vector<std::array<std::size_t, N_UNITS>> best_before(places.size());
  std::array<double, N_UNITS> cost{own_cost(places[0], 0), own_cost(places[0], 1)};
  for (std::size_t m = 1; m < places.size(); ++m) {
    const double jump = stages[places[m]].T->val - stages[places[m - 1]].T->end;
    std::array<double, N_UNITS> next{};
    for (std::size_t unit = 0; unit < N_UNITS; ++unit) {
      const double other_jump = jump + (unit == 1 ? celsius().offset : -celsius().offset);
      const double stays = cost[unit] + std::fabs(jump);
      const double changes = cost[1 - unit] + std::fabs(other_jump) + UNIT_CHANGE;
      best_before[m][unit] = stays <= changes ? unit : 1 - unit;
      next[unit] = std::fmin(stays, changes) + own_cost(places[m], unit);
    }
    cost = next;
  }
  std::size_t unit = cost[1] < cost[0] ? 1 : 0;
  for (std::size_t m = places.size(); m-- > 0;) {
    if (unit == 1) found[places[m]] = true;
    unit = best_before[m][unit];
  }
  return found;
}

const TiXmlElement& element_of(const ReadStage& stage) { return child_of(*stage.element, {"T"}); }

// Several stages in °C: one warning, at the first of those whose temperatures are not usual.
void report_celsius(Search& search, const std::vector<bool>& in_celsius, const std::vector<OddStage>& odd) {
  const std::vector<ReadStage>& stages = search.reading.stages;
  std::size_t shown = stages.size();
  std::size_t count = 0;
  for (std::size_t k = 0; k < stages.size(); ++k) {
    if (!in_celsius[k]) continue;
    ++count;
    if (odd[k].end != nullptr && shown == stages.size()) shown = k;
  }
  if (shown == stages.size()) return;
  const ReadStage& first = stages[shown];
  const double T = (*first.T).*odd[shown].end;
  const std::string which = count == stages.size() ? "all" : std::to_string(count);
  const std::string text =
      fmt::format("the temperatures of {} stages look like °C: T is {} K in {}, {}; {} °C is {} K", which,
                  value_words(T), first.place.label, outside_words(usual_range(odd[shown].quantity), T), value_words(T),
                  value_words(T + celsius().offset));
  const auto add = [&](const ReadStage& stage) {
    search.odd_temperatures.insert(&stage);
    search.add("unit", "stages in °C", element_of(stage), stage.place, text,
               "the unit is K: add 273.15 to T of each of these stages");
  };
  add(first);
  for (std::size_t k = 0; k < stages.size(); ++k) {
    if (in_celsius[k] && k != shown) add(stages[k]);
  }
}

// ---- All together

void report(Search& search, const std::vector<OddStage>& odd) {
  const std::vector<ReadStage>& stages = search.reading.stages;
  std::vector<bool> in_celsius(stages.size());
  bool any = false;
  for (std::size_t k = 0; k < stages.size(); ++k) {
    any = any || (odd[k].end != nullptr && is_usual_in_celsius(stages[k], odd[k].quantity));
  }
  if (any) in_celsius = stages_in_celsius(stages, odd);
  std::size_t count = 0;
  for (const bool one : in_celsius) count += one ? 1 : 0;
  if (count > 1) report_celsius(search, in_celsius, odd);
  for (std::size_t k = 0; k < stages.size(); ++k) {
    if (odd[k].end == nullptr || (count > 1 && in_celsius[k])) continue;
    search.odd_temperatures.insert(&stages[k]);
    look(search, odd[k].quantity, "T", (*stages[k].T).*odd[k].end, element_of(stages[k]), stages[k].place);
  }
}

// Thick layers are grown hot. Only colder ones can be in °C.
void add_thick_layers(const Reading& reading, std::vector<OddStage>& odd) {
  for (std::size_t k = 0; k < odd.size(); ++k) {
    if (odd[k].end != nullptr || !is_thick(reading, k)) continue;
    odd[k] = {Quantity::T_thick, odd_end(reading.stages[k], Quantity::T_thick)};
  }
}

}  // namespace

void look_at_temperatures(Search& search) {
  const std::vector<ReadStage>& stages = search.reading.stages;
  std::vector<OddStage> odd(stages.size());
  bool below = false;
  for (std::size_t k = 0; k < stages.size(); ++k) {
    const Quantity quantity = temperature_range(stages[k]);
    odd[k] = {quantity, odd_end(stages[k], quantity)};
    below = below || (odd[k].end != nullptr && is_usual_in_celsius(stages[k], quantity));
  }
  if (below) {
    // In °C, a thick layer may look like a cold one.
    std::vector<OddStage> with_thick = odd;
    add_thick_layers(search.reading, with_thick);
    for (std::size_t k = 0; k < stages.size(); ++k) {
      if (with_thick[k].end != nullptr && is_usual_in_celsius(stages[k], with_thick[k].quantity))
        odd[k] = with_thick[k];
    }
  }
  report(search, odd);
}

void look_at_temperatures_of_thick_layers(Search& search) {
  std::vector<OddStage> odd(search.reading.stages.size());
  add_thick_layers(search.reading, odd);
  report(search, odd);
}

}  // namespace vorlen::recipe
