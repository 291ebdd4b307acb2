// Turns an input of the fuzzer into a text for the parser: up to the first zero, with LF as line ends, followed by four
// zeros.
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
