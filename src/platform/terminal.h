// The terminal, or console, that a stream of the program may be connected to.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>

namespace platform {

bool is_terminal(std::FILE* stream);

// True if stream is a terminal that understands control sequences: colours, erasing a line.
bool has_control_sequences(std::FILE* stream);

// Columns of the terminal; 0 if stream is not a terminal, or one that does not know its size.
std::size_t terminal_width(std::FILE* stream);

// True if output is expected in UTF-8. On POSIX systems always false before prepare_program().
bool uses_utf8();

// The columns that a text takes on a terminal that shows UTF-8; nothing if it is not valid.
std::optional<std::size_t> utf8_width(const std::string& text);

}  // namespace platform
