// Walks over the text like the XML library's parser, but counts instead of recursing. Parts without elements
// (declarations, comments, text, attributes) are skipped by the library's own functions, so that both agree on where a
// part ends: this depends on the encoding, on how the library decodes characters, and on invisible blanks.
//
// The parser stops at a syntax error; this walk may continue. So it never finds less than the parser does.
#include "recipe/xml_nesting.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>

namespace vorlen {

namespace {

// Access to the library's rules for blanks, names and words. Never instantiated.
struct ParserRules : TiXmlBase {
  using TiXmlBase::ReadName;
  using TiXmlBase::SkipWhiteSpace;
  using TiXmlBase::StringEqual;
};

// The functions below take a position in the text and return the one after what they skip, or null after an error.
bool at_end(const char* place) { return place == nullptr || *place == '\0'; }

bool starts(const char* place, const char* word) { return std::strncmp(place, word, std::strlen(word)) == 0; }

bool starts_declaration(const char* place) {
  return ParserRules::StringEqual(place, "<?xml", true, TIXML_ENCODING_UNKNOWN);
}

// First character of an element's name. Non-ASCII bytes count as letters.
bool is_name_start(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 127;
}

// Skips a part of the document that contains no elements.
template <typename Part>
const char* skip(Part part, const char* place, TiXmlEncoding encoding) {
  return part.Parse(place, nullptr, encoding);
}

// Skips a declaration, which determines the encoding if it is still unknown.
const char* skip_declaration(const char* place, TiXmlEncoding& encoding) {
  TiXmlDeclaration declaration;
  place = declaration.Parse(place, nullptr, encoding);
  if (encoding != TIXML_ENCODING_UNKNOWN) return place;
  const char* name = declaration.Encoding();
  const auto is = [name](const char* word) {
    return ParserRules::StringEqual(name, word, true, TIXML_ENCODING_UNKNOWN);
  };
  const bool utf8 = *name == '\0' || is("UTF-8") || is("UTF8");
  encoding = utf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
  return place;
}

// Skips a start tag. Sets opens if the element has content, and counts its attributes in n_attributes.
const char* skip_start_tag(const char* place, TiXmlEncoding encoding, bool& opens, int& n_attributes) {
  std::string name;
  place = ParserRules::SkipWhiteSpace(place + 1, encoding);
  if (at_end(place)) return nullptr;
  place = ParserRules::ReadName(place, &name, encoding);
  TiXmlAttribute attribute;
  while (!at_end(place)) {
    place = ParserRules::SkipWhiteSpace(place, encoding);
    if (at_end(place)) return nullptr;
    if (*place == '/') return place[1] == '>' ? place + 2 : nullptr;
    if (*place == '>') {
      opens = true;
      return place + 1;
    }
    place = attribute.Parse(place, nullptr, encoding);
    if (++n_attributes > ATTRIBUTES_MAX) return nullptr;
  }
  return nullptr;
}

const char* skip_end_tag(const char* place) {
  const char* end = std::strchr(place, '>');
  return end == nullptr ? nullptr : end + 1;
}

}  // namespace

XmlShape shape_of_xml(const std::string& text) {
  XmlShape shape;
  int depth = 0;
  TiXmlEncoding encoding = starts(text.c_str(), "\xEF\xBB\xBF") ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_UNKNOWN;
  const char* place = ParserRules::SkipWhiteSpace(text.c_str(), encoding);
  while (!at_end(place) && shape.nesting <= NESTING_MAX && shape.attributes <= ATTRIBUTES_MAX) {
    if (*place != '<') {
      if (depth == 0) break;  // the parser stops at text outside the elements
      place = skip(TiXmlText(""), place, encoding);
    } else if (depth > 0 && starts(place, "</")) {
      --depth;
      place = skip_end_tag(place);
    } else if (starts_declaration(place)) {
      // A declaration inside an element does not change the encoding.
      TiXmlEncoding inside = encoding;
      place = skip_declaration(place, depth == 0 ? encoding : inside);
    } else if (starts(place, "<!--")) {
      place = skip(TiXmlComment(), place, encoding);
    } else if (starts(place, "<![CDATA[")) {
      place = skip(TiXmlText(""), place, encoding);
    } else if (is_name_start(place[1])) {
      bool opens = false;
      int n_attributes = 0;
      place = skip_start_tag(place, encoding, opens, n_attributes);
      if (opens) shape.nesting = std::max(shape.nesting, ++depth);
      shape.attributes = std::max(shape.attributes, n_attributes);
    } else {
      place = skip(TiXmlUnknown(), place, encoding);
    }
    place = ParserRules::SkipWhiteSpace(place, encoding);
  }
  return shape;
}

}  // namespace vorlen
