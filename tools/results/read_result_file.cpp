// The file of a result.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/files.h"
#include "results/result_file.h"

namespace {

bool read_whole_file(const std::string& path, std::string& content, std::string& error) {
  const platform::FileState state = platform::file_state(path);
  if (state.kind != platform::FileKind::REGULAR) {
    error = state.error != 0 ? path + " can't be read: " + platform::error_text(state.error)
                             : path + " is not a regular file";
    return false;
  }
  std::ifstream in(platform::stream_path(path), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) {
    error = path + " can't be read: " + std::strerror(errno);
    return false;
  }
  content = text.str();
  return true;
}

}  // namespace

bool read_result_file(const std::string& path, ResultFile& result, std::string& error) {
  std::string content;
  if (read_whole_file(path, content, error)) return read_result_text(path, content, result, error);
  result = ResultFile();
  return false;
}
