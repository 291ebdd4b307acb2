// Unusual values outside of active stages, and unusual dislocation densities.
//
// In order: the reference conditions, dislocation densities, the layers below and above.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "check/value_search.h"

namespace vorlen::recipe {

namespace {

constexpr double SAME = 0.01;  // relative; two values that agree
constexpr double NM_S_PER_UM_H = 1.0 / 3.6;
constexpr double THICKEST_IN_UM = 100.0;  // no layer has more than that many µm
constexpr double DISCARDED_DIGITS = 1e-6;
constexpr double PERCENT_MAX = 100.0;

}  // namespace

void look_at_reference(Search& search) {
  const Reading& reading = search.reading;
  const vorlen::ProcessRecipe& recipe = reading.recipe;
  const auto look_at = [&](Quantity quantity, const char* name, double value) {
    const TiXmlElement* element = reading.good_element(Section::parameters, name);
    return element != nullptr && look(search, quantity, name, value, *element, {});
  };
  const bool in_hydrogen = recipe.Q_ref[vorlen::H2_g] > recipe.Q_ref[vorlen::N2_g];
  bool odd = look_at(in_hydrogen ? Quantity::T_AlGaN : Quantity::T_ref, "T_ref", recipe.T_ref);
  odd = look_at(Quantity::P, "P_ref", recipe.P_ref) || odd;
  odd = look_at(Quantity::GR_ref, "GR_ref", recipe.GR_ref) || odd;
  odd = look_at(Quantity::omega, "omega_TDR_ref", recipe.omega_TDR_ref) || odd;
  const TiXmlElement* flows_of_reference = reading.good_element(Section::parameters, "Q_ref");
  if (flows_of_reference != nullptr && !odd) {
    double total = 0.0;
    for (const double flow : recipe.Q_ref) total += std::max(flow, 0.0);
    odd = look(search, Quantity::total_flow, "the total of Q_ref", total, *flows_of_reference, {}) ||
          look(search, Quantity::TMGa, "TMGa of Q_ref", recipe.Q_ref[vorlen::TMGa_g], *flows_of_reference, {});
  }
  const UsualRange& layers = usual_range(Quantity::delta);
  if (odd || side_of(layers, reading.reference_layer) == 0) return;
  const TiXmlElement* model = reading.good_element(Section::transport, "model");
  const bool prescribed = recipe.transport_model == vorlen::TRANSPORT_InGaN_GR_X;
  if (model == nullptr) return;
  std::string text = fmt::format("the transport layer that follows from {} is {:.3g} m thick, {}",
                                 prescribed ? "the first stage" : "the reference conditions", reading.reference_layer,
                                 outside_words(layers, reading.reference_layer));
  const double TMGa = recipe.Q_ref[vorlen::TMGa_g];
  if (!prescribed && side_of(layers, reading.reference_layer * micromoles().factor) == 0) {
    text +=
        fmt::format("; TMGa {} {} is {:.4g} sccm", value_words(TMGa), micromoles().unit, TMGa * micromoles().factor);
  }
  search.add("unusual-value", "layer", *model, {}, text,
             prescribed ? "check GR_average, which acts as nm/s, and the gallium flow"
                        : "check GR_ref, in nm/s, T_ref, P_ref and the flows of Q_ref");
}

namespace {

void look_at_dislocations(Search& search, const TiXmlElement& stage, const StagePlace& place) {
  const TiXmlElement& element = child_of(stage, {"dislocations", "rho_D"});
  if (search.reading.elements.count(&element) == 0 || &element == &stage) return;
  for (const char* attribute : {"val", "end"}) {
    const double rho = number_of(element, attribute, Kind::range);
    if (look(search, Quantity::rho_D, "rho_D", rho, element, place)) return;
  }
}

// ---- Layers below and above

// Thickness, growth rate and duration of a layer agree only in another unit of one of them. True if they do.
bool look_at_product(Search& search, const vorlen::PrePostStageRecord& layer, const TiXmlElement& element,
                     const StagePlace& place) {
  const double grown = layer.GR_average * NM_S_PER_UM_H * layer.tau;  // nm
  if (!(grown > 0.0) || !(layer.thickness > 0.0)) return false;
  const auto is_ratio = [&](double ratio) { return std::fabs(grown / (layer.thickness * ratio) - 1.0) < SAME; };
  const auto report = [&](const char* name, double value, const char* unit, const char* other, double converted) {
    const std::string thickness =
        value == layer.thickness ? "" : fmt::format("thickness is {} nm, and ", value_words(layer.thickness));
    search.add("unit", std::string("layer") + name, child_of(element, {name}), place,
               fmt::format("{} is {} {}{}, but {}GR_average times tau is {} nm; {} {} is {} {}", name,
                           value_words(value), unit, in_stage(place), thickness, value_words(grown), value_words(value),
                           other, value_words(converted), unit),
               fmt::format("the unit is {}", unit));
    return true;
  };
  if (is_ratio(1e3)) {
    if (layer.thickness > THICKEST_IN_UM) return report("tau", layer.tau, "s", "ms", 1e-3 * layer.tau);
    return report("thickness", layer.thickness, "nm", "µm", 1e3 * layer.thickness);
  }
  if (is_ratio(NM_S_PER_UM_H)) return report("GR_average", layer.GR_average, "µm/h", "nm/s", 3.6 * layer.GR_average);
  if (is_ratio(1.0 / 60.0)) return report("tau", layer.tau, "s", "min", 60.0 * layer.tau);
  if (is_ratio(1.0 / 3600.0)) return report("tau", layer.tau, "s", "h", 3600.0 * layer.tau);
  return false;
}

void look_at_lattice(Search& search, double value, const TiXmlElement& element, const StagePlace& place) {
  const TiXmlElement& at = child_of(element, {"stress_state"});
  if (value >= vorlen::STRESS_STATE_IS_LATTICE) {
    if (side_of(usual_range(Quantity::lattice), value) > 0 && value <= PERCENT_MAX) {
      search.add("unit", "percent", at, place,
                 fmt::format("stress_state is {:.6g}{}, which is not a lattice constant of a nitride in angstrom; "
                             "{:.6g} % of relaxation is {:.6g}",
                             value, in_stage(place), value, 0.01 * value),
                 "below 1.0000000001 it is the degree of relaxation, from 0 to 1");
      return;
    }
    look(search, Quantity::lattice, "stress_state", value, at, place);
    return;
  }
  // A degree of relaxation is a round number, a lattice constant in nm is not.
  const double thousands = value * 1e3;
  const std::string reading = other_reading(usual_range(Quantity::lattice), value);
  if (reading.empty() || std::fabs(thousands - std::round(thousands)) < DISCARDED_DIGITS) return;
  search.add("unit", "lattice", at, place,
             fmt::format("stress_state is {:.6g}{}, a relaxation of {:.6g} %; {}", value, in_stage(place),
                         100.0 * value, reading),
             "from 1.0000000001 on it is the in-plane lattice constant in angstrom");
}

void look_at_list(Search& search, const TiXmlElement& root, const char* list,
                  const std::vector<vorlen::PrePostStageRecord>& layers, bool below) {
  double total = 0.0;
  bool odd = false;
  const TiXmlElement* first = nullptr;
  for (const vorlen::PrePostStageRecord& layer : layers) {
    const TiXmlElement& element = child_of(root, {list, layer.label.c_str()});
    if (search.reading.elements.count(&element) == 0 || &element == &root) return;
    const StagePlace place = search.reading.elements.at(&element).place;
    if (first == nullptr) first = &element;
    odd = look_at_product(search, layer, element, place) || odd;
    total += layer.thickness;
    look_at_dislocations(search, element, place);
    // In the first pre-stage a degree of relaxation is an error.
    const bool rejected = below && first == &element && layer.stress_state < vorlen::STRESS_STATE_IS_LATTICE;
    if (!rejected) look_at_lattice(search, layer.stress_state, element, place);
  }
  if (!below || odd || first == nullptr) return;
  const StagePlace place = layers.size() == 1 ? search.reading.elements.at(first).place : StagePlace{};
  look(search, Quantity::layers_below, layers.size() == 1 ? "thickness" : "the thickness of all pre-stages", total,
       child_of(*first, {"thickness"}), place);
}

}  // namespace

void look_at_layers(Search& search, const TiXmlElement& root) {
  const Reading& reading = search.reading;
  for (const ReadStage& stage : reading.stages) look_at_dislocations(search, *stage.element, stage.place);
  look_at_list(search, root, "pre_stages", reading.recipe.pre_stages, true);
  look_at_list(search, root, "post_stages", reading.recipe.post_stages, false);
  const TiXmlElement* angle = reading.good_element(Section::stress, "V_angle_05");
  const double degrees = reading.recipe.V_angle_05;
  if (angle != nullptr && find_row(Section::stress, "V_angle_05")->limits.allows(degrees)) {
    look(search, Quantity::V_angle, "V_angle_05", degrees, *angle, {});
  }
}

}  // namespace vorlen::recipe
