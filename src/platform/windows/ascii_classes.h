// Included before each source of TinyXML: its classes of characters are those of ASCII in every locale. In some locales
// of Windows, bytes of UTF-8 would be blanks.
#pragma once

#include <cctype>
#include <iostream>
#include <sstream>
#include <string>

namespace vorlen_ascii {

inline bool is_blank(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool is_letter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool is_letter_or_digit(int c) { return is_letter(c) || (c >= '0' && c <= '9'); }
inline int small_letter(int c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; }

}  // namespace vorlen_ascii

#define isspace(c) vorlen_ascii::is_blank(c)
#define isalpha(c) vorlen_ascii::is_letter(c)
#define isalnum(c) vorlen_ascii::is_letter_or_digit(c)
#define tolower(c) vorlen_ascii::small_letter(c)
