// Work that is done in a child process because its effect on the process cannot be undone.
#include "support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace vorlen_test {

std::string text_from_child(const std::function<std::string()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no child process");
  if (child == 0) {
    const std::string text = work();
    const bool written = write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  std::string text;
  char part[4096];
  for (ssize_t count; (count = read(ends[0], part, sizeof part)) > 0;)
    text.append(part, static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  return text;
}

bool become_nobody() {
  constexpr uid_t NOBODY = 65534;
  return getuid() != 0 || (setgid(NOBODY) == 0 && setuid(NOBODY) == 0);
}

}  // namespace vorlen_test
