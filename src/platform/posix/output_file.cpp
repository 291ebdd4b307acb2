#include "platform/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace vorlen {

int open_output_file(const char* path) { return open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666); }

bool write_output_file(int file, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t count = write(file, data, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    data += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

void close_output_file(int file) { close(file); }

}  // namespace vorlen
