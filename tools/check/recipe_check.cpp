// The report on a recipe: the walk finds all that is wrong, and the library itself has the last word on the first
// error.
#include "check/recipe_check.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "api/vorlen_solver.h"
#include "check/recipe_reading.h"
#include "model/surfchem_nonst.h"
#include "recipe/load_document.h"
#include "recipe/read_recipe.h"

namespace recipe {

namespace {

// How far the library comes with a recipe.
struct Verdict {
  bool file_read = false;
  std::string text;             // of the refusal; empty when it is accepted
  bool state_is_finite = true;  // the first state vector of the run
};

Verdict ask_library(const std::string& file) {
  Verdict verdict;
  vorlen::ProcessRecipe recipe;
  const std::int32_t status = vorlen::read_recipe(file.c_str(), recipe, verdict.text);
  verdict.file_read = status >= 0;
  if (status != 0) return verdict;
  std::int32_t err = 0;
  vorlen::SurfChemNonst model(recipe, "", err);
  verdict.text = err != 0 ? model.error_text : "";
  if (err != 0) return verdict;
  verdict.text = recipe.integration_fault;
  std::array<double, vorlen::N_STATE_MAX> y{};
  model.init_state(y.data());
  verdict.state_is_finite =
      std::all_of(y.begin(), y.begin() + model.n_state(), [](double v) { return std::isfinite(v); });
  return verdict;
}

// The file as a whole can't be read. The parser knows the place of a fault in the text.
Problem file_problem(const std::string& text, const TiXmlDocument& document) {
  Problem problem;
  problem.kind = "file";
  problem.text = text;
  const std::string_view reason = std::string_view(text).substr(text.find('\n') + 1);
  if (document.ErrorRow() > 0) {
    problem.line = document.ErrorRow();
    problem.column = document.ErrorCol();
  }
  if (reason.starts_with("Failed to open")) {
    problem.hint = "check that the file is there and can be read, and that it is no folder";
  } else if (reason.starts_with("Elements are nested")) {
    problem.hint = "look for missing end tags";
  } else if (document.Error()) {
    problem.hint = "the file is no well-formed XML";
  }
  return problem;
}

// A text comes to the host cut to what its buffer holds.
void cut(std::string& text) {
  if (text.size() >= VORLEN_ERROR_BUFFER_SIZE) text.resize(VORLEN_ERROR_BUFFER_SIZE - 1);
}

// Puts the library's refusal first when the walk has not come upon it; the library accepts nothing that it has.
void let_library_decide(const Verdict& verdict, const TiXmlDocument& document, std::vector<Problem>& errors) {
  if (verdict.text.empty()) {
    for (Problem& problem : errors) problem.severity = Severity::warning;
    return;
  }
  const auto found = std::find_if(errors.begin(), errors.end(),
                                  [&verdict](const Problem& problem) { return problem.text == verdict.text; });
  if (found != errors.end()) {
    std::rotate(errors.begin(), found, found + 1);
    return;
  }
  // What only the computation of the reference layer shows.
  const TiXmlElement* root = document.FirstChildElement("NonstSurfChem");
  const TiXmlElement* place = root == nullptr ? nullptr : root->FirstChildElement("transport");
  Problem problem;
  if (place != nullptr) problem = problem_at(Severity::error, "", *place, nullptr, {}, "", "");
  problem.kind = "model";
  problem.text = verdict.text;
  problem.hint = "check the reference conditions of the transport model";
  errors.insert(errors.begin(), problem);
}

}  // namespace

std::vector<Problem> check_recipe(const std::string& file) {
  const Verdict verdict = ask_library(file);
  TiXmlDocument document;
  document.SetTabSize(1);  // columns count characters
  std::string ignored;     // the library's own text has columns with wider tabs
  const bool loaded = vorlen::load_document(file.c_str(), document, ignored);
  if (!loaded || !verdict.file_read) return {file_problem(verdict.file_read ? ignored : verdict.text, document)};

  Reading reading = read_all(document);
  std::vector<Problem>& problems = reading.errors;
  let_library_decide(verdict, document, problems);

  std::vector<Problem>& warnings = reading.warnings;
  warn_of_unread(document, reading, warnings);
  warn_of_process(reading, warnings);
  if (!verdict.state_is_finite) {
    Problem problem;
    problem.severity = Severity::warning;
    problem.kind = "initial-state";
    problem.text = "the run begins with values that are no numbers";
    problem.hint =
        "check the constants, the pressure, and with thick_GaN the flows of Q_ref: it needs the carrier gases";
    warnings.push_back(problem);
  }
  std::stable_sort(warnings.begin(), warnings.end(),
                   [](const Problem& a, const Problem& b) { return a.line < b.line; });
  problems.insert(problems.end(), warnings.begin(), warnings.end());
  for (Problem& problem : problems) cut(problem.text);
  return problems;
}

}  // namespace recipe
