// vorlen run RECIPE...: run recipes and show what grew.
#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "commands.h"
#include "platform/files.h"
#include "results/result_file.h"
#include "run/batch.h"
#include "run/recipe_warnings.h"
#include "run/run_text.h"
#include "run/scheme.h"
#include "run/simulation.h"
#include "terminal/files.h"
#include "terminal/option_values.h"
#include "terminal/output.h"

namespace {

constexpr int EXIT_SIGNAL = 128;  // plus the number of the signal, as in shells
constexpr unsigned MOST_WORKERS = 1024;

struct RunOptions {
  std::vector<std::string> recipes;
  std::string result;  // of a single recipe; empty: default_result_path()
  std::string output_folder;
  std::string scheme;    // empty: the recipe's own
  unsigned workers = 0;  // 0: one per processor
  bool keep_going = false;
  bool force = false;
};

// The recipe's file name with the extension .result.txt, in folder (empty: the current one).
std::string default_result_path(const std::string& recipe, const std::string& folder) {
  const std::string name = platform::text_of(platform::path_of(recipe).stem()) + ".result.txt";
  return platform::text_of(platform::path_of(folder) / platform::path_of(name));
}

// Why the batch must not be started; empty if it can be.
std::string problem_with_batch(const std::vector<Job>& jobs) {
  std::map<std::string, const Job*> owners;
  for (const Job& job : jobs) {
    for (const std::string& path : {job.paths.result, job.paths.status, job.paths.failed}) {
      const std::string place = platform::identity_of(path);
      const auto [owner, is_first] = owners.emplace(place.empty() ? path : place, &job);
      if (is_first) continue;
      if (owner->second == &job) return path + " is a link to another file of the same run";
      return fmt::format("{} and {} would both write {}", owner->second->recipe, job.recipe, path);
    }
  }
  return "";
}

// A recipe that a job would overwrite with one of its files; empty if none.
std::string overwritten_recipe(const std::vector<Job>& jobs) {
  for (const Job& job : jobs) {
    const ResultPaths& paths = job.paths;
    for (const std::string& path : {paths.result, paths.status, paths.failed, part_path(paths.result)}) {
      if (platform::file_state(path).kind == platform::FileKind::NONE) continue;
      for (const Job& other : jobs) {
        if (platform::is_same_file(other.recipe, path)) return other.recipe;
      }
    }
  }
  return "";
}

int print_result(const Job& job) {
  ResultFile result;
  std::string error;
  if (!read_result_file(job.paths.result, result, error)) return fail(error);
  if (result.rows.empty()) return fail(job.paths.result + " has no rows");
  return print_out(run_text(result, job));
}

int run_recipes(const RunOptions& options) {
  if (!options.result.empty() && options.recipes.size() > 1) {
    return fail("--output is for a single recipe; use --output-dir for several", EXIT_USAGE);
  }
  std::vector<Job> jobs;
  for (const std::string& recipe : options.recipes) {
    Job job;
    job.recipe = recipe;
    job.scheme = options.scheme;
    job.paths =
        result_paths(options.result.empty() ? default_result_path(recipe, options.output_folder) : options.result);
    jobs.push_back(job);
  }
  const std::string problem = problem_with_batch(jobs);
  if (!problem.empty()) return fail(problem, EXIT_USAGE);
  const std::string overwritten = overwritten_recipe(jobs);
  if (!overwritten.empty()) return fail("the result would overwrite the recipe " + overwritten);
  if (!options.output_folder.empty()) {
    const platform::ErrorCode error = platform::create_folders(options.output_folder);
    if (error != 0) return fail(options.output_folder + " can't be created: " + platform::error_text(error));
  }
  int target_status = EXIT_OK;
  for (const Job& job : jobs) {
    const std::string target = problem_with_target(job);
    if (!target.empty()) target_status = fail(target);
  }
  if (target_status != EXIT_OK) return target_status;

  show_recipe_warnings(jobs);
  BatchOptions batch;
  batch.workers = options.workers > 0 ? options.workers : std::max(1U, std::thread::hardware_concurrency());
  batch.keep_going = options.keep_going;
  batch.force = options.force;
  const int signal = run_batch(jobs, batch);
  if (signal != 0) fail("interrupted");

  const bool all_ran = std::all_of(jobs.begin(), jobs.end(), [](const Job& job) {
    return job.state == JobState::DONE || job.state == JobState::SKIPPED;
  });
  int printed = EXIT_OK;
  if (jobs.size() > 1) {
    printed = print_out(batch_text(jobs));
  } else if (all_ran) {
    printed = print_result(jobs.front());
  }
  if (signal != 0) return EXIT_SIGNAL + signal;
  return all_ran && printed == EXIT_OK ? EXIT_OK : EXIT_FAILED;
}

}  // namespace

void add_run_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<RunOptions>();
  CLI::App* run = app.add_subcommand("run", "Run recipes, write the result files and show what grew");
  run->add_option("RECIPE", options->recipes, "Recipe files (XML)")->required()->type_name("")->check(not_empty());
  CLI::Option* result =
      run->add_option("-o,--output", options->result,
                      "Result file of a single recipe (default: the recipe's name with the extension\n"
                      ".result.txt, in the current directory). An existing file is replaced only\n"
                      "if the run succeeds")
          ->type_name("RESULT")
          ->check(not_empty());
  run->add_option("--output-dir", options->output_folder,
                  "Directory for the result files (default: the current one); created if missing")
      ->type_name("DIR")
      ->check(not_empty())
      ->excludes(result);
  run->add_option("--scheme", options->scheme,
                  "Integration scheme, overrides that of the recipes: staged integrates stage by\n"
                  "stage, continuous (the default in recipes) in one sweep over all stages")
      ->type_name("{continuous,staged}")
      ->check(CLI::IsMember(scheme_names()).description(""));
  run->add_option("-j,--jobs", options->workers,
                  "Number of recipes to run at the same time, each in a separate process\n"
                  "(default: number of processors)")
      ->type_name("N")
      ->transform(whole_number(1, MOST_WORKERS));
  run->add_flag("--keep-going", options->keep_going, "Run the remaining recipes after one has failed");
  run->add_flag("--force", options->force, "Run recipes again even if their results are up to date");
  run->footer(
      "Each result has a status file, NAME.status.json, that records how the run ended. If a run\n"
      "fails or gives unphysical rows, its rows are kept in NAME.failed.txt, and an older result is\n"
      "not changed.\n"
      "Exit status: 0 all recipes ran or are up to date, 1 some did not, 2 wrong command line.\n\n"
      "Examples:\n"
      "  vorlen run recipe.xml -o recipe.result.txt\n"
      "  vorlen run -j 4 --keep-going --output-dir results recipes/*.xml");
  run->callback([options, &status] { status = run_recipes(*options); });
}
