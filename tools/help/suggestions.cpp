// What a misspelt command, option or value was probably meant to be.
#include <algorithm>
#include <string_view>

#include "check/nearest_word.h"
#include "check/recipe_check.h"
#include "help/self_description.h"

namespace {

std::string line(const std::string& word, const std::string& meant) {
  return meant.empty() ? "" : word + ": did you mean " + meant + "?\n";
}

// For a word that is not an option of the command: --ouput, --ouput=FILE or -ouput.
std::string nearest_option(const CLI::App& command, const std::string& word) {
  std::vector<std::string_view> names;
  for (const CLI::Option* option : command.get_options()) {
    names.insert(names.end(), option->get_lnames().begin(), option->get_lnames().end());
  }
  const std::string_view nearest = nearest_word(std::string_view(word).substr(word.find_first_not_of('-')), names);
  return nearest.empty() ? "" : "--" + std::string(nearest);
}

std::string option_suggestions(const CLI::App& command) {
  std::string lines;
  for (const std::string& argument : command.remaining()) {
    const std::string word = argument.substr(0, argument.find('='));
    const bool is_option = word.starts_with('-') && word.find_first_not_of('-') != std::string::npos;
    if (!is_option) continue;
    lines += line(word, nearest_option(command, word));
  }
  return lines;
}

std::string value_suggestions(const CLI::App& command) {
  std::string lines;
  for (const CLI::Option* option : command.get_options()) {
    const std::vector<std::string> choices = option_choices(*option);
    if (choices.empty()) continue;
    for (const std::string& value : option->results()) {
      if (std::find(choices.begin(), choices.end(), value) != choices.end()) continue;
      lines += line(value, std::string(nearest_word(value, {choices.begin(), choices.end()})));
    }
  }
  return lines;
}

}  // namespace

// CLI11 shows the values of an option after its name or instead of it, as "{a,b}".
std::vector<std::string> option_choices(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  if (name == "KIND") {  // of warnings; too many for one line of the help
    std::vector<std::string> kinds;
    for (const recipe::WarningKind& kind : recipe::warning_kinds()) kinds.emplace_back(kind.name);
    return kinds;
  }
  const std::size_t open = name.find('{');
  const std::size_t close = name.find('}', open == std::string::npos ? 0 : open);
  if (open == std::string::npos || close == std::string::npos) return {};
  return CLI::detail::split(name.substr(open + 1, close - open - 1), ',');
}

std::string suggestions(const CLI::App& app) {
  std::string lines = option_suggestions(app);
  for (const CLI::App* command : app.get_subcommands()) {
    lines += option_suggestions(*command) + value_suggestions(*command);
  }
  return lines;
}

std::string nearest_command(const CLI::App& app, const std::string& word) {
  std::vector<std::string_view> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names.emplace_back(command->get_name());
  }
  return std::string(nearest_word(word, names));
}
