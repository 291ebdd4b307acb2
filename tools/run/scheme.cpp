// Only the first element integration of a recipe is read. To change the scheme, a new one is inserted directly after
// the root's start tag, on the same line, so that line numbers do not change and the rest of the text needs no parsing.
// The library's own reader then confirms that the recipe has the scheme.
#include "run/scheme.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string_view>

#include "platform/read_file.h"
#include "recipe/keywords.h"
#include "recipe/load_document.h"
#include "recipe/process_recipe.h"
#include "recipe/read_recipe.h"
#include "recipe/recipe_table.h"

namespace {

using vorlen::recipe::Section;

const vorlen::recipe::Row& scheme_row() { return *vorlen::recipe::find_row(Section::integration, "scheme"); }

// The name of the root element.
std::string root_name() { return vorlen::recipe::rows_of(Section::document).front()->name; }

// Empty for what the library does not read either: pipes, devices and huge files.
std::string read_text(const std::string& path) {
  constexpr std::size_t LARGEST = std::size_t{64} << 20;  // bytes
  std::string text;
  return vorlen::read_file(path.c_str(), LARGEST, text) == vorlen::FileResult::read ? text : "";
}

// The first element of that name below parent; null if there is none, also for a null parent.
const TiXmlElement* child(const TiXmlNode* parent, const char* name) {
  return parent == nullptr ? nullptr : parent->FirstChildElement(name);
}

const TiXmlElement* integration_of(const TiXmlDocument& document) {
  return child(child(&document, root_name().c_str()), "integration");
}

// The value of the element scheme; null if there is none.
const char* scheme_value(const TiXmlDocument& document) {
  const TiXmlElement* scheme = child(integration_of(document), "scheme");
  return scheme == nullptr ? nullptr : scheme->Attribute("val");
}

// The element integration with the scheme set, as text on one line.
std::string integration_text(const TiXmlDocument& document, const std::string& scheme) {
  TiXmlElement integration("integration");
  const TiXmlElement* old = integration_of(document);
  if (old != nullptr) integration = *old;
  TiXmlElement* element = integration.FirstChildElement("scheme");
  if (element == nullptr) {
    element = static_cast<TiXmlElement*>(integration.LinkEndChild(new TiXmlElement("scheme")));
  }
  element->SetAttribute("val", scheme.c_str());
  TiXmlPrinter printer;
  printer.SetStreamPrinting();
  integration.Accept(&printer);
  return printer.CStr();
}

// The position after the root's start tag; npos if anything but declarations and comments precedes it.
std::size_t end_of_root_tag(std::string_view text) {
  std::size_t at = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
  const auto skip_to = [&](std::string_view end) {
    const std::size_t found = text.find(end, at);
    at = found == std::string_view::npos ? text.size() : found + end.size();
  };
  while (true) {
    at = std::min(text.find_first_not_of(" \t\r\n", at), text.size());
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) {
      skip_to("-->");
    } else if (rest.starts_with("<?") || rest.starts_with("<!")) {
      skip_to(">");
    } else {
      break;
    }
  }
  const std::string root = root_name();
  if (text.substr(at, 1) != "<" || text.substr(at + 1, root.size()) != root) return std::string_view::npos;
  char quote = '\0';
  for (at += 1 + root.size(); at < text.size(); ++at) {
    const char c = text[at];
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return text[at - 1] == '/' ? std::string_view::npos : at + 1;
    }
  }
  return std::string_view::npos;
}

// Whether the recipe has this scheme. True also for a recipe with errors, which does not run at all.
bool has_scheme(const std::string& text, const std::string& scheme) {
  vorlen::ProcessRecipe recipe;
  std::string ignored;
  if (vorlen::read_recipe({"", text}, recipe, ignored) != 0) return true;
  std::int32_t wanted = 0;
  return vorlen::find_keyword(scheme_row().keywords, scheme.c_str(), wanted) && recipe.scheme == wanted;
}

}  // namespace

std::vector<std::string> scheme_names() {
  std::vector<std::string> names;
  for (const vorlen::Keyword& scheme : scheme_row().keywords) names.emplace_back(scheme.text);
  return names;
}

std::string scheme_of_recipe(const std::string& path) try {
  const char* const DEFAULT = scheme_row().default_value;
  if (read_text(path).find("integration") == std::string::npos) return DEFAULT;  // no need to parse
  TiXmlDocument document;
  std::string ignored;
  if (!vorlen::load_document(path.c_str(), document, ignored)) return DEFAULT;
  const char* value = scheme_value(document);
  for (const vorlen::Keyword& scheme : scheme_row().keywords) {
    if (value != nullptr && vorlen::equal_ignoring_case(value, scheme.text)) return scheme.text;
  }
  return DEFAULT;
} catch (const std::bad_alloc&) {
  return scheme_row().default_value;
}

std::string recipe_under_scheme(const std::string& path, const std::string& scheme) {
  TiXmlDocument document;
  std::string ignored;
  if (!vorlen::load_document(path.c_str(), document, ignored)) return "";
  const char* value = scheme_value(document);
  const bool has_element = child(integration_of(document), "scheme") != nullptr;
  if (has_element ? value != nullptr && vorlen::equal_ignoring_case(value, scheme.c_str())
                  : scheme == scheme_row().default_value) {
    return "";
  }
  std::string text = read_text(path);
  const std::size_t place = end_of_root_tag(text);
  if (place != std::string_view::npos) {
    text.insert(place, integration_text(document, scheme));
    if (has_scheme(text, scheme)) return text;
  } else if (child(&document, root_name().c_str()) == nullptr || child(&document, root_name().c_str())->NoChildren()) {
    return "";
  }
  throw std::runtime_error("The scheme can't be set in " + path + ": put the element integration into it instead");
}

const std::string& path_of_copy(const platform::PrivateFile& copy) {
  if (copy.error() == 0) return copy.path();
  throw std::runtime_error("No copy of the recipe for another scheme: " + platform::error_text(copy.error()));
}
