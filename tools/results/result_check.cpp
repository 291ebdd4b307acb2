// Stages are found by time. A row at the boundary of two stages belongs to the first, but a run that ended there could
// not start the second.
#include "results/result_check.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "terminal/printable.h"

namespace {

constexpr double FRACTION_MIN = -0.001;  // rounding errors of the integration are far smaller
constexpr double FRACTION_MAX = 1.001;
constexpr double STAGE_TIME_TOLERANCE = 1e-9;  // relative, for sums of durations
// Rows are at least 1 ms apart, so the last one may be that much earlier than the failure.
constexpr double LAST_ROW_GAP = 0.01;        // s
constexpr double LAST_ROW_GAP_SHARE = 0.01;  // of the duration of the stage
constexpr std::size_t NAME_SIZE_MAX = 100;   // bytes; a longer name is left out

constexpr std::array<const char*, 4> TEXTS_OF_INTEGRATION = {
    "Step size has become too small",
    "Maximum number of time steps reached",
    "Matrix is repeatedly singular",
    "State is not finite",
};

bool is_fraction(std::size_t column) {
  return column >= static_cast<std::size_t>(ResultColumn::X_IN) &&
         column <= static_cast<std::size_t>(ResultColumn::X_AL);
}

// The first fault of a row in its main columns; empty if there is none.
std::string fault_of(const ResultRow& row) {
  for (std::size_t column = 0; column < vorlen::N_RESULT_COLUMNS; ++column) {
    const double value = row.values[column];
    const char* words = vorlen::RESULT_COLUMNS[column].words;
    if (std::isnan(value)) return fmt::format("{} is NaN", words);
    if (std::isinf(value)) return fmt::format("{} is infinite", words);
    if (row.active && is_fraction(column) && !(value >= FRACTION_MIN && value <= FRACTION_MAX)) {
      return fmt::format("{} is {:.6g}", words, value);
    }
  }
  return "";
}

std::string label_of(const std::string& element, const std::string& name, std::size_t number) {
  if (name.size() > NAME_SIZE_MAX) return element;
  return fmt::format("{} ({})", element, name.empty() ? fmt::format("Layer{}", number) : printable(name));
}

// The first active stage for which is_it holds, else the last active one; null if there is none.
template <typename Condition>
const ProcessStage* active_stage(const std::vector<ProcessStage>& stages, Condition is_it) {
  const ProcessStage* last = nullptr;
  for (const ProcessStage& stage : stages) {
    if (!stage.active) continue;
    last = &stage;
    if (is_it(stage)) break;
  }
  return last;
}

// The rows of pre-stages, before the first active one.
std::size_t leading_rows(const std::vector<ResultRow>& rows) {
  const auto first = std::find_if(rows.begin(), rows.end(), [](const ResultRow& row) { return row.active; });
  return static_cast<std::size_t>(first - rows.begin());
}

// The rows of post-stages, after the last active one; none if no row is active.
std::size_t trailing_rows(const std::vector<ResultRow>& rows) {
  const auto last = std::find_if(rows.rbegin(), rows.rend(), [](const ResultRow& row) { return row.active; });
  return last == rows.rend() ? 0 : static_cast<std::size_t>(last - rows.rbegin());
}

// The stage of the row with that index; null when it is not known. Other than active rows come in pairs, one pair per
// stage: those of pre-stages first, those of post-stages last.
const ProcessStage* stage_of_row(const std::vector<ResultRow>& rows, std::size_t index,
                                 const std::vector<ProcessStage>& stages) {
  const double time = rows[index].at(ResultColumn::TIME);
  if (!rows[index].active) {
    const std::size_t from_end = (rows.size() - 1 - index) / 2 + 1;
    const bool is_pre_stage = index < leading_rows(rows);
    if ((is_pre_stage ? index / 2 + 1 : from_end) > stages.size()) return nullptr;
    return &stages[is_pre_stage ? index / 2 : stages.size() - from_end];
  }
  if (!std::isfinite(time)) return nullptr;
  const double slack = STAGE_TIME_TOLERANCE * std::fabs(time);
  return active_stage(stages, [&](const ProcessStage& stage) { return stage.end >= time - slack; });
}

}  // namespace

std::vector<ProcessStage> stages_of(const vorlen::ProcessRecipe& recipe) {
  std::vector<ProcessStage> stages;
  const auto add = [&stages](const auto& stage, bool active, const std::string& element) {
    stages.push_back({stage.begin_time(), stage.end_time(), active, label_of(element, stage.name, stages.size() + 1)});
  };
  for (const vorlen::PrePostStageRecord& stage : recipe.pre_stages) add(stage, false, stage.label);
  for (const vorlen::StageRecord& stage : recipe.active_stages) {
    add(stage, true, stage.period > 0 ? fmt::format("{}, period {}", stage.label, stage.period) : stage.label);
  }
  for (const vorlen::PrePostStageRecord& stage : recipe.post_stages) add(stage, false, stage.label);
  return stages;
}

std::vector<ProcessStage> stages_of(const ResultFile& result) {
  std::vector<ProcessStage> stages;
  double clock = result.rows.empty() ? NAN : result.rows.front().at(ResultColumn::TIME);
  const std::size_t pre_count = leading_rows(result.rows) / 2;
  const std::size_t post_count = trailing_rows(result.rows) / 2;
  for (const ResultLayer& layer : result.layers) {
    const std::size_t number = stages.size() + 1;
    const bool active = number > pre_count && number + post_count <= result.layers.size();
    stages.push_back(
        {clock, clock + layer.duration, active, label_of(fmt::format("layer {}", number), layer.name, number)});
    clock += layer.duration;
  }
  return stages;
}

std::optional<UnphysicalRows> find_unphysical_rows(const std::vector<ResultRow>& rows) {
  UnphysicalRows found;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string fault = fault_of(rows[i]);
    if (fault.empty()) continue;
    if (found.count++ > 0) continue;
    found.first = i;
    found.what = fault;
  }
  return found.count > 0 ? std::optional(found) : std::nullopt;
}

std::string unphysical_text(const ResultFile& result, const std::vector<ProcessStage>& stages) {
  const std::optional<UnphysicalRows> found = find_unphysical_rows(result.rows);
  if (!found) return "";
  const ProcessStage* stage = stage_of_row(result.rows, found->first, stages);
  const double time = result.rows[found->first].at(ResultColumn::TIME);
  return fmt::format("Unphysical values in {} of {} rows, first at {}{}: {}", found->count, result.rows.size(),
                     std::isfinite(time) ? fmt::format("{:.10g} s", time) : "an unknown time",
                     stage == nullptr ? "" : " in " + stage->label, found->what);
}

bool is_text_of_integration(const std::string& text) {
  return std::any_of(TEXTS_OF_INTEGRATION.begin(), TEXTS_OF_INTEGRATION.end(),
                     [&text](const char* known) { return text.starts_with(known); });
}

std::string end_text(const ResultFile& result, const std::vector<ProcessStage>& stages) {
  const double time = result.rows.empty() ? NAN : result.rows.back().at(ResultColumn::TIME);
  if (!std::isfinite(time)) return "The run ended before its first row";
  const ProcessStage* stage = active_stage(stages, [&](const ProcessStage& each) {
    return each.end > time + std::min(LAST_ROW_GAP, LAST_ROW_GAP_SHARE * (each.end - each.begin));
  });
  if (stage == nullptr) return fmt::format("The run ended at {:.10g} s", time);
  const bool at_start = time <= stage->begin + STAGE_TIME_TOLERANCE * std::fabs(time);
  return fmt::format("The run ended at {:.10g} s{} {}", time, at_start ? ", at the start of" : " in", stage->label);
}

std::string remedy_text(const std::string& scheme) {
  return scheme == "staged" ? "What to do: see docs/when-a-run-fails.md"
                            : "What to do: run it with --scheme staged (in Python: scheme=\"staged\")";
}

RunFailure failure_of_run(const std::string& text, const ResultFile& result,
                          const std::optional<vorlen::ProcessRecipe>& recipe, const std::string& scheme) {
  RunFailure failure;
  failure.text = text;
  if (text.empty() ? !find_unphysical_rows(result.rows) : !is_text_of_integration(text)) return failure;
  const std::vector<ProcessStage> stages = recipe ? stages_of(*recipe) : stages_of(result);
  if (!text.empty()) failure.end = end_text(result, stages);
  failure.unphysical = unphysical_text(result, stages);
  failure.remedy = remedy_text(scheme);
  return failure;
}
