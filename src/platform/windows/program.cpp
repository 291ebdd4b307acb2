#include "platform/program.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>
// After it:
#include <shellapi.h>
#include <shlwapi.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/windows/console.h"
#include "platform/windows/wide_path.h"
#include "platform/windows/wide_text.h"

namespace platform {

namespace {

// The files that a name with * or ? fits, in order; the name itself if there are none. Folders can't have such names.
std::vector<std::string> expanded(const std::wstring& pattern) {
  if (pattern.find_first_of(L"*?") == std::wstring::npos) return {narrow_of(pattern)};
  const std::size_t separator = pattern.find_last_of(L"\\/");
  const std::wstring folder = separator == std::wstring::npos ? L"" : pattern.substr(0, separator + 1);
  std::vector<std::string> names;
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW(vorlen::wide_path(narrow_of(pattern).c_str()).c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      const bool is_folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      // The system also finds a.xml~ for *.xml, by its short name.
      const bool fits = PathMatchSpecW(found.cFileName, pattern.c_str() + folder.size()) != 0;
      if (!is_folder && fits && found.cFileName[0] != L'.') names.push_back(narrow_of(folder + found.cFileName));
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  std::sort(names.begin(), names.end());
  return names.empty() ? std::vector<std::string>{narrow_of(pattern)} : names;
}

}  // namespace

void prepare_program() {
  // A crash shows no window, and messages are the bytes that the program writes.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  for (const int stream : {0, 1, 2}) _setmode(stream, _O_BINARY);
  // Without a buffer a console would get single bytes, of which it can't make characters.
  constexpr std::size_t BUFFER_SIZE = 65536;
  for (std::FILE* stream : {stdout, stderr}) std::setvbuf(stream, nullptr, _IOFBF, BUFFER_SIZE);
  prepare_console();
  // Some commands are left to Python, which otherwise writes in the code page of the system.
  if (!environment("PYTHONUTF8")) set_environment("PYTHONUTF8", "1");
}

void protect_files() {}  // a file never gets the number of a closed stream

std::vector<std::string> arguments_of(int, char**) {
  int count = 0;
  wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int k = 1; k < count; ++k) {
    const std::vector<std::string> names = expanded(words[k]);
    arguments.insert(arguments.end(), names.begin(), names.end());
  }
  LocalFree(words);
  return arguments;
}

std::string own_path() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return narrow_of(path);
}

std::optional<std::string> environment(const std::string& name) {
  const std::wstring wide = wide_of(name);
  std::wstring value(GetEnvironmentVariableW(wide.c_str(), nullptr, 0), L'\0');
  if (value.empty()) return std::nullopt;
  value.resize(GetEnvironmentVariableW(wide.c_str(), value.data(), static_cast<DWORD>(value.size())));
  return narrow_of(value);
}

void set_environment(const std::string& name, const std::string& value) {
  SetEnvironmentVariableW(wide_of(name).c_str(), wide_of(value).c_str());
}

char path_list_separator() { return ';'; }

std::vector<std::vector<std::string>> python_calls() { return {{"python"}, {"py", "-3"}}; }

std::string ways_to_install(const std::vector<std::string>& modules) {
  std::string command = "py -m pip install";
  for (const std::string& module : modules) command += " " + module;
  return command;
}

std::string host_name() {
  std::array<wchar_t, 256> name{};
  auto size = static_cast<DWORD>(name.size());
  return GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size) ? narrow_of(name.data()) : "";
}

}  // namespace platform
