// An input of the fuzzer as a file in memory that has a path.
#pragma once

#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace vorlen_fuzz {

// One file for the whole process. Each call replaces its content.
class InputFile {
 public:
  InputFile() : descriptor_(memfd_create("vorlen_fuzz", MFD_CLOEXEC)) {
    if (descriptor_ < 0) std::abort();
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  const char* fill(const std::uint8_t* data, std::size_t size) const {
    if (ftruncate(descriptor_, 0) != 0 || pwrite(descriptor_, data, size, 0) != static_cast<ssize_t>(size)) {
      std::abort();
    }
    return path_.c_str();
  }
  const char* path() const { return path_.c_str(); }
  std::string content() const {
    std::string text(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
    if (pread(descriptor_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) std::abort();
    return text;
  }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace vorlen_fuzz
