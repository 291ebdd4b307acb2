// Output of all commands: data on stdout, messages on stderr. Control characters in messages, such as those of file
// names, become blanks; line breaks and tabs remain.
#pragma once

#include <string>

// Writes "vorlen: TEXT" to stderr and returns status.
int fail(const std::string& text, int status);
int fail(const std::string& text);  // EXIT_FAILED

// Writes "vorlen: warning: TEXT" to stderr, in red if colours are used.
void warn(const std::string& text);

// Writes text to stdout. Returns EXIT_OK, or EXIT_FAILED after a message if that fails.
int print_out(const std::string& text);
