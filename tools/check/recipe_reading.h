// All that the library's reader finds in a recipe, with places and hints: the reader runs with a sink that collects
// every fault.
#pragma once

#include <tinyxml.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "check/expected_growth.h"
#include "check/recipe_check.h"
#include "check/recipe_words.h"
#include "recipe/process_recipe.h"

namespace vorlen::recipe {

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
};

// A single active stage, as far as it could be read.
struct ReadStage {
  const TiXmlElement* element = nullptr;
  StagePlace place;
  std::optional<vorlen::ValueRange> T;
  std::optional<vorlen::ValueRange> P;
  std::optional<vorlen::ValueRange> omega_TDR;
  double tau = -1.0;         // negative if it was not read, as the two that follow
  double delta = -1.0;       // m
  double GR_average = -1.0;  // nm/s, of the model InGaN_GR_X
  std::array<std::optional<vorlen::ValueRange>, vorlen::N_FLOWS> Q;  // by gas species
  std::int32_t disl_model = vorlen::NOT_SPECIFIED;
  // Index of the first stage of the sequence that starts again after this stage; -1 for none.
  int repeats_from = -1;
};

// What was found. Elements belong to the document, which must outlive this.
struct Reading {
  vorlen::ProcessRecipe recipe;
  std::vector<Problem> errors;    // in the order in which the library would report them
  bool model_is_next = false;     // the library would set up the model: all errors are of the model, or late
  std::vector<Problem> warnings;  // about values that were read
  std::vector<ReadStage> stages;  // single active stages in the order of the file, periods not repeated
  std::unordered_map<const TiXmlElement*, ReadElement> elements;
  std::map<const Row*, const TiXmlElement*> outside_stages;  // the elements of the rows that occur once
  std::set<const Row*> faulty;                               // rows with a fault in an element
  bool stress_known = false;                                 // stress:model could be read
  // Of a recipe that the model accepts: one entry for each of `stages`, otherwise empty.
  std::vector<ExpectedGrowth> growth;
  double total_growth = 0.0;                                          // nm, of all periods
  double reference_layer = std::numeric_limits<double>::quiet_NaN();  // m, with the models thick_GaN and InGaN_GR_X

  // The element of a row that occurs once; null if it was not read, or with a fault.
  const TiXmlElement* good_element(Section section, const char* name) const;
};

// True for an empty text and for one of blanks alone.
inline bool is_blank(const char* text) { return text[std::strspn(text, " \t\n\r\v\f")] == '\0'; }

// The number of an attribute, as the library reads it; NaN if it has none.
double number_of(const TiXmlElement& element, const char* attribute, Kind kind);

// Reads the document as far as it can be read, and checks it as a whole.
Reading read_all(const TiXmlDocument& document);

// Appends the faults that the library finds after reading: in the recipe as a whole, and when the model is set up.
void check_recipe_as_a_whole(Reading& reading);
void predict_model_faults(Reading& reading);

// Appends what the library silently ignores: elements, attributes and texts that are not read.
void warn_of_unread(const TiXmlDocument& document, const Reading& reading, std::vector<Problem>& warnings);
// Appends what is unusual about the process: flows that do not fit the material, jumps of temperature and the like, and
// what makes the continuous scheme fail. Temperatures of the stages in odd are not looked at.
void warn_of_process(const Reading& reading, const std::set<const ReadStage*>& odd, std::vector<Problem>& warnings);
// Appends values outside of the usual ranges, and the unit in which they may have been given. Returns the stages of
// which the temperature is one of them.
std::set<const ReadStage*> warn_of_values(const TiXmlDocument& document, const Reading& reading,
                                          std::vector<Problem>& warnings);
// Appends what a sequence of stages hardly means: abrupt changes while something grows, missing ammonia, stages with
// each other's values. Temperatures of the stages in odd are not looked at.
void warn_of_sequence(const Reading& reading, const std::set<const ReadStage*>& odd, std::vector<Problem>& warnings);

// A problem at an element, or at its attribute.
Problem problem_at(Severity severity, const char* kind, const TiXmlElement& element, const char* attribute,
                   const StagePlace& place, std::string text, std::string hint);

// The names of the stages in a list start with this: "stage_", or "stage_2_" in the periodic stage_2.
std::string list_prefix(const Row& row, const TiXmlElement& list);
// The number of stages that a list gives, as it is written there: "n_stages is 3". Empty if there is none.
std::string stage_count_words(Section section, const TiXmlElement& list);

// "temperature of the surface: at least 1e-4 K"
std::string value_hint(const Row& row);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
