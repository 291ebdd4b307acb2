#include "platform/terminal.h"

#include <io.h>
#include <windows.h>

#include <algorithm>
#include <iterator>

#include "platform/program.h"
#include "platform/windows/wide_text.h"

namespace platform {

namespace {

HANDLE handle_of(std::FILE* stream) {
  const int file = _fileno(stream);
  return file < 0 ? INVALID_HANDLE_VALUE : reinterpret_cast<HANDLE>(_get_osfhandle(file));
}

struct Range {
  wchar_t first;
  wchar_t last;
};

// Marks that are shown on the character before them. The second half of a character of two units is one as well.
constexpr Range MARKS[] = {{0x0300, 0x036f}, {0x200b, 0x200f}, {0x20d0, 0x20ff},
                           {0xdc00, 0xdfff}, {0xfe00, 0xfe0f}, {0xfe20, 0xfe2f}};
// Characters of East Asia. Those of two units, emoji for example, are nearly all wide too; these are their first
// halves.
constexpr Range WIDE[] = {{0x1100, 0x115f}, {0x2e80, 0x303e}, {0x3041, 0xa4cf}, {0xac00, 0xd7a3}, {0xd800, 0xdbff},
                          {0xf900, 0xfaff}, {0xfe30, 0xfe6f}, {0xff00, 0xff60}, {0xffe0, 0xffe6}};

std::size_t columns_of(wchar_t c) {
  const auto has = [c](const Range& range) { return range.first <= c && c <= range.last; };
  if (std::any_of(std::begin(MARKS), std::end(MARKS), has)) return 0;
  return std::any_of(std::begin(WIDE), std::end(WIDE), has) ? 2 : 1;
}

}  // namespace

bool is_terminal(std::FILE* stream) {
  DWORD mode = 0;
  return GetConsoleMode(handle_of(stream), &mode) != 0;
}

bool has_control_sequences(std::FILE* stream) {
  DWORD mode = 0;
  if (!GetConsoleMode(handle_of(stream), &mode) || environment("TERM") == "dumb") return false;
  return (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

std::size_t terminal_width(std::FILE* stream) {
  CONSOLE_SCREEN_BUFFER_INFO information;
  if (!GetConsoleScreenBufferInfo(handle_of(stream), &information)) return 0;
  return static_cast<std::size_t>(information.srWindow.Right - information.srWindow.Left + 1);
}

bool uses_utf8() { return true; }

std::optional<std::size_t> utf8_width(const std::string& text) {
  const int size = static_cast<int>(text.size());
  if (size > 0 && MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0) == 0) {
    return std::nullopt;
  }
  std::size_t width = 0;
  for (const wchar_t c : wide_of(text)) width += columns_of(c);
  return width;
}

}  // namespace platform
