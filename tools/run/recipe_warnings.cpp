// Each recipe is checked in a separate process, so that a recipe that takes all memory, say, does not end a batch. A
// check that ends without an answer counts as one without warnings; the run will show what is wrong.
#include "run/recipe_warnings.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "check/recipe_check.h"
#include "check/recipe_words.h"
#include "platform/interruptions.h"
#include "platform/process.h"
#include "platform/terminal.h"
#include "run/tasks.h"
#include "terminal/output.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace {

constexpr std::size_t SHOWN = 3;           // warnings of a single recipe
constexpr std::size_t MOST_SHOWN = 20;     // if they are about parts that are not simulated
constexpr std::size_t SHOWN_RECIPES = 20;  // of a batch

// Those about the continuous scheme.
constexpr std::string_view CONTINUOUS_ONLY[] = {"temperature-jump", "hot-pause", "spacer", "no-effect"};

// What the checking process reports, as plain bytes.
struct WarningReport {
  bool rejected = false;  // with an error that has a place in the recipe
  std::size_t count = 0;
  std::size_t lost = 0;  // the first warnings are about so many parts that are not simulated
  std::array<std::array<char, 1024>, MOST_SHOWN> first{};
};

bool loses_part(const recipe::Problem& problem) {
  const auto kinds = recipe::warning_kinds();
  return std::any_of(kinds.begin(), kinds.end(), [&problem](const recipe::WarningKind& kind) {
    return kind.loses_part && std::string_view(kind.name) == problem.kind;
  });
}

bool is_part_of_word(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':'; }

// The text with the user's name after the first mention of the stage, or at the end if it is not mentioned.
std::string text_with_name(const recipe::Problem& problem) {
  std::string text = problem.text;
  if (problem.stage_name.empty()) return text;
  const std::string name = fmt::format("\"{}\"", recipe::short_name(problem.stage_name));
  if (text.find(name) != std::string::npos) return text;
  for (std::size_t at = text.find(problem.stage); at != std::string::npos; at = text.find(problem.stage, at + 1)) {
    const std::size_t end = at + problem.stage.size();
    if ((at > 0 && is_part_of_word(text[at - 1])) || (end < text.size() && is_part_of_word(text[end]))) continue;
    return text.insert(end, " " + name);
  }
  return fmt::format("{} ({} {})", text, problem.stage, name);
}

WarningReport report_on(const std::string& path, const std::string& scheme) {
  std::vector<recipe::Problem> problems = recipe::check_recipe(path);
  WarningReport report;
  if (!problems.empty() && problems.front().severity == recipe::Severity::error) {
    report.rejected = problems.front().line > 0;
    return report;
  }
  if (scheme == "staged") {
    std::erase_if(problems, [](const recipe::Problem& problem) {
      return std::find(std::begin(CONTINUOUS_ONLY), std::end(CONTINUOUS_ONLY), problem.kind) !=
             std::end(CONTINUOUS_ONLY);
    });
  }
  const auto others = std::stable_partition(problems.begin(), problems.end(), loses_part);
  report.count = problems.size();
  report.lost = static_cast<std::size_t>(others - problems.begin());
  for (std::size_t k = 0; k < std::min(problems.size(), MOST_SHOWN); ++k) {
    const std::string place = problems[k].line > 0 ? fmt::format("line {}: ", problems[k].line) : "";
    const std::string words = printable(text_with_name(problems[k]));
    const std::string text = place + (platform::uses_utf8() ? words : with_ascii_units(words));
    text.copy(report.first[k].data(), report.first[k].size() - 1);
  }
  return report;
}

// words: the recipe, and the scheme that overrides its own, or an empty text.
std::string check(const std::vector<std::string>& words) try {
  return bytes_of(report_on(words.at(0), words.at(1)));
} catch (const std::exception&) {  // out of memory
  return "";
}

WarningReport checked_separately(const Job& job) {
  platform::Child child;
  if (platform::start_child(WARNING_TASK, {job.recipe, job.scheme}, child) != 0) return {};
  std::string bytes;
  platform::collect_child(child, bytes);
  WarningReport report;
  return from_bytes(bytes, report) ? report : WarningReport{};
}

std::string counted(std::size_t number, const char* word) {
  return fmt::format("{} {}{}", number, word, number == 1 ? "" : "s");
}

void show_one(Job& job, const WarningReport& report) {
  job.rejected = report.rejected;
  const std::size_t shown = std::min(report.count, std::clamp(report.lost, SHOWN, MOST_SHOWN));
  for (std::size_t k = 0; k < shown; ++k) warn(job.recipe + ": " + report.first[k].data());
  if (report.count == 0) return;
  fail(fmt::format("{}: {}; \"vorlen check {}\" shows all", job.recipe, counted(report.count, "warning"), job.recipe));
}

void show_batch(std::vector<Job>& jobs) {
  std::size_t with_warnings = 0;
  for (Job& job : jobs) {
    const WarningReport report = checked_separately(job);
    job.rejected = report.rejected;
    if (report.count == 0) continue;
    ++with_warnings;
    // A part that is not simulated is never left out.
    if (with_warnings > SHOWN_RECIPES && report.lost == 0) continue;
    const std::string first = report.lost > 0 ? std::string(", first ") + report.first[0].data() : "";
    warn(fmt::format("{}: {}{}", job.recipe, counted(report.count, "warning"), first));
  }
  if (with_warnings > 0) {
    fail(fmt::format("{} of {} recipes with warnings; \"vorlen check RECIPE...\" shows them", with_warnings,
                     jobs.size()));
  }
}

}  // namespace

const platform::NamedTask WARNING_TASK = {"check", check};

void show_recipe_warnings(std::vector<Job>& jobs) {
  const platform::IgnoredBrokenPipes ignored;  // the run continues when nobody reads the messages
  if (jobs.size() == 1) {
    show_one(jobs.front(), checked_separately(jobs.front()));
  } else {
    show_batch(jobs);
  }
}
