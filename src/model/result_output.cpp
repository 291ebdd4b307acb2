#include "model/result_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vorlen {

bool ResultOutput::open_file(const char* path) {
  file_ = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  return file_ >= 0;
}

void ResultOutput::open_text(std::string& text) {
  text.clear();
  text_ = &text;
}

void ResultOutput::write(const char* data, std::size_t size) {
  if (text_ != nullptr) {
    text_->append(data, size);
    return;
  }
  while (size > 0 && !failed_) {
    const ssize_t count = ::write(file_, data, size);
    if (count < 0 && errno == EINTR) continue;
    failed_ = count <= 0;
    if (failed_) return;
    data += count;
    size -= static_cast<std::size_t>(count);
  }
}

void ResultOutput::close() {
  text_ = nullptr;
  if (file_ >= 0) ::close(file_);
  file_ = -1;
}

}  // namespace vorlen
