// Determined from the environment (no-color.org, TERM) and the locale.
#include "terminal/terminal.h"

#include <langinfo.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

bool use_colour(std::FILE* stream) {
  const char* no_color = std::getenv("NO_COLOR");
  if (no_color != nullptr && *no_color != '\0') return false;
  const char* terminal = std::getenv("TERM");
  if (terminal == nullptr || std::strcmp(terminal, "dumb") == 0) return false;
  return isatty(fileno(stream)) == 1;
}

bool use_utf8() { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

UnitNames unit_names() { return use_utf8() ? UnitNames{"\u00b5m/h", "\u00c5"} : UnitNames{"um/h", "A"}; }
