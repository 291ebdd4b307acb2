// Determined from the environment (no-color.org) and the terminal.
#include "terminal/terminal.h"

#include <cstdlib>
#include <string_view>
#include <utility>

#include "platform/terminal.h"

bool use_colour(std::FILE* stream) {
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  return platform::has_control_sequences(stream);
}

UnitNames unit_names() { return platform::uses_utf8() ? UnitNames{"\u00b5m/h", "\u00c5"} : UnitNames{"um/h", "A"}; }

std::string with_ascii_units(std::string text) {
  constexpr std::pair<std::string_view, std::string_view> UNITS[] = {
      {"\u00b5", "u"}, {"\u207b\u00b2", "^-2"}, {"\u00b2", "^2"}, {"\u00b0", "deg "}, {"\u00c5", "A"}};
  for (const auto& [sign, letters] : UNITS) {
    for (std::size_t at = text.find(sign); at != std::string::npos; at = text.find(sign, at + letters.size())) {
      text.replace(at, sign.size(), letters);
    }
  }
  return text;
}
