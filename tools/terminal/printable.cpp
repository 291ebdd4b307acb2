#include "terminal/printable.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace {

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20U || c == 0x7f; }

}  // namespace

std::string printable(std::string text) {
  std::replace_if(text.begin(), text.end(), is_control, ' ');
  return text;
}

std::string printable_lines(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return is_control(c) && c != '\n' && c != '\t'; }, ' ');
  return text;
}

std::string fixed_number(double value, int decimals) {
  if (std::isnan(value)) return "-";
  const bool rounds_to_zero = std::fabs(value) < 0.5 * std::pow(10.0, -decimals);
  return fmt::format("{:.{}f}", rounds_to_zero ? 0.0 : value, decimals);
}

std::string short_number(double value) { return std::isnan(value) ? "-" : fmt::format("{:.3g}", value); }

std::string exact_number(double value) { return std::isnan(value) ? "" : fmt::format("{}", value); }
