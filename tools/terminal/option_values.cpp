#include "terminal/option_values.h"

#include <fmt/core.h>

#include <charconv>
#include <cmath>
#include <string>
#include <system_error>

namespace {

// True if the whole text is a number.
template <typename Number>
bool read_number(const std::string& text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

}  // namespace

CLI::Validator not_empty() {
  return {[](const std::string& text) { return text.empty() ? "must not be empty" : ""; }, ""};
}

CLI::Validator whole_number(unsigned first, unsigned last) {
  const auto check = [first, last](std::string& text) -> std::string {
    unsigned number = 0;
    if (!read_number(text, number) || number < first || number > last) {
      return fmt::format("must be a whole number from {} to {}, got \"{}\"", first, last, text);
    }
    text = std::to_string(number);  // a leading zero would make it octal
    return "";
  };
  return {check, ""};
}

CLI::Validator non_negative_number() {
  const auto check = [](const std::string& text) -> std::string {
    double number = 0.0;
    if (read_number(text, number) && std::isfinite(number) && number >= 0.0) return "";
    return fmt::format("must be a non-negative number, got \"{}\"", text);
  };
  return {check, ""};
}
