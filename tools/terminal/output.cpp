// stdout is flushed at once, so that a full disk or a closed pipe is noticed; stderr too, which is not everywhere
// without a buffer.
#include "terminal/output.h"

#include <fmt/color.h>

#include <cstdio>

#include "terminal/exit_status.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

int fail(const std::string& text, int status) {
  std::fputs(("vorlen: " + printable_lines(text) + "\n").c_str(), stderr);
  std::fflush(stderr);
  return status;
}

int fail(const std::string& text) { return fail(text, EXIT_FAILED); }

void warn(const std::string& text) {
  const std::string line = "vorlen: warning: " + printable_lines(text);
  std::fputs((use_colour(stderr) ? fmt::format(fmt::fg(fmt::terminal_color::red), "{}", line) : line).c_str(), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

int print_out(const std::string& text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  return written ? EXIT_OK : fail("standard output can't be written");
}
