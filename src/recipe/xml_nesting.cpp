// Follows the tags as the XML library does: comments, CDATA sections and unknown tags hold no elements, quoted
// attribute values may hold anything, and the first fault ends the parsing. Where the library's way depends on the
// encoding or on the parts of a declaration, end tags are no longer counted, so the depth found is never too small.
#include "recipe/xml_nesting.h"

#include <cstddef>
#include <cstring>

namespace vorlen {

namespace {

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// First character of an element's name; bytes of other alphabets count as letters.
bool is_name_start(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 127;
}

struct Scanner {
  const std::string& text;
  std::size_t at = 0;

  bool ended() const { return at >= text.size() || text[at] == '\0'; }
  char here() const { return ended() ? '\0' : text[at]; }
  bool starts(const char* word) const { return text.compare(at, std::strlen(word), word) == 0; }

  // Moves behind the word; to the end of the text if there is none.
  void pass(const char* word) {
    const std::size_t found = text.find(word, at);
    at = found == std::string::npos ? text.size() : found + std::strlen(word);
  }

  void pass_spaces() {
    while (!ended() && is_space(text[at])) ++at;
  }

  // Behind the name of a start tag: moves over its attributes. True when it opens an element with content; at is the
  // end of the text when the tag is faulty.
  bool pass_start_tag() {
    while (!ended() && !is_space(here()) && here() != '>' && here() != '/') ++at;
    while (true) {
      pass_spaces();
      if (here() == '>') {
        ++at;
        return true;
      }
      if (here() == '/') {
        ++at;
        if (here() == '>') {
          ++at;
        } else {
          at = text.size();
        }
        return false;
      }
      while (!ended() && !is_space(here()) && std::strchr("=/><\"'", here()) == nullptr) ++at;
      pass_spaces();
      if (here() != '=') {
        at = text.size();
        return false;
      }
      ++at;
      pass_spaces();
      if (here() == '"' || here() == '\'') {
        const char quote[] = {here(), '\0'};
        ++at;
        pass(quote);
      } else {
        while (!ended() && !is_space(here()) && here() != '/' && here() != '>') ++at;
      }
    }
  }
};

// Sequences that the library passes over like blanks in one encoding and not in the other.
bool has_hidden_blanks(const std::string& text) {
  const std::size_t behind_mark = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  for (const char* hidden : {"\xEF\xBB\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    if (text.find(hidden, behind_mark) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

bool nesting_exceeds(const std::string& text, int limit) {
  Scanner scan{text};
  bool end_tags_count = !has_hidden_blanks(text);
  int depth = 0;
  while (true) {
    scan.at = text.find('<', scan.at);
    if (scan.at == std::string::npos) return false;
    if (scan.starts("<!--")) {
      scan.at += 4;
      scan.pass("-->");
    } else if (scan.starts("<![CDATA[")) {
      scan.pass("]]>");
    } else if (scan.starts("</")) {
      scan.at += 2;
      if (end_tags_count && depth > 0) --depth;
    } else if (scan.starts("<?")) {
      scan.at += 2;
      if (depth > 0) end_tags_count = false;
    } else if (scan.at + 1 < text.size() && is_name_start(text[scan.at + 1])) {
      ++scan.at;
      if (scan.pass_start_tag() && ++depth > limit) return true;
    } else {
      scan.pass(">");
    }
  }
}

}  // namespace vorlen
