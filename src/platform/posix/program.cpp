#include "platform/program.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

#include <array>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace platform {

void prepare_program() {
  std::setlocale(LC_CTYPE, "");  // character set only: numbers keep their decimal point
}

void protect_files() {
#ifdef O_PATH
  constexpr int NEITHER_READ_NOR_WRITE = O_PATH;
#else
  constexpr int NEITHER_READ_NOR_WRITE = O_RDONLY;
#endif
  for (int file = 0; file >= 0 && file <= STDERR_FILENO;) {
    file = open("/dev/null", NEITHER_READ_NOR_WRITE);
    if (file > STDERR_FILENO) close(file);
  }
  signal(SIGXFSZ, SIG_IGN);
}

std::vector<std::string> arguments_of(int argc, char** argv) {
  return argc > 1 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::string own_path() {
  std::error_code ignored;
#ifdef __APPLE__
  std::array<char, 4096> path{};
  auto size = static_cast<std::uint32_t>(path.size());
  if (_NSGetExecutablePath(path.data(), &size) != 0) return "";
  return std::filesystem::canonical(path.data(), ignored).string();  // the tool may be started by a link
#else
  return std::filesystem::read_symlink("/proc/self/exe", ignored).string();
#endif
}

std::optional<std::string> environment(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

void set_environment(const std::string& name, const std::string& value) { setenv(name.c_str(), value.c_str(), 1); }

char path_list_separator() { return ':'; }

std::vector<std::vector<std::string>> python_calls() { return {{"python3"}, {"/usr/bin/python3"}}; }

std::string ways_to_install(const std::vector<std::string>& modules) {
  std::string packages;
  for (const std::string& module : modules) packages += (packages.empty() ? "python3-" : ", python3-") + module;
  return "Debian packages:\n" + packages;
}

std::string host_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace platform
