#include "platform/read_file.h"

#include <windows.h>

#include <algorithm>

#include "platform/windows/wide_path.h"

namespace vorlen {

namespace {

// An open file, closed at the end of its scope.
struct OpenFile {
  HANDLE handle = INVALID_HANDLE_VALUE;

  OpenFile() = default;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
  }
};

FileResult failure() {
  const DWORD reason = GetLastError();
  const bool no_memory = reason == ERROR_NOT_ENOUGH_MEMORY || reason == ERROR_OUTOFMEMORY;
  return no_memory ? FileResult::no_memory : FileResult::unreadable;
}

}  // namespace

FileResult read_file(const char* path, std::size_t size_max, std::string& text) {
  const std::wstring wide = wide_path(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return failure();
  if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0) return FileResult::unreadable;
  OpenFile file;
  file.handle = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file.handle == INVALID_HANDLE_VALUE) return failure();
  LARGE_INTEGER size;
  if (GetFileType(file.handle) != FILE_TYPE_DISK || !GetFileSizeEx(file.handle, &size)) return FileResult::unreadable;
  if (size.QuadPart > static_cast<LONGLONG>(size_max)) return FileResult::too_large;
  text.resize(static_cast<std::size_t>(size.QuadPart));
  for (std::size_t done = 0; done < text.size();) {
    constexpr std::size_t PIECE_MAX = std::size_t{1} << 30;
    const auto wanted = static_cast<DWORD>(std::min(text.size() - done, PIECE_MAX));
    DWORD count = 0;
    if (!ReadFile(file.handle, text.data() + done, wanted, &count, nullptr) || count == 0) {
      return FileResult::unreadable;
    }
    done += count;
  }
  return FileResult::read;
}

}  // namespace vorlen
