// The shape of an XML text, found before it is parsed: how deeply its elements are nested and how many attributes they
// have.
#pragma once

#include <string>

namespace vorlen {

// Recipes have eight levels. The XML library parses recursively and takes about 200 bytes of stack per level, so this
// limit is safe on a thread with a stack of 64 KiB.
inline constexpr int NESTING_MAX = 100;
// Elements of a recipe have at most three attributes. The time to parse an element is quadratic in their number.
inline constexpr int ATTRIBUTES_MAX = 100;

// Largest number of elements that are open at once, not counting <a/>, and of attributes in one element.
struct XmlShape {
  int nesting = 0;
  int attributes = 0;
};

// The shape of the text as far as the parser would read it, or up to the place where NESTING_MAX or ATTRIBUTES_MAX is
// exceeded. The text must be as make_text_for_parser (recipe/load_document.cpp) leaves it: line ends are "\n", and it
// ends with four zeros.
XmlShape shape_of_xml(const std::string& text);

}  // namespace vorlen
