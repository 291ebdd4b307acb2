// The entries of docs/messages.md, and the lookup of a message of the library or the tool.
#pragma once

#include <string>
#include <vector>

struct MessageEntry {
  std::string section;     // heading of its table
  std::string pattern;     // <...> matches any text, also none
  std::string meaning;     // plain text, like what_to_do
  std::string what_to_do;  // may be empty
};

// The rows of all tables of the page, one entry per message.
std::vector<MessageEntry> read_message_page(const std::string& page);

// The entries whose pattern occurs in text, the longest first, without those that are part of another match.
std::vector<const MessageEntry*> matching_entries(const std::vector<MessageEntry>& entries, const std::string& text);

// The entries whose pattern contains all words of text, in any case and order, in their order on the page. Words are
// letters and digits.
std::vector<const MessageEntry*> entries_with_words(const std::vector<MessageEntry>& entries, const std::string& text);

// The count entries most similar to text, by the groups of three letters that they share.
std::vector<const MessageEntry*> closest_entries(const std::vector<MessageEntry>& entries, const std::string& text,
                                                 std::size_t count);
