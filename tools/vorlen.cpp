// vorlen: the command-line host of VorlenSolver. Data go to stdout, texts about failures to stderr.
#include <clocale>
#include <iostream>

#include "commands.h"

int main(int argc, char** argv) {
  std::setlocale(LC_CTYPE, "");  // what the terminal can show; numbers have the point in any locale
  int status = EXIT_OK;
  CLI::App app("Simulates the growth of III-nitride alloy layers over a whole process recipe.", "vorlen");
  app.set_version_flag("--version", "vorlen " VORLEN_VERSION);
  app.require_subcommand(1);
  add_run_command(app, status);
  add_show_command(app, status);
  add_diff_command(app, status);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Requests for help and version come this way too, and are no failures.
    if (app.exit(error) != 0) return EXIT_USAGE;
    return std::cout.flush() ? EXIT_OK : EXIT_FAILED;
  }
  return status;
}
