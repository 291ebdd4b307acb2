// Hidden names begin with a dot so that *.txt does not match. The lock of a run is that of flock() on its temporary
// file, which the Python package respects too.
#include "terminal/files.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <nettle/sha2.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <tuple>

namespace fs = std::filesystem;

namespace {

constexpr std::string_view PART = ".part";

// Holds back the signals that end the program.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, number);
    sigprocmask(SIG_BLOCK, &ending, &old_);
  }
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &old_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t old_{};
};

fs::path folder_of(const fs::path& target) { return target.has_parent_path() ? target.parent_path() : fs::path("."); }

// A hidden name beside target. Names of files have at most 255 bytes.
std::string hidden_name(const fs::path& target, std::string_view ending) {
  constexpr std::size_t LONGEST = 200;
  const std::string name = target.filename().string();
  return target.parent_path() / fmt::format(".{}{}", name.size() > LONGEST ? "vorlen" : name, ending);
}

// Creates an empty file with a new name beside target. Returns it open, or -1 with the reason in errno.
int create_beside(const fs::path& target, std::string& name) {
  name = hidden_name(target, fmt::format(".XXXXXX{}", PART));
  return mkostemps(name.data(), static_cast<int>(PART.size()), O_CLOEXEC);
}

bool is_same(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

std::string not_written(const std::string& path, int reason) {
  return path + " can't be written: " + std::strerror(reason);
}

// Writes the file to the disk; a network file system may report a full disk only now.
bool flush_to_disk(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  const bool flushed = fsync(file) == 0 || errno == EINVAL || errno == EROFS;
  const int reason = errno;
  close(file);
  errno = reason;
  return flushed;
}

// Gives the file the owner and the permissions of old, or those of a new file. A file system may not have them.
void set_access(const std::string& path, const struct stat* old) {
  if (old == nullptr) {
    const mode_t mask = umask(0);
    umask(mask);
    std::ignore = chmod(path.c_str(), 0666 & ~mask);
    return;
  }
  if (chown(path.c_str(), old->st_uid, old->st_gid) != 0) {
    std::ignore = chown(path.c_str(), static_cast<uid_t>(-1), old->st_gid);
  }
  std::ignore = chmod(path.c_str(), old->st_mode & 07777);
}

}  // namespace

std::string target_of(const std::string& path) {
  constexpr int MOST_LINKS = 40;  // as in the kernel
  fs::path target = path;
  std::error_code code;
  for (int links = 0; links < MOST_LINKS && fs::is_symlink(target, code); ++links) {
    target = target.parent_path() / fs::read_symlink(target, code);  // an absolute one replaces the folder
  }
  return target.string();
}

std::string problem_with_output(const std::string& path) {
  struct stat old {};
  if (stat(path.c_str(), &old) == 0) {
    if (!S_ISREG(old.st_mode)) return path + " is not a regular file";
    if (access(path.c_str(), W_OK) != 0) return not_written(path, errno);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {  // as in -o r.txt > r.txt, or -o /dev/stdout > r.txt
      struct stat printed {};
      if (fstat(stream, &printed) == 0 && is_same(old, printed)) return path + " is also the output of the command";
    }
  } else if (errno != ENOENT) {
    return not_written(path, errno);
  }
  const fs::path folder = folder_of(target_of(path));
  if (access(folder.c_str(), W_OK | X_OK) == 0) return "";
  return errno == ENOENT ? path + " can't be written: folder not found: " + folder.string() : not_written(path, errno);
}

bool is_same_file(const std::string& a, const std::string& b) {
  std::error_code code;
  return fs::equivalent(a, b, code);
}

bool put_in_place(const std::string& temporary, const std::string& path, std::string& error) {
  error = problem_with_output(path);  // it may have changed since the start of a run
  if (!error.empty()) return false;
  const fs::path target = target_of(path);
  struct stat old {};
  set_access(temporary, stat(target.c_str(), &old) == 0 ? &old : nullptr);
  if (flush_to_disk(temporary) && std::rename(temporary.c_str(), target.c_str()) == 0) return true;
  if (errno == EXDEV) {  // path is a link to another file system
    std::ifstream in(temporary, std::ios::binary);
    if (!write_file(path, std::string(std::istreambuf_iterator<char>(in), {}), error)) return false;
    remove_file(temporary);
    return true;
  }
  error = path + " can't be put in place: " + std::strerror(errno);
  return false;
}

bool write_file(const std::string& path, const std::string& content, std::string& error) {
  error = problem_with_output(path);
  if (!error.empty()) return false;
  const HeldSignals held;
  std::string temporary;
  const int file = create_beside(target_of(path), temporary);
  if (file < 0) {
    error = not_written(path, errno);
    return false;
  }
  const bool written = write_all(file, content.data(), content.size());
  if (!written) error = not_written(path, errno);
  close(file);
  if (written && put_in_place(temporary, path, error)) return true;
  remove_file(temporary);
  return false;
}

std::string part_path(const std::string& path) { return hidden_name(target_of(path), PART); }

int lock_part(const std::string& path, std::string& error) {
  const std::string part = part_path(path);
  while (true) {
    const int file = open(part.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
    if (file < 0) {
      error = fmt::format("{} ({})", not_written(path, errno), part);
      return -1;
    }
    // Some network file systems have no locks; there a second run is not noticed.
    const bool busy = flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    struct stat opened {};
    struct stat named {};
    fstat(file, &opened);
    if (busy) {
      error = "another run is writing " + path;
    } else if (stat(part.c_str(), &named) != 0 || !is_same(named, opened)) {
      close(file);  // renamed by a run that has just ended
      continue;
    } else if (!S_ISREG(opened.st_mode) || opened.st_nlink != 1) {
      error = fmt::format("{} can't be written: {} is in the way", path, part);
    } else if (ftruncate(file, 0) != 0) {
      error = not_written(path, errno);
    } else {
      return file;
    }
    close(file);
    return -1;
  }
}

bool is_part_locked(const std::string& path) {
  const int file = open(part_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) return false;
  const bool busy = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return busy;
}

std::string set_aside(const std::string& temporary, const std::string& path) {
  std::string name;
  const int file = create_beside(target_of(path), name);
  if (file < 0) return temporary;
  close(file);
  return std::rename(temporary.c_str(), name.c_str()) == 0 ? name : temporary;
}

bool read_all(int file, void* data, std::size_t size) {
  char* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t count = read(file, at, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool write_all(int file, const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t count = write(file, at, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    at += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

void remove_file(const std::string& path) {
  std::error_code ignored;
  fs::remove(path, ignored);
}

std::string sha256_of_file(const std::string& path) {
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return "";
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  sha256_ctx context;
  sha256_init(&context);
  std::array<char, 65536> block{};
  while (in.read(block.data(), block.size()) || in.gcount() > 0) {
    sha256_update(&context, static_cast<std::size_t>(in.gcount()), reinterpret_cast<const std::uint8_t*>(block.data()));
  }
  if (in.bad()) return "";
  std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
  sha256_digest(&context, digest.size(), digest.data());
  std::string digits;
  for (const std::uint8_t byte : digest) digits += fmt::format("{:02x}", byte);
  return digits;
}
