#include "check/stage_conditions.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace vorlen::recipe {

using vorlen::ValueRange;

double largest(const ValueRange& range) { return std::max(range.val, range.end); }

bool flows_known(const ReadStage& stage) {
  return std::all_of(std::begin(METALS), std::end(METALS), [&](auto metal) { return stage.Q[metal].has_value(); });
}

bool is_flowing(const ReadStage& stage, vorlen::GasSpecies gas) { return stage.Q[gas] && largest(*stage.Q[gas]) > 0.0; }

bool with_gallium(const ReadStage& stage) {
  return is_flowing(stage, vorlen::TMGa_g) || is_flowing(stage, vorlen::TEGa_g);
}

bool with_metals(const ReadStage& stage) {
  return std::any_of(std::begin(METALS), std::end(METALS), [&](auto metal) { return is_flowing(stage, metal); });
}

bool without_metals(const ReadStage& stage) {
  return std::all_of(std::begin(METALS), std::end(METALS),
                     [&](auto metal) { return stage.Q[metal] && largest(*stage.Q[metal]) <= 0.0; });
}

double metal_flow(const ReadStage& stage, double ValueRange::*end) {
  double sum = 0.0;
  for (const vorlen::GasSpecies metal : METALS) sum += std::max((*stage.Q[metal]).*end, 0.0);
  return sum;
}

double flow_at(const ReadStage& stage, vorlen::GasSpecies gas, double ValueRange::*end) {
  return stage.Q[gas] ? std::max((*stage.Q[gas]).*end, 0.0) : 0.0;
}

std::vector<const ReadStage*> grown_order(const std::vector<ReadStage>& stages) {
  std::vector<const ReadStage*> order;
  for (std::size_t k = 0; k < stages.size(); ++k) {
    order.push_back(&stages[k]);
    if (stages[k].repeats_from < 0) continue;
    for (std::size_t m = static_cast<std::size_t>(stages[k].repeats_from); m <= k; ++m) order.push_back(&stages[m]);
  }
  return order;
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

void Causes::add(const std::string& cause, Problem problem) {
  if (!places.emplace(cause, problem.stage).second) return;
  const auto known = std::find_if(found.begin(), found.end(), [&](const auto& one) { return one.first == cause; });
  if (known == found.end()) {
    found.emplace_back(cause, std::move(problem));
  } else {
    known->second.also_in.push_back(problem.stage);
  }
}

void Causes::report(std::vector<Problem>& warnings, const char* also) const {
  constexpr std::size_t NAMED = 4;  // a longer list is cut
  for (const auto& [cause, problem] : found) {
    warnings.push_back(problem);
    const std::vector<std::string>& others = problem.also_in;
    if (others.empty()) continue;
    std::string words;
    const std::size_t named = others.size() <= NAMED ? others.size() : NAMED - 1;
    for (std::size_t k = 0; k < named; ++k) words += (k == 0 ? "" : ", ") + others[k];
    if (named < others.size()) words += fmt::format(" and {} more stages", others.size() - named);
    warnings.back().text += fmt::format(" ({} {})", also, words);
  }
}

}  // namespace vorlen::recipe
