// The reader of a parsed recipe: walks the table (recipe_table.h) from top to bottom, fills the records, and hands each
// fault to a sink. A sink that stops at the first fault is the library's (read_recipe.h); one that collects them all is
// that of `vorlen check`.
//
// Elements are found by name, so the order of siblings does not matter, unknown elements are ignored, and of two
// siblings with one name the first counts. Numbers are converted by TinyXML with the patterns "%d" and "%lf": leading
// blanks and trailing characters are accepted.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>

#include "recipe/process_recipe.h"
#include "recipe/recipe_table.h"

namespace vorlen::recipe {

// Most active stages of a recipe, periodic stages expanded: a typing error in n_periods must not fill the memory.
inline constexpr std::int64_t ACTIVE_STAGE_COUNT_MAX = 1000000;
// Most bytes of the names of sub-stages in a recipe, which are stored once for each period: long ones must not fill the
// memory. The maximum number of stages can have names of 268 bytes.
inline constexpr std::int64_t PERIODIC_NAMES_MAX = std::int64_t{256} << 20;

enum class FaultKind {
  missing_element,
  missing_attribute,
  no_number,
  unknown_keyword,
  not_allowed,
  nested_periodic,
  // The first pre-stage has no lattice constant. The library then runs what has been read, which has no stages.
  incomplete
};

struct Fault {
  FaultKind kind;
  const TiXmlNode& node;  // the element; the parent of a missing one
  const Row* row;         // of the element; null for the names of a periodic stage
  const char* attribute;  // null for a fault of the element as a whole
  std::string name;       // of a missing element
  std::string text;       // the library's message
  bool late;              // in an optional element, which the run reports after all other faults
};

// Receives what the reader comes across. The functions for elements and stages may be null.
struct FaultSink {
  void* context;
  bool (*fault)(void* context, const Fault& fault);  // false: stop reading
  // An element that is read, before its attributes and children are. A periodic stage is passed twice: as `stage`, then
  // as `periodic`.
  void (*element)(void* context, const TiXmlElement& element, const Row& row, Section children) = nullptr;
  // A single active stage that has been read; what is faulty in it has its initial value.
  void (*stage)(void* context, const TiXmlElement& element, const StageRecord& stage) = nullptr;
};

// Reads the document into a fresh recipe. False if the sink has stopped the reading. A sink that reads on gets the
// other faults too; stages with faults are then left out of recipe.active_stages. The decimal separator is the point,
// whatever the locale of the process or the thread.
bool read_document(const TiXmlDocument& document, ProcessRecipe& recipe, const FaultSink& sink);

}  // namespace vorlen::recipe
