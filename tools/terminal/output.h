// What all commands print in the same way: data on stdout, texts about failures on stderr.
#pragma once

#include <string>

// Puts "vorlen: TEXT" on stderr and returns status.
int fail(const std::string& text, int status);
int fail(const std::string& text);  // EXIT_FAILED

// Puts "vorlen: warning: TEXT" on stderr, in red where there are colours.
void warn(const std::string& text);

// Puts text on stdout as a whole. Returns EXIT_OK, or says what is wrong and returns EXIT_FAILED.
int print_out(const std::string& text);
