// The search for unusual values: what its parts share.
#pragma once

#include <set>
#include <string>

#include "check/recipe_reading.h"
#include "check/stage_conditions.h"
#include "check/usual_ranges.h"

namespace vorlen::recipe {

struct Search {
  const Reading& reading;
  Causes causes{};
  std::set<const ReadStage*> odd_temperatures{};  // stages
  bool found_any = false;
  bool flow_found = false;  // an unusual flow of a gas

  void add(const char* kind, const std::string& cause, const TiXmlElement& element, const StagePlace& place,
           std::string text, std::string hint);
};

// " in stage_1"; empty outside of stages.
std::string in_stage(const StagePlace& place);
// "below the usual 1200 to 150000 Pa"
std::string outside_words(const UsualRange& range, double value);

// Looks at one value, called name in the text. True if it is not usual; then it is reported.
bool look(Search& search, Quantity quantity, const std::string& name, double value, const TiXmlElement& element,
          const StagePlace& place);
// The same for both ends of a value; the first unusual one is reported.
bool look(Search& search, Quantity quantity, const std::string& name, const vorlen::ValueRange& values,
          const TiXmlElement& element, const StagePlace& place);

// The units in which metal flows are given by mistake.
const OtherUnit& micromoles();
const OtherUnit& standard_litres();

// Temperatures of active stages. The second function is for recipes in which nothing else is unusual.
void look_at_temperatures(Search& search);
void look_at_temperatures_of_thick_layers(Search& search);

// The parts outside of active stages: the reference conditions of the transport layer, the layers below and above, and
// the dislocation densities of all stages.
void look_at_reference(Search& search);
void look_at_layers(Search& search, const TiXmlElement& root);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
