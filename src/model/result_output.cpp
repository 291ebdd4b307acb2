#include "model/result_output.h"

#include "platform/output_file.h"

namespace vorlen {

bool ResultOutput::open_file(const char* path) {
  file_ = open_output_file(path);
  return file_ >= 0;
}

void ResultOutput::open_text(std::string& text) {
  text.clear();
  text_ = &text;
}

void ResultOutput::write(const char* data, std::size_t size) {
  if (text_ != nullptr) {
    text_->append(data, size);
  } else if (!failed_) {
    failed_ = !write_output_file(file_, data, size);
  }
}

void ResultOutput::close() {
  text_ = nullptr;
  if (file_ >= 0) close_output_file(file_);
  file_ = -1;
}

}  // namespace vorlen
