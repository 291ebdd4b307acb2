// The interpreter must find the package and its dependencies. The package and the shared library are those of the
// installation of this tool, or of the source tree and the build folder that the tool is in.
#include "python_command.h"

#include <fmt/format.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "platform/files.h"
#include "platform/process.h"
#include "platform/program.h"
#include "terminal/output.h"

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
  std::ifstream cache(platform::stream_path(platform::text_of(tool.parent_path().parent_path() / "CMakeCache.txt")));
  const std::string key = "CMAKE_HOME_DIRECTORY:INTERNAL=";
  std::string line;
  while (std::getline(cache, line)) {
    if (line.starts_with(key)) return platform::path_of(line.substr(key.size()));
  }
  return {};
}

void set_if_unset(const std::string& name, const std::string& value) {
  if (!platform::environment(name)) platform::set_environment(name, value);
}

void set_environment() {
  const fs::path tool = platform::path_of(platform::own_path());
  if (!tool.empty()) set_if_unset("VORLEN", platform::text_of(tool));  // checks recipes for the package
  const fs::path tree = source_tree(tool);
  const fs::path folder = tool.parent_path();
  const fs::path package = tree.empty() ? folder.parent_path() / "lib/python3/dist-packages" : tree / "python";
  if (platform::file_state(platform::text_of(package / "vorlen")).kind != platform::FileKind::NONE) {
    const std::string old = platform::environment("PYTHONPATH").value_or("");
    platform::set_environment("PYTHONPATH",
                              platform::text_of(package) + (old.empty() ? "" : platform::path_list_separator() + old));
  }
  std::error_code ignored;
  const fs::path library =
      fs::canonical(folder / (tree.empty() ? VORLEN_LIBRARY_FROM_TOOL : VORLEN_LIBRARY_IN_BUILD), ignored);
  if (!library.empty()) set_if_unset("VORLEN_LIBRARY", platform::text_of(library));  // the caller's choice has priority
}

// Whether Python, called with these words, finds all that the command needs.
bool fits(const std::vector<std::string>& call, const PythonCommand& command) {
  std::vector<std::string> words = call;
  words.insert(words.end(), {"-c", PROBE});
  words.insert(words.end(), MODULES.begin(), MODULES.end());
  if (command.module != nullptr) words.emplace_back(command.module);
  return platform::run_silently(words) == 0;
}

const PythonCommand* command_called(const std::string& word) {
  for (const PythonCommand& command : COMMANDS) {
    if (word == command.name) return &command;
  }
  return nullptr;
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

int forward_to_python(const std::vector<std::string>& arguments) {
  set_environment();
  const PythonCommand& command = *command_called(arguments.at(0));
  std::vector<std::vector<std::string>> calls = platform::python_calls();
  const std::string chosen = platform::environment("VORLEN_PYTHON").value_or("");
  if (!chosen.empty()) calls.insert(calls.begin(), {chosen});
  std::string tried;
  for (const std::vector<std::string>& call : calls) {
    const std::string name = fmt::format("{}", fmt::join(call, " "));
    tried += (tried.empty() ? "" : ", ") + name;
    if (!fits(call, command)) continue;
    std::vector<std::string> words = call;
    words.insert(words.end(), {"-m", "vorlen"});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return fail(name + ": " + platform::error_text(platform::continue_as(words)));
  }
  std::vector<std::string> modules = {"numpy", "pandas"};
  if (command.module != nullptr) modules.emplace_back(command.module);
  return fail(
      fmt::format("this command needs Python 3 with {} and the package vorlen ({}). "
                  "Tried without success: {}.\nSet the environment variable VORLEN_PYTHON to another interpreter",
                  fmt::join(modules, ", "), platform::ways_to_install(modules), tried));
}
