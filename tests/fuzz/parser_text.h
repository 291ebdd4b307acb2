// An input of the fuzzer as a text that the parser may get: up to its first zero, with LF as line ends, and four zeros
// behind it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vorlen_fuzz {

inline std::string parser_text(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\0'));
  std::replace(text.begin(), text.end(), '\r', '\n');
  return text.append(4, '\0');
}

}  // namespace vorlen_fuzz
