// What the tool tells other programs about its own command line, taken from its definition, so that neither can drift:
// the manual page and the words for completion.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// The manual page vorlen(1) in the man macros of roff.
std::string manual_page(CLI::App& app, const std::string& version);

// What may stand in place of the last of words, which may be empty; the others stand before it. One word a line; a line
// that begins with ':' names a kind of files instead: ":recipes", ":results", ":files" or ":directories".
std::string completions(CLI::App& app, const std::vector<std::string>& words);
