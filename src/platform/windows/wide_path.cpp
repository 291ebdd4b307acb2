#include "platform/windows/wide_path.h"

#include <windows.h>

namespace vorlen {

namespace {

// The path of a folder may have MAX_PATH - 12 characters, with the terminating zero.
constexpr DWORD SIZE_MAX_OF_SHORT = MAX_PATH - 12;

// The absolute path with the prefix that lifts the limit, if it is longer than that; otherwise the path unchanged.
std::wstring without_limit(const std::wstring& path) {
  const DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);  // with the terminating zero
  if (size <= SIZE_MAX_OF_SHORT) return path;
  std::wstring full(size, L'\0');
  full.resize(GetFullPathNameW(path.c_str(), size, full.data(), nullptr));
  if (full.starts_with(LR"(\\?\)") || full.starts_with(LR"(\\.\)")) return full;
  return full.starts_with(LR"(\\)") ? LR"(\\?\UNC)" + full.substr(1) : LR"(\\?\)" + full;
}

}  // namespace

std::wstring wide_path(const char* path) {
  constexpr int WHOLE = -1;  // with the terminating zero
  const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, WHOLE, nullptr, 0);
  if (length <= 0) return {};
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, WHOLE, wide.data(), length);
  wide.pop_back();
  return without_limit(wide);
}

}  // namespace vorlen
