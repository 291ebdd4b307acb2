#include "check/stage_names.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace vorlen::recipe {

namespace {

constexpr double MOST_ALUMINIUM = 5.0;  // atoms for each atom of gallium in a layer called AlGaN: Al0.83Ga0.17N

// The length of a formula at the start of the text, such as InGaN or Al0.3Ga0.7N; 0 for anything else.
std::size_t formula_length(std::string_view text) {
  std::size_t at = 0;
  while (true) {
    const std::string_view symbol = text.substr(std::min(at, text.size()), 2);
    if (symbol != "In" && symbol != "Ga" && symbol != "Al") break;
    at += 2;
    while (at < text.size() && std::string_view("0123456789.,xy()-_{}").find(text[at]) != std::string_view::npos) ++at;
  }
  return at > 0 && at < text.size() && text[at] == 'N' ? at + 1 : 0;
}

// The first formula of a name; empty if it has none.
std::string first_formula(const std::string& name) {
  for (std::size_t at = 0; at < name.size(); ++at) {
    const std::size_t length = formula_length(std::string_view(name).substr(at));
    if (length > 0) return name.substr(at, length);
  }
  return {};
}

// Words that name a neighbour of the stage rather than the stage itself.
bool names_neighbours(const std::string& lower) {
  constexpr std::string_view WORDS[] = {" to ", "before", "after", "below", "above", "under",
                                        "over", " on ",   "cap",   "/",     "+",     "ramp"};
  return contains_any(lower, WORDS);
}

bool names_blocking_layer(const std::string& lower) {
  constexpr std::string_view WORDS[] = {"ebl", "blocking layer"};
  return contains_any(lower, WORDS);
}

// The number after a symbol of a formula; 0 for none.
double share_of(const std::string& formula, const char* symbol) {
  const std::size_t at = formula.find(symbol);
  if (at == std::string::npos) return 0.0;
  const char* text = formula.c_str() + at + 2;
  return std::isdigit(static_cast<unsigned char>(*text)) != 0 ? std::strtod(text, nullptr) : 0.0;
}

}  // namespace

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool has_formula(const std::string& name) { return !first_formula(name).empty(); }

std::optional<bool> named_with(const std::string& name, const Metal& metal) {
  const std::string lower = lower_case(name);
  if (names_neighbours(lower)) return {};
  std::optional<bool> said;
  for (std::size_t at = 0; at < name.size(); ++at) {
    const std::size_t length = formula_length(std::string_view(name).substr(at));
    if (length == 0) continue;
    const bool has = std::string_view(name).substr(at, length).find(metal.symbol) != std::string_view::npos;
    if (said && *said != has) return {};
    said = has;
    at += length - 1;
  }
  if (said) return said;
  if (metal.species == vorlen::TMAl_g) return names_blocking_layer(lower) ? std::optional<bool>(true) : std::nullopt;
  const bool well = lower.find("well") != std::string::npos || lower.find("qw") != std::string::npos;
  const bool barrier = lower.find("barrier") != std::string::npos;
  if (well == barrier) return {};
  return well;
}

bool is_named_after_nitride(const std::string& name) {
  constexpr std::string_view WORDS[] = {"tmal", "pulse", "flow", "dose", "step", "cycle"};
  return named_with(name, NAMED_METALS[1]) == true && !contains_any(lower_case(name), WORDS);
}

std::optional<NamedAluminium> named_aluminium(const std::string& name) {
  if (named_with(name, NAMED_METALS[1]) != true) return {};
  const std::string formula = first_formula(name);
  if (!formula.empty() && formula.find("Ga") == std::string::npos) return {};
  const double aluminium = share_of(formula, "Al");
  const double gallium = share_of(formula, "Ga");
  if (!(aluminium > 0.0 && gallium > 0.0)) return NamedAluminium{MOST_ALUMINIUM, false};
  return NamedAluminium{aluminium / gallium, true};
}

}  // namespace vorlen::recipe
