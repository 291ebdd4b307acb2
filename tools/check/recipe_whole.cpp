// The faults that the library finds after reading, as far as the values that they depend on could be read: in the
// recipe as a whole, then those of the model's set-up. The model reports its faults one at a time, so these are
// predicted here.
#include <algorithm>

#include "check/recipe_reading.h"
#include "model/setup_messages.h"

namespace vorlen::recipe {

namespace {

void add(Reading& reading, const char* kind, const TiXmlElement& element, const char* attribute, std::string text,
         std::string hint) {
  reading.errors.push_back(problem_at(Severity::error, kind, element, attribute, reading.elements.at(&element).place,
                                      std::move(text), std::move(hint)));
}

// A limit that the model checks.
void check_late_limit(Reading& reading, Section section, const char* name) {
  const Row& row = *find_row(section, name);
  if (row.limits.allows(value_of(row, reading.recipe))) return;
  add(reading, "model", *reading.good_element(section, name), "val", row.rejection, value_hint(row));
}

void check_reference_conditions(Reading& reading) {
  const auto& Q_ref = reading.recipe.Q_ref;
  const bool flows_known = [&] {
    for (const Row* row : rows_of(Section::Q_ref)) {
      if (reading.good_element(Section::Q_ref, row->name) == nullptr) return false;
    }
    return true;
  }();
  if (flows_known && std::any_of(Q_ref.begin(), Q_ref.end(), [](double flow) { return flow != 0.0; })) {
    // Added up in the order of the model.
    double total = 0.0;
    for (double flow : Q_ref) total += flow;
    if (total < vorlen::FLOW_MIN) {
      add(reading, "model", *reading.good_element(Section::parameters, "Q_ref"), nullptr, vorlen::LOW_REFERENCE_FLOW,
          "the sum of the reference flows must be at least 1e-10 sccm");
    } else {
      check_late_limit(reading, Section::Q_ref, "TMGa");
    }
  }
  if (reading.good_element(Section::parameters, "GR_ref") != nullptr && reading.recipe.GR_ref != 0.0) {
    check_late_limit(reading, Section::parameters, "GR_ref");
  }
}

void check_inheritance(Reading& reading) {
  const std::vector<vorlen::PrePostStageRecord>& pre_stages = reading.recipe.pre_stages;
  if (!pre_stages.empty() && pre_stages.front().label == "pre_stage_1" &&
      pre_stages.front().disl_model == vorlen::DISL_inherited) {
    const TiXmlElement& stage = *reading.good_element(Section::root, "pre_stages")->FirstChildElement("pre_stage_1");
    add(reading, "model", *stage.FirstChildElement("dislocations")->FirstChildElement("disl_model"), "val",
        vorlen::NOTHING_BELOW_FIRST_PRE_STAGE, "given, with rho_D");
  }
  const TiXmlElement* n_pre_stages = reading.good_element(Section::pre_stages, "n_pre_stages");
  const bool without = n_pre_stages != nullptr && number_of(*n_pre_stages, "val", Kind::integer) == 0.0;
  if (without && !reading.stages.empty() && reading.stages.front().disl_model == vorlen::DISL_inherited) {
    const TiXmlElement& stage = *reading.stages.front().element;
    add(reading, "model", *stage.FirstChildElement("dislocations")->FirstChildElement("disl_model"), "val",
        vorlen::NOTHING_BELOW_FIRST_STAGE, "given, with rho_D; or add a pre-stage");
  }
}

void check_transport_model(Reading& reading) {
  const std::int32_t model = reading.recipe.transport_model;
  if (model == vorlen::TRANSPORT_InGaN_GR_X && !reading.stages.empty()) {
    const ReadStage& first = reading.stages.front();
    const auto& TMGa = first.Q[vorlen::TMGa_g];
    const auto& TEGa = first.Q[vorlen::TEGa_g];
    if (TMGa && TEGa && TMGa->average() < vorlen::FLOW_MIN && TEGa->average() < vorlen::FLOW_MIN) {
      add(reading, "model", *first.element, nullptr, vorlen::NO_GALLIUM_IN_FIRST_STAGE,
          "start with a stage that has TMGa or TEGa");
    }
  }
  if (model == vorlen::TRANSPORT_InGaN_GR) {
    add(reading, "model", *reading.good_element(Section::transport, "model"), "val", vorlen::NO_LAYER_OF_InGaN_GR,
        "use InGaN_GR_X or fixed_thickness");
  }
}

}  // namespace

void check_recipe_as_a_whole(Reading& reading) {
  for (const WholeCheck& check : whole_checks()) {
    const char* fault = fault_of(check, reading.recipe, reading.stress_known);
    const auto is_good = [&](const char* name) {
      return name == nullptr || reading.good_element(check.section, name) != nullptr;
    };
    if (fault == nullptr || check.names[0] == nullptr ||
        !std::all_of(check.names.begin(), check.names.end(), is_good)) {
      continue;
    }
    const TiXmlElement& element = *reading.good_element(check.section, check.names[0]);
    if (check.names[1] == nullptr) {
      add(reading, "whole-recipe", element, "val", fault, value_hint(*find_row(check.section, check.names[0])));
    } else {
      add(reading, "whole-recipe", *element.Parent()->ToElement(), nullptr, fault,
          check.section == Section::Q_ref ? "give the carrier gases, NH3 and TMGa of the known run"
                                          : "at least one A must not be 0");
    }
  }
}

void predict_model_faults(Reading& reading) {
  check_inheritance(reading);
  if (reading.recipe.transport_model == vorlen::TRANSPORT_thick_GaN) check_reference_conditions(reading);
  check_transport_model(reading);
}

}  // namespace vorlen::recipe
