// One element of the recipe: its attributes are read, converted, checked against the row of the table and stored.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

#include "recipe/recipe_reader.h"

namespace vorlen::recipe {

// What the reader knows while it walks the table.
struct ReadState {
  const FaultSink& sink;
  Records records;
  std::size_t n_faults = 0;
  bool stress_known = false;          // stress:model has been read
  bool late = false;                  // inside of an optional element
  bool names_model = false;           // messages end with the transport model
  const Row* missing_name = nullptr;  // of a stage without the element name, until that is reported
};

// Passes a fault to the sink; false: stop reading.
bool report(ReadState& state, FaultKind kind, const TiXmlNode& node, const Row* row, const char* attribute,
            std::string text, const char* name = "");
bool report_missing(ReadState& state, const TiXmlNode& parent, const Row& row, const char* name);

// The text of a row with {stage}, {name}, {value} and {path} filled in.
std::string filled(const char* pattern, const ReadState& state, const TiXmlElement& element, const char* value = "");

// Reads the number at the start of a text, as in an element of this kind, and returns where it ends. Returns null, and
// leaves value, if there is none.
const char* read_number(const char* text, Kind kind, double& value);

// Reads an element that has attributes. False: stop reading.
bool read_value(ReadState& state, const TiXmlElement& element, const Row& row);

}  // namespace vorlen::recipe
