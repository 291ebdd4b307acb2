// The XML library's parser, which loses nothing when memory runs out.
#pragma once

#include <tinyxml.h>

namespace vorlen {

// Parses the text, of at most NESTING_MAX levels, into document, which is to be empty. std::bad_alloc when memory runs
// out: the document is empty again then, and everything that the parser has taken is given back.
void parse_document(const char* text, TiXmlDocument& document);

}  // namespace vorlen
