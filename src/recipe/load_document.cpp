// The file is read here and handed to the XML library as a text: the library's own way of reading leaves its buffer and
// an open file behind when memory runs out.
#include "recipe/load_document.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>

#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

constexpr std::size_t READ_BLOCK = 1 << 16;  // bytes

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// What is there but no file (a directory, a pipe, a device) may open and never end.
bool is_no_file(const char* path) {
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

enum class ReadResult { read, failed, no_memory };

ReadResult read_text(const char* path, std::string& text) {
  if (is_no_file(path)) return ReadResult::failed;
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "rb"));
  if (file == nullptr) return errno == ENOMEM ? ReadResult::no_memory : ReadResult::failed;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);  // the blocks are large enough
  std::size_t length = 0;
  std::size_t got = 0;
  do {
    text.resize(length + READ_BLOCK);
    got = std::fread(text.data() + length, 1, READ_BLOCK, file.get());
    length += got;
  } while (got == READ_BLOCK);
  text.resize(length);
  return std::ferror(file.get()) == 0 ? ReadResult::read : ReadResult::failed;
}

// Line ends of other systems, CR LF and CR, become LF.
void normalise_line_ends(std::string& text) {
  std::size_t length = 0;
  bool behind_CR = false;
  for (const char c : text) {
    if (c != '\n' || !behind_CR) text[length++] = c == '\r' ? '\n' : c;
    behind_CR = c == '\r';
  }
  text.resize(length);
}

// Throws std::bad_alloc unless that many bytes are to be had. The XML library does not give back the elements it is
// about to build when an allocation fails under it, so it is not called before there is room for all of them.
void require_memory(std::size_t size) {
  void* volatile block = ::operator new(size);
  ::operator delete(block);
}

}  // namespace

std::size_t tree_size_max(const std::string& text) {
  constexpr std::size_t BLOCK_OVERHEAD = 32;  // of the allocator, with rounding up
  const auto count = [&text](char c) { return static_cast<std::size_t>(std::count(text.begin(), text.end(), c)); };
  // Each "<" opens at most one element, or other tag, and ends at most one piece of text; each "=" stands for at most
  // one attribute. A string may have twice the room that it needs, and grows beside its old self.
  const std::size_t tags = count('<') + 1;
  const std::size_t attributes = count('=');
  return tags * (sizeof(TiXmlElement) + sizeof(TiXmlText) + 4 * BLOCK_OVERHEAD) +
         attributes * (sizeof(TiXmlAttribute) + 3 * BLOCK_OVERHEAD) + 4 * text.size();
}

bool load_document(const char* path, TiXmlDocument& document, std::string& error) {
  const std::string start = std::string("Error reading file ") + path + "\n";
  std::string text;
  switch (read_text(path, text)) {
    case ReadResult::no_memory:
      error = "Out of memory";
      return false;
    case ReadResult::failed:
      document.LoadFile(static_cast<std::FILE*>(nullptr));  // for the library's own text
      break;
    case ReadResult::read:
      normalise_line_ends(text);
      if (nesting_exceeds(text, NESTING_MAX)) {
        error = start + "Elements are nested deeper than " + std::to_string(NESTING_MAX) + " levels";
        return false;
      }
      require_memory(tree_size_max(text));
      document.Parse(text.c_str());
      break;
  }
  if (!document.Error()) return true;
  error = start + document.ErrorDesc();
  if (document.ErrorRow() > 0) {
    error += "Line:" + std::to_string(document.ErrorRow()) + "\n";
    if (document.ErrorCol() > 0) error += "Column:" + std::to_string(document.ErrorCol()) + "\n";
  }
  return false;
}

}  // namespace vorlen
