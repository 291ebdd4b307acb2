// Names and values of recipes may be in any encoding; in JSON, bytes that are not valid UTF-8 are replaced.
#include "check/problem_json.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace vorlen::recipe {

namespace {

nlohmann::ordered_json json_of_problem(const Problem& problem) {
  const auto or_null = [](const auto& value, bool known) -> nlohmann::ordered_json {
    if (known) return value;
    return nullptr;
  };
  return {{"severity", severity_word(problem.severity)},
          {"kind", problem.kind},
          {"line", or_null(problem.line, problem.line > 0)},
          {"column", or_null(problem.column, problem.line > 0)},
          {"path", or_null(problem.path, !problem.path.empty())},
          {"stage", or_null(problem.stage, !problem.stage.empty())},
          {"stage_name", or_null(problem.stage_name, !problem.stage_name.empty())},
          {"text", problem.text},
          {"hint", or_null(problem.hint, !problem.hint.empty())},
          {"also_in", problem.also_in}};
}

}  // namespace

std::ptrdiff_t CheckedFile::count(Severity severity) const {
  return std::count_if(problems.begin(), problems.end(),
                       [severity](const Problem& problem) { return problem.severity == severity; });
}

const char* severity_word(Severity severity) { return severity == Severity::error ? "error" : "warning"; }

nlohmann::ordered_json json_of(const CheckedFile& checked) {
  nlohmann::ordered_json problems = nlohmann::ordered_json::array();
  for (const Problem& problem : checked.problems) problems.push_back(json_of_problem(problem));
  return {{"file", checked.file},
          {"errors", checked.count(Severity::error)},
          {"warnings", checked.count(Severity::warning)},
          {"problems", problems}};
}

std::string json_text(const std::vector<CheckedFile>& files) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const CheckedFile& checked : files) list.push_back(json_of(checked));
  const nlohmann::ordered_json whole = {{"version", VORLEN_VERSION}, {"files", list}};
  return whole.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace vorlen::recipe
