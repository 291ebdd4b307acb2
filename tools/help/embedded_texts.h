// Files of the source tree that are compiled into the tool, so that it needs no data folder.
#pragma once

#include <vector>

struct EmbeddedRecipe {
  const char* kind;  // the example's file name without .xml
  const char* text;
};

// The recipes of examples/, by name.
const std::vector<EmbeddedRecipe>& embedded_recipes();

// docs/messages.md
const char* embedded_messages();
