// Determined from the environment (no-color.org, TERM) and the locale.
#include "terminal/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

bool use_colour(std::FILE* stream) {
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* terminal = std::getenv("TERM");
  if (terminal == nullptr || std::strcmp(terminal, "dumb") == 0) return false;
  return is_terminal(stream);
}

bool is_terminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

std::size_t terminal_width(std::FILE* stream) {
  winsize size{};
  return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;  // fails unless stream is a terminal
}

bool use_utf8() { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

UnitNames unit_names() { return use_utf8() ? UnitNames{"\u00b5m/h", "\u00c5"} : UnitNames{"um/h", "A"}; }

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
