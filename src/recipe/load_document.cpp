// The file is read here and handed to the XML library as a text: the library's own way of reading leaves its buffer and
// an open file behind when memory runs out.
#include "recipe/load_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>

#include "recipe/parse_document.h"
#include "recipe/xml_nesting.h"

namespace vorlen {

namespace {

// Some 90000 stages written out. Parsed, a text takes up to 70 times its size in memory.
constexpr off_t FILE_SIZE_MAX = off_t{64} << 20;  // bytes

// A file that is open for reading, closed at the end of its scope.
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

// Reads the whole file. What is there but no file (a directory, a pipe, a device) may do something when it is opened,
// and never end: it is not opened, and unreadable. So is a file with less in it than it says.
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

// Makes of a file's text what the parser is to see: the text up to its first zero, with LF for the line ends of other
// systems, CR LF and CR. Four zeros follow: the parser steps over the last character by the length that its first byte
// tells, which is up to four and may lead behind the end.
void make_text_for_parser(std::string& text) {
  text.resize(std::min(text.find('\0'), text.size()));
  std::size_t length = 0;
  bool behind_CR = false;
  for (const char c : text) {
    if (c != '\n' || !behind_CR) text[length++] = c == '\r' ? '\n' : c;
    behind_CR = c == '\r';
  }
  text.resize(length);
  text.append(4, '\0');
}

// Throws std::bad_alloc unless that many bytes are to be had at once. A system may hand out memory in small pieces that
// it does not have, and ends the process when they are used; one large piece it refuses.
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
  switch (read_file(path, text)) {
    case FileResult::no_memory:
      error = "Out of memory";
      return false;
    case FileResult::too_large:
      error = start + "File is larger than 64 MiB";
      return false;
    case FileResult::unreadable:
      document.LoadFile(static_cast<std::FILE*>(nullptr));  // for the library's own text
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
      parse_document(text.c_str(), document);
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
