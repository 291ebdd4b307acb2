// The commands that the Python package vorlen carries out.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

// Enters them in app, for help and completion. They are never parsed there: forward_to_python() gets their words.
void add_python_commands(CLI::App& app);

bool is_python_command(const std::string& word);

// Replaces the process by "python3 -m vorlen ARGUMENTS...". arguments ends with a null. Returns EXIT_FAILED after a
// text on stderr when there is no fitting interpreter.
int forward_to_python(char** arguments);
