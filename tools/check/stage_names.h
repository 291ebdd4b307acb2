// What the name of a stage says about the metals that flow in it: "InGaN well", "n-Al0.3Ga0.7N", "QW 2".
#pragma once

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

#include "recipe/species_data.h"

namespace vorlen::recipe {

struct Metal {
  std::string_view symbol;
  const char* flow;
  vorlen::GasSpecies species;
};
inline constexpr Metal NAMED_METALS[] = {{"In", "TMIn", vorlen::TMIn_g}, {"Al", "TMAl", vorlen::TMAl_g}};

std::string lower_case(std::string text);

template <std::size_t N>
bool contains_any(const std::string& text, const std::string_view (&words)[N]) {
  return std::any_of(std::begin(words), std::end(words),
                     [&text](std::string_view word) { return text.find(word) != std::string::npos; });
}

// Whether a name has a formula of a nitride, such as InGaN or Al0.3Ga0.7N.
bool has_formula(const std::string& name);

// Whether a stage of this name has the metal; nothing if the name does not say so.
std::optional<bool> named_with(const std::string& name, const Metal& metal);

// A stage named AlN spacer, for example, and not TMAl pulse of AlN.
bool is_named_after_nitride(const std::string& name);

// Aluminium atoms for each atom of gallium in a layer named AlGaN, AlInGaN or EBL, at most; nothing for other names. A
// formula with numbers says how many there are: 0.43 in Al0.3Ga0.7N.
struct NamedAluminium {
  double per_gallium = 0.0;
  bool exact = false;
};
std::optional<NamedAluminium> named_aluminium(const std::string& name);

}  // namespace vorlen::recipe

namespace recipe = vorlen::recipe;
