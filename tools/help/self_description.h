// The manual page, the words for shell completion and the suggestions for misspelt words, all generated from the
// definition of the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The manual page vorlen(1) in the man macros of roff.
std::string manual_page(CLI::App& app, const std::string& version);

// Completions for the last of words, which may be empty, after the others. One word per line; a line that begins with
// ':' is a kind of file instead: ":recipes", ":results", ":files" or ":directories".
std::string completions(CLI::App& app, const std::vector<std::string>& words);

// The values that an option takes, in the order of its help; empty if it is not one of a few words.
std::vector<std::string> option_choices(const CLI::Option& option);

// After a command line that was not understood: one line for each option or value that looks misspelt.
std::string suggestions(const CLI::App& app);

// The name of the command that word was meant to be; empty if none is close.
std::string nearest_command(const CLI::App& app, const std::string& word);
