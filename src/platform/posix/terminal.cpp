// Determined from the environment (TERM) and the locale.
#include "platform/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

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

}  // namespace platform
