// Temporary names are short whatever the length of the target's name, and begin with a dot so that *.txt does not
// match.
#include "terminal/files.h"

#include <fmt/core.h>
#include <nettle/sha2.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace {

// The file that path names, symbolic links followed.
fs::path target_of(const std::string& path) {
  std::error_code ignored;
  if (!fs::is_symlink(path, ignored)) return path;
  const fs::path target = fs::weakly_canonical(path, ignored);
  return target.empty() ? fs::path(path) : target;
}

}  // namespace

std::string temporary_beside(const std::string& path) {
  static unsigned count = 0;
  return (target_of(path).parent_path() / fmt::format(".vorlen-{}-{}.part", getpid(), ++count)).string();
}

bool put_in_place(const std::string& temporary, const std::string& path, std::string& error) {
  const fs::path target = target_of(path);
  std::error_code code;
  const fs::file_status old = fs::status(target, code);
  if (fs::is_regular_file(old)) fs::permissions(temporary, old.permissions(), code);
  fs::rename(temporary, target, code);
  if (code) error = path + " can't be put in place: " + code.message();
  return !code;
}

bool write_file(const std::string& path, const std::string& content, std::string& error) {
  const std::string temporary = temporary_beside(path);
  std::FILE* file = std::fopen(temporary.c_str(), "wb");
  if (file == nullptr) {
    error = path + " can't be written: " + std::strerror(errno);
    return false;
  }
  bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
  written = std::fclose(file) == 0 && written;
  if (!written) error = path + " can't be written: " + std::strerror(errno);
  if (written && put_in_place(temporary, path, error)) return true;
  remove_file(temporary);
  return false;
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
