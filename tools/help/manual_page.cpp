// The manual page: general sections, and one subsection per command, generated from its definition.
#include <fmt/core.h>

#include <sstream>

#include "help/self_description.h"

namespace {

constexpr const char* DESCRIPTION =
    "simulates the growth of III-nitride layers (InGaN, AlGaN, AlInN, AlInGaN) in metal-organic vapour-phase epitaxy "
    "over a whole process recipe, and shows, compares and explains the results. Data goes to standard output, "
    "messages to standard error.";

struct ManualItem {
  const char* name;
  const char* text;
};

constexpr std::array<ManualItem, 3> EXIT_STATUSES = {{
    {"0", "success"},
    {"1", "the work could not be done, or not all of it; for diff: the files differ"},
    {"2", "the command line is wrong; for diff: a file can't be read"},
}};

constexpr std::array<ManualItem, 5> ENVIRONMENT = {{
    {"NO_COLOR", "If set and not empty, no colours are used. Colours appear on terminals only."},
    {"TERM", "With the value dumb, no colours are used and no line is rewritten in place."},
    {"LC_ALL, LC_CTYPE, LANG", "In a UTF-8 locale units are written with their usual symbols, otherwise in ASCII."},
    {"VORLEN_PYTHON",
     "The interpreter for report, compare, observe, design, window, map and sweep, tried before python3 and "
     "/usr/bin/python3."},
    {"VORLEN_LIBRARY",
     "The library that report, compare, observe, design, window, map and sweep call (default: installed)."},
}};

constexpr std::array<ManualItem, 3> FILES = {{
    {"NAME.result.txt", "The result: the layers, and a table over time and depth."},
    {"NAME.status.json", "How the run ended, by which version, and the SHA-256 of recipe and result."},
    {"NAME.failed.txt", "The rows of a failed run."},
}};

// text for roff: hyphens are kept as typed, and no line is taken for a request.
std::string escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if ((out.empty() || out.back() == '\n') && (c == '.' || c == '\'')) out += "\\&";
    if (c == '-') {
      out += "\\-";
    } else if (c == '\\') {
      out += "\\e";
    } else {
      out += c;
    }
  }
  return out;
}

// The parts of an option's help: "-o,--output RESULT" and its description on one line.
void append_option(std::string& page, const CLI::Option& option) {
  std::string name = option.get_name(option.get_positional(), true);
  if (option.get_positional()) name = option.get_name(true);
  std::string value = option.get_positional() ? "" : option.get_type_name();
  if (option.get_type_size() == 0) value.clear();
  std::string description = option.get_description();
  for (char& c : description) {
    if (c == '\n') c = ' ';
  }
  page += ".TP\n\\fB" + escaped(name) + "\\fR" + (value.empty() ? "" : " \\fI" + escaped(value) + "\\fR") + '\n';
  page += escaped(description.empty() ? name : description) + '\n';
}

template <std::size_t size>
void append_items(std::string& page, const char* heading, const std::array<ManualItem, size>& items) {
  page += fmt::format(".SH {}\n", heading);
  for (const ManualItem& item : items) {
    page += ".TP\n\\fB" + escaped(item.name) + "\\fR\n" + escaped(item.text) + '\n';
  }
}

void append_command(std::string& page, CLI::App& command) {
  std::string usage = "vorlen " + command.get_name();
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) continue;
    usage += " [OPTIONS]";
    break;
  }
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    const std::string name = option->get_name(true) + (option->get_expected_max() > 1 ? "..." : "");
    usage += option->get_required() ? " " + name : " [" + name + "]";
  }
  page += ".SS " + escaped(usage) + '\n' + escaped(command.get_description()) + ".\n";
  for (const CLI::Option* option : command.get_options()) append_option(page, *option);
  if (!command.get_footer().empty()) page += ".PP\n.nf\n" + escaped(command.get_footer()) + "\n.fi\n";
}

}  // namespace

std::string manual_page(CLI::App& app, const std::string& version) {
  std::string page = ".\\\" Generated from the definition of the command line.\n";
  page += ".TH VORLEN 1 \"\" \"vorlen " + version + "\" \"VorlenSolver\"\n";
  page += ".SH NAME\nvorlen \\- growth of III\\-nitride layers over a process recipe\n";
  page += ".SH SYNOPSIS\n.B vorlen\n.I COMMAND\n[\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]\n";
  page += ".SH DESCRIPTION\n.B vorlen\n" + escaped(DESCRIPTION) + '\n';
  page += ".SH OPTIONS\n";
  for (const CLI::Option* option : app.get_options()) append_option(page, *option);
  page += ".SH COMMANDS\n";
  for (CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) append_command(page, *command);
  append_items(page, "EXIT STATUS", EXIT_STATUSES);
  append_items(page, "ENVIRONMENT", ENVIRONMENT);
  append_items(page, "FILES", FILES);
  return page;
}
