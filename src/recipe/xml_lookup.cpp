// Lookup of elements of the recipe by name, and the names of elements in messages.
#include "recipe/xml_lookup.h"

namespace vorlen {

std::string element_full_name(const TiXmlElement* element) {
  std::string full_name;
  for (const TiXmlNode* node = element; node != nullptr && node->Type() != TiXmlNode::TINYXML_DOCUMENT;
       node = node->Parent()) {
    full_name = full_name.empty() ? node->Value() : std::string(node->Value()) + ":" + full_name;
  }
  return full_name;
}

std::string child_full_name(const TiXmlNode& parent, const char* name) {
  const std::string full_name = element_full_name(parent.ToElement());
  return full_name.empty() ? name : full_name + ":" + name;
}

ChildIndex::ChildIndex(const TiXmlElement& parent) {
  for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
    first_by_name_.emplace(child->ValueStr(), child);
  }
}

const TiXmlElement* ChildIndex::find(std::string_view name) const {
  const auto found = first_by_name_.find(name);
  return found == first_by_name_.end() ? nullptr : found->second;
}

}  // namespace vorlen
