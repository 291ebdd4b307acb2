// vorlen explain TEXT: what a message means and what to do about it.
#include <fmt/color.h>
#include <fmt/core.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "check/recipe_check.h"
#include "check/recipe_words.h"
#include "commands.h"
#include "help/embedded_texts.h"
#include "help/message_catalogue.h"
#include "terminal/output.h"
#include "terminal/terminal.h"

namespace {

constexpr std::size_t CLOSEST_COUNT = 3;
constexpr std::size_t MOST_WITH_WORDS = 5;   // more messages than these do not answer a question
constexpr std::size_t LONGEST_TEXT = 65536;  // bytes; a message is never longer

std::string entry_text(const MessageEntry& entry, bool colour) {
  std::string text = colour ? fmt::format(fmt::emphasis::bold, "{}", entry.pattern) : entry.pattern;
  text += '\n';
  text += fmt::format("  Section:     {}\n", entry.section);
  if (!entry.meaning.empty()) text += fmt::format("  Meaning:     {}\n", entry.meaning);
  if (!entry.what_to_do.empty()) text += fmt::format("  What to do:  {}\n", entry.what_to_do);
  return text;
}

std::string entries_text(const std::vector<const MessageEntry*>& entries) {
  std::string text;
  for (const MessageEntry* entry : entries) {
    if (!text.empty()) text += '\n';
    text += entry_text(*entry, use_colour(stdout));
  }
  return text;
}

// The kinds of warnings of vorlen check whose texts occur in text, or whose name is text.
std::vector<MessageEntry> warning_entries(const std::string& text) {
  std::vector<MessageEntry> entries;
  const auto add = [&](const recipe::WarningKind& kind, std::string pattern) {
    const std::string meaning = recipe::plain(kind.meaning);
    entries.push_back({fmt::format("Warnings of \"vorlen check\", kind {}", kind.name), std::move(pattern), meaning,
                       "\"vorlen check RECIPE\" shows place and hint; see \"Kinds of warnings\" in "
                       "docs/checking-a-recipe.md"});
  };
  for (const recipe::WarningKind& kind : recipe::warning_kinds()) {
    if (text == kind.name) {
      entries.clear();
      add(kind, kind.name);
      return entries;
    }
    std::istringstream texts(kind.texts);
    for (std::string pattern; std::getline(texts, pattern, '|');) add(kind, pattern);
  }
  std::vector<MessageEntry> found;
  for (const MessageEntry* entry : matching_entries(entries, text)) found.push_back(*entry);
  return found;
}

// given: null to read it from standard input.
int explain(const std::string* given) {
  std::string text(LONGEST_TEXT, '\0');
  if (given != nullptr) {
    text = *given;
  } else {
    std::cin.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(std::cin.gcount()));
  }
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return fail("no text to explain", EXIT_USAGE);
  text.resize(std::min(text.size(), LONGEST_TEXT));
  const std::vector<MessageEntry> entries = read_message_page(embedded_messages());
  const std::vector<const MessageEntry*> found = matching_entries(entries, text);
  if (!found.empty()) return print_out(entries_text(found));
  const std::vector<MessageEntry> warnings = warning_entries(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
  if (!warnings.empty()) {
    std::vector<const MessageEntry*> shown;
    shown.reserve(warnings.size());
    for (const MessageEntry& entry : warnings) shown.push_back(&entry);
    return print_out(entries_text(shown));
  }
  const std::vector<const MessageEntry*> with_words = entries_with_words(entries, text);
  if (!with_words.empty() && with_words.size() <= MOST_WITH_WORDS) return print_out(entries_text(with_words));
  fail("no known message matches. The most similar are:");
  print_out(entries_text(closest_entries(entries, text, CLOSEST_COUNT)));
  return EXIT_FAILED;
}

}  // namespace

void add_explain_command(CLI::App& app, int& status) {
  const auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* command = app.add_subcommand("explain", "Explain what a message means and what to do about it");
  const CLI::Option* option = command
                                  ->add_option("TEXT", *words,
                                               "The message, with its values (default: read from standard input);\n"
                                               "several words need no quotes")
                                  ->type_name("");
  command->footer(
      "A few words of the message are enough. Warnings of \"vorlen check\" and their kinds are\n"
      "explained, too. If the message is not known, the most similar ones are shown.\n"
      "Exit status: 0 explained, 1 not known.\n\n"
      "Examples:\n"
      "  vorlen explain Step size has become too small\n"
      "  vorlen run recipe.xml 2>&1 | vorlen explain");
  command->callback([words, option, &status] {
    const std::string text = CLI::detail::join(*words, " ");
    status = explain(option->count() > 0 ? &text : nullptr);
  });
}
