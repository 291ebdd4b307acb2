// The file level of the recipe reader: an XML file as a parsed document.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

namespace vorlen {

// Reads the file at path and parses it into document, which is to be empty. False with error set to "Error reading
// file", the path and the reason when it can't be read, is no file or is no XML; or to "Out of memory" when the C
// library has none to open it. Else std::bad_alloc when memory runs out.
bool load_document(const char* path, TiXmlDocument& document, std::string& error);

// An upper limit of what the parser allocates for the tree of the text, bytes.
std::size_t tree_size_max(const std::string& text);

}  // namespace vorlen
