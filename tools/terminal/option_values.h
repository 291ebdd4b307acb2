// What values of options and arguments must be. A value that is not is rejected with a message before the command runs.
#pragma once

#include <CLI/CLI.hpp>

CLI::Validator not_empty();

// Decimal digits only: no sign, no blanks, no exponent. For transform(), which removes leading zeros.
CLI::Validator whole_number(unsigned first, unsigned last);

// A finite decimal number from 0 on, without anything before or after it.
CLI::Validator non_negative_number();
