// The interpreter must find the package and its dependencies. The package and the shared library are those of the
// installation of this tool, or of the source tree and the build folder that the tool is in.
#include "python_command.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "terminal/exit_status.h"
#include "terminal/output.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct PythonCommand {
  const char* name;
  const char* description;
  const char* example;
  const char* module;  // that it needs in addition to MODULES, may be null; its Debian package is python3-MODULE
};

constexpr std::array<PythonCommand, 7> COMMANDS = {{
    {"report", "Write a report of a result file: one page for a browser", "vorlen report recipe.result.txt", "jinja2"},
    {"compare", "Compare result files: one page for a browser", "vorlen compare a.result.txt b.result.txt -o page.html",
     "jinja2"},
    {"observe", "Show what can be measured on the wafer of a result: one page for a browser",
     "vorlen observe recipe.result.txt --xrd 002 --curvature sapphire -o page.html", "jinja2"},
    {"design", "Change a recipe so that its layers reach targets", "vorlen design led.xml --targets targets.yaml",
     "scipy"},
    {"window", "Find out how often a recipe meets its targets if the reactor varies",
     "vorlen window led.xml --targets targets.yaml --spread T=\"2 K\" -o window.html", "jinja2"},
    {"map", "Run a recipe on a grid of two values: one page with a map",
     "vorlen map recipe.xml --x process_stages/stage_1/T=1000:1050:10 --y process_stages/stage_1/P=20000,40000",
     "jinja2"},
    {"sweep", "Run a recipe with many values, or the rows of a sweep plan",
     "vorlen sweep recipe.xml --set process_stages/stage_1/T=1000:1050:5", nullptr},
}};

// Exits with 0 if the interpreter finds all modules given as arguments.
constexpr const char* PROBE =
    "import sys, importlib.util as u; sys.exit(any(u.find_spec(m) is None for m in sys.argv[1:]))";
constexpr std::array<const char*, 3> MODULES = {"vorlen", "numpy", "pandas"};

// The source tree from which the tool was built; empty if the tool is not in a build folder.
fs::path source_tree(const fs::path& tool) {
  std::ifstream cache(tool.parent_path().parent_path() / "CMakeCache.txt");
  const std::string key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
  std::string line;
  while (std::getline(cache, line)) {
    if (line.rfind(key, 0) == 0) return line.substr(key.size());
  }
  return {};
}

void set_environment() {
  std::error_code ignored;
  const fs::path tool = fs::read_symlink("/proc/self/exe", ignored);
  if (!tool.empty()) setenv("VORLEN", tool.c_str(), 0);  // checks recipes for the package
  const fs::path tree = source_tree(tool);
  const fs::path folder = tool.parent_path();
  const fs::path package = tree.empty() ? folder.parent_path() / "lib/python3/dist-packages" : tree / "python";
  if (fs::exists(package / "vorlen", ignored)) {
    const char* old = std::getenv("PYTHONPATH");
    const std::string path = package.string() + (old != nullptr && *old != '\0' ? std::string(":") + old : "");
    setenv("PYTHONPATH", path.c_str(), 1);
  }
  const fs::path library =
      fs::canonical(folder / (tree.empty() ? VORLEN_LIBRARY_FROM_TOOL : "../src/api/libVorlenSolver.so"), ignored);
  if (!library.empty()) setenv("VORLEN_LIBRARY", library.c_str(), 0);  // the caller's choice has priority
}

// As exec() expects them, terminated by a null.
std::vector<char*> pointers_to(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

bool fits(const std::string& interpreter, const PythonCommand& command) {
  std::vector<std::string> words = {interpreter, "-c", PROBE};
  words.insert(words.end(), MODULES.begin(), MODULES.end());
  if (command.module != nullptr) words.emplace_back(command.module);
  std::vector<char*> arguments = pointers_to(words);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const bool spawned = posix_spawnp(&pid, interpreter.c_str(), &actions, nullptr, arguments.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  if (!spawned) return false;
  int ended = 0;
  while (waitpid(pid, &ended, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(ended) && WEXITSTATUS(ended) == 0;
}

const PythonCommand* command_called(const std::string& word) {
  for (const PythonCommand& command : COMMANDS) {
    if (word == command.name) return &command;
  }
  return nullptr;
}

// Ctrl-C waits until the package handles it: an interpreter that is starting would print a traceback.
void block_interrupts() {
  sigset_t interrupts;
  sigemptyset(&interrupts);
  sigaddset(&interrupts, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupts, nullptr);
}

}  // namespace

void add_python_commands(CLI::App& app) {
  for (const PythonCommand& command : COMMANDS) {
    app.add_subcommand(command.name, command.description)
        ->footer(
            fmt::format("This command is part of the Python package vorlen; \"vorlen {} --help\" lists its options.\n\n"
                        "Example:\n  {}",
                        command.name, command.example));
  }
}

bool is_python_command(const std::string& word) { return command_called(word) != nullptr; }

int forward_to_python(char** arguments) {
  set_environment();
  const PythonCommand& command = *command_called(arguments[0]);
  std::vector<std::string> interpreters = {"python3", "/usr/bin/python3"};
  const char* chosen = std::getenv("VORLEN_PYTHON");
  if (chosen != nullptr && *chosen != '\0') interpreters.insert(interpreters.begin(), chosen);
  std::string tried;
  for (std::string& interpreter : interpreters) {
    tried += (tried.empty() ? "" : ", ") + interpreter;
    if (!fits(interpreter, command)) continue;
    std::vector<std::string> words = {interpreter, "-m", "vorlen"};
    for (char** argument = arguments; *argument != nullptr; ++argument) words.emplace_back(*argument);
    block_interrupts();
    execvp(interpreter.c_str(), pointers_to(words).data());
    return fail(interpreter + ": " + std::strerror(errno));
  }
  std::string names = "numpy, pandas";
  std::string packages = "python3-numpy, python3-pandas";
  if (command.module != nullptr) {
    names += std::string(", ") + command.module;
    packages += std::string(", python3-") + command.module;
  }
  return fail(
      fmt::format("this command needs Python 3 with {} and the package vorlen (Debian packages:\n{}). "
                  "Tried without success: {}.\nSet the environment variable VORLEN_PYTHON to another interpreter",
                  names, packages, tried));
}
