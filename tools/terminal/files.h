// Files that appear whole or not at all, and their fingerprints. A file is written under a hidden name in the folder of
// its target and then renamed. Symbolic links are followed: the link stays, its target is replaced.
#pragma once

#include <string>

#include "platform/files.h"

// Why path can't be written; empty if it can be. Only regular files are replaced, and only with the right to write
// them.
std::string problem_with_output(const std::string& path);

// Renames the temporary file to path and gives it the permissions, and if possible the owner, of the file it replaces.
// On failure returns false, with a message in error, and leaves both files unchanged.
bool put_in_place(const std::string& temporary, const std::string& path, std::string& error);

// Writes content to path. On failure returns false, with a message in error, and leaves an existing file unchanged.
// Interruptions wait until the temporary file is gone.
bool write_file(const std::string& path, const std::string& content, std::string& error);

// The temporary file of a run with the result at path: .NAME.part in the folder of the result.
std::string part_path(const std::string& path);

// Creates the temporary file of a run, or empties the one that a killed run has left, and locks it. Returns the open
// file, whose lock ends when it is closed, or platform::NO_FILE with a message in error if another run has locked it or
// it can't be written.
platform::File lock_part(const std::string& path, std::string& error);

// True if a run with the result at path has locked its temporary file.
bool is_part_locked(const std::string& path);

// Renames the temporary file of a run with the result at path, so that the next run does not reuse it. Returns its
// name.
std::string set_aside(const std::string& temporary, const std::string& path);

// SHA-256 of a regular file in hexadecimal digits; empty if it cannot be read.
std::string sha256_of_file(const std::string& path);
