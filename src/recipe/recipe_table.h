// The table of the recipe: every element that is read, in reading order, with its attributes, unit, limits, keywords,
// the choices that it depends on, its default, the text that rejects a value, and the record field that it fills.
//
// The reader (recipe_reader.h), `vorlen check`, the schema recipe.rng, the tables of docs/recipe-format.md and the
// Python package's vorlen/_recipe/elements.py all work from it.
//
// To add an element: give the record in process_recipe.h a field for it, and add a row to ROWS in recipe_table.cpp, in
// the section of its parent, in the place where it is to be read. value_row, keyword_row, group_row and their like make
// rows; optional_row(row, default) lets a recipe leave the element out. A choice that other elements depend on needs a
// Condition. Checks of several values are in validate_recipe.cpp. Then run write_recipe_files --tables on
// docs/recipe-format.md and python/vorlen/_recipe/elements.py; the build writes the schema.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "recipe/keywords.h"
#include "recipe/process_recipe.h"

namespace vorlen::recipe {

// A group of elements with the same parent. Each element belongs to one section and has one row in it.
enum class Section {
  document,
  root,
  chemistry,
  stress,
  transport,
  parameters,
  Q_ref,
  integration,
  output,
  pre_stages,
  process_stages,
  post_stages,
  layer,  // a pre-stage or post-stage
  layer_dislocations,
  stage,  // a single active stage
  stage_dislocations,
  gas_species,
  Q,
  periodic,  // a periodic stage
  none
};

enum class Kind {
  container,   // no attributes; its children form the section in `children`
  stage_list,  // a numbered element, name_1 to name_N; the row's name ends in "_#"
  text,        // val, any text
  keyword,     // val, one of the keywords
  integer,     // val
  real,        // val
  range,       // val and end
  arrhenius    // A, Ta and Tn
};

// When an element is read. All but the first two and the last two name a choice made elsewhere in the recipe.
enum class Condition {
  always,
  optional,
  stress_on,        // stress:model is V_dislocation
  stress_off,       // stress:model is any other text
  thick_GaN,        // transport:model
  thick_GaN_TDR,    // and reactor
  fixed_thickness,  // transport:model
  InGaN_GR_X,       // transport:model
  prescribed_rate,  // transport:model InGaN_GR_X or InGaN_GR
  given,            // disl_model beside it
  name_of_layer,    // always; a missing one is reported late (Row::reports_missing_name)
  name_of_stage,    // optional with V_dislocation, otherwise as name_of_layer
};

// Allowed values. A value outside is rejected with the row's text.
struct Limits {
  std::optional<double> low{};
  std::optional<double> high{};
  bool low_inclusive = true;
  bool high_inclusive = true;
  bool not_zero = false;
  const char* shown = nullptr;    // replaces the words that follow from the numbers
  bool late = false;              // checked after reading; NaN is rejected too if there is an upper limit
  bool nan_rejected = false;      // checked while reading; NaN is rejected too
  bool negative_is_zero = false;  // a negative value within the limits is rounding and is stored as 0

  bool allows(double value) const;
};

enum StageType : std::int32_t { STAGE_single, STAGE_periodic };

// What is being filled.
struct Records {
  ProcessRecipe& recipe;
  StageRecord* stage = nullptr;         // the single active stage that is read
  PrePostStageRecord* layer = nullptr;  // the pre-stage or post-stage that is read
  std::int32_t stage_type = STAGE_single;
  std::int32_t n_stages = NOT_SPECIFIED;  // of the list that is read next
  std::int32_t n_periods = NOT_SPECIFIED;
};

// Where a value goes: one number for each attribute, or one of the other three.
struct Field {
  std::array<double*, 3> numbers{};
  std::int32_t* word = nullptr;  // a keyword's value, or a count
  bool* flag = nullptr;
  std::string* text = nullptr;
};

struct Row {
  const char* name = "";
  Section section = Section::none;  // of the parent
  Kind kind = Kind::container;
  Section children = Section::none;  // of a container
  Condition condition = Condition::always;
  const char* unit = "";
  Limits limits{};
  std::span<const Keyword> keywords{};
  const char* default_value = "";  // of an optional value, as a recipe would write it
  // The library's text for a value that is not allowed, or for one below the limits if rejection_above is set; {stage},
  // {name}, {value} and {path} are filled in. A keyword row without one accepts any text.
  const char* rejection = "";
  const char* rejection_above = nullptr;
  Field (*field)(Records& records) = nullptr;
  // A check of several values once this one is read: the text of the fault, with {stage}, or null.
  const char* (*also)(const Records& records) = nullptr;
  // Here a missing name is reported: when this container is missing too, after that; when this keyword is read, before.
  bool reports_missing_name = false;
  const char* meaning = "";  // one line of Markdown
};

// All rows. The rows of a section are contiguous and in reading order.
std::span<const Row> rows();
// The rows of one section.
std::span<const Row* const> rows_of(Section section);
// The row of that name in the section, stage_list rows by any number; null if there is none.
const Row* find_row(Section section, std::string_view name);

// The names of the attributes that are read.
std::span<const char* const> attributes_of(const Row& row);

// The number at the end of a stage's name ("pre_stage_#" and "pre_stage_12" give 12); 0 if the name does not match.
int stage_number(std::string_view row_name, std::string_view name);

// Whether a condition other than `given` holds: unknown when the choice that it depends on could not be read.
enum class Asked { yes, no, unknown };
Asked asked(Condition condition, const ProcessRecipe& recipe, bool stress_known = true);

// The row's keyword with that value; empty if there is none.
const char* keyword_of(const Row& row, std::int32_t value);

// The number that the recipe holds for a row of a single real value outside of stages.
double value_of(const Row& row, const ProcessRecipe& recipe);

// A check of the whole recipe, made after reading.
struct WholeCheck {
  Condition condition;
  Section section;
  std::array<const char*, 5> names;                      // the elements whose values are checked; the rest is null
  const char* fault = nullptr;                           // the text; null: the row's
  bool (*fails)(const ProcessRecipe& recipe) = nullptr;  // null: outside of the row's limits
};

// In the order in which they are made.
std::span<const WholeCheck> whole_checks();
// Null if the check passes, otherwise its text.
const char* fault_of(const WholeCheck& check, const ProcessRecipe& recipe, bool stress_known = true);

}  // namespace vorlen::recipe
