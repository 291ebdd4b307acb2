// What the output device can show: colours, and characters outside of ASCII.
#pragma once

#include <cstdio>
#include <string>

// True if stream is a terminal that supports colours and NO_COLOR is unset or empty.
bool use_colour(std::FILE* stream);

// Names of units in the character set of the locale.
struct UnitNames {
  const char* micrometres_per_hour;  // "µm/h", or "um/h"
  const char* angstrom;              // "Å", or "A"
};
UnitNames unit_names();

// The text with its units as a terminal without UTF-8 can show them.
std::string with_ascii_units(std::string text);
