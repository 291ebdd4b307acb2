// The buffer that receives the text of a failure.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "api/vorlen_solver.h"

namespace vorlen {

// Copies text and its terminating zero into buffer, an array of VORLEN_ERROR_BUFFER_SIZE bytes. A longer text is cut.
// Bytes after the zero are not touched. Does nothing if buffer is null.
inline void copy_error_text(const char* text, char* buffer) {
  if (buffer == nullptr) return;
  const std::size_t length = std::min<std::size_t>(std::strlen(text), VORLEN_ERROR_BUFFER_SIZE - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
}

}  // namespace vorlen
