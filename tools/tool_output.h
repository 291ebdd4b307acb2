// How subcommands hand over what they have to say: data to stdout as a whole, texts about failures to stderr.
#pragma once

#include <string>

// Puts text on stdout. EXIT_OK, or EXIT_FAILED with a text on stderr when it could not be written.
int print_data(const std::string& text);

// Writes "vorlen: TEXT" to stderr. EXIT_FAILED.
int report_failure(const std::string& text);

// text on one line: control characters become blanks.
std::string one_line(std::string text);

// Columns that text takes on a terminal: its characters in UTF-8.
std::size_t columns_of(const std::string& text);
