// Counts the states of the jobs. A terminal that cannot erase a line (TERM=dumb) is treated like a file.
#include "run/progress.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>

#include "platform/terminal.h"

namespace {

constexpr double LINE_INTERVAL = 1.0;      // s, if lines are not rewritten
constexpr double FIRST_OF_ONE = 1.0;       // s; a shorter single run shows no progress
constexpr const char* ERASE = "\r\033[K";  // return to the start of the line and erase it

std::string duration_text(double seconds) {
  const auto whole = static_cast<long>(seconds);
  return whole < 3600 ? fmt::format("{}:{:02}", whole / 60, whole % 60)
                      : fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::string line_of(const std::vector<Job>& jobs, double seconds) {
  const auto count = [&jobs](JobState state) {
    return std::count_if(jobs.begin(), jobs.end(), [state](const Job& job) { return job.state == state; });
  };
  std::string line = fmt::format("{} of {} done", count(JobState::DONE), jobs.size());
  if (count(JobState::SKIPPED) > 0) line += fmt::format(", {} skipped", count(JobState::SKIPPED));
  return line + fmt::format(", {} failed, {} running, elapsed {}", count(JobState::FAILED), count(JobState::RUNNING),
                            duration_text(seconds));
}

}  // namespace

Progress begin_progress(std::size_t job_count) {
  Progress progress;
  progress.start = std::chrono::steady_clock::now();
  progress.in_place = platform::has_control_sequences(stderr);
  progress.of_several = job_count > 1;
  return progress;
}

double elapsed(const Progress& progress) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - progress.start).count();
}

void show_progress(Progress& progress, const std::vector<Job>& jobs, bool at_end) {
  const double now = elapsed(progress);
  if (!progress.of_several && (at_end || !progress.in_place || now < FIRST_OF_ONE)) {
    clear_progress(progress);
    return;
  }
  const std::string line = line_of(jobs, now);
  if (progress.in_place) {
    if (line != progress.shown) std::fputs((ERASE + line).c_str(), stderr);
    if (at_end) std::fputc('\n', stderr);
  } else if (progress.last_shown < 0.0 && !at_end) {
    progress.last_shown = now;  // nothing has been done yet
    return;
  } else if (line != progress.shown && (at_end || now - progress.last_shown >= LINE_INTERVAL)) {
    std::fputs((line + '\n').c_str(), stderr);
    progress.last_shown = now;
  } else {
    return;
  }
  progress.shown = line;
  std::fflush(stderr);
}

void clear_progress(Progress& progress) {
  if (progress.in_place && !progress.shown.empty()) std::fputs(ERASE, stderr);
  progress.shown.clear();
}
