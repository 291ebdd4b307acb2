// The commands that are implemented in the Python package vorlen.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// Adds them to app for help and completion only: forward_to_python() receives their arguments unparsed.
void add_python_commands(CLI::App& app);

bool is_python_command(const std::string& word);

// Continues as "python3 -m vorlen ARGUMENTS...". Returns only if no suitable interpreter is found: EXIT_FAILED, after a
// message on stderr.
int forward_to_python(const std::vector<std::string>& arguments);
