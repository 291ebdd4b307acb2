// The report on a recipe: what the reader finds, what the model finds when it is set up, and what both ignore.
#include "check/recipe_check.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "api/vorlen_solver.h"
#include "check/recipe_reading.h"
#include "model/setup_messages.h"
#include "model/surfchem_nonst.h"

namespace vorlen::recipe {

namespace {

// The file as a whole can't be read. The parser knows the place of a fault in the text. source is a path or a
// RecipeText, file its name.
template <class Source>
Problem file_problem(const Source& source, const std::string& file, const TiXmlDocument& document) {
  Problem problem;
  problem.kind = "file";
  TiXmlDocument with_tabs;  // the library's text counts tabs as several columns
  vorlen::load_document(source, with_tabs, problem.text);
  const std::size_t name = std::min(problem.text.find(file), problem.text.size());  // may have line breaks
  const std::string_view reason =
      std::string_view(problem.text).substr(problem.text.find('\n', name + file.size()) + 1);
  if (document.ErrorRow() > 0) {
    problem.line = document.ErrorRow();
    problem.column = document.ErrorCol();
  }
  if (reason.starts_with("Failed to open")) {
    problem.hint = "check that the file exists and can be read, and that it is not a folder";
  } else if (reason.starts_with("Elements are nested")) {
    problem.hint = "look for missing end tags";
  } else if (document.Error()) {
    problem.hint = "not well-formed XML";
  }
  return problem;
}

// The growth to expect in each stage of the reading, in its first period, and the layer of the reference conditions.
void set_growth(vorlen::SurfChemNonst& model, Reading& reading) {
  const std::vector<ExpectedGrowth> growth = expected_growth(model);
  for (std::size_t k = 0; k < growth.size(); ++k) {
    reading.total_growth += growth[k].thickness;
    if (model.active_stages[k].period <= 1) reading.growth.push_back(growth[k]);
  }
  if (reading.growth.size() != reading.stages.size()) reading.growth.clear();
  const vorlen::StageRecord& first = model.active_stages.front();
  if (model.transport_model == vorlen::TRANSPORT_thick_GaN) reading.reference_layer = first.delta;
  if (model.transport_model == vorlen::TRANSPORT_InGaN_GR_X) {
    const bool has_TMGa = first.Q[vorlen::TMGa_g].average() >= vorlen::FLOW_MIN;
    reading.reference_layer = first.delta_species[has_TMGa ? vorlen::TMGa_g : vorlen::TEGa_g];
  }
}

// Sets up the model with a recipe that has no faults but predicted and late ones. What it rejects comes first.
void check_model(const TiXmlDocument& document, Reading& reading) {
  std::int32_t err = 0;
  vorlen::SurfChemNonst model(reading.recipe, "", err);
  if (err != 0) {
    std::vector<Problem>& errors = reading.errors;
    const auto predicted = std::find_if(errors.begin(), errors.end(),
                                        [&model](const Problem& problem) { return problem.text == model.error_text; });
    if (predicted != errors.end()) {
      std::rotate(errors.begin(), predicted, predicted + 1);
      return;
    }
    // What only the calculation of the reference layer shows.
    const TiXmlElement& transport = *document.FirstChildElement(root_name())->FirstChildElement("transport");
    errors.insert(errors.begin(), problem_at(Severity::error, "model", transport, nullptr, {}, model.error_text,
                                             "check the reference conditions of the transport model"));
    return;
  }
  std::array<double, vorlen::N_STATE_MAX> y{};
  model.init_state(y.data());
  set_growth(model, reading);
  if (std::all_of(y.begin(), y.begin() + model.n_state(), [](double value) { return std::isfinite(value); })) return;
  Problem problem;
  problem.severity = Severity::warning;
  problem.kind = "initial-state";
  problem.text = "the initial state contains NaN or infinite values";
  problem.hint = "check the constants, the pressure, and with thick_GaN the flows of Q_ref: it needs the carrier gases";
  reading.warnings.push_back(problem);
}

// A host gets as much of a text as its buffer holds.
void cut(std::string& text) {
  if (text.size() >= VORLEN_ERROR_BUFFER_SIZE) text.resize(VORLEN_ERROR_BUFFER_SIZE - 1);
}

template <class Source>
std::vector<Problem> check(const Source& source, const std::string& file) {
  TiXmlDocument document;
  document.SetTabSize(1);  // columns count characters
  std::string ignored;
  if (!vorlen::load_document(source, document, ignored)) return {file_problem(source, file, document)};

  Reading reading = read_all(document);
  std::vector<Problem>& warnings = reading.warnings;
  warn_of_unread(document, reading, warnings);
  if (reading.model_is_next) check_model(document, reading);
  const std::set<const ReadStage*> odd = warn_of_values(document, reading, warnings);
  warn_of_process(reading, odd, warnings);
  warn_of_sequence(reading, odd, warnings);
  std::stable_sort(warnings.begin(), warnings.end(),
                   [](const Problem& a, const Problem& b) { return a.line < b.line; });

  std::vector<Problem>& problems = reading.errors;
  problems.insert(problems.end(), warnings.begin(), warnings.end());
  for (Problem& problem : problems) cut(problem.text);
  return problems;
}

}  // namespace

std::vector<Problem> check_recipe(const std::string& file) { return check(file.c_str(), file); }

std::vector<Problem> check_recipe(const vorlen::RecipeText& text) { return check(text, text.name); }

}  // namespace vorlen::recipe
