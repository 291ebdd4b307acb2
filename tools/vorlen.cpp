// vorlen, the command-line tool of VorlenSolver. Data goes to stdout, messages go to stderr.
#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstring>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "commands.h"
#include "help/self_description.h"
#include "python_command.h"
#include "terminal/output.h"

namespace {

// CLI11's message, with suggestions after its text.
std::string usage_message(const CLI::App* app, const CLI::Error& error) {
  std::string message = CLI::FailureMessage::simple(app, error);
  return message.insert(std::strlen(error.what()) + 1, suggestions(*app));
}

// A file that the tool opens must not get the number of a stream that the caller has closed: messages would be written
// to it. Here such a stream can neither be read nor written.
void reserve_standard_streams() {
  for (int file = open("/dev/null", O_PATH); file >= 0; file = open("/dev/null", O_PATH)) {
    if (file <= STDERR_FILENO) continue;
    close(file);
    return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");  // character set only: numbers keep their decimal point
  int status = EXIT_OK;
  CLI::App app("Simulates the growth of III-nitride alloy layers over a whole process recipe.", "vorlen");
  app.set_version_flag("--version", "vorlen " VORLEN_VERSION);
  app.require_subcommand(1);
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
  const std::string first = argc > 1 ? argv[1] : "";
  if (first == "__man") return print_out(manual_page(app, VORLEN_VERSION));
  if (first == "__complete") return print_out(completions(app, std::vector<std::string>(argv + 2, argv + argc)));
  if (is_python_command(first)) return forward_to_python(argv + 1);

  const auto named = app.get_subcommands([&first](const CLI::App* command) { return command->get_name() == first; });
  if (argc > 1 && !first.starts_with('-') && named.empty()) {
    const std::string meant = nearest_command(app, first);
    const std::string help = meant.empty() ? " (vorlen --help lists the commands)" : "; did you mean " + meant + "?";
    return fail("not a command: " + first + help, EXIT_USAGE);
  }

  reserve_standard_streams();
  std::signal(SIGXFSZ, SIG_IGN);  // a file that gets too large is an error of writing
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // --help and --version arrive here too, with exit status 0.
    if (app.exit(error) != 0) return EXIT_USAGE;
    return std::cout.flush() ? EXIT_OK : EXIT_FAILED;
  } catch (const std::bad_alloc&) {
    return fail("Out of memory");
  }
  return status;
}
