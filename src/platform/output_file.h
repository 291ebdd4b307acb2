// A file that is written from start to end, byte for byte and without a buffer.
#pragma once

#include <cstddef>

namespace vorlen {

// Creates or empties the file. Returns its descriptor; if that is negative, the reason is in errno.
int open_output_file(const char* path);

// Writes all bytes. False: the file can't be written, which may have happened after some of them.
bool write_output_file(int file, const char* data, std::size_t size);

void close_output_file(int file);

}  // namespace vorlen
