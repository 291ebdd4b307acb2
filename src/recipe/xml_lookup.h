// Lookup of elements of the recipe by name, and the names of elements in messages: an element is named by its full
// name, the names from the root down, joined by colons.
#pragma once

#include <tinyxml.h>

#include <string>
#include <string_view>
#include <unordered_map>

namespace vorlen {

// The names of element and its ancestors from the root down, joined by ":". Empty for null.
std::string element_full_name(const TiXmlElement* element);

// The full name of a child of that name. The parent is an element, or the document, which has no part in the name.
std::string child_full_name(const TiXmlNode& parent, const char* name);

// The children of an element by name, for long lists: finds one in constant time where FirstChildElement walks over
// all siblings before it. The element must outlive it.
class ChildIndex {
 public:
  explicit ChildIndex(const TiXmlElement& parent);
  // The first child of that name, or null.
  const TiXmlElement* find(std::string_view name) const;

 private:
  std::unordered_map<std::string_view, const TiXmlElement*> first_by_name_;
};

}  // namespace vorlen
