// Whether the rows of a result are physical, and where in the process a run went wrong.
// python/vorlen/_runs/result_check.py gives the same texts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "recipe/process_recipe.h"
#include "results/result_file.h"

// A stage of the process as texts name it: "stage_2 (GaN cap)", "stage_1_3, period 2 (InGaN well)".
struct ProcessStage {
  double begin = 0.0;  // s
  double end = 0.0;    // s
  bool active = true;  // simulated
  std::string label;
};

// Pre-stages, active stages and post-stages of a recipe, periods expanded.
std::vector<ProcessStage> stages_of(const vorlen::ProcessRecipe& recipe);

// The same from the layers of a result, for a recipe that is not known: "layer 5 (GaN cap)".
std::vector<ProcessStage> stages_of(const ResultFile& result);

// Rows with a value that no process has: NaN or infinity anywhere, or in an active row a fraction outside of
// [-0.001, 1.001].
struct UnphysicalRows {
  std::size_t count = 0;
  std::size_t first = 0;  // index
  std::string what;       // of the first row: "gallium fraction is 4.86"
};

// Nothing if all rows are physical.
std::optional<UnphysicalRows> find_unphysical_rows(const std::vector<ResultRow>& rows);

// One line on the unphysical rows of a result: how many, the first one's time and stage, and what is wrong with it.
// Empty if there are none.
std::string unphysical_text(const ResultFile& result, const std::vector<ProcessStage>& stages);

// True for a text of the library about an integration that ended early, false for one about a recipe or a file.
bool is_text_of_integration(const std::string& text);

// One line on an integration that ended early: the time of the last row and the stage.
std::string end_text(const ResultFile& result, const std::vector<ProcessStage>& stages);

// One line: what to do after such a run under that scheme.
std::string remedy_text(const std::string& scheme);

// What there is to say about a run that has failed; all empty if it has not. Empty lines are left out.
struct RunFailure {
  std::string text;        // of the library
  std::string end;         // where an integration ended early
  std::string unphysical;  // on unphysical rows
  std::string remedy;
};

// text: of the library, empty if the run ended normally. recipe: that of the run, if it is known.
RunFailure failure_of_run(const std::string& text, const ResultFile& result,
                          const std::optional<vorlen::ProcessRecipe>& recipe, const std::string& scheme);
