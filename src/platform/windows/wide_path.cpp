#include "platform/windows/wide_path.h"

#include <windows.h>

namespace vorlen {

std::wstring wide_path(const char* path) {
  constexpr int WHOLE = -1;  // with the terminating zero
  const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, WHOLE, nullptr, 0);
  if (length <= 0) return {};
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, WHOLE, wide.data(), length);
  wide.pop_back();
  return wide;
}

}  // namespace vorlen
