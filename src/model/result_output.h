// Where the bytes of the result file go.
#pragma once

#include <cstddef>
#include <string>

namespace vorlen {

// A file, a text in memory, or nothing as long as neither has been opened.
class ResultOutput {
 public:
  ResultOutput() = default;
  ResultOutput(const ResultOutput&) = delete;
  ResultOutput& operator=(const ResultOutput&) = delete;
  ~ResultOutput() { close(); }

  // Creates or empties the file. Returns false if that fails, with the reason in errno.
  bool open_file(const char* path);
  // Empties the text, and appends to it until close().
  void open_text(std::string& text);
  bool is_open() const { return text_ != nullptr || file_ >= 0; }
  // The output is open. If the file can't be written, which is not reported, nothing more is written to it.
  void write(const char* data, std::size_t size);
  void close();

 private:
  int file_ = -1;  // descriptor
  bool failed_ = false;
  std::string* text_ = nullptr;
};

}  // namespace vorlen
