// Calls runSurfChem and examines the error buffer.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "api/vorlen_solver.h"

namespace vorlen_test {

inline constexpr char FILL = '\xa5';
inline constexpr std::size_t GUARD = 64;  // bytes before and after the buffer that must not change

struct CallOutcome {
  int result = 0;
  bool untouched = false;   // the buffer is unchanged
  bool terminated = false;  // it contains a zero
  bool guarded = false;     // nothing was written before or after it
  std::string text;         // up to the zero
};

inline CallOutcome call_library(const std::string& input_path, const std::string& output_path) {
  std::vector<char> block(GUARD + VORLEN_ERROR_BUFFER_SIZE + GUARD, FILL);
  CallOutcome outcome;
  outcome.result = runSurfChem(input_path.c_str(), output_path.c_str(), block.data() + GUARD);
  const auto begin = block.begin() + GUARD;
  const auto end = begin + VORLEN_ERROR_BUFFER_SIZE;
  const auto is_fill = [](char c) { return c == FILL; };
  outcome.untouched = std::all_of(begin, end, is_fill);
  outcome.guarded = std::all_of(block.begin(), begin, is_fill) && std::all_of(end, block.end(), is_fill);
  const auto zero = std::find(begin, end, '\0');
  outcome.terminated = zero != end;
  if (outcome.terminated) outcome.text.assign(begin, zero);
  return outcome;
}

}  // namespace vorlen_test
