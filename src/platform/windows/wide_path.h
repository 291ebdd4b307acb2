// Paths as Windows takes them.
#pragma once

#include <string>

namespace vorlen {

// A path in UTF-8 as UTF-16. Bytes that are not UTF-8 make it empty, which names no file. A path that is too long for
// the system's ordinary form, about 260 characters with the folders above it, gets the form without that limit.
std::wstring wide_path(const char* path);

}  // namespace vorlen
