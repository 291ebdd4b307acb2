// Output of the subcommands.
#include "tool_output.h"

#include <algorithm>
#include <cstdio>

#include "commands.h"

int print_data(const std::string& text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  return written ? EXIT_OK : report_failure("standard output can't be written");
}

int report_failure(const std::string& text) {
  std::fputs(("vorlen: " + text + "\n").c_str(), stderr);
  return EXIT_FAILED;
}

std::string one_line(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20U || c == 0x7f; }, ' ');
  return text;
}

std::size_t columns_of(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}
