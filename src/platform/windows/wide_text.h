// UTF-16, in which the system takes texts.
#pragma once

#include <string>

namespace platform {

// UTF-8 as UTF-16 and back. What is not valid is replaced.
std::wstring wide_of(const std::string& text);
std::string narrow_of(const std::wstring& text);

}  // namespace platform
