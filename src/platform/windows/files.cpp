// The lock of a file is one byte far beyond its end: a byte that is locked can't be read or written by others.
#include "platform/files.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <optional>
#include <random>
#include <string_view>

#include "platform/windows/wide_path.h"
#include "platform/windows/wide_text.h"

namespace fs = std::filesystem;

namespace platform {

namespace {

constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::wstring system_path(const std::string& path) { return vorlen::wide_path(path.c_str()); }

HANDLE handle_of(File file) { return reinterpret_cast<HANDLE>(file); }
File file_of(HANDLE handle) { return reinterpret_cast<File>(handle); }

ErrorCode last_error() { return static_cast<ErrorCode>(GetLastError()); }

// An open file or folder, closed at the end of its scope.
struct Handle {
  HANDLE value = INVALID_HANDLE_VALUE;

  explicit Handle(HANDLE opened) : value(opened) {}
  ~Handle() {
    if (is_open()) CloseHandle(value);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  bool is_open() const { return value != INVALID_HANDLE_VALUE; }
};

// Opens an existing file or folder, links followed.
HANDLE open_existing(const std::wstring& path, DWORD access) {
  return CreateFileW(path.c_str(), access, SHARE_ALL, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

using Information = BY_HANDLE_FILE_INFORMATION;

std::optional<Information> information_of(HANDLE handle) {
  Information information;
  if (handle == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(handle, &information)) return std::nullopt;
  return information;
}

bool is_same(const std::optional<Information>& a, const std::optional<Information>& b) {
  return a && b && a->dwVolumeSerialNumber == b->dwVolumeSerialNumber && a->nFileIndexHigh == b->nFileIndexHigh &&
         a->nFileIndexLow == b->nFileIndexLow;
}

// The last part of a path, without the letter of a drive.
std::wstring_view name_in(std::wstring_view path) {
  const std::size_t separator = path.find_last_of(LR"(\/)");
  if (separator != std::wstring_view::npos) return path.substr(separator + 1);
  return path.size() >= 2 && path[1] == L':' ? path.substr(2) : path;
}

// True for the names of devices: NUL, con, COM1.txt and so on. They are devices in every folder.
bool is_device(std::wstring_view name) {
  std::wstring stem(name.substr(0, name.find(L'.')));
  while (!stem.empty() && stem.back() == L' ') stem.pop_back();
  std::transform(stem.begin(), stem.end(), stem.begin(), [](wchar_t c) { return std::towupper(c); });
  constexpr std::array<std::wstring_view, 6> NAMES = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
  if (std::find(NAMES.begin(), NAMES.end(), stem) != NAMES.end()) return true;
  const bool is_port = stem.size() == 4 && (stem.starts_with(L"COM") || stem.starts_with(L"LPT"));
  return is_port && stem[3] >= L'1' && stem[3] <= L'9';
}

std::wstring full_path(const std::wstring& path) {
  std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  return full;
}

// The path of an open file or folder without links; empty if it can't be found out.
std::wstring final_path(HANDLE handle) {
  std::wstring path(GetFinalPathNameByHandleW(handle, nullptr, 0, 0), L'\0');
  const DWORD length = GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
  path.resize(std::min<std::size_t>(length, path.size()));
  constexpr std::wstring_view UNC = LR"(\\?\UNC\)";
  constexpr std::wstring_view PREFIX = LR"(\\?\)";
  if (path.starts_with(UNC)) return LR"(\\)" + path.substr(UNC.size());
  return path.starts_with(PREFIX) ? path.substr(PREFIX.size()) : path;
}

// The byte that is locked.
OVERLAPPED place_of_lock() {
  OVERLAPPED place{};
  place.OffsetHigh = 0x40000000;
  return place;
}

bool lock(HANDLE file, DWORD kind) {
  OVERLAPPED place = place_of_lock();
  return LockFileEx(file, kind | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) != 0;
}

// Calls action until it succeeds, for about half a second: a scanner for viruses may have the file open, or a file that
// was removed still exists because somebody has it open.
template <class Action>
ErrorCode try_for_a_while(const Action& action) {
  constexpr int TRIES = 25;
  constexpr DWORD PAUSE = 20;  // ms
  for (int k = 1;; ++k) {
    if (action()) return 0;
    const ErrorCode error = last_error();
    if (k == TRIES || (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION)) return error;
    Sleep(PAUSE);
  }
}

// Creates an empty file whose name is new.
ErrorCode create_named(const std::string& start, const std::string& ending, DWORD access, DWORD flags, File& file,
                       std::string& name) {
  constexpr std::string_view LETTERS = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  while (true) {
    name = start;
    for (int k = 0; k < 6; ++k) name += LETTERS[random() % LETTERS.size()];
    name += ending;
    const HANDLE created = CreateFileW(system_path(name).c_str(), access, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                       CREATE_NEW, flags, nullptr);
    file = file_of(created);
    if (created != INVALID_HANDLE_VALUE) return 0;
    if (GetLastError() != ERROR_FILE_EXISTS) return last_error();
  }
}

}  // namespace

fs::path path_of(const std::string& text) { return wide_of(text); }

std::string text_of(const fs::path& path) { return narrow_of(path.wstring()); }

std::string portable_text_of(const fs::path& path) { return narrow_of(path.generic_wstring()); }

fs::path stream_path(const std::string& path) { return system_path(path); }

bool is_separator(char c) { return c == '/' || c == '\\'; }

std::string error_text(ErrorCode error) {
  std::array<wchar_t, 512> text{};
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                     nullptr, static_cast<DWORD>(error), 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
  std::wstring message(text.data(), length);
  while (!message.empty() && (message.back() == L' ' || message.back() == L'.')) message.pop_back();
  return message.empty() ? "error " + std::to_string(error) : narrow_of(message);
}

bool is_missing(ErrorCode error) { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

bool is_other_file_system(ErrorCode error) { return error == ERROR_NOT_SAME_DEVICE; }

FileState file_state(const std::string& path) {
  const std::wstring wide = wide_of(path);
  const std::wstring_view name = name_in(wide);
  if (is_device(name)) return {FileKind::OTHER, 0};
  // A colon would name a second content of the file.
  if (name.find_first_of(L"<>:\"|?*") != std::wstring_view::npos) return {FileKind::NONE, ERROR_INVALID_NAME};
  const DWORD attributes = GetFileAttributesW(system_path(path).c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return {FileKind::NONE, last_error()};
  const bool is_other = (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0;
  return {is_other ? FileKind::OTHER : FileKind::REGULAR, 0};
}

bool is_name_taken(const std::string& path) {
  return GetFileAttributesW(system_path(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool is_same_file(const std::string& a, const std::string& b) {
  const Handle first(open_existing(system_path(a), 0));
  const Handle second(open_existing(system_path(b), 0));
  return is_same(information_of(first.value), information_of(second.value));
}

bool is_standard_output(const std::string& path) {
  const Handle file(open_existing(system_path(path), 0));
  for (const DWORD stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
    const HANDLE handle = GetStdHandle(stream);
    if (handle == nullptr || GetFileType(handle) != FILE_TYPE_DISK) continue;
    if (is_same(information_of(handle), information_of(file.value))) return true;
  }
  return false;
}

// A link that leads nowhere is its own target.
std::string link_target(const std::string& path) {
  const std::wstring wide = system_path(path);
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return path;
  const Handle file(open_existing(wide, 0));
  const std::wstring target = file.is_open() ? final_path(file.value) : L"";
  return target.empty() ? path : narrow_of(target);
}

fs::path with_resolved_folder(const std::string& path) {
  const fs::path full = full_path(wide_of(path));
  const fs::path folder = full.parent_path();
  const Handle opened(open_existing(system_path(text_of(folder)), 0));
  const std::wstring resolved = opened.is_open() ? final_path(opened.value) : L"";
  return (resolved.empty() ? folder : fs::path(resolved)) / full.filename();
}

std::string identity_of(const std::string& path) {
  if (is_device(name_in(wide_of(path)))) return "";
  std::wstring place = with_resolved_folder(link_target(path)).wstring();
  CharLowerBuffW(place.data(), static_cast<DWORD>(place.size()));
  return narrow_of(place);
}

// Whoever may not delete a file, or has it open in a program that does not let others delete it, can't replace it.
ErrorCode write_access(const std::string& file) {
  const std::wstring path = system_path(file);
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) return ERROR_ACCESS_DENIED;
  return try_for_a_while([&path] { return Handle(open_existing(path, GENERIC_WRITE | DELETE)).is_open(); });
}

ErrorCode folder_access(const std::string& folder) {
  const std::wstring path = system_path(folder);
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return last_error();
  if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return ERROR_DIRECTORY;
  return Handle(open_existing(path, FILE_ADD_FILE)).is_open() ? 0 : last_error();
}

ErrorCode create_folders(const std::string& folder) {
  const std::wstring path = system_path(folder);
  if (CreateDirectoryW(path.c_str(), nullptr)) return 0;
  const ErrorCode error = last_error();
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : error;
  const fs::path full = full_path(wide_of(folder));
  const fs::path parent = full.parent_path();
  if (error != ERROR_PATH_NOT_FOUND || parent == full) return error;
  const ErrorCode above = create_folders(text_of(parent));
  if (above != 0) return above;
  return CreateDirectoryW(path.c_str(), nullptr) ? 0 : last_error();
}

std::uintmax_t file_size(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(system_path(path).c_str(), GetFileExInfoStandard, &data)) return 0;
  return (std::uintmax_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
}

ErrorCode shorten_file(const std::string& path, std::uintmax_t size) {
  const Handle file(open_existing(system_path(path), GENERIC_WRITE));
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  const bool done =
      file.is_open() && SetFilePointerEx(file.value, end, nullptr, FILE_BEGIN) && SetEndOfFile(file.value);
  return done ? 0 : last_error();
}

void remove_file(const std::string& path) { DeleteFileW(system_path(path).c_str()); }

void close_file(File file) { CloseHandle(handle_of(file)); }

ErrorCode write_all(File file, const void* data, std::size_t size) {
  constexpr std::size_t PIECE_MAX = std::size_t{1} << 30;
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    DWORD count = 0;
    if (!WriteFile(handle_of(file), at, static_cast<DWORD>(std::min(size, PIECE_MAX)), &count, nullptr)) {
      return last_error();
    }
    at += count;
    size -= count;
  }
  return 0;
}

ErrorCode create_new_file(const std::string& start, const std::string& ending, File& file, std::string& name) {
  return create_named(start, ending, GENERIC_WRITE, FILE_ATTRIBUTE_NORMAL, file, name);
}

ErrorCode flush_to_disk(const std::string& path) {
  const Handle file(open_existing(system_path(path), GENERIC_WRITE));
  return file.is_open() && FlushFileBuffers(file.value) ? 0 : last_error();
}

// A new file has the rights that its folder gives it.
void copy_access(const std::string&, const std::string&) {}

ErrorCode rename_file(const std::string& from, const std::string& to) {
  const std::wstring old_name = system_path(from);
  const std::wstring new_name = system_path(to);
  return try_for_a_while(
      [&] { return MoveFileExW(old_name.c_str(), new_name.c_str(), MOVEFILE_REPLACE_EXISTING) != 0; });
}

LockedFile lock_file(const std::string& path) {
  const std::wstring name = system_path(path);
  LockedFile locked;
  while (true) {
    HANDLE file = INVALID_HANDLE_VALUE;
    locked.open_error = try_for_a_while([&] {
      file = CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, SHARE_ALL, nullptr, OPEN_ALWAYS,
                         FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
      return file != INVALID_HANDLE_VALUE;
    });
    if (locked.open_error != 0) return locked;
    const bool busy = !lock(file, LOCKFILE_EXCLUSIVE_LOCK) && GetLastError() == ERROR_LOCK_VIOLATION;
    const std::optional<Information> opened = information_of(file);
    const Handle named(open_existing(name, 0));
    if (busy) {
      locked.result = LockResult::BUSY;
    } else if (!is_same(opened, information_of(named.value))) {
      CloseHandle(file);  // renamed by a run that has just ended
      continue;
    } else if ((opened->dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 || opened->nNumberOfLinks != 1) {
      locked.result = LockResult::IN_THE_WAY;
    } else if (!SetEndOfFile(file)) {
      locked.empty_error = last_error();
    } else {
      locked.result = LockResult::LOCKED;
      locked.file = file_of(file);
      return locked;
    }
    CloseHandle(file);
    return locked;
  }
}

bool is_locked(const std::string& path) {
  const Handle file(open_existing(system_path(path), GENERIC_READ));
  return file.is_open() && !lock(file.value, 0) && GetLastError() == ERROR_LOCK_VIOLATION;
}

// In the folder for temporary files. Only those can open it who let it be deleted, as vorlen::read_file() does.
PrivateFile::PrivateFile(const std::string& content) {
  std::array<wchar_t, MAX_PATH + 1> folder{};
  GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
  error_ = create_named(narrow_of(folder.data()) + "vorlen-", ".xml", GENERIC_WRITE | DELETE,
                        FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, file_, path_);
  if (error_ == 0) error_ = write_all(file_, content.data(), content.size());
}

PrivateFile::~PrivateFile() {
  if (file_ != NO_FILE) close_file(file_);
}

}  // namespace platform
