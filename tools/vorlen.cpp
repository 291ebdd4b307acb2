// vorlen, the command-line tool of VorlenSolver. Data goes to stdout, messages go to stderr.
#include <cstring>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "commands.h"
#include "help/self_description.h"
#include "platform/process.h"
#include "platform/program.h"
#include "python_command.h"
#include "run/tasks.h"
#include "terminal/output.h"

namespace {

// CLI11's message, with suggestions after its text.
std::string usage_message(const CLI::App* app, const CLI::Error& error) {
  std::string message = CLI::FailureMessage::simple(app, error);
  return message.insert(std::strlen(error.what()) + 1, suggestions(*app));
}

// Parses the arguments, as those of main, and runs their command.
void run_command(CLI::App& app, std::vector<std::string> arguments) {
  std::string name = "vorlen";
  std::vector<char*> pointers = {name.data()};
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  app.parse(static_cast<int>(pointers.size()), pointers.data());
}

}  // namespace

int main(int argc, char** argv) {
  platform::prepare_program();
  const std::vector<std::string> arguments = platform::arguments_of(argc, argv);
  int status = EXIT_OK;
  if (platform::run_as_child(arguments, worker_tasks(), status)) return status;
  CLI::App app("Simulates the growth of III-nitride alloy layers over a whole process recipe.", "vorlen");
  app.set_version_flag("--version", "vorlen " VORLEN_VERSION);
  app.require_subcommand(1);
  app.allow_windows_style_options(false);  // a word that begins with a slash is a path
  app.footer(
      "vorlen COMMAND --help describes a command, the manual page vorlen(1) describes them all.\n\n"
      "Example:\n  vorlen new algan_gan_hemt && vorlen run algan_gan_hemt.xml");
  app.failure_message(usage_message);
  add_check_command(app, status);
  add_timeline_command(app, status);
  add_run_command(app, status);
  add_show_command(app, status);
  add_diff_command(app, status);
  add_new_command(app, status);
  add_explain_command(app, status);
  add_live_command(app, status);
  add_python_commands(app);

  // Hidden commands: for the build, and for completion in the shell.
  const std::string first = arguments.empty() ? "" : arguments[0];
  if (first == "__man") return print_out(manual_page(app, VORLEN_VERSION));
  if (first == "__complete") return print_out(completions(app, {arguments.begin() + 1, arguments.end()}));
  if (is_python_command(first)) return forward_to_python(arguments);

  const auto named = app.get_subcommands([&first](const CLI::App* command) { return command->get_name() == first; });
  if (!arguments.empty() && !first.starts_with('-') && named.empty()) {
    const std::string meant = nearest_command(app, first);
    const std::string help = meant.empty() ? " (vorlen --help lists the commands)" : "; did you mean " + meant + "?";
    return fail("not a command: " + first + help, EXIT_USAGE);
  }

  platform::protect_files();
  try {
    run_command(app, arguments);
  } catch (const CLI::ParseError& error) {
    // --help and --version arrive here too, with exit status 0.
    if (app.exit(error) != 0) return EXIT_USAGE;
    return std::cout.flush() ? EXIT_OK : fail("standard output can't be written");
  } catch (const std::bad_alloc&) {
    return fail("Out of memory");
  }
  return status;
}
