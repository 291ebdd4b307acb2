// The entries of docs/messages.md, and the look-up of a text that the library or the tool has given.
#pragma once

#include <string>
#include <vector>

struct MessageEntry {
  std::string section;     // heading of its table
  std::string pattern;     // <...> stands for any text, also none
  std::string meaning;     // plain text, as the next
  std::string what_to_do;  // may be empty
};

// The rows of all tables of the page, one for each text.
std::vector<MessageEntry> read_message_page(const std::string& page);

// The entries whose pattern stands in text, the longest first. A pattern within another that matches too is left out.
std::vector<const MessageEntry*> matching_entries(const std::vector<MessageEntry>& entries, const std::string& text);

// The count entries that are most like text, by the groups of three letters that they share.
std::vector<const MessageEntry*> closest_entries(const std::vector<MessageEntry>& entries, const std::string& text,
                                                 std::size_t count);
