// Files of the command-line tool: what a path leads to, replacing a file in one step, and locks. Paths are UTF-8, on
// POSIX systems any bytes. A function that can fail returns the system's error code, 0 on success.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace platform {

// The standard library's paths and UTF-8. Only the conversion: what the paths mean is for the system to say.
std::filesystem::path path_of(const std::string& text);
std::string text_of(const std::filesystem::path& path);
// The same with "/" between folders, as files that are passed to other systems contain paths.
std::string portable_text_of(const std::filesystem::path& path);

// The path with which the standard library's streams open the file.
std::filesystem::path stream_path(const std::string& path);

// True for a character that separates folders in a path.
bool is_separator(char c);

using ErrorCode = int;
std::string error_text(ErrorCode error);
// Whether the error means that a file or folder does not exist.
bool is_missing(ErrorCode error);
// Whether a file can't be renamed because its new name is on another file system.
bool is_other_file_system(ErrorCode error);

enum class FileKind { NONE, REGULAR, OTHER };

// What path leads to, links followed. NONE with an error if that can't be found out or does not exist.
struct FileState {
  FileKind kind = FileKind::NONE;
  ErrorCode error = 0;
};
FileState file_state(const std::string& path);

// True if the name is in use, also by a link that leads nowhere.
bool is_name_taken(const std::string& path);

// True if both paths lead to the same existing file.
bool is_same_file(const std::string& a, const std::string& b);

// True if path leads to the file that standard output or standard error is written to.
bool is_standard_output(const std::string& path);

// The path of the file that path leads to, links followed, also to a file that does not exist yet.
std::string link_target(const std::string& path);

// The absolute path without links in its folder; the last part is kept, also if it is a link.
std::filesystem::path with_resolved_folder(const std::string& path);

// A text that is the same for all names of a file, which need not exist. Empty if it can't be found out.
std::string identity_of(const std::string& path);

// Whether the caller may replace the content of a file, or create files in a folder.
ErrorCode write_access(const std::string& file);
ErrorCode folder_access(const std::string& folder);

// Creates the folder and those above it. It may exist already.
ErrorCode create_folders(const std::string& folder);

// The size of a regular file, bytes; 0 if it can't be found out.
std::uintmax_t file_size(const std::string& path);
ErrorCode shorten_file(const std::string& path, std::uintmax_t size);
void remove_file(const std::string& path);

// An open file.
using File = std::intptr_t;
constexpr File NO_FILE = -1;
void close_file(File file);
// Writes all bytes.
ErrorCode write_all(File file, const void* data, std::size_t size);

// Creates an empty file whose name is new: start, six random characters, ending.
ErrorCode create_new_file(const std::string& start, const std::string& ending, File& file, std::string& name);

// Writes the file to the disk; a network file system may report a full disk only now.
ErrorCode flush_to_disk(const std::string& path);

// Gives the file the permissions, and if possible the owner, of the file at model; those of a new file if that does not
// exist.
void copy_access(const std::string& path, const std::string& model);

// Renames a file. An existing file with the new name is replaced in one step.
ErrorCode rename_file(const std::string& from, const std::string& to);

// A file that a process has created, or emptied, and locked until it closes it or ends.
enum class LockResult { LOCKED, BUSY, IN_THE_WAY, FAILED };
struct LockedFile {
  LockResult result = LockResult::FAILED;
  File file = NO_FILE;        // with LOCKED
  ErrorCode open_error = 0;   // with FAILED: the file can't be opened
  ErrorCode empty_error = 0;  // or not be emptied
};
LockedFile lock_file(const std::string& path);
// True if a process has locked the file.
bool is_locked(const std::string& path);

// A file with a content that only this process uses. It disappears with the process, even if that crashes.
class PrivateFile {
 public:
  // error() is not 0 if it can't be created.
  explicit PrivateFile(const std::string& content);
  ~PrivateFile();
  PrivateFile(const PrivateFile&) = delete;
  PrivateFile& operator=(const PrivateFile&) = delete;
  ErrorCode error() const { return error_; }
  const std::string& path() const { return path_; }

 private:
  File file_ = NO_FILE;
  ErrorCode error_ = 0;
  std::string path_;
};

}  // namespace platform
