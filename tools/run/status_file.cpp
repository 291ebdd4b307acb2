// Status files are JSON objects.
#include "run/status_file.h"

#include <array>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "platform/files.h"
#include "terminal/files.h"

namespace fs = std::filesystem;

namespace {

nlohmann::ordered_json text_or_null(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

// The text at key; empty when it is null, missing, or something else.
std::string text_at(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

}  // namespace

std::string path_in_status(const std::string& path, const std::string& status_path) {
  const fs::path absolute = platform::with_resolved_folder(path);
  const fs::path relative = absolute.lexically_relative(platform::with_resolved_folder(status_path).parent_path());
  const bool is_inside = !relative.empty() && *relative.begin() != "..";
  // Texts and paths may contain bytes that are not valid UTF-8; JSON cannot.
  const nlohmann::json text = platform::portable_text_of(is_inside ? relative : absolute);
  return nlohmann::json::parse(text.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)).get<std::string>();
}

std::string path_from_status(const std::string& text, const std::string& status_path) {
  return platform::text_of(platform::path_of(status_path).parent_path() /
                           platform::path_of(text));  // an absolute one replaces the folder
}

bool write_status_file(const std::string& path, const RunStatus& status, std::string& error) {
  const nlohmann::ordered_json object = {{"result", status.result},
                                         {"text", status.text},
                                         {"wall_time_s", status.wall_time},
                                         {"version", status.version},
                                         {"recipe", status.recipe},
                                         {"recipe_sha256", text_or_null(status.recipe_sha256)},
                                         {"scheme", text_or_null(status.scheme)},
                                         {"result_file", status.result_file},
                                         {"result_sha256", text_or_null(status.result_sha256)},
                                         {"host", status.host},
                                         {"finished", status.finished}};
  return write_file(path, object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n', error);
}

bool read_status_file(const std::string& path, RunStatus& status) {
  std::ifstream in(platform::stream_path(path), std::ios::binary);
  if (!in) return false;
  const nlohmann::json object = nlohmann::json::parse(in, nullptr, false);
  if (!object.is_object()) return false;
  const auto result = object.find("result");
  const auto wall_time = object.find("wall_time_s");
  if (result == object.end() || !result->is_number_integer()) return false;
  status.result = result->get<int>();
  status.wall_time = wall_time != object.end() && wall_time->is_number() ? wall_time->get<double>() : 0.0;
  status.text = text_at(object, "text");
  status.version = text_at(object, "version");
  status.recipe = text_at(object, "recipe");
  status.recipe_sha256 = text_at(object, "recipe_sha256");
  status.scheme = text_at(object, "scheme");
  status.result_file = text_at(object, "result_file");
  status.result_sha256 = text_at(object, "result_sha256");
  status.host = text_at(object, "host");
  status.finished = text_at(object, "finished");
  return true;
}

std::string utc_now() {
  const std::time_t now = std::time(nullptr);
  const std::tm parts = *std::gmtime(&now);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}
