// The parent process forks a worker for each recipe, receives one SimulationReport from it through a pipe, and does all
// renaming and writing of status files itself. A pipe that ends without a report means that the worker has crashed.
#include "run/batch.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "run/progress.h"
#include "terminal/files.h"
#include "terminal/output.h"

namespace {

constexpr int POLL_INTERVAL = 200;  // ms; an interruption is noticed within this time

constexpr std::array<int, 3> INTERRUPTING_SIGNALS = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t interrupting_signal = 0;

void note_signal(int signal) { interrupting_signal = signal; }

struct Worker {
  pid_t pid = 0;
  int pipe = -1;  // its read end
  Job* job = nullptr;
  std::string temporary;
  int lock = -1;       // the temporary file, open
  double begin = 0.0;  // s, on the progress clock
};

// Records interrupting signals during its lifetime. Signals that were ignored before (nohup) stay ignored. A pipe that
// nobody reads does not end the run either: messages may get lost, files may not.
struct SignalRecorder {
  std::array<struct sigaction, INTERRUPTING_SIGNALS.size()> old{};
  sighandler_t old_pipe = std::signal(SIGPIPE, SIG_IGN);

  SignalRecorder() {
    interrupting_signal = 0;
    for (std::size_t i = 0; i < old.size(); ++i) {
      sigaction(INTERRUPTING_SIGNALS[i], nullptr, &old[i]);
      if (old[i].sa_handler == SIG_IGN) continue;
      struct sigaction action {};
      action.sa_handler = note_signal;
      sigaction(INTERRUPTING_SIGNALS[i], &action, nullptr);
    }
  }
  ~SignalRecorder() {
    for (std::size_t i = 0; i < old.size(); ++i) sigaction(INTERRUPTING_SIGNALS[i], &old[i], nullptr);
    std::signal(SIGPIPE, old_pipe);
  }
  SignalRecorder(const SignalRecorder&) = delete;
  SignalRecorder& operator=(const SignalRecorder&) = delete;
};

[[noreturn]] void work(const Worker& worker, int pipe) {
  // A terminal or a scheduler signals all processes at once. The parent ends its workers; a worker that reacted to the
  // signal itself would look like a crash.
  for (const int interruption : INTERRUPTING_SIGNALS) std::signal(interruption, SIG_IGN);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // no simulation outlives its parent
  const SimulationReport report = simulate(*worker.job, worker.temporary);
  _exit(write_all(pipe, &report, sizeof report) ? 0 : 1);
}

// Removes the temporary file of a job that was not finished, and ends its lock. Keeps errno.
void release(const Worker& worker) {
  const int reason = errno;
  remove_file(worker.temporary);
  close(worker.lock);
  errno = reason;
}

// Returns false if no process can be created. A job that must not run, because another run writes its files, is FAILED.
bool start_worker(Job& job, double now, std::vector<Worker>& workers) {
  std::array<int, 2> ends{};
  Worker worker;
  worker.job = &job;
  worker.temporary = part_path(job.paths.result);
  worker.begin = now;
  worker.lock = lock_part(job.paths.result, job.text);
  if (worker.lock >= 0) job.text = problem_with_target(job);  // again: the files may be those of a run that ended now
  if (!job.text.empty()) {
    if (worker.lock >= 0) release(worker);
    job.state = JobState::FAILED;
    return true;
  }
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    release(worker);
    return false;
  }
  worker.pipe = ends[0];
  worker.pid = fork();
  if (worker.pid == 0) {
    // Inherited pipes of other workers are read ends and do no harm.
    work(worker, ends[1]);
  }
  if (worker.pid < 0) {
    release(worker);
    for (const int end : ends) close(end);
    return false;
  }
  close(ends[1]);
  job.state = JobState::RUNNING;
  workers.push_back(worker);
  return true;
}

// Waits for a worker whose pipe is readable or closed, and finishes its job.
void collect(const Worker& worker, double now) {
  SimulationReport report;
  const bool reported = read_all(worker.pipe, &report, sizeof report);
  close(worker.pipe);
  int ended = 0;
  while (waitpid(worker.pid, &ended, 0) < 0 && errno == EINTR) {
  }
  if (reported) {
    finish_job(*worker.job, worker.temporary, report);
  } else {
    const std::string cause = WIFSIGNALED(ended)
                                  ? fmt::format("signal {}, {}", WTERMSIG(ended), strsignal(WTERMSIG(ended)))
                                  : fmt::format("exit status {}", WEXITSTATUS(ended));
    finish_crashed_job(*worker.job, worker.temporary, "The simulation's process has crashed (" + cause + ")",
                       now - worker.begin);
  }
  close(worker.lock);
}

void end_worker(const Worker& worker) {
  kill(worker.pid, SIGKILL);
  while (waitpid(worker.pid, nullptr, 0) < 0 && errno == EINTR) {
  }
  close(worker.pipe);
  release(worker);
  worker.job->state = JobState::WAITING;
}

void report_failure(const Job& job, bool with_name, Progress& progress) {
  clear_progress(progress);
  fail(with_name ? job.recipe + ": " + job.text : job.text);
  const bool was_started = job.wall_time > 0.0;
  if (job.rejected && was_started) {
    fail(fmt::format("\"vorlen check {}\" explains it and shows all problems", job.recipe));
  }
}

// Waits up to timeout [ms] for reports of workers, and finishes their jobs.
void wait_for_workers(std::vector<Worker>& workers, int timeout, Progress& progress, bool with_name) {
  std::vector<pollfd> pipes;
  pipes.reserve(workers.size());
  for (const Worker& worker : workers) pipes.push_back({worker.pipe, POLLIN, 0});
  if (poll(pipes.data(), pipes.size(), timeout) <= 0) return;
  for (std::size_t i = workers.size(); i-- > 0;) {
    if (pipes[i].revents == 0) continue;
    collect(workers[i], elapsed(progress));
    if (workers[i].job->state == JobState::FAILED) report_failure(*workers[i].job, with_name, progress);
    workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

bool any_failed(const std::vector<Job>& jobs) {
  return std::any_of(jobs.begin(), jobs.end(), [](const Job& job) { return job.state == JobState::FAILED; });
}

}  // namespace

int run_batch(std::vector<Job>& jobs, const BatchOptions& options) {
  const SignalRecorder signals;
  Progress progress = begin_progress(jobs.size());
  const bool with_name = jobs.size() > 1;
  std::vector<Worker> workers;
  std::size_t next = 0;
  bool stop = false;
  while (interrupting_signal == 0) {
    while (!stop && next < jobs.size() && workers.size() < options.workers && interrupting_signal == 0) {
      Job& job = jobs[next];
      const bool shares_part = std::any_of(workers.begin(), workers.end(), [&job](const Worker& worker) {
        return worker.temporary == part_path(job.paths.result);  // very long names
      });
      if (shares_part) break;
      if (!options.force && is_up_to_date(job)) {
        job.state = JobState::SKIPPED;
      } else if (!start_worker(job, elapsed(progress), workers)) {
        if (!workers.empty()) break;  // try again when one has ended and released its resources
        job.state = JobState::FAILED;
        job.text = std::string("No process for the simulation: ") + std::strerror(errno);
      }
      if (job.state == JobState::FAILED) report_failure(job, with_name, progress);
      ++next;
      stop = !options.keep_going && any_failed(jobs);
    }
    show_progress(progress, jobs, false);
    if (workers.empty() && (stop || next == jobs.size())) break;
    if (!workers.empty()) wait_for_workers(workers, POLL_INTERVAL, progress, with_name);
    stop = !options.keep_going && any_failed(jobs);
  }
  wait_for_workers(workers, 0, progress, with_name);  // that had ended before the interruption
  for (const Worker& worker : workers) end_worker(worker);
  show_progress(progress, jobs, true);
  return interrupting_signal;
}
