// vorlen check RECIPE...: every problem of recipes, without running them.
#include <fmt/core.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "check/problem_json.h"
#include "check/recipe_check.h"
#include "check/recipe_words.h"
#include "commands.h"
#include "platform/terminal.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace {

using recipe::Problem;
using recipe::Severity;

struct CheckOptions {
  std::vector<std::string> recipes;
  std::string format = "text";
  bool strict = false;
  std::vector<std::string> allowed;  // kinds of warnings that are not reported
};

std::string counted(std::ptrdiff_t number, const std::string& word) {
  return fmt::format("{} {}{}", number, word, number == 1 ? "" : "s");
}

// The library ends some texts with a line break.
std::string text_on_one_line(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return printable(text);
}

void append_text(std::string& out, const recipe::CheckedFile& checked) {
  const auto shown = [](const std::string& text) {
    return platform::uses_utf8() ? printable(text) : with_ascii_units(printable(text));
  };
  const std::string file = printable(checked.file);
  for (const Problem& problem : checked.problems) {
    out += file;
    if (problem.line > 0) out += fmt::format(":{}:{}", problem.line, problem.column);
    out += fmt::format(": {}: {}\n", recipe::severity_word(problem.severity), shown(text_on_one_line(problem.text)));
    if (!problem.stage.empty()) {
      out += "    stage: " + problem.stage;
      if (!problem.stage_name.empty()) out += " \"" + printable(recipe::short_name(problem.stage_name)) + "\"";
      out += '\n';
    }
    if (!problem.hint.empty()) out += "    hint: " + shown(problem.hint) + "\n";
  }
  const std::ptrdiff_t errors = checked.count(Severity::error);
  const std::ptrdiff_t warnings = checked.count(Severity::warning);
  out += file + ": ";
  if (errors + warnings == 0) out += "no problems";
  if (errors > 0) out += counted(errors, "error");
  if (errors > 0 && warnings > 0) out += ", ";
  if (warnings > 0) out += counted(warnings, "warning");
  out += '\n';
}

int check_recipes(const CheckOptions& options) {
  std::vector<recipe::CheckedFile> files;
  for (const std::string& file : options.recipes) {
    recipe::CheckedFile checked{file, recipe::check_recipe(file)};
    std::erase_if(checked.problems, [&options](const Problem& problem) {
      return problem.severity == Severity::warning &&
             std::find(options.allowed.begin(), options.allowed.end(), problem.kind) != options.allowed.end();
    });
    files.push_back(std::move(checked));
  }
  std::string out;
  if (options.format == "json") {
    out = recipe::json_text(files);
  } else {
    for (const recipe::CheckedFile& checked : files) append_text(out, checked);
  }
  if (print_out(out) != EXIT_OK) return EXIT_FAILED;
  const bool clean = std::all_of(files.begin(), files.end(), [&options](const recipe::CheckedFile& checked) {
    return checked.count(Severity::error) == 0 && !(options.strict && checked.count(Severity::warning) > 0);
  });
  return clean ? EXIT_OK : EXIT_FAILED;
}

// A value of --allow.
CLI::Validator kind_of_warning() {
  const auto check = [](const std::string& text) -> std::string {
    if (text.empty()) return "must not be empty";
    const auto kinds = recipe::warning_kinds();
    const bool known =
        std::any_of(kinds.begin(), kinds.end(), [&text](const recipe::WarningKind& kind) { return text == kind.name; });
    return known ? "" : fmt::format("unknown kind of warning \"{}\"", printable(text));
  };
  return {check, ""};
}

std::string kinds_in_lines() {
  constexpr std::size_t WIDTH = 95;
  std::string lines;
  std::string line;
  for (const recipe::WarningKind& kind : recipe::warning_kinds()) {
    const std::string name = kind.name;
    if (!line.empty() && line.size() + 2 + name.size() > WIDTH) {
      lines += line + ",\n";
      line.clear();
    }
    line += (line.empty() ? "  " : ", ") + name;
  }
  return lines + line + "\n";
}

}  // namespace

void add_check_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* check = app.add_subcommand("check", "Check recipes and report every problem, without running them");
  check->add_option("RECIPE", options->recipes, "Recipes, XML files")->required()->check(not_empty());
  check->add_option("--format", options->format, "text, or json for programs (default: text)")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"text", "json"}));
  check->add_flag("--strict", options->strict, "Exit status 1 also for warnings");
  check->add_option("--allow", options->allowed, "Do not report warnings of this kind; may be repeated")
      ->type_name("KIND")
      ->check(kind_of_warning())
      ->allow_extra_args(false);
  check->footer("Kinds of warnings:\n" + kinds_in_lines() +
                "\nExit status: 0 without errors, 1 with errors, 2 for an invalid command line.\n"
                "\nExample:\n  vorlen check --strict recipes/*.xml");
  check->callback([options, &status] { status = check_recipes(*options); });
}
