// The command-line tool as a program of the system: its start, its arguments, its path, its environment.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform {

// Sets up character set and streams. Call it first in main.
void prepare_program();

// A file that the program opens must not get the number of a stream that the caller has closed: messages would be
// written to it. After this call such a stream can neither be read nor written, and a file that gets too large is an
// error of writing.
void protect_files();

// The arguments of main without the program's name, in UTF-8. Where no shell does it, a name with * or ? is replaced by
// those of the files that it fits.
std::vector<std::string> arguments_of(int argc, char** argv);

// The path of the program's file; empty if it is not known.
std::string own_path();

// The value of an environment variable.
std::optional<std::string> environment(const std::string& name);
void set_environment(const std::string& name, const std::string& value);

// What separates the folders of a search path such as PYTHONPATH.
char path_list_separator();

// How Python can be called, in order of preference.
std::vector<std::vector<std::string>> python_calls();

// How to get Python modules, for a message.
std::string ways_to_install(const std::vector<std::string>& modules);

std::string host_name();

}  // namespace platform
