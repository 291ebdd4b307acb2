// The functions of vorlen.wasm. JavaScript puts the bytes of a recipe into a block of vorlen_alloc and calls
// vorlen_check or vorlen_run; the answer is in static memory until the next call. live/page/solver.js is the caller.
//
// The module has no operating system. When memory runs out it traps, because a standard library without exceptions
// can't do more; vorlen_out_of_memory distinguishes this from other traps.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "api/run_recipe_text.h"
#include "api/vorlen_solver.h"
#include "check/problem_json.h"
#include "recipe/read_recipe.h"
#include "recipe/recipe_table.h"
#include "results/layer_json.h"
#include "results/layer_values.h"
#include "results/result_check.h"
#include "results/result_file.h"

#define EXPORT(name) extern "C" __attribute__((export_name(#name)))

namespace {

using nlohmann::ordered_json;

struct Answer {
  std::string json;
  std::string result;           // of a run: the content of the result file
  std::vector<double> columns;  // of its rows, one column after the other; the last one is 1 for active rows, else 0
};

Answer answer;
bool out_of_memory = false;

void end_out_of_memory() {
  out_of_memory = true;
  __builtin_trap();
}

void put_json(const ordered_json& json) {
  answer.json = json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string scheme_name(const vorlen::ProcessRecipe& recipe) {
  for (const vorlen::Keyword& scheme :
       vorlen::recipe::find_row(vorlen::recipe::Section::integration, "scheme")->keywords) {
    if (scheme.value == recipe.scheme) return scheme.text;
  }
  return "";
}

// The library ends some texts with a line break.
std::string without_line_end(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

const char* status_of(const RunFailure& failure) {
  if (!failure.text.empty() && !is_text_of_integration(failure.text)) return "rejected";
  return failure.text.empty() && failure.unphysical.empty() ? "ok" : "failed";
}

ordered_json column_names(const ResultFile& result) {
  ordered_json names = ordered_json::array();
  for (std::size_t c = 0; c < result.column_count; ++c) names.push_back(vorlen::column_at(c).name);
  names.push_back("active");
  return names;
}

void put_columns(const ResultFile& result) {
  answer.columns.clear();
  answer.columns.reserve((result.column_count + 1) * result.rows.size());
  for (std::size_t c = 0; c < result.column_count; ++c) {
    for (const ResultRow& row : result.rows) answer.columns.push_back(row.at(c));
  }
  for (const ResultRow& row : result.rows) answer.columns.push_back(row.active ? 1.0 : 0.0);
}

}  // namespace

EXPORT(vorlen_alloc) void* allocate(std::size_t size) {
  std::set_new_handler(end_out_of_memory);
  return ::operator new(size);
}

EXPORT(vorlen_free) void release(void* block) { ::operator delete(block); }

EXPORT(vorlen_out_of_memory) int is_out_of_memory() { return out_of_memory ? 1 : 0; }

// The report of the check as JSON: as one of the files of "vorlen check --format json". name ends with a zero.
EXPORT(vorlen_check) void check(const char* name, const char* bytes, std::size_t size) {
  answer = Answer();
  const recipe::CheckedFile checked{name, recipe::check_recipe(vorlen::RecipeText{name, {bytes, size}})};
  put_json(recipe::json_of(checked));
}

// Runs the recipe. The JSON has status, message, stage and remedy as "vorlen run" says them, the layers as in
// "vorlen show --json", and the names of the columns.
EXPORT(vorlen_run) void run(const char* name, const char* bytes, std::size_t size) {
  answer = Answer();
  const vorlen::RecipeText text{name, {bytes, size}};
  std::array<char, VORLEN_ERROR_BUFFER_SIZE> error{};
  vorlen::run_recipe_text(text, answer.result, error.data());

  ResultFile result;
  std::string ignored;
  if (!read_result_text("", answer.result, result, ignored)) result = ResultFile();
  std::optional<vorlen::ProcessRecipe> recipe(std::in_place);
  const bool known = vorlen::read_recipe(text, *recipe, ignored) == 0;
  const std::string scheme = scheme_name(*recipe);
  if (!known) recipe.reset();

  const RunFailure failure = failure_of_run(error.data(), result, recipe, scheme);
  put_columns(result);
  put_json({{"status", status_of(failure)},
            {"message", without_line_end(failure.text.empty() ? failure.unphysical : failure.text)},
            {"stage", failure.text.empty() ? "" : failure.end},
            {"unphysical", failure.unphysical},
            {"remedy", failure.remedy},
            {"scheme", scheme},
            {"columns", column_names(result)},
            {"rows", result.rows.size()},
            {"layers", layers_json(layer_values(result))}});
}

EXPORT(vorlen_json) const char* json_begin() { return answer.json.data(); }
EXPORT(vorlen_json_size) std::size_t json_size() { return answer.json.size(); }
EXPORT(vorlen_result) const char* result_begin() { return answer.result.data(); }
EXPORT(vorlen_result_size) std::size_t result_size() { return answer.result.size(); }
EXPORT(vorlen_columns) const double* columns_begin() { return answer.columns.data(); }
