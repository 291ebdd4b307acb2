// The walk over a recipe in the reader's order, which goes on behind a fault.
#pragma once

#include <tinyxml.h>

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "check/recipe_check.h"
#include "check/recipe_table.h"
#include "recipe/process_recipe.h"

namespace recipe {

// The stage that a problem belongs to.
struct StagePlace {
  std::string label;  // element name; empty outside of stages
  std::string name;   // the user's name
};

// An element that was read, and what its children mean.
struct ReadElement {
  Section children = Section::none;
  const Row* row = nullptr;
  StagePlace place;
  int stage_count = 0;  // of a list of stages: how many of them are read
};

enum Flow { TMIN, TMGA, TEGA, TMAL, N_METAL_FLOWS };
inline constexpr std::array<const char*, N_METAL_FLOWS> METAL_FLOWS = {"TMIn", "TMGa", "TEGa", "TMAl"};

// A single active stage, as far as it could be read.
struct ReadStage {
  const TiXmlElement* element = nullptr;
  StagePlace place;
  std::optional<vorlen::ValueRange> T;
  std::array<std::optional<vorlen::ValueRange>, N_METAL_FLOWS> metals;
  // Number in the recipe of the first stage of the sequence that begins anew behind this one; -1 for none.
  int repeats_from = -1;
};

// What the walk found. Elements stand in the document, which must outlive this.
struct Reading {
  std::vector<Problem> errors;    // in the order of reading
  std::vector<Problem> warnings;  // about values that were read
  std::unordered_map<const TiXmlElement*, ReadElement> elements;
  // The choices of the recipe, as the table writes them; empty when missing or not recognized.
  std::optional<bool> stress_on;
  std::string material, transport_model, reactor;
  std::string scheme = "continuous";          // without the element too; empty when it is not recognized
  const TiXmlElement* integration = nullptr;  // the element; null without it
  std::vector<ReadStage> stages;              // single active stages in the order of the file, periods not repeated
};

// True for a text of blanks, and for an empty one.
inline bool is_blank(const char* text) { return text[std::strspn(text, " \t\n\r\v\f")] == '\0'; }

// Reads the document as far as it can be read.
Reading read_all(const TiXmlDocument& document);

// Whether a condition holds: unknown when the choice it depends on could not be read.
enum class Asked { yes, no, unknown };
Asked asked(Condition condition, const Reading& reading);

// Appends what the library accepts in silence: elements, attributes and texts that are not read.
void warn_of_unread(const TiXmlDocument& document, const Reading& reading, std::vector<Problem>& warnings);
// Appends what is odd about the process: flows that do not fit the material, jumps of temperature and the like, and
// what makes the continuous scheme fail.
void warn_of_process(const Reading& reading, std::vector<Problem>& warnings);

// A problem at an element, or at its attribute.
Problem problem_at(Severity severity, const char* kind, const TiXmlElement& element, const char* attribute,
                   const StagePlace& place, std::string text, std::string hint);

}  // namespace recipe
