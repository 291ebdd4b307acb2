// The schema in XML Schema 1.0. A content model of that language can't hold elements in any order beside elements that
// are not known, nor tell the first of a name from the others. So every element may hold anything, elements with a
// known name are declared with their attributes, documented, and their keywords are offered; what is refused is a wrong
// root alone. The schema in RELAX NG is the one that finds faults.
#include <fmt/core.h>

#include <string_view>
#include <vector>

#include "check/recipe_files.h"
#include "check/recipe_words.h"
#include "schema/schema_text.h"

namespace recipe {

namespace {

std::string documentation(const std::string& text) {
  return "<xs:annotation><xs:documentation>" + escaped(plain(text)) + "</xs:documentation></xs:annotation>";
}

// Keywords are offered, any other text is taken.
std::string attribute(const Row& row, const char* name) {
  std::string type;
  for (const vorlen::Keyword& word : row.keywords) type += fmt::format("<xs:enumeration value=\"{}\"/>", word.text);
  if (type.empty()) return fmt::format("<xs:attribute name=\"{}\"/>", name);
  return fmt::format(
      "<xs:attribute name=\"{}\"><xs:simpleType><xs:union memberTypes=\"xs:string\"><xs:simpleType><xs:restriction "
      "base=\"xs:string\">{}</xs:restriction></xs:simpleType></xs:union></xs:simpleType></xs:attribute>",
      name, type);
}

std::string element(const std::string& name, const std::string& documented, const std::string& attributes) {
  return fmt::format(
      "  <xs:element name=\"{}\">{}<xs:complexType mixed=\"true\"><xs:sequence><xs:any processContents=\"lax\" "
      "minOccurs=\"0\" maxOccurs=\"unbounded\"/></xs:sequence>{}<xs:anyAttribute processContents=\"skip\"/>"
      "</xs:complexType></xs:element>\n",
      name, documented, attributes);
}

// One declaration for all rows of a name: a declaration at the top has no place in the recipe.
std::string element_of(const std::vector<const Row*>& rows) {
  std::string text;
  std::vector<std::string> names;
  std::string attributes;
  for (const Row* row : rows) {
    std::string words = row->meaning;
    if (*row->unit != '\0') words += std::string(" [") + row->unit + "]";
    if (const std::string allowed = allowed_words(*row); !allowed.empty()) words += ": " + allowed;
    if (text.find(words) == std::string::npos) text += (text.empty() ? "" : ". Or: ") + words;
    for (const char* name : attributes_of(*row)) {
      bool known = false;
      for (const std::string& other : names) known = known || other == name;
      if (known) continue;
      names.emplace_back(name);
      // Two rows of one name with different keywords: none is offered.
      bool same_keywords = true;
      for (const Row* other : rows) same_keywords = same_keywords && other->keywords.data() == row->keywords.data();
      attributes += same_keywords ? attribute(*row, name) : fmt::format("<xs:attribute name=\"{}\"/>", name);
    }
  }
  return element(rows.front()->name, documentation(text), attributes);
}

}  // namespace

std::string xsd_text() {
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- The recipe of VorlenSolver. Written by write_recipe_files from src/recipe/recipe_table.cpp: change it "
      "there. "
      "-->\n"
      "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">\n";
  std::vector<std::string_view> done;
  for (const Row& row : rows()) {
    bool known = row.kind == Kind::stage_list || row.section == Section::document;
    for (std::string_view name : done) known = known || name == row.name;
    if (known) continue;
    done.emplace_back(row.name);
    std::vector<const Row*> same_name;
    for (const Row& other : rows()) {
      if (std::string_view(other.name) == row.name) same_name.push_back(&other);
    }
    out += element_of(same_name);
  }
  // The root is the one declaration whose name does not occur among the others, but a validator takes any of them as a
  // root: NonstSurfChem stands for the recipe.
  out += element("NonstSurfChem", documentation("a recipe"), "");
  for (const char* prefix : {"pre_stage_", "stage_", "post_stage_"}) {
    for (int n = 1; n <= SCHEMA_STAGES; ++n) out += element(fmt::format("{}{}", prefix, n), "", "");
  }
  for (int n = 1; n <= SCHEMA_STAGES; ++n) {
    for (int m = 1; m <= SCHEMA_SUB_STAGES; ++m) out += element(fmt::format("stage_{}_{}", n, m), "", "");
  }
  return out + "</xs:schema>\n";
}

}  // namespace recipe
