// The manual page and the words for shell completion, both generated from the definition of the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The manual page vorlen(1) in the man macros of roff.
std::string manual_page(CLI::App& app, const std::string& version);

// Completions for the last of words, which may be empty, after the others. One word per line; a line that begins with
// ':' is a kind of file instead: ":recipes", ":results", ":files" or ":directories".
std::string completions(CLI::App& app, const std::vector<std::string>& words);
