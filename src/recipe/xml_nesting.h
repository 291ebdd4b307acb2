// A look at the shape of an XML text before it is parsed: how deeply its elements are nested, and how many attributes
// they have.
#pragma once

#include <string>

namespace vorlen {

// Recipes nest eight levels deep. The XML library parses by recursion, which takes some 200 bytes of stack for each
// level: this limit leaves room on a thread with a stack of 64 KiB.
inline constexpr int NESTING_MAX = 100;
// Elements of a recipe have at most three attributes. The XML library compares each attribute with those before it.
inline constexpr int ATTRIBUTES_MAX = 100;

// The most elements that are open at once, <a/> not counted, and the most attributes of one element.
struct XmlShape {
  int nesting = 0;
  int attributes = 0;
};

// The shape of the text as far as the parser would read it. Looking ends when NESTING_MAX or ATTRIBUTES_MAX is
// exceeded. The text is as in make_text_for_parser (recipe/load_document.cpp): line ends are "\n", and four zeros stand
// at its end.
XmlShape shape_of_xml(const std::string& text);

}  // namespace vorlen
