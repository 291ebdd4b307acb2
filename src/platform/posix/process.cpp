// A child is a fork of this process, with a pipe for its report. A pipe that ends without a report means that the child
// has crashed.
#include "platform/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <array>
#include <cerrno>
#include <cstring>

extern char** environ;

namespace platform {

struct ChildProcess {
  pid_t pid = 0;
  int pipe = -1;  // its read end
};

namespace {

int create_pipe(std::array<int, 2>& ends) {
#ifdef __APPLE__
  if (pipe(ends.data()) != 0) return errno;
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return 0;
#else
  return pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno;
#endif
}

[[noreturn]] void run_child(Task task, const std::vector<std::string>& words, int pipe) {
  // A terminal or a scheduler signals all processes at once. The parent ends its children; a child that reacted to the
  // signal itself would look like a crash.
  for (const int interruption : {SIGINT, SIGTERM, SIGHUP}) signal(interruption, SIG_IGN);
#ifdef __linux__
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // no child outlives its parent
#endif
  const std::string report = task(words);
  _exit(write_all(pipe, report.data(), report.size()) == 0 ? 0 : 1);
}

int wait_for_end(pid_t pid) {
  int ended = 0;
  while (waitpid(pid, &ended, 0) < 0 && errno == EINTR) {
  }
  return ended;
}

std::string read_to_end(int file) {
  std::string text;
  std::array<char, 65536> block{};
  while (true) {
    const ssize_t count = read(file, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(block.data(), static_cast<std::size_t>(count));
  }
}

// As exec() expects them, terminated by a null.
std::vector<char*> pointers_to(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

bool run_as_child(const std::vector<std::string>&, const std::vector<NamedTask>&, int&) { return false; }

ErrorCode start_child(const NamedTask& task, const std::vector<std::string>& words, Child& child) {
  std::array<int, 2> ends{};
  const ErrorCode error = create_pipe(ends);
  if (error != 0) return error;
  const pid_t pid = fork();
  if (pid == 0) {
    // Inherited pipes of other children are read ends and do no harm.
    run_child(task.run, words, ends[1]);
  }
  const ErrorCode fork_error = pid < 0 ? errno : 0;
  close(ends[1]);
  if (fork_error != 0) {
    close(ends[0]);
    return fork_error;
  }
  child = std::make_shared<ChildProcess>(ChildProcess{pid, ends[0]});
  return 0;
}

std::vector<std::size_t> wait_for_children(const std::vector<Child>& children, int timeout) {
  std::vector<pollfd> pipes;
  pipes.reserve(children.size());
  for (const Child& child : children) pipes.push_back({child->pipe, POLLIN, 0});
  std::vector<std::size_t> ready;
  if (poll(pipes.data(), static_cast<nfds_t>(pipes.size()), timeout) <= 0) return ready;
  for (std::size_t i = 0; i < pipes.size(); ++i) {
    if (pipes[i].revents != 0) ready.push_back(i);
  }
  return ready;
}

std::string collect_child(const Child& child, std::string& report) {
  report = read_to_end(child->pipe);
  close(child->pipe);
  const int ended = wait_for_end(child->pid);
  if (!WIFSIGNALED(ended)) return "exit status " + std::to_string(WEXITSTATUS(ended));
  return "signal " + std::to_string(WTERMSIG(ended)) + ", " + strsignal(WTERMSIG(ended));
}

void kill_child(const Child& child) {
  kill(child->pid, SIGKILL);
  wait_for_end(child->pid);
  close(child->pipe);
}

int run_silently(const std::vector<std::string>& words) {
  std::vector<std::string> copies = words;
  std::vector<char*> arguments = pointers_to(copies);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const bool spawned = posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  if (!spawned) return -1;
  const int ended = wait_for_end(pid);
  return WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
}

ErrorCode continue_as(const std::vector<std::string>& words) {
  std::vector<std::string> copies = words;
  // The program unblocks it when it is ready: an interpreter that is starting would print a traceback.
  sigset_t interrupts;
  sigemptyset(&interrupts);
  sigaddset(&interrupts, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupts, nullptr);
  execvp(copies[0].c_str(), pointers_to(copies).data());
  return errno;
}

}  // namespace platform
