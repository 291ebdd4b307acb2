// The one table of the recipe: every element that is read, in the order of reading, with its attributes, unit, limits,
// keywords, the models that ask for it, the text of a refusal, and what it means.
//
// It feeds `vorlen check`, the schemas share/vorlen/recipe.rng and recipe.xsd, and the tables of docs/recipe-format.md
// (write_recipe_files). Tests hold it to what the reader in src/recipe accepts and refuses.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace recipe {

// What an element may hold. An element that is read belongs to one section and has one row in it.
enum class Section {
  document,
  root,
  chemistry,
  stress,
  transport,
  parameters,
  Q_ref,
  integration,
  pre_stages,
  process_stages,
  post_stages,
  layer,  // a pre-stage or post-stage
  layer_dislocations,
  stage,     // a single active stage
  periodic,  // a periodic stage
  stage_dislocations,
  gas_species,
  Q,
  none
};

enum class Kind {
  container,   // no attributes; children of the row's section
  stage_list,  // a numbered element, name_1 to name_N; name ends in "_#"
  text,        // val, any text
  keyword,     // val, one of the keywords
  integer,     // val
  real,        // val
  range,       // val and end
  arrhenius    // A, Ta and Tn
};

// When the reader asks for an element. Each but the first two names a choice made elsewhere in the recipe.
enum class Condition {
  always,
  optional,
  stress_on,        // stress:model is V_dislocation
  stress_off,       // any other text
  thick_GaN,        // transport:model
  thick_GaN_TDR,    // and reactor
  fixed_thickness,  // transport:model
  InGaN_GR_X,       // transport:model
  prescribed_rate,  // transport:model InGaN_GR_X or InGaN_GR
  given,            // disl_model beside it
  name_of_layer,    // always, but told late
  name_of_stage,    // unless V_dislocation, and told late
};

// Allowed values. What is outside is refused with the row's text.
struct Limits {
  std::optional<double> low{};
  std::optional<double> high{};
  bool low_inclusive = true;
  bool high_inclusive = true;
  bool not_zero = false;
  const char* shown = nullptr;  // in place of the words that follow from the numbers
  // Tested behind the end of reading: a not-a-number is refused as well where there are bounds.
  bool late = false;
  bool nan_refused = false;  // tested while reading, but a NaN is refused as well

  bool allows(double value) const;
};

struct Row {
  const char* name;
  Section section;  // of the parent
  Kind kind;
  Section children;  // of a container
  Condition condition;
  const char* unit;
  Limits limits;
  std::span<const char* const> keywords;
  // The library's text for a value that is not allowed; {stage}, {value} and {path} are filled in.
  const char* refusal;
  const char* meaning;  // one line of Markdown
};

// All rows. Within a section they stand in the order of reading.
std::span<const Row> rows();
// The rows of one section.
std::vector<const Row*> rows_of(Section section);
// The row of that name in the section, stage_list rows by any number; null if there is none.
const Row* find_row(Section section, std::string_view name);

// The names of the attributes that are read.
std::vector<const char*> attributes_of(const Row& row);

// "at least 1e-4", "above 0 and below 89.99", "`InGaN`, `AlGaN`, ...", "any text, also empty".
std::string allowed_words(const Row& row);
// "required", "model `thick_GaN`", ...: when the element is read, given that its parent is there.
std::string condition_words(Condition condition);
// The same with the condition of the parent, for a row that has none of its own.
std::string read_words(const Row& row);
// Plain text of a cell: without backticks.
std::string plain(std::string_view markdown);
// A number in the shortest form: 1e-4, 0.99999, 1000.
std::string number_words(double value);

// The number behind the name of a stage_list row ("pre_stage_#" and "pre_stage_12" give 12); 0 if the name is no such.
int stage_number(std::string_view row_name, std::string_view name);

}  // namespace recipe
