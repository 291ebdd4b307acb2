// vorlen new KIND: a commented recipe to start from.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "help/embedded_texts.h"
#include "platform/files.h"
#include "terminal/files.h"
#include "terminal/option_values.h"
#include "terminal/output.h"
#include "terminal/table.h"
#include "terminal/terminal.h"

namespace {

struct NewOptions {
  std::string kind;  // empty: list the kinds
  std::string file;  // empty: KIND.xml; "-": stdout
  bool force = false;
};

// The first sentence of the comment at the start of a recipe, on one line.
std::string first_sentence(const std::string& recipe) {
  const std::string opening = "<!--";
  const std::size_t begin = recipe.find(opening);
  if (begin == std::string::npos) return "";
  std::string sentence;
  for (std::size_t i = begin + opening.size(); i < recipe.size(); ++i) {
    const bool blank = recipe[i] == ' ' || recipe[i] == '\n';
    if (blank && !sentence.empty() && sentence.back() == '.') break;
    if (!blank) {
      sentence += recipe[i];
    } else if (!sentence.empty() && sentence.back() != ' ') {
      sentence += ' ';
    }
  }
  return sentence;
}

int list_kinds() {
  Table table{{{"Kind", true}, {"Recipe", true}}, {}};
  for (const EmbeddedRecipe& recipe : embedded_recipes()) {
    table.rows.push_back({recipe.kind, first_sentence(recipe.text)});
  }
  return print_out(table_for_stdout(table));
}

int write_recipe(const NewOptions& options) {
  if (options.kind.empty()) return list_kinds();
  const std::vector<EmbeddedRecipe>& recipes = embedded_recipes();
  const auto recipe = std::find_if(recipes.begin(), recipes.end(),
                                   [&options](const EmbeddedRecipe& each) { return options.kind == each.kind; });
  if (options.file == "-") return print_out(recipe->text);
  const std::string file = options.file.empty() ? options.kind + ".xml" : options.file;
  std::string error = problem_with_output(file);
  if (!error.empty()) return fail(error);
  if (!options.force && platform::is_name_taken(file)) {
    return fail(file + " already exists (use --force to replace it)");
  }
  if (!write_file(file, recipe->text, error)) return fail(error);
  std::fputs(("vorlen: wrote " + file + "\n").c_str(), stderr);
  return EXIT_OK;
}

}  // namespace

void add_new_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<NewOptions>();
  std::vector<std::string> kinds;
  kinds.reserve(embedded_recipes().size());
  for (const EmbeddedRecipe& recipe : embedded_recipes()) kinds.emplace_back(recipe.kind);
  CLI::App* command = app.add_subcommand("new", "Write a commented recipe to start from");
  CLI::Option* kind = command->add_option("KIND", options->kind, "Kind of recipe; if omitted, the kinds are listed")
                          ->type_name("")
                          ->check(CLI::IsMember(kinds));
  command->add_option("-o,--output", options->file, "File to write (default: KIND.xml), or - for standard output")
      ->type_name("RECIPE")
      ->check(not_empty())
      ->needs(kind);
  command->add_flag("--force", options->force, "Replace an existing file")->needs(kind);
  command->footer("Example:\n  vorlen new ingan_gan_mqw -o wells.xml");
  command->callback([options, &status] { status = write_recipe(*options); });
}
