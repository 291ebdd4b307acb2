// Values of active stages outside of the usual ranges, and the unit in which they may have been given.
//
// In order: flows, a stage, what grows. Temperatures are in recipe_temperatures.cpp. A later part looks only at what
// the earlier ones found usual, so that one slip is one warning.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "check/stage_names.h"
#include "check/value_search.h"

namespace vorlen::recipe {

namespace {

constexpr double BILAYER = 0.26;  // nm, c/2 of GaN
constexpr double S_PER_MIN = 60.0;
constexpr double TOTAL_MIN = 5.0;         // nm; many thin stages, as in pulsed growth, add up to more
constexpr double NH3_IN_SLM = 60.0;       // sccm; a smaller flow of NH3 may be in slm
constexpr double NH3_RATIO_MIN = 300.0;   // V/III ratio that such a small flow would be too little for
constexpr double CARRIER_IN_SLM = 30.0;   // sccm; likewise of a carrier gas
constexpr double INDIUM_MAX = 5.0;        // TMIn for each gallium precursor; red light needs 2 to 4
constexpr double ALUMINIUM_MARGIN = 5.0;  // times the ratio that a formula says; gallium desorbs
constexpr double TMIn_IN_UMOL = 1.0;      // sccm; a smaller flow is hardly in µmol/min
constexpr double TMAl_IN_UMOL = 2.0;      // sccm
constexpr double CARRIER_SHARE = 0.01;    // of the total flow; a carrier gas is usually more

// ---- Flows

Quantity flow_range(vorlen::GasSpecies gas) {
  switch (gas) {
    case vorlen::TMIn_g:
      return Quantity::TMIn;
    case vorlen::TMGa_g:
      return Quantity::TMGa;
    case vorlen::TEGa_g:
      return Quantity::TEGa;
    case vorlen::TMAl_g:
      return Quantity::TMAl;
    default:
      return Quantity::gas_flow;
  }
}

const TiXmlElement& flow_element(const ReadStage& stage, const char* name) {
  return child_of(*stage.element, {"gas_species", "Q", name});
}

// The flows of the stage as they would be in another unit: "TMGa 22 µmol/min is 0.4931 sccm". Either of the metals, or
// of the other gases.
std::string flows_in(const ReadStage& stage, const OtherUnit& unit, bool of_metals) {
  std::string words;
  for (const Flow& flow : flows()) {
    const bool is_metal = flow_range(flow.species) != Quantity::gas_flow;
    if (is_metal != of_metals || !is_flowing(stage, flow.species)) continue;
    const double value = largest(*stage.Q[flow.species]);
    words += fmt::format("{}{} {} {} is {:.4g} sccm", words.empty() ? "" : ", ", flow.name, value_words(value),
                         unit.unit, value * unit.factor);
  }
  return words;
}

std::string metals_in(const ReadStage& stage, const OtherUnit& unit) { return flows_in(stage, unit, true); }

// Flow of a metal next to that of gallium which is too much in sccm and usual in µmol/min.
bool look_at_metal(Search& search, const ReadStage& stage, const Metal& metal, double ratio_max, double flow_min) {
  if (!is_flowing(stage, metal.species) || !with_gallium(stage)) return false;
  const double flow = largest(*stage.Q[metal.species]);
  double gallium = 0.0;  // sccm
  for (const vorlen::GasSpecies gas : {vorlen::TMGa_g, vorlen::TEGa_g})
    gallium += std::max(largest(*stage.Q[gas]), 0.0);
  const double converted = flow * micromoles().factor;
  const bool is_usual_converted = side_of(usual_range(flow_range(metal.species)), converted) == 0;
  if (!(flow >= flow_min && flow > ratio_max * gallium) || !is_usual_converted) return false;
  search.add("unit", std::string(metal.flow) + " beside gallium", flow_element(stage, metal.flow), stage.place,
             fmt::format("{} is {} sccm{}, {:.3g} times the {} sccm of gallium precursors; {} {} is {:.4g} sccm",
                         metal.flow, value_words(flow), in_stage(stage.place), flow / gallium, value_words(gallium),
                         value_words(flow), micromoles().unit, converted),
             "the unit is sccm for every precursor");
  return true;
}

// Metals of which one is in another unit. True if that was reported.
bool look_at_metals(Search& search, const ReadStage& stage) {
  if (!flows_known(stage)) return false;
  const auto& [indium, aluminium] = NAMED_METALS;
  if (look_at_metal(search, stage, indium, INDIUM_MAX, TMIn_IN_UMOL)) return true;
  const std::optional<NamedAluminium> named = named_aluminium(stage.place.name);
  if (!named) return false;
  const double most = named->exact ? ALUMINIUM_MARGIN * named->per_gallium : named->per_gallium;
  return look_at_metal(search, stage, aluminium, most, TMAl_IN_UMOL);
}

// The largest flows of a stage together, sccm; NaN when one is not known.
double total_flow(const ReadStage& stage) {
  double total = 0.0;
  for (const Flow& flow : flows()) {
    if (!stage.Q[flow.species]) return std::nan("");
    total += std::max(largest(*stage.Q[flow.species]), 0.0);
  }
  return total;
}

void look_at_ratio(Search& search, const ReadStage& stage) {
  if (!(total_flow(stage) >= usual_range(Quantity::total_flow).low)) return;
  double metals = 0.0;
  for (const vorlen::GasSpecies metal : METALS) metals += std::max(largest(*stage.Q[metal]), 0.0);
  const double NH3 = largest(*stage.Q[vorlen::NH3_g]);
  if (!(metals > 0.0) || !(NH3 > 0.0)) return;
  const bool indium = is_flowing(stage, vorlen::TMIn_g);
  const bool gallium = with_gallium(stage);
  const UsualRange& range = usual_range(indium    ? Quantity::V_III_indium
                                        : gallium ? Quantity::V_III_gallium
                                                  : Quantity::V_III_AlN);
  const double ratio = NH3 / metals;
  const bool small_flow = gallium && NH3 <= NH3_IN_SLM && ratio < NH3_RATIO_MIN;
  const int side = side_of(range, ratio);
  if (side == 0 && !small_flow) return;
  const TiXmlElement& element = flow_element(stage, "NH3");
  std::string text = fmt::format("NH3 is {} sccm{}, a V/III ratio of {}", value_words(NH3), in_stage(stage.place),
                                 value_words(ratio, 3));
  if (side != 0) text += ", " + outside_words(range, ratio);
  const auto is_usual_in = [&](double factor) { return side_of(range, ratio * factor) == 0; };
  if (NH3 <= NH3_IN_SLM && is_usual_in(1e3)) {
    search.add("unit", "NH3", element, stage.place,
               fmt::format("{}; {} slm is {} sccm", text, value_words(NH3), value_words(1e3 * NH3)),
               "the unit is sccm");
    return;
  }
  for (const OtherUnit* unit : {&micromoles(), &standard_litres()}) {
    if (!is_usual_in(1.0 / unit->factor)) continue;
    search.add("unit", std::string("metals in ") + unit->unit, element, stage.place,
               text + "; " + metals_in(stage, *unit), "the unit is sccm, of the precursor itself");
    return;
  }
  search.add("unusual-value", fmt::format("ratio{}", side), element, stage.place, text, range.reason);
}

// Flows in slm are given with two decimals at most.
bool looks_like_slm(double value) { return std::fabs(100.0 * value - std::round(100.0 * value)) < 1e-6; }

// A carrier gas next to which the other gases are a hundred times more.
void look_at_carriers(Search& search, const ReadStage& stage, double total) {
  for (const Flow& flow : flows()) {
    if (flow.species != vorlen::N2_g && flow.species != vorlen::H2_g) continue;
    const double value = largest(*stage.Q[flow.species]);
    if (!(value > 0.0) || value > CARRIER_IN_SLM || value > CARRIER_SHARE * total || !looks_like_slm(value)) continue;
    search.add("unit", std::string("carrier ") + flow.name, flow_element(stage, flow.name), stage.place,
               fmt::format("{} is {} sccm{}, of {:.6g} sccm in total; {} slm is {} sccm", flow.name, value_words(value),
                           in_stage(stage.place), total, value_words(value), value_words(1e3 * value)),
               "the unit is sccm");
  }
}

// Several flows that are usual each. True if their sum is not; then it is reported.
bool look_at_total(Search& search, const ReadStage& stage, double total) {
  const TiXmlElement& element = child_of(*stage.element, {"gas_species", "Q"});
  const UsualRange& range = usual_range(Quantity::total_flow);
  if (side_of(range, total) >= 0 || side_of(range, total * standard_litres().factor) != 0) {
    return look(search, Quantity::total_flow, "the total flow", total, element, stage.place);
  }
  search.add("unit", "total", element, stage.place,
             fmt::format("the total flow is {} sccm{}, {}; {}", value_words(total), in_stage(stage.place),
                         outside_words(range, total), flows_in(stage, standard_litres(), false)),
             fmt::format("the unit is sccm; {}", range.reason));
  return true;
}

void look_at_mixture(Search& search, const ReadStage& stage) {
  const double total = total_flow(stage);
  if (!with_metals(stage) || std::isnan(total) || look_at_total(search, stage, total)) return;
  look_at_carriers(search, stage, total);
}

// ---- A stage

void look_at_stage(Search& search, const ReadStage& stage) {
  const auto child = [&stage](const char* name) -> const TiXmlElement& { return child_of(*stage.element, {name}); };
  // A pause may be one in which the reactor is pumped down or the disc stands still.
  const bool pause = without_metals(stage);
  if (stage.P && !pause) look(search, Quantity::P, "P", *stage.P, child("P"), stage.place);
  if (stage.omega_TDR && !pause) {
    look(search, Quantity::omega, "omega_TDR", *stage.omega_TDR, child("omega_TDR"), stage.place);
  }
  look(search, Quantity::tau, "tau", stage.tau, child("tau"), stage.place);
  look(search, Quantity::delta, "delta", stage.delta, child("delta"), stage.place);
  look(search, Quantity::GR_prescribed, "GR_average", stage.GR_average, child("GR_average"), stage.place);
  bool flows_are_usual = true;
  for (const Flow& flow : flows()) {
    if (!stage.Q[flow.species]) continue;
    const double value = largest(*stage.Q[flow.species]);
    if (look(search, flow_range(flow.species), flow.name, value, flow_element(stage, flow.name), stage.place)) {
      flows_are_usual = false;
      search.flow_found = true;
    }
  }
  if (!flows_are_usual) return;
  if (look_at_metals(search, stage)) {
    search.flow_found = true;
  } else {
    look_at_mixture(search, stage);
  }
}

// ---- What grows

void look_at_growth(Search& search) {
  const Reading& reading = search.reading;
  if (reading.growth.empty()) return;
  const bool prescribed = reading.recipe.transport_model == vorlen::TRANSPORT_InGaN_GR_X;
  double thickest = 0.0;
  const ReadStage* grown = nullptr;
  for (std::size_t k = 0; k < reading.stages.size(); ++k) {
    const ReadStage& stage = reading.stages[k];
    const ExpectedGrowth& growth = reading.growth[k];
    if (!with_metals(stage) || !std::isfinite(growth.rate)) continue;
    if (grown == nullptr) grown = &stage;
    thickest = std::max(thickest, growth.thickness);
    const bool indium = is_flowing(stage, vorlen::TMIn_g);
    const UsualRange& rates = usual_range(indium ? Quantity::rate_indium : Quantity::rate);
    const UsualRange& thicknesses = usual_range(indium ? Quantity::thickness_indium : Quantity::thickness);
    const int side = side_of(rates, growth.rate);
    if (side != 0) {
      std::string text = fmt::format("the expected growth rate is {:.4g} nm/s{}, {}", growth.rate,
                                     in_stage(stage.place), outside_words(rates, growth.rate));
      const bool in_micromoles = side > 0 && side_of(rates, growth.rate * micromoles().factor) == 0;
      if (in_micromoles && !prescribed) text += "; " + metals_in(stage, micromoles());
      search.add("growth", fmt::format("rate{}", side), child_of(*stage.element, {"gas_species", "Q"}), stage.place,
                 text, "check the metal flows, in sccm, and the transport layer; vorlen timeline shows all stages");
    } else if (side_of(thicknesses, growth.thickness) != 0) {
      search.add("growth", "thickness", child_of(*stage.element, {"tau"}), stage.place,
                 fmt::format("the expected thickness is {:.4g} nm{}, {}", growth.thickness, in_stage(stage.place),
                             outside_words(thicknesses, growth.thickness)),
                 "check tau, in s; vorlen timeline shows all stages");
    }
  }
  if (grown == nullptr || search.found_any || !(thickest < BILAYER) || !(reading.total_growth < TOTAL_MIN)) return;
  std::string text = fmt::format("no stage is expected to grow even a bilayer, {} nm", BILAYER);
  if (!(S_PER_MIN * thickest < BILAYER)) {
    text += fmt::format("; tau of {} is {} s, and {} min is {} s", grown->place.label, value_words(grown->tau),
                        value_words(grown->tau), value_words(S_PER_MIN * grown->tau));
  }
  search.add("growth", "thin", child_of(*grown->element, {"tau"}), grown->place, text,
             "check tau, in s, and the metal flows, in sccm; vorlen timeline shows all stages");
}

}  // namespace

std::set<const ReadStage*> warn_of_values(const TiXmlDocument& document, const Reading& reading,
                                          std::vector<Problem>& warnings) {
  const TiXmlElement* root = document.FirstChildElement(root_name());
  if (root == nullptr) return {};
  Search search{.reading = reading};
  look_at_reference(search);
  look_at_temperatures(search);
  for (const ReadStage& stage : reading.stages) look_at_stage(search, stage);
  if (!search.flow_found) {
    for (const ReadStage& stage : reading.stages) look_at_ratio(search, stage);
  }
  if (!search.found_any) look_at_temperatures_of_thick_layers(search);
  if (!search.found_any) look_at_growth(search);
  look_at_layers(search, *root);
  search.causes.report(warnings);
  return search.odd_temperatures;
}

}  // namespace vorlen::recipe
