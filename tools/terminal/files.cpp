// Hidden names begin with a dot so that *.txt does not match. The Python package respects the lock of a temporary file
// too.
#include "terminal/files.h"

#include <fmt/core.h>

#include <cstddef>
#include <fstream>
#include <iterator>
#include <string_view>

#include "platform/digest.h"
#include "platform/interruptions.h"

namespace fs = std::filesystem;

namespace {

constexpr std::string_view PART = ".part";

std::string folder_of(const std::string& target) {
  const fs::path path = platform::path_of(target);
  return path.has_parent_path() ? platform::text_of(path.parent_path()) : ".";
}

// A hidden name beside target. Names of files have at most 255 bytes.
std::string hidden_name(const std::string& target, std::string_view ending) {
  constexpr std::size_t LONGEST = 200;
  const fs::path path = platform::path_of(target);
  const std::string name = platform::text_of(path.filename());
  const std::string hidden = fmt::format(".{}{}", name.size() > LONGEST ? "vorlen" : name, ending);
  return platform::text_of(path.parent_path() / platform::path_of(hidden));
}

// Creates an empty file with a new name beside target.
platform::ErrorCode create_beside(const std::string& target, platform::File& file, std::string& name) {
  return platform::create_new_file(hidden_name(target, "."), std::string(PART), file, name);
}

std::string not_written(const std::string& path, platform::ErrorCode reason) {
  return path + " can't be written: " + platform::error_text(reason);
}

}  // namespace

std::string problem_with_output(const std::string& path) {
  const platform::FileState old = platform::file_state(path);
  if (old.kind == platform::FileKind::OTHER) return path + " is not a regular file";
  if (old.kind == platform::FileKind::REGULAR) {
    const platform::ErrorCode error = platform::write_access(path);
    if (error != 0) return not_written(path, error);
    // As in -o r.txt > r.txt, or -o /dev/stdout > r.txt.
    if (platform::is_standard_output(path)) return path + " is also the output of the command";
  } else if (!platform::is_missing(old.error)) {
    return not_written(path, old.error);
  }
  const std::string folder = folder_of(platform::link_target(path));
  const platform::ErrorCode error = platform::folder_access(folder);
  if (error == 0) return "";
  return platform::is_missing(error) ? path + " can't be written: folder not found: " + folder
                                     : not_written(path, error);
}

bool put_in_place(const std::string& temporary, const std::string& path, std::string& error) {
  error = problem_with_output(path);  // it may have changed since the start of a run
  if (!error.empty()) return false;
  const std::string target = platform::link_target(path);
  platform::copy_access(temporary, target);
  platform::ErrorCode code = platform::flush_to_disk(temporary);
  if (code == 0) code = platform::rename_file(temporary, target);
  if (code == 0) return true;
  if (platform::is_other_file_system(code)) {  // path is a link
    std::ifstream in(platform::stream_path(temporary), std::ios::binary);
    if (!write_file(path, std::string(std::istreambuf_iterator<char>(in), {}), error)) return false;
    platform::remove_file(temporary);
    return true;
  }
  error = path + " can't be put in place: " + platform::error_text(code);
  return false;
}

bool write_file(const std::string& path, const std::string& content, std::string& error) {
  error = problem_with_output(path);
  if (!error.empty()) return false;
  const platform::HeldInterruptions held;
  std::string temporary;
  platform::File file = platform::NO_FILE;
  platform::ErrorCode code = create_beside(platform::link_target(path), file, temporary);
  if (code != 0) {
    error = not_written(path, code);
    return false;
  }
  code = platform::write_all(file, content.data(), content.size());
  if (code != 0) error = not_written(path, code);
  platform::close_file(file);
  if (code == 0 && put_in_place(temporary, path, error)) return true;
  platform::remove_file(temporary);
  return false;
}

std::string part_path(const std::string& path) { return hidden_name(platform::link_target(path), PART); }

platform::File lock_part(const std::string& path, std::string& error) {
  const std::string part = part_path(path);
  const platform::LockedFile locked = platform::lock_file(part);
  switch (locked.result) {
    case platform::LockResult::LOCKED:
      break;
    case platform::LockResult::BUSY:
      error = "another run is writing " + path;
      break;
    case platform::LockResult::IN_THE_WAY:
      error = fmt::format("{} can't be written: {} is in the way", path, part);
      break;
    case platform::LockResult::FAILED:
      error = locked.open_error != 0 ? fmt::format("{} ({})", not_written(path, locked.open_error), part)
                                     : not_written(path, locked.empty_error);
      break;
  }
  return locked.file;
}

bool is_part_locked(const std::string& path) { return platform::is_locked(part_path(path)); }

std::string set_aside(const std::string& temporary, const std::string& path) {
  std::string name;
  platform::File file = platform::NO_FILE;
  if (create_beside(platform::link_target(path), file, name) != 0) return temporary;
  platform::close_file(file);
  return platform::rename_file(temporary, name) == 0 ? name : temporary;
}

std::string sha256_of_file(const std::string& path) {
  if (platform::file_state(path).kind != platform::FileKind::REGULAR) return "";
  std::ifstream in(platform::stream_path(path), std::ios::binary);
  return in ? platform::sha256_of(in) : "";
}
