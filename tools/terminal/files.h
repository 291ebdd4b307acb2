// Files that appear whole or not at all, and their fingerprints.
#pragma once

#include <string>

// A new name for a temporary file in the folder of path (symbolic links are followed), so that the finished file can be
// renamed to path. Every call returns another name.
std::string temporary_beside(const std::string& path);

// Renames the temporary file to path and gives it the permissions of the file it replaces. Returns false, with a
// message in error, on failure.
bool put_in_place(const std::string& temporary, const std::string& path, std::string& error);

// Writes content to path through a temporary file. On failure returns false, with a message in error, and leaves an
// existing file unchanged.
bool write_file(const std::string& path, const std::string& content, std::string& error);

// Removes path if it exists.
void remove_file(const std::string& path);

// SHA-256 of a regular file in hexadecimal digits; empty if it cannot be read.
std::string sha256_of_file(const std::string& path);
