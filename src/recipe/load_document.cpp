// The file is read here and passed to the XML library as a string: the library's own reader leaks its buffer and the
// open file when memory runs out.
#include "recipe/load_document.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

#include "platform/read_file.h"
#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

// About 90000 stages. The parsed document takes up to 70 times the size of the text.
constexpr std::size_t FILE_SIZE_MAX = std::size_t{64} << 20;  // bytes

// Turns the content of a file into the text for the parser: ends it at the first zero byte, replaces CR LF and CR by
// LF, and appends four zeros. The parser skips a character by the length that its first byte implies, up to four bytes,
// which may lead beyond the end of a truncated last character.
void make_text_for_parser(std::string& text) {
  text.resize(std::min(text.find('\0'), text.size()));
  std::size_t length = 0;
  bool after_CR = false;
  for (const char c : text) {
    if (c != '\n' || !after_CR) text[length++] = c == '\r' ? '\n' : c;
    after_CR = c == '\r';
  }
  text.resize(length);
  text.append(4, '\0');
}

// Throws std::bad_alloc unless that many bytes can be allocated in one block. A system that overcommits memory grants
// many small blocks beyond what it has and ends the process when they are used, but it rejects one large block.
void require_memory(std::size_t size) {
  void* volatile block = ::operator new(size);
  ::operator delete(block);
}

constexpr const char* TOO_LARGE = "File is larger than 64 MiB";

std::string start_of_error(const char* name) { return std::string("Error reading file ") + name + "\n"; }

// Whether the document has been parsed. Sets error if not.
bool parsed_without_error(const char* name, const TiXmlDocument& document, std::string& error) {
  if (!document.Error()) return true;
  error = start_of_error(name) + document.ErrorDesc();
  if (document.ErrorRow() > 0) {
    error += "Line:" + std::to_string(document.ErrorRow()) + "\n";
    if (document.ErrorCol() > 0) error += "Column:" + std::to_string(document.ErrorCol()) + "\n";
  }
  return false;
}

// Parses the content of a file.
bool parse(const char* name, std::string text, TiXmlDocument& document, std::string& error) {
  make_text_for_parser(text);
  const XmlShape shape = shape_of_xml(text);
  if (shape.nesting > NESTING_MAX) {
    error = start_of_error(name) + "Elements are nested deeper than " + std::to_string(NESTING_MAX) + " levels";
    return false;
  }
  if (shape.attributes > ATTRIBUTES_MAX) {
    error = start_of_error(name) + "An element has more than " + std::to_string(ATTRIBUTES_MAX) + " attributes";
    return false;
  }
  require_memory(tree_size_max(text));
  document.Parse(text.c_str());
  return parsed_without_error(name, document, error);
}

}  // namespace

std::size_t tree_size_max(const std::string& text) {
  constexpr std::size_t BLOCK_OVERHEAD = 32;  // of the allocator, including rounding up
  const auto count = [&text](char c) { return static_cast<std::size_t>(std::count(text.begin(), text.end(), c)); };
  // Each "<" starts at most one element or other tag and ends at most one piece of text. Each "=" belongs to at most
  // one attribute. A string may have twice the capacity that it needs, and keeps its old block while it grows.
  const std::size_t tags = count('<') + 1;
  const std::size_t attributes = count('=');
  return tags * (sizeof(TiXmlElement) + sizeof(TiXmlText) + 4 * BLOCK_OVERHEAD) +
         attributes * (sizeof(TiXmlAttribute) + 3 * BLOCK_OVERHEAD) + 4 * text.size();
}

bool load_document(const char* path, TiXmlDocument& document, std::string& error) {
  std::string text;
  switch (read_file(path, FILE_SIZE_MAX, text)) {
    case FileResult::no_memory:
      error = "Out of memory";
      return false;
    case FileResult::too_large:
      error = start_of_error(path) + TOO_LARGE;
      return false;
    case FileResult::unreadable:
      document.LoadFile(static_cast<std::FILE*>(nullptr));  // sets the library's error text
      return parsed_without_error(path, document, error);
    case FileResult::read:
      break;
  }
  return parse(path, std::move(text), document, error);
}

bool load_document(const RecipeText& recipe, TiXmlDocument& document, std::string& error) {
  if (recipe.bytes.size() > FILE_SIZE_MAX) {
    error = start_of_error(recipe.name) + TOO_LARGE;
    return false;
  }
  return parse(recipe.name, std::string(recipe.bytes), document, error);
}

}  // namespace vorlen
