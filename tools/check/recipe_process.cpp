// What is unusual about a process that could be read: each of these has made runs fail, or grow something unintended.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "check/recipe_reading.h"
#include "check/stage_conditions.h"
#include "recipe/xml_lookup.h"

namespace vorlen::recipe {

namespace {

using vorlen::ValueRange;

constexpr double JUMP_MIN = 1.0;  // K; smaller ones, as from rounding to whole degrees, are harmless
// In a pause without metals at this temperature or above, or one that heats up by more than this, the net growth rate
// passes through 0, where the composition that the continuous scheme integrates is undefined.
constexpr double HOT_MIN = 1150.0;    // K
constexpr double HEATING_MIN = 20.0;  // K

void warn(std::vector<Problem>& warnings, const char* kind, const TiXmlElement& element, const StagePlace& place,
          std::string text, std::string hint) {
  warnings.push_back(problem_at(Severity::warning, kind, element, nullptr, place, std::move(text), std::move(hint)));
}

// A precursor whose metal is not part of the material. Gallium without other metals grows GaN, the usual buffer and
// spacer of every alloy.
bool foreign_flow(std::int32_t material, const ReadStage& stage, vorlen::GasSpecies gas) {
  if (!is_flowing(stage, gas)) return false;
  switch (gas) {
    case vorlen::TMIn_g:
      return material == vorlen::MATERIAL_AlGaN;
    case vorlen::TMAl_g:
      return material == vorlen::MATERIAL_InGaN;
    case vorlen::TMGa_g:
    case vorlen::TEGa_g:
      return material == vorlen::MATERIAL_AlInN &&
             (is_flowing(stage, vorlen::TMIn_g) || is_flowing(stage, vorlen::TMAl_g));
    default:
      return false;
  }
}

void warn_of_flows(const Reading& reading, std::vector<Problem>& warnings) {
  Causes causes;
  for (const ReadStage& stage : reading.stages) {
    if (!flows_known(stage)) continue;
    for (const Flow& flow : flows()) {
      if (!foreign_flow(reading.recipe.material, stage, flow.species)) continue;
      causes.add(flow.name,
                 problem_at(Severity::warning, "flow-not-in-material",
                            child_of(*stage.element, {"gas_species", "Q", flow.name}), nullptr, stage.place,
                            fmt::format("{} flows in {}, but the material is {}", flow.name, stage.place.label,
                                        keyword_of(*find_row(Section::root, "material"), reading.recipe.material)),
                            "the flow grows its metal anyway; set it to 0 or correct the material"));
    }
  }
  causes.report(warnings);
}

// Instantaneous heating or cooling between two stages, with nothing growing on one side: the integrator's steps may
// become too small there.
void warn_of_jump(const ReadStage& before, const ReadStage& after, const std::set<const ReadStage*>& odd,
                  std::vector<Problem>& warnings) {
  if (odd.count(&before) + odd.count(&after) > 0) return;
  if (!before.T || !after.T || !flows_known(before) || !flows_known(after)) return;
  const double from = before.T->end;
  const double to = after.T->val;
  if (!(std::fabs(to - from) > JUMP_MIN)) return;
  if (metal_flow(before, &ValueRange::end) > 0.0 && metal_flow(after, &ValueRange::val) > 0.0) return;
  warn(warnings, "temperature-jump", child_of(*after.element, {"T"}), after.place,
       fmt::format("the temperature jumps from {} K at the end of {} to {} K in {} while nothing grows", from,
                   before.place.label, to, after.place.label),
       "ramp it over 5 s or more, or use the staged scheme, which has no difficulty with jumps");
}

// ---- What makes the continuous scheme fail

// How to choose the staged scheme in this recipe.
std::string remedy(const Reading& reading) {
  const TiXmlElement* integration = reading.good_element(Section::root, "integration");
  const char* change = "add <integration><scheme val=\"staged\"/></integration> to the recipe";
  if (integration != nullptr && integration->FirstChildElement("scheme") == nullptr) {
    change = "add <scheme val=\"staged\"/> to the element integration";
  } else if (integration != nullptr) {
    change = "write <scheme val=\"staged\"/> in the element integration";
  }
  return fmt::format("{}, or run it with --scheme staged", change);
}

// A pause is a sequence of stages without metals. The first hot stage of each is reported when something grows after
// it.
void warn_of_hot_pauses(const Reading& reading, const std::set<const ReadStage*>& odd, std::vector<Problem>& warnings) {
  const std::vector<const ReadStage*> order = grown_order(reading.stages);
  std::set<const ReadStage*> reported;
  bool pause_is_reported = false;
  double coolest = std::numeric_limits<double>::infinity();  // K, since the last growth
  for (auto one = order.begin(); one != order.end(); ++one) {
    const ReadStage& stage = **one;
    if (!without_metals(stage)) {
      pause_is_reported = false;
      coolest = stage.T && odd.count(&stage) == 0 ? stage.T->end : std::numeric_limits<double>::infinity();
      continue;
    }
    if (!stage.T || odd.count(&stage) > 0) continue;
    coolest = std::min(coolest, stage.T->val);
    const double before = coolest;
    coolest = std::min(coolest, stage.T->end);
    const double hottest = largest(*stage.T);
    const bool heats_up = hottest - before > HEATING_MIN;
    if (pause_is_reported || !(hottest >= HOT_MIN || heats_up)) continue;
    const auto growth = std::find_if(one, order.end(), [](const ReadStage* later) { return with_metals(*later); });
    if (growth == order.end()) return;
    pause_is_reported = true;
    if (!reported.insert(&stage).second) continue;
    const std::string what =
        heats_up ? fmt::format("heats up from {} K to {} K", before, hottest) : fmt::format("is at {} K", hottest);
    warn(warnings, "hot-pause", child_of(*stage.element, {"T"}), stage.place,
         fmt::format("{} {} without group-III flow, and {} grows after it: the continuous scheme may fail or give "
                     "unphysical results",
                     stage.place.label, what, (*growth)->place.label),
         remedy(reading));
  }
}

// V-defects that open in indium-rich layers after a first layer without indium.
void warn_of_spacer(const Reading& reading, std::vector<Problem>& warnings) {
  if (reading.recipe.stress_model != vorlen::STRESS_V_dislocation) return;
  const ReadStage* spacer = nullptr;
  for (const ReadStage& stage : reading.stages) {
    if (without_metals(stage)) continue;
    if (spacer == nullptr && !flows_known(stage)) return;
    const bool indium = is_flowing(stage, vorlen::TMIn_g);
    if (spacer == nullptr && indium) return;
    if (spacer == nullptr) spacer = &stage;
    if (!indium) continue;
    warn(warnings, "spacer", child_of(*stage.element, {"gas_species", "Q", "TMIn"}), stage.place,
         fmt::format("with V_dislocation, {} grows without indium before TMIn flows in {}: the continuous scheme may "
                     "fail or give unphysical V-defects",
                     spacer->place.label, stage.place.label),
         remedy(reading));
    return;
  }
}

void warn_of_continuous_scheme(const Reading& reading, const std::set<const ReadStage*>& odd,
                               std::vector<Problem>& warnings) {
  warn_of_hot_pauses(reading, odd, warnings);
  warn_of_spacer(reading, warnings);
  const auto tolerance = reading.outside_stages.find(find_row(Section::integration, "tolerance"));
  if (tolerance == reading.outside_stages.end()) return;
  warn(warnings, "no-effect", *tolerance->second, {},
       fmt::format("element {} has no effect with the continuous scheme", vorlen::element_full_name(tolerance->second)),
       remedy(reading));
}

}  // namespace

void warn_of_process(const Reading& reading, const std::set<const ReadStage*>& odd, std::vector<Problem>& warnings) {
  const std::vector<ReadStage>& stages = reading.stages;
  warn_of_flows(reading, warnings);
  const bool continuous = reading.recipe.scheme == vorlen::SCHEME_continuous &&
                          reading.faulty.count(find_row(Section::integration, "scheme")) == 0;
  if (continuous) warn_of_continuous_scheme(reading, odd, warnings);
  for (std::size_t k = 0; continuous && k < stages.size(); ++k) {
    if (k > 0) warn_of_jump(stages[k - 1], stages[k], odd, warnings);
    if (stages[k].repeats_from >= 0) {
      warn_of_jump(stages[k], stages[static_cast<std::size_t>(stages[k].repeats_from)], odd, warnings);
    }
  }
  if (stages.empty()) return;
  const ReadStage& first = stages.front();
  const bool rate_prescribed = reading.recipe.transport_model == vorlen::TRANSPORT_InGaN_GR_X;
  // The model InGaN_GR_X rejects a recipe without gallium; an alloy without gallium needs none.
  if (!rate_prescribed && reading.recipe.material != vorlen::MATERIAL_AlInN && flows_known(first) &&
      !is_flowing(first, vorlen::TMGa_g) && !is_flowing(first, vorlen::TEGa_g)) {
    warn(warnings, "no-gallium", child_of(*first.element, {"gas_species", "Q"}), first.place,
         fmt::format("the first stage, {}, has no gallium flow", first.place.label),
         "the run starts from a GaN surface, and its first steps may fail; start with a stage that has TMGa or TEGa");
  }
  if (rate_prescribed) {
    const TiXmlElement& rate = child_of(*first.element, {"GR_average"});
    const char* text = rate.Attribute("val");
    warn(warnings, "rate-unit", rate, first.place, "GR_average of the model InGaN_GR_X acts as nm/s, not as µm/h",
         text == nullptr ? "1 µm/h is 0.2778 nm/s"
                         : fmt::format("{0} is {0} nm/s; 1 µm/h is 0.2778 nm/s", short_name(text)));
  }
}

}  // namespace vorlen::recipe
