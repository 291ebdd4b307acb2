// Look-up of elements and attributes of the recipe by name, and conversion of attribute values.
//
// Every function with an error argument leaves it alone on success and replaces it by the whole message on failure.
// Messages name an element by its full name, the colon path from the root. Numbers are converted by TinyXML with the
// patterns "%d" and "%lf" in the calling thread's locale: leading blanks and trailing characters are tolerated.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "recipe/process_recipe.h"

namespace vorlen {

// The names of element and its ancestors from the root down, joined by ":". Empty for null.
std::string element_full_name(const TiXmlElement* element);

// The first child element of that name, or null with "Element ... is not found". The parent is an element or the
// document itself, which has no part in the full name.
const TiXmlElement* require_child(const TiXmlNode& parent, const char* name, std::string& error);

// The children of an element by name, for lists of many: finds one in constant time where require_child walks over all
// siblings before it.
class ChildIndex {
 public:
  explicit ChildIndex(const TiXmlElement& parent);
  const TiXmlElement& parent() const { return *parent_; }
  // As require_child.
  const TiXmlElement* require(const std::string& name, std::string& error) const;

 private:
  const TiXmlElement* parent_;
  std::unordered_map<std::string_view, const TiXmlElement*> first_by_name_;  // names stand in the document
};

// The text of the attribute, or null with "Attribute ... of element ... is not found".
const char* require_attribute(const TiXmlElement& element, const char* name, std::string& error);

// One attribute of element as a number or a truth value. The attribute must be there and convert; out is left as it
// is otherwise. A truth value is one of true, yes, 1 and false, no, 0.
bool read_real(const TiXmlElement& element, const char* attribute, double& out, std::string& error);
bool read_integer(const TiXmlElement& element, const char* attribute, std::int32_t& out, std::string& error);
bool read_boolean(const TiXmlElement& element, const char* attribute, bool& out, std::string& error);

// The attribute val of a required child.
const char* read_child_text(const TiXmlNode& parent, const char* name, std::string& error);
bool read_child_real(const TiXmlNode& parent, const char* name, double& out, std::string& error);
bool read_child_integer(const TiXmlNode& parent, const char* name, std::int32_t& out, std::string& error);

// The attributes val and end, in this order, of a required child.
bool read_real_range(const TiXmlNode& parent, const char* name, ValueRange& out, std::string& error);

// The attributes A, Ta and Tn, in this order, of a required child: the constant A * exp(-Ta/T) * T^Tn.
bool read_arrhenius(const TiXmlNode& parent, const char* name, double& A, double& Ta, double& Tn, std::string& error);

}  // namespace vorlen
