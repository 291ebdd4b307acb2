// Keywords of the recipe and their values, compared without regard to the case of the letters A to Z.
#pragma once

#include <cstdint>
#include <span>

namespace vorlen {

struct Keyword {
  const char* text;
  std::int32_t value;
};

// ASCII comparison, the same in every locale.
inline bool equal_ignoring_case(const char* a, const char* b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  for (; *a != '\0' && lower(*a) == lower(*b); ++a, ++b) {
  }
  return lower(*a) == lower(*b);
}

// Sets value to that of the keyword and returns true, or returns false and leaves value alone.
inline bool find_keyword(std::span<const Keyword> table, const char* text, std::int32_t& value) {
  for (const Keyword& keyword : table) {
    if (equal_ignoring_case(keyword.text, text)) {
      value = keyword.value;
      return true;
    }
  }
  return false;
}

}  // namespace vorlen
