// What the place that is printed to can show: colours, and characters outside of ASCII.
#pragma once

#include <cstdio>

// True when stream is a terminal that understands colours and NO_COLOR is not set to anything.
bool use_colour(std::FILE* stream);

// True when the locale's characters are UTF-8. Before setlocale(LC_CTYPE, "") it never is.
bool use_utf8();

// Names of units as the locale can show them.
struct UnitNames {
  const char* micrometres_per_hour;  // "µm/h", or "um/h"
  const char* angstrom;              // "Å", or "A"
};
UnitNames unit_names();
