// The subcommands of the tool. Each stands in a file of its own, command_NAME.cpp, and is entered in vorlen.cpp.
#pragma once

#include <CLI/CLI.hpp>

// Exit statuses of the tool.
constexpr int EXIT_OK = 0;
constexpr int EXIT_FAILED = 1;  // the work could not be done; a text on stderr says why
constexpr int EXIT_USAGE = 2;   // the command line was not understood

// Adds a subcommand to app. The subcommand's callback writes its exit status to status, which outlives app.
void add_run_command(CLI::App& app, int& status);
