// Compares shape_of_xml with the parser: the elements of the parsed document must have the predicted nesting and number
// of attributes. Works on text in memory, which is faster than a file.
#include <tinyxml.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "parser_text.h"
#include "recipe/xml_nesting.h"

namespace {

struct Found {
  int levels = 0;      // of elements, including empty ones
  int attributes = 0;  // most of one element
};

void look(const TiXmlNode& node, int level, Found& found) {
  if (const TiXmlElement* element = node.ToElement()) {
    found.levels = std::max(found.levels, ++level);
    int count = 0;
    for (const TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) ++count;
    found.attributes = std::max(found.attributes, count);
  }
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    look(*child, level, found);
  }
}

void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = vorlen_fuzz::parser_text(data, size);
  const vorlen::XmlShape shape = vorlen::shape_of_xml(text);
  if (shape.nesting > vorlen::NESTING_MAX || shape.attributes > vorlen::ATTRIBUTES_MAX) return 0;
  TiXmlDocument document;
  document.Parse(text.c_str());
  Found found;
  look(document, 0, found);
  // The innermost element may be empty. After a syntax error shape_of_xml may continue where the parser has stopped.
  require(found.levels <= shape.nesting + 1);
  require(found.attributes <= shape.attributes);
  if (!document.Error()) require(found.levels >= shape.nesting && found.attributes == shape.attributes);
  return 0;
}
