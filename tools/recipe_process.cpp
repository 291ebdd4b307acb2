// What is odd about a process that reads well: each of these has made runs fail, or grow what was not meant.
#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "recipe_reading.h"

namespace recipe {

namespace {

using vorlen::ValueRange;

constexpr double JUMP_MIN = 1.0;  // K; smaller ones, as from rounding to whole degrees, do no harm

double largest(const ValueRange& range) { return std::max(range.val, range.end); }

bool flows_known(const ReadStage& stage) {
  return std::all_of(stage.metals.begin(), stage.metals.end(), [](const auto& flow) { return flow.has_value(); });
}

// Sum of the group-III flows at one end of a stage.
double metal_flow(const ReadStage& stage, double ValueRange::*end) {
  double sum = 0.0;
  for (const auto& flow : stage.metals) sum += std::max((*flow).*end, 0.0);
  return sum;
}

const TiXmlElement& child_of(const TiXmlElement& element, std::initializer_list<const char*> path) {
  const TiXmlElement* found = &element;
  for (const char* name : path) {
    const TiXmlElement* next = found->FirstChildElement(name);
    if (next == nullptr) return element;
    found = next;
  }
  return *found;
}

void warn(std::vector<Problem>& warnings, const char* kind, const TiXmlElement& element, const StagePlace& place,
          std::string text, std::string hint) {
  warnings.push_back(problem_at(Severity::warning, kind, element, nullptr, place, std::move(text), std::move(hint)));
}

// A precursor whose metal the material does not name. Gallium without other metals grows GaN, the usual buffer and
// spacer of every alloy.
bool foreign_flow(const std::string& material, const ReadStage& stage, std::size_t flow) {
  const auto flowing = [&stage](Flow k) { return largest(*stage.metals[k]) > 0.0; };
  if (!(largest(*stage.metals[flow]) > 0.0)) return false;
  switch (flow) {
    case TMIN:
      return material == "AlGaN";
    case TMAL:
      return material == "InGaN";
    default:
      return material == "AlInN" && (flowing(TMIN) || flowing(TMAL));
  }
}

void warn_of_flows(const Reading& reading, std::vector<Problem>& warnings) {
  for (const ReadStage& stage : reading.stages) {
    for (std::size_t k = 0; k < N_METAL_FLOWS && flows_known(stage); ++k) {
      if (!foreign_flow(reading.material, stage, k)) continue;
      warn(warnings, "flow-not-in-material", child_of(*stage.element, {"gas_species", "Q", METAL_FLOWS[k]}),
           stage.place,
           fmt::format("{} flows in {}, but the material is {}", METAL_FLOWS[k], stage.place.label, reading.material),
           "the flow grows its metal all the same; set it to 0 or name the material that is meant");
    }
  }
}

// Heating or cooling from one stage to the next in no time, with nothing growing on one side: the integrator's steps
// may become too small there.
void warn_of_jump(const ReadStage& before, const ReadStage& behind, std::vector<Problem>& warnings) {
  if (!before.T || !behind.T || !flows_known(before) || !flows_known(behind)) return;
  const double from = before.T->end;
  const double to = behind.T->val;
  if (!(std::fabs(to - from) > JUMP_MIN)) return;
  if (metal_flow(before, &ValueRange::end) > 0.0 && metal_flow(behind, &ValueRange::val) > 0.0) return;
  warn(warnings, "temperature-jump", child_of(*behind.element, {"T"}), behind.place,
       fmt::format("the temperature jumps from {} K at the end of {} to {} K in {} while nothing grows", from,
                   before.place.label, to, behind.place.label),
       "ramp it over 5 s or more; a pause without group-III flow should take 30 s or more");
}

}  // namespace

void warn_of_process(const Reading& reading, std::vector<Problem>& warnings) {
  const std::vector<ReadStage>& stages = reading.stages;
  warn_of_flows(reading, warnings);
  for (std::size_t k = 0; k < stages.size(); ++k) {
    if (k > 0) warn_of_jump(stages[k - 1], stages[k], warnings);
    if (stages[k].repeats_from >= 0) {
      warn_of_jump(stages[k], stages[static_cast<std::size_t>(stages[k].repeats_from)], warnings);
    }
  }
  if (stages.empty()) return;
  const ReadStage& first = stages.front();
  const bool rate_prescribed = reading.transport_model == "InGaN_GR_X";
  // Without gallium the model InGaN_GR_X refuses the recipe; an alloy without gallium needs none.
  if (!rate_prescribed && reading.material != "AlInN" && flows_known(first) && !(largest(*first.metals[TMGA]) > 0.0) &&
      !(largest(*first.metals[TEGA]) > 0.0)) {
    warn(
        warnings, "no-gallium", child_of(*first.element, {"gas_species", "Q"}), first.place,
        fmt::format("the first stage, {}, has no gallium flow", first.place.label),
        "the run begins from a surface of GaN, and its first steps may fail; begin with a stage that has TMGa or TEGa");
  }
  if (rate_prescribed) {
    const TiXmlElement& rate = child_of(*first.element, {"GR_average"});
    const char* text = rate.Attribute("val");
    warn(warnings, "rate-unit", rate, first.place, "GR_average of the model InGaN_GR_X acts as nm/s, not as µm/h",
         text == nullptr ? "1 µm/h is 0.2778 nm/s" : fmt::format("{} is {} nm/s; 1 µm/h is 0.2778 nm/s", text, text));
  }
}

}  // namespace recipe
