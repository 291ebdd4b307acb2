// The schema in RELAX NG. It refuses no recipe that the library accepts, so it says what the reader does, no more: of
// elements with one name the first counts and the others may hold anything, the order is free, what is not known may
// stand anywhere, numbers may have something behind them, and a stage is looked at when the number of stages says that
// it is read. RELAX NG can't look from one part of the recipe to another: the children of a stage that depend on the
// models of stress and transport are offered, but not held to anything.
#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <string_view>
#include <vector>

#include "check/recipe_files.h"
#include "check/recipe_words.h"
#include "schema/schema_text.h"

namespace recipe {

namespace {

// ---- Patterns of values, as regular expressions of XML Schema

// The word in any case.
std::string any_case(std::string_view word) {
  std::string out;
  for (char c : word) {
    const auto letter = static_cast<unsigned char>(c);
    if (std::isalpha(letter) != 0) {
      out += fmt::format("[{}{}]", static_cast<char>(std::toupper(letter)), static_cast<char>(std::tolower(letter)));
    } else {
      out += c;
    }
  }
  return out;
}

std::string pattern(const std::string& expression) {
  return "<data type=\"string\"><param name=\"pattern\">" + escaped(expression) + "</param></data>";
}

std::string words_pattern(std::span<const vorlen::Keyword> words) {
  std::string expression;
  for (const vorlen::Keyword& word : words) expression += (expression.empty() ? "" : "|") + any_case(word.text);
  return pattern(expression);
}

// What "%lf" takes although it is no plain number: something behind it, a not-a-number, infinity, hexadecimal digits.
std::string odd_number_pattern() {
  const std::string anything = "[\\s\\S]*";
  const std::string start = "\\s*[+\\-]?";
  const std::string mantissa = "([0-9]+(\\.[0-9]*)?|\\.[0-9]+)";
  const std::string exponent = "[eE][+\\-]?[0-9]+";
  const std::vector<std::string> forms = {
      "([nN][aA][nN]|[iI][nN][fF])" + anything,
      mantissa + "(" + exponent + ")?\\s+\\S" + anything,
      "[0-9]+[^0-9.eE\\s]" + anything,
      "([0-9]+\\.[0-9]*|\\.[0-9]+)[^0-9eE\\s]" + anything,
      mantissa + "[eE]([^0-9+\\-]" + anything + "|[+\\-]([^0-9]" + anything + ")?)?",
      mantissa + exponent + "[^0-9\\s]" + anything,
  };
  std::string expression;
  for (const std::string& form : forms) expression += (expression.empty() ? "(" : "|") + form;
  return start + expression + ")";
}

std::string real_type(const Limits& limits) {
  std::string facets;
  const auto add = [&facets](const char* name, double value) {
    facets += fmt::format("<param name=\"{}\">{}</param>", name, number_words(value));
  };
  if (limits.low) add(limits.low_inclusive ? "minInclusive" : "minExclusive", *limits.low);
  if (limits.high) add(limits.high_inclusive ? "maxInclusive" : "maxExclusive", *limits.high);
  return "<choice><data type=\"double\">" + facets + "</data><ref name=\"odd-number\"/></choice>";
}

// What "%d" takes as this number.
std::string count_pattern(int number) {
  return pattern(fmt::format("\\s*[+{}]?0*{}([^0-9][\\s\\S]*)?", number == 0 ? "\\-" : "", number));
}
// What "%d" takes as a number above that, which ends in 9 or 0 and has two digits at most, up to 9999.
std::string count_above_pattern(int number) {
  std::string expression = "[1-9][0-9]{2,3}";
  const int tens = number / 10;
  if (number % 10 == 0) expression += fmt::format("|{}[1-9]", tens);
  expression += fmt::format("|[{}-9][0-9]", tens + 1);
  return pattern("\\s*\\+?0*(" + expression + ")([^0-9][\\s\\S]*)?");
}

std::string value_type(const Row& row) {
  switch (row.kind) {
    case Kind::keyword:
      return words_pattern(row.keywords);
    case Kind::text:
      return "<text/>";
    case Kind::integer:
      return pattern("\\s*\\+?0*[1-9][0-9]*([^0-9][\\s\\S]*)?");
    default:
      return real_type(row.limits);
  }
}

// ---- Pieces of the grammar

std::string refer(const std::string& name) { return "<ref name=\"" + name + "\"/>"; }
std::string define(const std::string& name, const std::string& pattern) {
  return "  <define name=\"" + name + "\">" + pattern + "</define>\n";
}
std::string interleave(const std::string& patterns) { return "<interleave>" + patterns + "</interleave>"; }
std::string choice(const std::string& patterns) { return "<choice>" + patterns + "</choice>"; }
std::string many(const std::string& pattern) { return "<zeroOrMore>" + pattern + "</zeroOrMore>"; }

// Further elements of that name, which are not read.
std::string any_of_name(const std::string& name) {
  return many("<element name=\"" + name + "\">" + refer("anything") + "</element>");
}

// The first element of a name is held to the pattern.
std::string first(const std::string& name, const std::string& strict) {
  return "<group>" + strict + any_of_name(name) + "</group>";
}

// Offered, but not held to anything.
std::string offered(const std::string& name, const std::string& strict) {
  return many(choice(strict + "<element name=\"" + name + "\">" + refer("anything") + "</element>"));
}

std::string documentation(const Row& row) {
  std::string text = row.meaning;
  if (*row.unit != '\0') text += std::string(" [") + row.unit + "]";
  if (const std::string allowed = allowed_words(row); !allowed.empty()) text += ": " + allowed;
  return "<a:documentation>" + escaped(plain(text)) + "</a:documentation>";
}

// An element with attributes of these types.
std::string value_element(const Row& row, const std::string& type) {
  std::string attributes;
  std::string except;
  for (const char* name : attributes_of(row)) {
    attributes += fmt::format("<attribute name=\"{}\">{}</attribute>", name, type);
    except += fmt::format("<name>{}</name>", name);
  }
  return fmt::format("<element name=\"{}\">{}{}{}{}</element>", row.name, documentation(row), attributes,
                     many("<attribute><anyName><except>" + except + "</except></anyName></attribute>"),
                     refer("content"));
}
std::string value_element(const Row& row) { return value_element(row, value_type(row)); }

// Elements with names that are not in the list, and text.
std::string others(const std::vector<std::string>& known) {
  std::string except;
  for (const std::string& name : known) except += "<name>" + name + "</name>";
  return "<text/>" +
         many("<element><anyName><except>" + except + "</except></anyName>" + refer("anything") + "</element>");
}

std::string container(const std::string& name, const std::string& documented, const std::string& content) {
  return "<element name=\"" + name + "\">" + documented + refer("attributes") + content + "</element>";
}

std::string children_of(Section section);

// An element that is always read with its parent.
std::string strict(const Row& row) {
  if (row.kind == Kind::container) return container(row.name, documentation(row), children_of(row.children));
  return value_element(row);
}

std::vector<std::string> names_of(Section section) {
  std::vector<std::string> names;
  for (const Row* row : rows_of(section)) names.emplace_back(row->name);
  return names;
}

// The children of a section: those that are always read strictly, the rest as special says. special returns an empty
// text for a row that it leaves to the rule.
std::string children(Section section, const std::function<std::string(const Row&)>& special) {
  std::string patterns;
  for (const Row* row : rows_of(section)) {
    const std::string own = special(*row);
    if (!own.empty()) {
      patterns += own;
    } else if (row->condition == Condition::always || row->condition == Condition::name_of_layer) {
      patterns += first(row->name, strict(*row));
    } else if (row->condition == Condition::optional) {
      patterns += "<optional>" + first(row->name, strict(*row)) + "</optional>";
    } else {
      patterns += offered(row->name, strict(*row));
    }
  }
  return interleave(patterns + others(names_of(section)));
}

// Two forms of a section: the keyword row has one of the words and the conditional rows are read, or another and they
// are not.
std::string by_keyword(Section section, const char* keyword_name, const std::string& type_if_read,
                       const std::string& type_otherwise, Condition condition) {
  std::string forms;
  for (const bool read : {true, false}) {
    forms += children(section, [&](const Row& row) -> std::string {
      if (std::string_view(row.name) == keyword_name) {
        return first(row.name, value_element(row, read ? type_if_read : type_otherwise));
      }
      if (row.condition != condition) return "";
      return read ? first(row.name, strict(row)) : offered(row.name, strict(row));
    });
  }
  return choice(forms);
}

std::string children_of(Section section) {
  const auto word = [](const char* text) { return pattern(any_case(text)); };
  switch (section) {
    case Section::stress:
      return by_keyword(section, "model", word("V_dislocation"),
                        "<data type=\"string\"><except>" + word("V_dislocation") + "</except></data>",
                        Condition::stress_on);
    case Section::transport:
      return by_keyword(
          section, "model", word("thick_GaN"),
          pattern(any_case("fixed_thickness") + "|" + any_case("InGaN_GR") + "|" + any_case("InGaN_GR_X")),
          Condition::thick_GaN);
    case Section::parameters:
      return by_keyword(section, "reactor", word("TDR"), pattern(any_case("CCS") + "|" + any_case("HFR")),
                        Condition::thick_GaN_TDR);
    case Section::layer_dislocations:
    case Section::stage_dislocations:
      return by_keyword(section, "disl_model", word("given"), word("inherited"), Condition::given);
    default:
      return children(section, [](const Row&) { return std::string(); });
  }
}

// A list of stages: as many as its number says are read. stage_pattern gives the element of a number.
struct List {
  std::string name;    // of the definitions
  std::string prefix;  // of the stages' names
  int least;           // number of stages
  int most;            // stages that the schema names
  const Row* count;
  std::function<std::string(int)> stage_pattern;
};

// The number of stages in a list, held to a value; its definition is shared by all lists of its name.
std::string count_name(const Row& row, const char* above, int number) {
  return fmt::format("{}.{}{}", row.name, above, number);
}

std::string count_definitions(const Row& row, std::initializer_list<int> bounds) {
  std::string out;
  const int most = std::max(bounds);
  for (int n = 0; n <= most; ++n) {
    out += define(count_name(row, "", n), first(row.name, value_element(row, count_pattern(n))));
  }
  for (int bound : bounds) {
    out += define(count_name(row, "above.", bound), first(row.name, value_element(row, count_above_pattern(bound))));
  }
  return out;
}

// Definitions for a list; the definition NAME.stages is the number with the stages.
std::string list_definitions(const List& list) {
  const auto stage_name = [&list](int number) { return list.prefix + std::to_string(number); };
  std::string out;
  // NAME.read.N: the first N stages, as they are read. NAME.unread.N: those from N on, whatever they hold.
  out += define(list.name + ".read.0", "<empty/>");
  for (int n = 1; n <= list.most; ++n) {
    const std::string stage = first(stage_name(n), list.stage_pattern(n));
    out += define(fmt::format("{}.read.{}", list.name, n),
                  n == 1 ? stage : interleave(refer(fmt::format("{}.read.{}", list.name, n - 1)) + stage));
  }
  out += define(fmt::format("{}.unread.{}", list.name, list.most + 1), "<empty/>");
  for (int n = list.most; n >= list.least + 1; --n) {
    out += define(fmt::format("{}.unread.{}", list.name, n),
                  interleave(any_of_name(stage_name(n)) + refer(fmt::format("{}.unread.{}", list.name, n + 1))));
  }
  std::string forms;
  for (int n = list.least; n <= list.most + 1; ++n) {
    const int read = n > list.most ? list.most : n;
    forms += interleave(refer(count_name(*list.count, n > list.most ? "above." : "", read)) +
                        refer(fmt::format("{}.read.{}", list.name, read)) +
                        refer(fmt::format("{}.unread.{}", list.name, read + 1)));
  }
  return out + define(list.name + ".stages", choice(forms));
}

// The children of a list: the stages with their number, and the rest.
std::string list_children(Section section, const List& list) {
  std::vector<std::string> known;
  std::string patterns = refer(list.name + ".stages");
  for (const Row* row : rows_of(section)) {
    if (row->kind == Kind::stage_list) continue;
    known.emplace_back(row->name);
    if (row == list.count) continue;
    const bool is_type = std::string_view(row->name) == "type";
    patterns += first(row->name, is_type ? value_element(*row, pattern(any_case("periodic"))) : strict(*row));
  }
  for (int n = 1; n <= list.most; ++n) known.push_back(list.prefix + std::to_string(n));
  return interleave(patterns + others(known));
}

std::string single_stage_children() {
  return children(Section::stage, [](const Row& row) -> std::string {
    if (std::string_view(row.name) != "type") return "";
    return "<optional>" + first(row.name, value_element(row, pattern(any_case("single")))) + "</optional>";
  });
}

}  // namespace

std::string rng_text() {
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!-- The recipe of VorlenSolver. Written by write_recipe_files from src/recipe/recipe_table.cpp: change it "
      "there. "
      "-->\n"
      "<grammar xmlns=\"http://relaxng.org/ns/structure/1.0\"\n"
      "         xmlns:a=\"http://relaxng.org/ns/compatibility/annotations/1.0\"\n"
      "         datatypeLibrary=\"http://www.w3.org/2001/XMLSchema-datatypes\">\n";
  const std::string any_attribute = "<attribute><anyName/></attribute>";
  const std::string any_element = "<element><anyName/>" + refer("anything") + "</element>";
  out += define("anything", many(choice("<text/>" + any_attribute + any_element)));
  out += define("attributes", many(any_attribute));
  out += define("content", many(choice("<text/>" + any_element)));
  out += define("odd-number", pattern(odd_number_pattern()));

  const auto list_row = [](Section section, const char* name) { return find_row(section, name); };
  const auto layer_element = [](const std::string& prefix) {
    return [prefix](int n) { return container(prefix + std::to_string(n), "", refer("layer")); };
  };
  const List pre = {"pre",
                    "pre_stage_",
                    0,
                    SCHEMA_LAYERS,
                    list_row(Section::pre_stages, "n_pre_stages"),
                    layer_element("pre_stage_")};
  const List post = {"post",
                     "post_stage_",
                     0,
                     SCHEMA_LAYERS,
                     list_row(Section::post_stages, "n_post_stages"),
                     layer_element("post_stage_")};
  const List active = {"active", "stage_", 1, SCHEMA_STAGES, list_row(Section::process_stages, "n_stages"), [](int n) {
                         return container(fmt::format("stage_{}", n), "",
                                          choice(refer("single") + refer(fmt::format("periodic.{}", n))));
                       }};
  out += count_definitions(*pre.count, {SCHEMA_LAYERS}) + count_definitions(*post.count, {SCHEMA_LAYERS});
  out += count_definitions(*active.count, {SCHEMA_STAGES, SCHEMA_SUB_STAGES});
  out += define("layer", children_of(Section::layer));
  out += define("single", single_stage_children());
  for (int n = 1; n <= SCHEMA_STAGES; ++n) {
    const std::string prefix = fmt::format("stage_{}_", n);
    const List periodic = {fmt::format("periodic.{}", n),
                           prefix,
                           1,
                           SCHEMA_SUB_STAGES,
                           list_row(Section::periodic, "n_stages"),
                           [prefix](int m) { return container(prefix + std::to_string(m), "", refer("single")); }};
    out += list_definitions(periodic);
    out += define(periodic.name, list_children(Section::periodic, periodic));
  }
  for (const List* list : {&pre, &active, &post}) out += list_definitions(*list);

  const std::string root = children(Section::root, [&](const Row& row) -> std::string {
    for (const auto& [section, list] :
         {std::pair{Section::pre_stages, &pre}, std::pair{Section::process_stages, &active},
          std::pair{Section::post_stages, &post}}) {
      if (row.children == section) {
        return first(row.name, container(row.name, documentation(row), list_children(section, *list)));
      }
    }
    return "";
  });
  out += "  <start>" + container("NonstSurfChem", "", root) + "</start>\n";
  return out + "</grammar>\n";
}

}  // namespace recipe
