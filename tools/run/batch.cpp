// The parent process starts a worker for each recipe, receives one SimulationReport from it, and does all renaming and
// writing of status files itself.
#include "run/batch.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "platform/interruptions.h"
#include "platform/process.h"
#include "run/progress.h"
#include "run/tasks.h"
#include "terminal/files.h"
#include "terminal/output.h"

namespace {

constexpr int POLL_INTERVAL = 200;  // ms; an interruption is noticed within this time

struct Worker {
  platform::Child process;
  Job* job = nullptr;
  std::string temporary;
  platform::File lock = platform::NO_FILE;  // the temporary file, open
  double begin = 0.0;                       // s, on the progress clock
};

// words: recipe, scheme and result of a job.
std::string run_simulation_task(const std::vector<std::string>& words) {
  Job job;
  job.recipe = words.at(0);
  job.scheme = words.at(1);
  job.paths = result_paths(words.at(2));
  return bytes_of(simulate(job, part_path(job.paths.result)));
}

// Removes the temporary file of a job that was not finished, and ends its lock.
void release(const Worker& worker) {
  platform::remove_file(worker.temporary);
  platform::close_file(worker.lock);
}

// Returns the system's error if no process can be created, otherwise 0. A job that must not run, because another run
// writes its files, is FAILED.
platform::ErrorCode start_worker(Job& job, double now, std::vector<Worker>& workers) {
  Worker worker;
  worker.job = &job;
  worker.temporary = part_path(job.paths.result);
  worker.begin = now;
  worker.lock = lock_part(job.paths.result, job.text);
  const bool locked = worker.lock != platform::NO_FILE;
  if (locked) job.text = problem_with_target(job);  // again: the files may be those of a run that ended now
  if (!job.text.empty()) {
    if (locked) release(worker);
    job.state = JobState::FAILED;
    return 0;
  }
  const platform::ErrorCode error =
      platform::start_child(SIMULATION_TASK, {job.recipe, job.scheme, job.paths.result}, worker.process);
  if (error != 0) {
    release(worker);
    return error;
  }
  job.state = JobState::RUNNING;
  workers.push_back(worker);
  return 0;
}

// Finishes the job of a worker that has reported or ended.
void collect(const Worker& worker, double now) {
  std::string bytes;
  const std::string end = platform::collect_child(worker.process, bytes);
  SimulationReport report;
  if (from_bytes(bytes, report)) {
    finish_job(*worker.job, worker.temporary, report);
  } else {
    finish_crashed_job(*worker.job, worker.temporary, "The simulation's process has crashed (" + end + ")",
                       now - worker.begin);
  }
  platform::close_file(worker.lock);
}

void end_worker(const Worker& worker) {
  platform::kill_child(worker.process);
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
  std::vector<platform::Child> processes;
  processes.reserve(workers.size());
  for (const Worker& worker : workers) processes.push_back(worker.process);
  const std::vector<std::size_t> ready = platform::wait_for_children(processes, timeout);
  for (auto place = ready.rbegin(); place != ready.rend(); ++place) {
    const std::size_t i = *place;
    collect(workers[i], elapsed(progress));
    if (workers[i].job->state == JobState::FAILED) report_failure(*workers[i].job, with_name, progress);
    workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

bool any_failed(const std::vector<Job>& jobs) {
  return std::any_of(jobs.begin(), jobs.end(), [](const Job& job) { return job.state == JobState::FAILED; });
}

}  // namespace

const platform::NamedTask SIMULATION_TASK = {"simulate", run_simulation_task};

std::vector<platform::NamedTask> worker_tasks() { return {SIMULATION_TASK, WARNING_TASK}; }

int run_batch(std::vector<Job>& jobs, const BatchOptions& options) {
  const platform::RecordedInterruptions interruptions;
  Progress progress = begin_progress(jobs.size());
  const bool with_name = jobs.size() > 1;
  std::vector<Worker> workers;
  std::size_t next = 0;
  bool stop = false;
  while (platform::recorded_interruption() == 0) {
    while (!stop && next < jobs.size() && workers.size() < options.workers && platform::recorded_interruption() == 0) {
      Job& job = jobs[next];
      const bool shares_part = std::any_of(workers.begin(), workers.end(), [&job](const Worker& worker) {
        return worker.temporary == part_path(job.paths.result);  // very long names
      });
      if (shares_part) break;
      if (!options.force && is_up_to_date(job)) {
        job.state = JobState::SKIPPED;
      } else if (const platform::ErrorCode error = start_worker(job, elapsed(progress), workers); error != 0) {
        if (!workers.empty()) break;  // try again when one has ended and released its resources
        job.state = JobState::FAILED;
        job.text = "No process for the simulation: " + platform::error_text(error);
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
  return platform::recorded_interruption();
}
