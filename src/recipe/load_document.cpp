// The file is read here and passed to the XML library as a string: the library's own reader leaks its buffer and the
// open file when memory runs out.
#include "recipe/load_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

// About 90000 stages. The parsed document takes up to 70 times the size of the text.
constexpr off_t FILE_SIZE_MAX = off_t{64} << 20;  // bytes

// An open file, closed at the end of its scope.
struct OpenFile {
  int descriptor = -1;

  OpenFile() = default;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (descriptor >= 0) close(descriptor);
  }
};

enum class FileResult { read, unreadable, too_large, no_memory };

// Reads the whole file. Anything but a regular file is unreadable and not opened, because opening a pipe or a device
// may have an effect, or block, and reading it may never end. A file that is shorter than its size is unreadable as
// well.
FileResult read_file(const char* path, std::string& text) {
  struct stat status;
  if (stat(path, &status) != 0) return errno == ENOMEM ? FileResult::no_memory : FileResult::unreadable;
  if (!S_ISREG(status.st_mode)) return FileResult::unreadable;
  OpenFile file;
  file.descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file.descriptor < 0) return errno == ENOMEM ? FileResult::no_memory : FileResult::unreadable;
  if (fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return FileResult::unreadable;
  if (status.st_size > FILE_SIZE_MAX) return FileResult::too_large;
  text.resize(static_cast<std::size_t>(status.st_size));
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = read(file.descriptor, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return FileResult::unreadable;
    done += static_cast<std::size_t>(count);
  }
  return FileResult::read;
}

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
  const std::string start = std::string("Error reading file ") + path + "\n";
  std::string text;
  switch (read_file(path, text)) {
    case FileResult::no_memory:
      error = "Out of memory";
      return false;
    case FileResult::too_large:
      error = start + "File is larger than 64 MiB";
      return false;
    case FileResult::unreadable:
      document.LoadFile(static_cast<std::FILE*>(nullptr));  // sets the library's error text
      break;
    case FileResult::read:
      make_text_for_parser(text);
      const XmlShape shape = shape_of_xml(text);
      if (shape.nesting > NESTING_MAX) {
        error = start + "Elements are nested deeper than " + std::to_string(NESTING_MAX) + " levels";
        return false;
      }
      if (shape.attributes > ATTRIBUTES_MAX) {
        error = start + "An element has more than " + std::to_string(ATTRIBUTES_MAX) + " attributes";
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
