// Completions from the definition of the command line; the kind of file follows from the name of the argument.
#include "help/self_description.h"

namespace {

// Completions for a value called name ("RECIPE", "DIR").
std::string file_completions(const std::string& name) {
  if (name.find("RECIPE") != std::string::npos) return ":recipes\n";
  if (name.find("DIR") != std::string::npos) return ":directories\n";
  if (name.find("RESULT") != std::string::npos || name == "A" || name == "B") return ":results\n";
  if (name.find("FILE") != std::string::npos) return ":files\n";
  return "";
}

std::string value_completions(const CLI::Option& option) {
  std::string words;
  for (const std::string& choice : option_choices(option)) words += choice + '\n';
  return words.empty() ? file_completions(option.get_type_name()) : words;
}

// The option called word, if it takes a value; otherwise null.
const CLI::Option* option_with_value(CLI::App& command, const std::string& word) {
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional() && option->check_name(word) && option->get_type_size() != 0) return option;
  }
  return nullptr;
}

std::string option_words(CLI::App& command) {
  std::string words;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) words += "--" + name + '\n';
    for (const std::string& name : option->get_snames()) words += "-" + name + '\n';
  }
  return words;
}

// Completions for the positional after `given` others; the last one takes all that follow.
std::string positional_completions(CLI::App& command, std::size_t given) {
  const CLI::Option* found = nullptr;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    if (found != nullptr && found->get_expected_max() > 1) break;
    found = option;
    if (given-- == 0) break;
  }
  if (found == nullptr) return ":files\n";
  const std::string by_name = file_completions(found->get_name(true));
  return by_name.empty() ? value_completions(*found) : by_name;
}

}  // namespace

std::string completions(CLI::App& app, const std::vector<std::string>& words) {
  if (words.empty()) return "";
  const std::string& current = words.back();
  if (words.size() == 1) {
    if (!current.empty() && current.front() == '-') return option_words(app);
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
      names += command->get_name() + '\n';
    }
    return names;
  }
  const std::vector<CLI::App*> named =
      app.get_subcommands([&words](const CLI::App* each) { return each->get_name() == words.front(); });
  if (named.empty()) return "";
  CLI::App* command = named.front();
  if (words.size() > 2) {
    const CLI::Option* option = option_with_value(*command, words[words.size() - 2]);
    if (option != nullptr) return value_completions(*option);
  }
  if (!current.empty() && current.front() == '-') return option_words(*command);
  std::size_t given = 0;
  for (std::size_t i = 1; i + 1 < words.size(); ++i) {
    const bool is_option = !words[i].empty() && words[i].front() == '-';
    if (!is_option && option_with_value(*command, words[i - 1]) == nullptr) ++given;
  }
  return positional_completions(*command, given);
}
