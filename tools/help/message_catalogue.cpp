// A row of the page is | `text`, `another` | meaning | what to do |.
#include "help/message_catalogue.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

namespace {

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

std::vector<std::string> cells_of(const std::string& line) {
  std::vector<std::string> cells;
  std::size_t begin = 1;
  while (begin < line.size()) {
    const std::size_t end = std::min(line.find('|', begin), line.size());
    cells.push_back(trimmed(line.substr(begin, end - begin)));
    begin = end + 1;
  }
  return cells;
}

// The pieces between backticks.
std::vector<std::string> quoted(const std::string& cell) {
  std::vector<std::string> pieces;
  std::size_t begin = cell.find('`');
  while (begin != std::string::npos) {
    const std::size_t end = cell.find('`', begin + 1);
    if (end == std::string::npos) break;
    pieces.push_back(cell.substr(begin + 1, end - begin - 1));
    begin = cell.find('`', end + 1);
  }
  return pieces;
}

std::string without_backticks(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
  return text;
}

// The fixed parts of a pattern, between its <...>.
std::vector<std::string> fixed_parts(const std::string& pattern) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (begin < pattern.size()) {
    const std::size_t open = pattern.find('<', begin);
    const std::size_t close = open == std::string::npos ? open : pattern.find('>', open);
    if (close == std::string::npos) break;
    parts.push_back(pattern.substr(begin, open - begin));
    begin = close + 1;
  }
  parts.push_back(pattern.substr(begin));
  parts.erase(std::remove_if(parts.begin(), parts.end(), [](const std::string& part) { return part.empty(); }),
              parts.end());
  return parts;
}

// True if the fixed parts of the pattern occur in text in their order.
bool occurs_in(const std::string& pattern, const std::string& text) {
  const std::vector<std::string> parts = fixed_parts(trimmed(pattern));
  std::size_t at = 0;
  for (const std::string& part : parts) {
    at = text.find(part, at);
    if (at == std::string::npos) return false;
    at += part.size();
  }
  return !parts.empty();
}

// Letters, in lower case, and digits; every other run of characters is a blank. Starts with a blank.
std::string plain_words(const std::string& text) {
  std::string letters = " ";
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
      letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else if (letters.back() != ' ') {
      letters += ' ';
    }
  }
  return letters;
}

std::set<std::string> letter_groups(const std::string& text) {
  const std::string letters = plain_words(text);
  std::set<std::string> groups;
  for (std::size_t i = 0; i + 3 <= letters.size(); ++i) groups.insert(letters.substr(i, 3));
  return groups;
}

// The Dice coefficient of the sets: 1 if they are equal, 0 if they have nothing in common.
double similarity(const std::set<std::string>& a, const std::set<std::string>& b) {
  const auto common = std::count_if(a.begin(), a.end(), [&b](const std::string& group) { return b.count(group) > 0; });
  const std::size_t all = a.size() + b.size();
  return all == 0 ? 0.0 : 2.0 * static_cast<double>(common) / static_cast<double>(all);
}

}  // namespace

std::vector<MessageEntry> read_message_page(const std::string& page) {
  std::vector<MessageEntry> entries;
  std::istringstream lines(page);
  std::string line;
  std::string section;
  while (std::getline(lines, line)) {
    if (line.rfind("## ", 0) == 0) section = line.substr(3);
    if (line.rfind("| `", 0) != 0) continue;
    const std::vector<std::string> cells = cells_of(line);
    if (cells.size() < 3) continue;
    for (const std::string& pattern : quoted(cells[0])) {
      entries.push_back({section, pattern, without_backticks(cells[1]), without_backticks(cells[2])});
    }
  }
  return entries;
}

std::vector<const MessageEntry*> matching_entries(const std::vector<MessageEntry>& entries, const std::string& text) {
  std::vector<const MessageEntry*> found;
  for (const MessageEntry& entry : entries) {
    if (occurs_in(entry.pattern, text)) found.push_back(&entry);
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const MessageEntry* a, const MessageEntry* b) { return a->pattern.size() > b->pattern.size(); });
  std::vector<const MessageEntry*> kept;
  for (const MessageEntry* entry : found) {
    const bool within = std::any_of(kept.begin(), kept.end(), [entry](const MessageEntry* longer) {
      return longer->pattern != entry->pattern && occurs_in(entry->pattern, longer->pattern);
    });
    if (!within) kept.push_back(entry);
  }
  return kept;
}

std::vector<const MessageEntry*> entries_with_words(const std::vector<MessageEntry>& entries, const std::string& text) {
  std::istringstream stream(plain_words(text));
  const std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
  std::vector<const MessageEntry*> found;
  for (const MessageEntry& entry : entries) {
    const std::string pattern = plain_words(entry.pattern) + ' ';
    const bool all = std::all_of(words.begin(), words.end(), [&pattern](const std::string& word) {
      return pattern.find(' ' + word + ' ') != std::string::npos;
    });
    if (!words.empty() && all) found.push_back(&entry);
  }
  return found;
}

std::vector<const MessageEntry*> closest_entries(const std::vector<MessageEntry>& entries, const std::string& text,
                                                 std::size_t count) {
  const std::set<std::string> groups = letter_groups(text);
  std::vector<std::pair<double, const MessageEntry*>> ranked;
  ranked.reserve(entries.size());
  for (const MessageEntry& entry : entries)
    ranked.emplace_back(similarity(groups, letter_groups(entry.pattern)), &entry);
  std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<const MessageEntry*> closest;
  for (std::size_t i = 0; i < std::min(count, ranked.size()); ++i) closest.push_back(ranked[i].second);
  return closest;
}
