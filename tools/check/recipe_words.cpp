// The table of the recipe in words.
#include "check/recipe_words.h"

#include <fmt/core.h>

#include <algorithm>

namespace vorlen::recipe {

namespace {

std::string bounds_words(const Limits& limits) {
  if (limits.shown != nullptr) return limits.shown;
  if (limits.not_zero) return "not 0";
  if (limits.low && limits.high && limits.low_inclusive && limits.high_inclusive) {
    return number_words(*limits.low) + " to " + number_words(*limits.high);
  }
  std::string words;
  if (limits.low) words = (limits.low_inclusive ? "at least " : "above ") + number_words(*limits.low);
  if (limits.high) {
    if (!words.empty()) words += " and ";
    words += (limits.high_inclusive ? "at most " : "below ") + number_words(*limits.high);
  }
  return words.empty() ? "any" : words;
}

}  // namespace

const char* root_name() { return rows_of(Section::document).front()->name; }

std::string number_words(double value) {
  std::string words = fmt::format("{}", value);
  // 1e-04 to 1e-4: as the texts of the library write it.
  const std::size_t exponent = words.find("e-0");
  if (exponent != std::string::npos) words.erase(exponent + 2, 1);
  return words == "0.0001" ? "1e-4" : words;
}

std::string allowed_words(const Row& row) {
  switch (row.kind) {
    case Kind::container:
    case Kind::stage_list:
      return "";
    case Kind::text:
      return "any text, also empty";
    case Kind::keyword: {
      std::string words;
      for (const vorlen::Keyword& word : row.keywords)
        words += (words.empty() ? "`" : ", `") + std::string(word.text) + "`";
      if (*row.rejection == '\0') words += ", or any other text";
      return words;
    }
    default:
      return bounds_words(row.limits);
  }
}

std::string condition_words(Condition condition) {
  switch (condition) {
    case Condition::always:
    case Condition::name_of_layer:
      return "required";
    case Condition::optional:
      return "optional";
    case Condition::stress_on:
      return "with `V_dislocation`";
    case Condition::stress_off:
      return "unless `V_dislocation`";
    case Condition::thick_GaN:
      return "model `thick_GaN`";
    case Condition::thick_GaN_TDR:
      return "model `thick_GaN` with `TDR`";
    case Condition::fixed_thickness:
      return "model `fixed_thickness`";
    case Condition::InGaN_GR_X:
      return "model `InGaN_GR_X`";
    case Condition::prescribed_rate:
      return "models `InGaN_GR_X` and `InGaN_GR`";
    case Condition::given:
      return "with `given`";
    case Condition::name_of_stage:
      return "required, but optional with `V_dislocation`";
  }
  return "";
}

std::string read_words(const Row& row) {
  if (*row.default_value != '\0') return fmt::format("optional, default `{}`", row.default_value);
  if (row.condition != Condition::always) return condition_words(row.condition);
  for (const Row& parent : rows()) {
    if (parent.children == row.section && parent.kind == Kind::container) return read_words(parent);
  }
  return condition_words(Condition::always);
}

const std::vector<Flow>& flows() {
  static const std::vector<Flow> found = [] {
    ProcessRecipe recipe;
    StageRecord stage;
    Records records{.recipe = recipe, .stage = &stage};
    std::vector<Flow> flows;
    for (const Row* row : rows_of(Section::Q)) {
      const double* value = row->field(records).numbers[0];
      const auto flow = std::find_if(stage.Q.begin(), stage.Q.end(), [&](auto& range) { return &range.val == value; });
      flows.push_back({row->name, static_cast<GasSpecies>(flow - stage.Q.begin())});
    }
    return flows;
  }();
  return found;
}

std::string short_name(const std::string& name) {
  constexpr std::size_t LONGEST = 60;
  const std::string dots = "...";
  std::size_t characters = 0;
  std::size_t kept = 0;  // bytes that leave room for the dots
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool continues = (static_cast<unsigned char>(name[i]) & 0xc0U) == 0x80U;
    if (continues) continue;
    if (++characters > LONGEST) return name.substr(0, kept) + dots;
    if (characters == LONGEST - dots.size() + 1) kept = i;
  }
  return name;
}

std::string plain(std::string_view markdown) {
  std::string text(markdown);
  std::erase(text, '`');
  std::erase(text, '*');
  return text;
}

}  // namespace vorlen::recipe
