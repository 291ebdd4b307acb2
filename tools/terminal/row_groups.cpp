#include "terminal/row_groups.h"

#include <fmt/core.h>

#include <map>
#include <utility>

#include "platform/terminal.h"

namespace {

constexpr std::size_t MAX_NUMBERS = 6;  // more are abbreviated

}  // namespace

std::vector<Indices> equal_keys(const std::vector<std::string>& keys) {
  std::vector<Indices> groups;
  std::map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto [place, is_new] = places.try_emplace(keys[i], groups.size());
    if (is_new) groups.emplace_back();
    groups[place->second].push_back(i);
  }
  return groups;
}

std::string row_key(const std::vector<std::string>& row, std::size_t first) {
  std::string key;
  for (std::size_t i = first; i < row.size(); ++i) key += row[i] + '\n';
  return key;
}

void keep_groups(Table& table, const std::vector<Indices>& groups) {
  std::vector<std::vector<std::string>> rows;
  for (const Indices& group : groups) {
    rows.push_back(table.rows[group.front()]);
    if (group.size() > 1) rows.back()[1] += fmt::format(" {} {}", platform::uses_utf8() ? "\u00d7" : "x", group.size());
  }
  table.rows = std::move(rows);
}

std::string numbers_text(const Indices& indices) {
  std::vector<std::string> parts;
  for (std::size_t i = 0; i < indices.size();) {
    std::size_t last = i;
    while (last + 1 < indices.size() && indices[last + 1] == indices[last] + 1) ++last;
    if (last > i + 1) {
      parts.push_back(fmt::format("{}-{}", indices[i] + 1, indices[last] + 1));
    } else {
      for (std::size_t k = i; k <= last; ++k) parts.push_back(std::to_string(indices[k] + 1));
    }
    i = last + 1;
  }
  if (parts.size() > MAX_NUMBERS) {
    parts = {parts[0], parts[1], parts[2], "...", parts.back()};
  }
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
  return text;
}
