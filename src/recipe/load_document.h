// Reads an XML file, or its content, into a parsed document.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace vorlen {

// Reads the file at path and parses it into document, which must be empty. Returns false if the path is not a readable
// regular file or its content is not well-formed XML; error is then "Error reading file", the path and the reason. Also
// returns false, with "Out of memory", if the system lacks memory to open the file. Throws std::bad_alloc if any other
// allocation fails; the nodes that the XML parser has not yet linked into document are then leaked.
bool load_document(const char* path, TiXmlDocument& document, std::string& error);

// The content of a recipe file that is in memory.
struct RecipeText {
  const char* name = "";  // in messages, where that of a file has its path
  std::string_view bytes;
};

// The same for a content in memory.
bool load_document(const RecipeText& recipe, TiXmlDocument& document, std::string& error);

// Upper limit of the memory that the parser takes for the document of the text, bytes. load_document checks that this
// much is free before it parses.
std::size_t tree_size_max(const std::string& text);

}  // namespace vorlen
