#include "platform/output_file.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/windows/wide_path.h"

namespace vorlen {

int open_output_file(const char* path) {
  return _wopen(wide_path(path).c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY | _O_NOINHERIT,
                _S_IREAD | _S_IWRITE);
}

bool write_output_file(int file, const char* data, std::size_t size) {
  constexpr std::size_t PIECE_MAX = std::size_t{1} << 30;
  while (size > 0) {
    const int count = _write(file, data, static_cast<unsigned>(std::min(size, PIECE_MAX)));
    if (count <= 0) return false;
    data += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

void close_output_file(int file) { _close(file); }

}  // namespace vorlen
