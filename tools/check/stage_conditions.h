// What flows in the stages of a recipe that was read, the order in which they are grown, and warnings that apply to
// several of them.
#pragma once

#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "check/recipe_reading.h"

namespace vorlen::recipe {

inline constexpr vorlen::GasSpecies METALS[] = {vorlen::TMIn_g, vorlen::TMGa_g, vorlen::TEGa_g, vorlen::TMAl_g};

double largest(const vorlen::ValueRange& range);

// All metal flows could be read.
bool flows_known(const ReadStage& stage);
// False when the flow is not known.
bool is_flowing(const ReadStage& stage, vorlen::GasSpecies gas);
bool with_gallium(const ReadStage& stage);
// False when no flow is known to be above 0.
bool with_metals(const ReadStage& stage);
// False when a flow is not known.
bool without_metals(const ReadStage& stage);
// Sum of the group-III flows at one end of a stage, sccm. All must be known.
double metal_flow(const ReadStage& stage, double vorlen::ValueRange::*end);
// Flow of a gas at one end of a stage, sccm; 0 when it is not known.
double flow_at(const ReadStage& stage, vorlen::GasSpecies gas, double vorlen::ValueRange::*end);

// The stages in the order in which they are grown. Two periods of a periodic stage show all its neighbours.
std::vector<const ReadStage*> grown_order(const std::vector<ReadStage>& stages);

// The descendant at the path; element itself if there is none.
const TiXmlElement& child_of(const TiXmlElement& element, std::initializer_list<const char*> path);

// Warnings by their causes, in the order of their first places.
struct Causes {
  std::vector<std::pair<std::string, Problem>> found;
  std::set<std::pair<std::string, std::string>> places;  // cause and stage

  // A warning about a stage: a new one for a new cause, otherwise another place of the known one.
  void add(const std::string& cause, Problem problem);
  // Appends the warnings, with the other places in their texts: "(also in stage_2, stage_3)".
  void report(std::vector<Problem>& warnings, const char* also = "also in") const;
};

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
