// The file of a result.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "results/result_file.h"

namespace {

bool read_whole_file(const std::string& path, std::string& content, std::string& error) {
  std::error_code code;
  if (!std::filesystem::is_regular_file(path, code)) {
    error = code ? path + " can't be read: " + code.message() : path + " is not a regular file";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
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
