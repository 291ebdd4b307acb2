// Determined from the environment (TERM) and the locale.
#include "platform/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace platform {

bool is_terminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

bool has_control_sequences(std::FILE* stream) {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && std::strcmp(terminal, "dumb") != 0 && is_terminal(stream);
}

std::size_t terminal_width(std::FILE* stream) {
  winsize size{};
  return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;  // fails unless stream is a terminal
}

bool uses_utf8() { return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0; }

std::optional<std::size_t> utf8_width(const std::string& text) {
  std::size_t width = 0;
  std::mbstate_t state{};
  const char* at = text.data();
  const char* end = at + text.size();
  while (at < end) {
    wchar_t character = 0;
    const std::size_t length = std::mbrtowc(&character, at, static_cast<std::size_t>(end - at), &state);
    if (length == 0 || length > text.size()) return std::nullopt;
    const int columns = wcwidth(character);
    width += columns < 0 ? 1U : static_cast<std::size_t>(columns);
    at += length;
  }
  return width;
}

}  // namespace platform
