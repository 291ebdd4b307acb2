// The buffer in which a host receives the text of a failure.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "api/vorlen_solver.h"

namespace vorlen {

// Copies text, cut to what the buffer of VORLEN_ERROR_BUFFER_SIZE bytes holds, with a terminating zero; the bytes
// behind it stay as they are. buffer may be null.
inline void copy_error_text(const char* text, char* buffer) {
  if (buffer == nullptr) return;
  const std::size_t length = std::min<std::size_t>(std::strlen(text), VORLEN_ERROR_BUFFER_SIZE - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
}

}  // namespace vorlen
