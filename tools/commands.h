// The subcommands of the tool. Each is defined in a file command_NAME.cpp and added in vorlen.cpp.
#pragma once

#include <CLI/CLI.hpp>

#include "terminal/exit_status.h"

// Adds a subcommand to app. The subcommand's callback writes its exit status to status, which outlives app.
void add_run_command(CLI::App& app, int& status);
void add_show_command(CLI::App& app, int& status);
void add_diff_command(CLI::App& app, int& status);
void add_live_command(CLI::App& app, int& status);
void add_new_command(CLI::App& app, int& status);
void add_explain_command(CLI::App& app, int& status);
void add_check_command(CLI::App& app, int& status);
void add_timeline_command(CLI::App& app, int& status);
