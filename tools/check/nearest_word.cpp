// Edit distance with swaps of neighbours (optimal string alignment), and formulas in another order.
#include "check/nearest_word.h"

#include <algorithm>
#include <cstddef>

namespace {
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool is_lower(char c) { return c >= 'a' && c <= 'z'; }

// The symbols of a formula, sorted: a capital letter, and a small one or none. Empty for any other word.
std::vector<std::string_view> symbols_of(std::string_view word) {
  std::vector<std::string_view> symbols;
  for (std::size_t at = 0; at < word.size();) {
    if (!(word[at] >= 'A' && word[at] <= 'Z')) return {};
    const std::size_t length = at + 1 < word.size() && is_lower(word[at + 1]) ? 2 : 1;
    symbols.push_back(word.substr(at, length));
    at += length;
  }
  std::sort(symbols.begin(), symbols.end());
  return symbols;
}

}  // namespace

bool same_symbols(std::string_view a, std::string_view b) {
  const std::vector<std::string_view> symbols = symbols_of(a);
  return !symbols.empty() && symbols == symbols_of(b);
}

int edit_distance(std::string_view a, std::string_view b) {
  // Rows of the table for the previous two letters of a and the current one.
  std::vector<int> before(b.size() + 1);
  std::vector<int> above(b.size() + 1);
  std::vector<int> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) above[j] = static_cast<int>(j);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    before.swap(above);
    above.swap(row);
  }
  return above[b.size()];
}

std::string_view nearest_word(std::string_view word, const std::vector<std::string_view>& candidates) {
  constexpr std::size_t LONGEST = 64;  // no name or keyword is longer; bounds the work for a value of any length
  std::string_view nearest;
  int least = 0;
  if (word.size() > LONGEST) return nearest;
  for (std::string_view candidate : candidates) {
    if (same_symbols(word, candidate)) return candidate;
  }
  for (std::string_view candidate : candidates) {
    if (candidate.size() > LONGEST) continue;
    const int distance = edit_distance(word, candidate);
    const int limit = static_cast<int>((std::max(word.size(), candidate.size()) + 1) / 3);
    if (distance <= limit && (nearest.empty() || distance < least)) {
      nearest = candidate;
      least = distance;
    }
  }
  return nearest;
}
