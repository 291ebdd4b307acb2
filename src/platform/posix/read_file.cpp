#include "platform/read_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace vorlen {

namespace {

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

}  // namespace

FileResult read_file(const char* path, std::size_t size_max, std::string& text) {
  struct stat status;
  if (stat(path, &status) != 0) return errno == ENOMEM ? FileResult::no_memory : FileResult::unreadable;
  if (!S_ISREG(status.st_mode)) return FileResult::unreadable;
  OpenFile file;
  file.descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file.descriptor < 0) return errno == ENOMEM ? FileResult::no_memory : FileResult::unreadable;
  if (fstat(file.descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return FileResult::unreadable;
  if (status.st_size > static_cast<off_t>(size_max)) return FileResult::too_large;
  text.resize(static_cast<std::size_t>(status.st_size));
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = read(file.descriptor, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return FileResult::unreadable;
    done += static_cast<std::size_t>(count);
  }
  return FileResult::read;
}

}  // namespace vorlen
