// What both schemas of the recipe have in common.
#pragma once

#include <string>
#include <string_view>

namespace recipe {

// A schema has to name each stage: those with higher numbers may hold anything.
inline constexpr int SCHEMA_STAGES = 30;
inline constexpr int SCHEMA_LAYERS = 20;
inline constexpr int SCHEMA_SUB_STAGES = 9;

// text as it stands in XML, in a value or between tags.
inline std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '>') {
      out += "&gt;";
    } else if (c == '"') {
      out += "&quot;";
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace recipe
