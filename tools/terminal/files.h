// Files that appear whole or not at all, and their fingerprints.
#pragma once

#include <string>

// A name for a temporary file in the folder of path (of what it points to, if it is a symbolic link), so that a rename
// puts the finished file in place. Each call gives another name.
std::string temporary_beside(const std::string& path);

// Puts the temporary file in place of path, with the permissions of the file that was there. Returns false with a text
// in error.
bool put_in_place(const std::string& temporary, const std::string& path, std::string& error);

// Writes content to path by way of a temporary file. Returns false with a text in error; what was there is there still.
bool write_file(const std::string& path, const std::string& content, std::string& error);

// Removes path, if it is there.
void remove_file(const std::string& path);

// SHA-256 of a regular file's content in hexadecimal digits; empty when it can't be read.
std::string sha256_of_file(const std::string& path);
