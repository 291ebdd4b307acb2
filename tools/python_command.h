// The commands that are implemented in the Python package vorlen.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

// Adds them to app for help and completion only: forward_to_python() receives their arguments unparsed.
void add_python_commands(CLI::App& app);

bool is_python_command(const std::string& word);

// Replaces the process by "python3 -m vorlen ARGUMENTS...". arguments is terminated by a null. Returns only if no
// suitable interpreter is found: EXIT_FAILED, after a message on stderr.
int forward_to_python(char** arguments);
