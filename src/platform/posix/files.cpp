// The lock of a file is that of flock().
#include "platform/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <tuple>

namespace fs = std::filesystem;

namespace platform {

namespace {

int descriptor(File file) { return static_cast<int>(file); }

bool is_same(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

}  // namespace

fs::path path_of(const std::string& text) { return text; }

std::string text_of(const fs::path& path) { return path.string(); }

std::string portable_text_of(const fs::path& path) { return path.string(); }

fs::path stream_path(const std::string& path) { return path; }

bool is_separator(char c) { return c == '/'; }

std::string error_text(ErrorCode error) { return std::strerror(error); }

bool is_missing(ErrorCode error) { return error == ENOENT; }

bool is_other_file_system(ErrorCode error) { return error == EXDEV; }

FileState file_state(const std::string& path) {
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return {FileKind::NONE, errno};
  return {S_ISREG(found.st_mode) ? FileKind::REGULAR : FileKind::OTHER, 0};
}

bool is_name_taken(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0;
}

bool is_same_file(const std::string& a, const std::string& b) {
  std::error_code code;
  return fs::equivalent(a, b, code);
}

bool is_standard_output(const std::string& path) {
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) return false;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat printed {};
    if (fstat(stream, &printed) == 0 && is_same(found, printed)) return true;
  }
  return false;
}

std::string link_target(const std::string& path) {
  constexpr int MOST_LINKS = 40;  // as in the kernel
  fs::path target = path;
  std::error_code code;
  for (int links = 0; links < MOST_LINKS && fs::is_symlink(target, code); ++links) {
    target = target.parent_path() / fs::read_symlink(target, code);  // an absolute one replaces the folder
  }
  return target.string();
}

fs::path with_resolved_folder(const std::string& path) {
  std::error_code ignored;
  const fs::path absolute = fs::absolute(path, ignored);
  return fs::weakly_canonical(absolute.parent_path(), ignored) / absolute.filename();
}

std::string identity_of(const std::string& path) {
  std::error_code ignored;
  return fs::weakly_canonical(fs::absolute(link_target(path), ignored), ignored).string();
}

ErrorCode write_access(const std::string& file) { return access(file.c_str(), W_OK) == 0 ? 0 : errno; }

ErrorCode folder_access(const std::string& folder) { return access(folder.c_str(), W_OK | X_OK) == 0 ? 0 : errno; }

ErrorCode create_folders(const std::string& folder) {
  std::error_code code;
  fs::create_directories(folder, code);
  return code.value();
}

std::uintmax_t file_size(const std::string& path) {
  std::error_code code;
  const std::uintmax_t size = fs::file_size(path, code);
  return code ? 0 : size;
}

ErrorCode shorten_file(const std::string& path, std::uintmax_t size) {
  return truncate(path.c_str(), static_cast<off_t>(size)) == 0 ? 0 : errno;
}

void remove_file(const std::string& path) {
  std::error_code ignored;
  fs::remove(path, ignored);
}

void close_file(File file) { close(descriptor(file)); }

ErrorCode write_all(File file, const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t count = write(descriptor(file), at, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return errno;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return 0;
}

ErrorCode create_new_file(const std::string& start, const std::string& ending, File& file, std::string& name) {
  name = start + "XXXXXX" + ending;
  file = mkostemps(name.data(), static_cast<int>(ending.size()), O_CLOEXEC);
  return file < 0 ? errno : 0;
}

ErrorCode flush_to_disk(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno;
  const bool flushed = fsync(file) == 0 || errno == EINVAL || errno == EROFS;
  const ErrorCode error = flushed ? 0 : errno;
  close(file);
  return error;
}

// A file system may not have owners or permissions.
void copy_access(const std::string& path, const std::string& model) {
  struct stat old {};
  if (stat(model.c_str(), &old) != 0) {
    const mode_t mask = umask(0);
    umask(mask);
    std::ignore = chmod(path.c_str(), 0666 & ~mask);
    return;
  }
  if (chown(path.c_str(), old.st_uid, old.st_gid) != 0) {
    std::ignore = chown(path.c_str(), static_cast<uid_t>(-1), old.st_gid);
  }
  std::ignore = chmod(path.c_str(), old.st_mode & 07777);
}

ErrorCode rename_file(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

LockedFile lock_file(const std::string& path) {
  LockedFile locked;
  while (true) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
    if (file < 0) {
      locked.open_error = errno;
      return locked;
    }
    // Some network file systems have no locks; there a second run is not noticed.
    const bool busy = flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    struct stat opened {};
    struct stat named {};
    fstat(file, &opened);
    if (busy) {
      locked.result = LockResult::BUSY;
    } else if (stat(path.c_str(), &named) != 0 || !is_same(named, opened)) {
      close(file);  // renamed by a run that has just ended
      continue;
    } else if (!S_ISREG(opened.st_mode) || opened.st_nlink != 1) {
      locked.result = LockResult::IN_THE_WAY;
    } else if (ftruncate(file, 0) != 0) {
      locked.empty_error = errno;
    } else {
      locked.result = LockResult::LOCKED;
      locked.file = file;
      return locked;
    }
    close(file);
    return locked;
  }
}

bool is_locked(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return false;
  const bool busy = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return busy;
}

#ifdef __APPLE__

PrivateFile::PrivateFile(const std::string& content) {
  std::error_code code;
  const fs::path folder = fs::temp_directory_path(code);
  error_ = code ? code.value() : create_new_file(text_of(folder / "vorlen-"), ".xml", file_, path_);
  if (error_ == 0) error_ = write_all(file_, content.data(), content.size());
}

PrivateFile::~PrivateFile() {
  if (file_ == NO_FILE) return;
  close_file(file_);
  remove_file(path_);
}

#else

// In memory.
PrivateFile::PrivateFile(const std::string& content) : file_(memfd_create("recipe", MFD_CLOEXEC)) {
  error_ = file_ < 0 ? errno : write_all(file_, content.data(), content.size());
  path_ = "/proc/self/fd/" + std::to_string(file_);
}

PrivateFile::~PrivateFile() {
  if (file_ != NO_FILE) close_file(file_);
}

#endif

}  // namespace platform
