// Reads a whole file.
#pragma once

#include <cstddef>
#include <string>

namespace vorlen {

enum class FileResult { read, unreadable, too_large, no_memory };

// Reads the whole file of at most size_max bytes. Anything but a regular file is unreadable and not opened, because
// opening a pipe or a device may have an effect, or block, and reading it may never end. (On Windows some devices show
// what they are only when they are open; they are not read.) A file that is shorter than its size is unreadable as
// well.
FileResult read_file(const char* path, std::size_t size_max, std::string& text);

}  // namespace vorlen
