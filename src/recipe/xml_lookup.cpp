// Look-up of elements and attributes of the recipe by name, and conversion of attribute values.
#include "recipe/xml_lookup.h"

namespace vorlen {

namespace {

// "Failed to get <kind> number from value ...": the attribute is there but does not convert.
bool conversion_failure(const char* kind, const TiXmlElement& element, const char* attribute, std::string& error) {
  error = std::string("Failed to get ") + kind + " number from value \"" + element.Attribute(attribute) +
          "\" of attribute " + attribute + " in element " + element_full_name(&element);
  return false;
}

void missing_child(const TiXmlNode& parent, const char* name, std::string& error) {
  std::string full_name = element_full_name(parent.ToElement());
  if (!full_name.empty()) full_name += ":";
  error = "Element " + full_name + name + " is not found";
}

}  // namespace

std::string element_full_name(const TiXmlElement* element) {
  std::string full_name;
  for (const TiXmlNode* node = element; node != nullptr && node->Type() != TiXmlNode::TINYXML_DOCUMENT;
       node = node->Parent()) {
    full_name = full_name.empty() ? node->Value() : std::string(node->Value()) + ":" + full_name;
  }
  return full_name;
}

const TiXmlElement* require_child(const TiXmlNode& parent, const char* name, std::string& error) {
  const TiXmlElement* child = parent.FirstChildElement(name);
  if (child == nullptr) missing_child(parent, name, error);
  return child;
}

ChildIndex::ChildIndex(const TiXmlElement& parent) : parent_(&parent) {
  for (const TiXmlElement* child = parent.FirstChildElement(); child != nullptr; child = child->NextSiblingElement()) {
    first_by_name_.emplace(child->ValueStr(), child);
  }
}

const TiXmlElement* ChildIndex::require(const std::string& name, std::string& error) const {
  const auto found = first_by_name_.find(name);
  if (found != first_by_name_.end()) return found->second;
  missing_child(*parent_, name.c_str(), error);
  return nullptr;
}

const char* require_attribute(const TiXmlElement& element, const char* name, std::string& error) {
  const char* text = element.Attribute(name);
  if (text == nullptr) {
    error = std::string("Attribute ") + name + " of element " + element_full_name(&element) + " is not found";
  }
  return text;
}

bool read_real(const TiXmlElement& element, const char* attribute, double& out, std::string& error) {
  if (require_attribute(element, attribute, error) == nullptr) return false;
  double value = 0.0;
  if (element.QueryDoubleAttribute(attribute, &value) != TIXML_SUCCESS) {
    return conversion_failure("real", element, attribute, error);
  }
  out = value;
  return true;
}

bool read_integer(const TiXmlElement& element, const char* attribute, std::int32_t& out, std::string& error) {
  if (require_attribute(element, attribute, error) == nullptr) return false;
  int value = 0;
  if (element.QueryIntAttribute(attribute, &value) != TIXML_SUCCESS) {
    return conversion_failure("integer", element, attribute, error);
  }
  out = value;
  return true;
}

bool read_boolean(const TiXmlElement& element, const char* attribute, bool& out, std::string& error) {
  if (require_attribute(element, attribute, error) == nullptr) return false;
  bool value = false;
  if (element.QueryBoolAttribute(attribute, &value) != TIXML_SUCCESS) {
    return conversion_failure("boolean", element, attribute, error);
  }
  out = value;
  return true;
}

const char* read_child_text(const TiXmlNode& parent, const char* name, std::string& error) {
  const TiXmlElement* child = require_child(parent, name, error);
  return child == nullptr ? nullptr : require_attribute(*child, "val", error);
}

bool read_child_real(const TiXmlNode& parent, const char* name, double& out, std::string& error) {
  const TiXmlElement* child = require_child(parent, name, error);
  return child != nullptr && read_real(*child, "val", out, error);
}

bool read_child_integer(const TiXmlNode& parent, const char* name, std::int32_t& out, std::string& error) {
  const TiXmlElement* child = require_child(parent, name, error);
  return child != nullptr && read_integer(*child, "val", out, error);
}

bool read_real_range(const TiXmlNode& parent, const char* name, ValueRange& out, std::string& error) {
  const TiXmlElement* child = require_child(parent, name, error);
  return child != nullptr && read_real(*child, "val", out.val, error) && read_real(*child, "end", out.end, error);
}

bool read_arrhenius(const TiXmlNode& parent, const char* name, double& A, double& Ta, double& Tn, std::string& error) {
  const TiXmlElement* child = require_child(parent, name, error);
  return child != nullptr && read_real(*child, "A", A, error) && read_real(*child, "Ta", Ta, error) &&
         read_real(*child, "Tn", Tn, error);
}

}  // namespace vorlen
