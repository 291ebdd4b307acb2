// Lookup in the table of the recipe, and the meaning of its cells.
#include <cmath>

#include "recipe/recipe_table.h"

namespace vorlen::recipe {

bool Limits::allows(double value) const {
  // NaN is neither too low nor too high.
  if (not_zero) return value != 0.0;
  const bool too_low = low && (low_inclusive ? value < *low : value <= *low);
  const bool too_high = high && (high_inclusive ? value > *high : value >= *high);
  return !too_low && !too_high && !((late || nan_rejected) && high && std::isnan(value));
}

int stage_number(std::string_view row_name, std::string_view name) {
  const std::string_view prefix = row_name.substr(0, row_name.size() - 1);  // without the "#"
  if (row_name.back() != '#' || !name.starts_with(prefix)) return 0;
  const std::string_view digits = name.substr(prefix.size());
  if (digits.empty() || digits.size() > 4 || digits.front() == '0') return 0;
  int number = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return 0;
    number = 10 * number + (c - '0');
  }
  return number;
}

const Row* find_row(Section section, std::string_view name) {
  for (const Row* row : rows_of(section)) {
    if (name == row->name || (row->kind == Kind::stage_list && stage_number(row->name, name) > 0)) return row;
  }
  return nullptr;
}

std::span<const char* const> attributes_of(const Row& row) {
  static constexpr const char* ONE[] = {"val"};
  static constexpr const char* TWO[] = {"val", "end"};
  static constexpr const char* THREE[] = {"A", "Ta", "Tn"};
  switch (row.kind) {
    case Kind::container:
    case Kind::stage_list:
      return {};
    case Kind::range:
      return TWO;
    case Kind::arrhenius:
      return THREE;
    default:
      return ONE;
  }
}

Asked asked(Condition condition, const ProcessRecipe& recipe, bool stress_known) {
  const auto holds = [](bool known, bool yes) { return !known ? Asked::unknown : yes ? Asked::yes : Asked::no; };
  const std::int32_t model = recipe.transport_model;
  const bool model_known = model != NOT_SPECIFIED;
  switch (condition) {
    case Condition::stress_on:
      return holds(stress_known, recipe.stress_model == STRESS_V_dislocation);
    case Condition::stress_off:
      return holds(stress_known, recipe.stress_model != STRESS_V_dislocation);
    case Condition::thick_GaN:
      return holds(model_known, model == TRANSPORT_thick_GaN);
    case Condition::thick_GaN_TDR:
      if (model != TRANSPORT_thick_GaN) return holds(model_known, false);
      return holds(recipe.reactor != NOT_SPECIFIED, recipe.reactor == REACTOR_TDR);
    case Condition::fixed_thickness:
      return holds(model_known, model == TRANSPORT_fixed_thickness);
    case Condition::InGaN_GR_X:
      return holds(model_known, model == TRANSPORT_InGaN_GR_X);
    case Condition::prescribed_rate:
      return holds(model_known, model == TRANSPORT_InGaN_GR_X || model == TRANSPORT_InGaN_GR);
    default:
      return Asked::yes;
  }
}

const char* keyword_of(const Row& row, std::int32_t value) {
  for (const Keyword& keyword : row.keywords) {
    if (keyword.value == value) return keyword.text;
  }
  return "";
}

double value_of(const Row& row, const ProcessRecipe& recipe) {
  Records records{.recipe = const_cast<ProcessRecipe&>(recipe)};  // only read
  return *row.field(records).numbers[0];
}

}  // namespace vorlen::recipe
