// Walks over the text as the XML library's parser does, with a count in place of the recursion. What holds no elements
// (declarations, comments, texts, attributes) the library itself passes here, so that both agree on where it ends: that
// depends on the encoding, on the bytes that the library takes for one character, and on blanks that can't be seen.
//
// Where the parser stops at a fault, this may go on: it never finds less than the parser would meet.
#include "recipe/xml_nesting.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstring>

namespace vorlen {

namespace {

// The library's rules for blanks, names and words. Never made an object.
struct ParserRules : TiXmlBase {
  using TiXmlBase::ReadName;
  using TiXmlBase::SkipWhiteSpace;
  using TiXmlBase::StringEqual;
};

// A place in the text is null behind a fault.
bool at_end(const char* place) { return place == nullptr || *place == '\0'; }

bool starts(const char* place, const char* word) { return std::strncmp(place, word, std::strlen(word)) == 0; }

bool starts_declaration(const char* place) {
  return ParserRules::StringEqual(place, "<?xml", true, TIXML_ENCODING_UNKNOWN);
}

// First character of an element's name; bytes of other alphabets count as letters.
bool is_name_start(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 127;
}

// Behind a part of the document that holds no elements.
template <typename Part>
const char* behind(Part part, const char* place, TiXmlEncoding encoding) {
  return part.Parse(place, nullptr, encoding);
}

// Behind a declaration, which settles the encoding when none is known yet.
const char* behind_declaration(const char* place, TiXmlEncoding& encoding) {
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

// Behind a start tag. opens says whether the element has a content; n_attributes counts its attributes.
const char* behind_start_tag(const char* place, TiXmlEncoding encoding, bool& opens, int& n_attributes) {
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

const char* behind_end_tag(const char* place) {
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
      if (depth == 0) break;  // text outside of the elements ends the parsing
      place = behind(TiXmlText(""), place, encoding);
    } else if (depth > 0 && starts(place, "</")) {
      --depth;
      place = behind_end_tag(place);
    } else if (starts_declaration(place)) {
      // A declaration inside an element settles nothing.
      TiXmlEncoding inside = encoding;
      place = behind_declaration(place, depth == 0 ? encoding : inside);
    } else if (starts(place, "<!--")) {
      place = behind(TiXmlComment(), place, encoding);
    } else if (starts(place, "<![CDATA[")) {
      place = behind(TiXmlText(""), place, encoding);
    } else if (is_name_start(place[1])) {
      bool opens = false;
      int n_attributes = 0;
      place = behind_start_tag(place, encoding, opens, n_attributes);
      if (opens) shape.nesting = std::max(shape.nesting, ++depth);
      shape.attributes = std::max(shape.attributes, n_attributes);
    } else {
      place = behind(TiXmlUnknown(), place, encoding);
    }
    place = ParserRules::SkipWhiteSpace(place, encoding);
  }
  return shape;
}

}  // namespace vorlen
