// The reader of the XML recipe: loads the file, reads material, chemistry, stress and transport, and walks the three
// lists of stages. The document is walked top-down by element name, so the order of siblings does not matter, unknown
// elements are ignored, and of two siblings with one name the first counts.
#include "recipe/read_recipe.h"

#include <locale.h>
#include <tinyxml.h>

#include <cstddef>

#include "recipe/keywords.h"
#include "recipe/load_document.h"
#include "recipe/read_stages.h"
#include "recipe/species_data.h"
#include "recipe/xml_lookup.h"

namespace vorlen {

namespace {

constexpr Keyword MATERIALS[] = {
    {"InGaN", MATERIAL_InGaN}, {"AlGaN", MATERIAL_AlGaN}, {"AlInN", MATERIAL_AlInN}, {"AlInGaN", MATERIAL_AlInGaN}};
constexpr Keyword VACANCY_MODELS[] = {{"vacancy_In", VACANCY_In}, {"vacancy_none", VACANCY_none}};
constexpr Keyword STRESS_MODELS[] = {{"V_dislocation", STRESS_V_dislocation}};
constexpr Keyword TRANSPORT_MODELS[] = {{"fixed_thickness", TRANSPORT_fixed_thickness},
                                        {"thick_GaN", TRANSPORT_thick_GaN},
                                        {"InGaN_GR", TRANSPORT_InGaN_GR},
                                        {"InGaN_GR_X", TRANSPORT_InGaN_GR_X}};
constexpr Keyword SCHEMES[] = {{"continuous", SCHEME_continuous}, {"staged", SCHEME_staged}};
constexpr Keyword REACTORS[] = {{"CCS", REACTOR_CCS}, {"TDR", REACTOR_TDR}, {"HFR", REACTOR_HFR}};

// Gives the calling thread the "C" locale for the life of this object, so that numbers have a decimal point.
struct ClassicLocaleScope {
  locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
  locale_t before = uselocale(classic);

  ClassicLocaleScope() = default;
  ClassicLocaleScope(const ClassicLocaleScope&) = delete;
  ClassicLocaleScope& operator=(const ClassicLocaleScope&) = delete;
  ~ClassicLocaleScope() {
    uselocale(before);
    if (classic != nullptr) freelocale(classic);
  }
};

// Reads the keyword in val of a required child; an unknown one writes unknown + the quoted value + " is not
// recognized".
bool read_keyword(const TiXmlElement& parent, const char* name, std::span<const Keyword> table, const char* unknown,
                  std::int32_t& out, std::string& error) {
  const char* text = read_child_text(parent, name, error);
  if (text == nullptr) return false;
  if (find_keyword(table, text, out)) return true;
  error = std::string(unknown) + " \"" + text + "\" is not recognized";
  return false;
}

bool read_chemistry(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* chemistry = require_child(root, "chemistry", error);
  if (chemistry == nullptr) return false;
  if (!read_keyword(*chemistry, "vacancy_model", VACANCY_MODELS, "chemistry:vacancy_model", recipe.vacancy_model,
                    error)) {
    return false;
  }
  const auto read_Kd = [&](const char* name, std::size_t k) {
    return read_arrhenius(*chemistry, name, recipe.Kd_A[k], recipe.Kd_Ta[k], recipe.Kd_Tn[k], error);
  };
  const auto read_K_plus = [&](const char* name, std::size_t k) {
    return read_arrhenius(*chemistry, name, recipe.K_plus_A[k], recipe.K_plus_Ta[k], recipe.K_plus_Tn[k], error);
  };
  return read_Kd("Kd_In", 0) && read_K_plus("K_InN_plus", 0) && read_Kd("Kd_Ga", 1) && read_K_plus("K_GaN_plus", 1) &&
         read_Kd("Kd_Al", 2) && read_K_plus("K_AlN_plus", 2) && read_Kd("Kd_N2", 3) && read_Kd("Kd_H2", 4);
}

bool read_stress(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* stress = require_child(root, "stress", error);
  if (stress == nullptr) return false;
  const char* model = read_child_text(*stress, "model", error);
  if (model == nullptr) return false;
  // Any other text means a layer without relaxation.
  if (!find_keyword(STRESS_MODELS, model, recipe.stress_model)) return true;
  return read_child_real(*stress, "cut_angle", recipe.cut_angle, error) &&
         read_child_real(*stress, "V_angle_05", recipe.V_angle_05, error) &&
         read_child_real(*stress, "X_ref", recipe.X_ref, error);
}

// The reference conditions of the transport model thick_GaN.
bool read_transport_parameters(const TiXmlElement& transport, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* parameters = require_child(transport, "parameters", error);
  if (parameters == nullptr) return false;
  if (!read_keyword(*parameters, "reactor", REACTORS, "Reactor type", recipe.reactor, error)) return false;
  if (!read_child_real(*parameters, "GR_ref", recipe.GR_ref, error) ||
      !read_child_real(*parameters, "P_ref", recipe.P_ref, error) ||
      !read_child_real(*parameters, "T_ref", recipe.T_ref, error)) {
    return false;
  }
  if (recipe.reactor == REACTOR_TDR && !read_child_real(*parameters, "omega_TDR_ref", recipe.omega_TDR_ref, error)) {
    return false;
  }
  const TiXmlElement* flows = require_child(*parameters, "Q_ref", error);
  return flows != nullptr && read_child_real(*flows, "N2", recipe.Q_ref[N2_g], error) &&
         read_child_real(*flows, "H2", recipe.Q_ref[H2_g], error) &&
         read_child_real(*flows, "NH3", recipe.Q_ref[NH3_g], error) &&
         read_child_real(*flows, "TMGa", recipe.Q_ref[TMGa_g], error);
}

bool read_transport(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* transport = require_child(root, "transport", error);
  if (transport == nullptr) return false;
  if (!read_keyword(*transport, "model", TRANSPORT_MODELS, "Transport model", recipe.transport_model, error)) {
    return false;
  }
  return recipe.transport_model != TRANSPORT_thick_GaN || read_transport_parameters(*transport, recipe, error);
}

// How the walk over the stages goes on behind a list.
enum class ListResult { complete, failed, incomplete };

ListResult read_pre_stages(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* list = require_child(root, "pre_stages", error);
  if (list == nullptr) return ListResult::failed;
  recipe.t0 = -1.0;
  if (!read_child_real(*list, "t0", recipe.t0, error)) return ListResult::failed;
  if (recipe.t0 < 0.0) {
    error = "Begin time t0 is negative";
    return ListResult::failed;
  }
  std::int32_t n_pre_stages = 0;
  if (!read_child_integer(*list, "n_pre_stages", n_pre_stages, error)) return ListResult::failed;
  if (n_pre_stages < 0) {
    error = "Number of pre-stages is negative";
    return ListResult::failed;
  }
  if (!check_stage_count(n_pre_stages, *list, "n_pre_stages", error)) return ListResult::failed;
  const ChildIndex index(*list);
  for (std::int32_t i = 1; i <= n_pre_stages; ++i) {
    PrePostStageRecord stage;
    if (!read_pre_post_stage(index, "pre_stage_", i, stage, error)) return ListResult::failed;
    recipe.add_pre_stage(stage, error);
    if (i == 1 && stage.stress_state < STRESS_STATE_IS_LATTICE) {
      error = "Provide lattice constant 'a' for first pre-stage, not the relaxation degree: stress_state should be > 1";
      return ListResult::incomplete;
    }
  }
  return ListResult::complete;
}

bool read_process_stages(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* list = require_child(root, "process_stages", error);
  if (list == nullptr) return false;
  std::int32_t n_stages = 0;
  if (!read_child_integer(*list, "n_stages", n_stages, error)) return false;
  if (n_stages <= 0) {
    error = "Number of active stages should be positive";
    return false;
  }
  if (!check_stage_count(n_stages, *list, "n_stages", error)) return false;
  const ChildIndex index(*list);
  std::int64_t periodic_names = 0;
  for (std::int32_t i = 1; i <= n_stages; ++i) {
    StageRecord stage;
    if (!read_active_stage(index, i, 0, recipe, periodic_names, stage, error)) return false;
    if (stage.period == -1 && !recipe.add_active_stage(stage, error)) return false;
  }
  return true;
}

bool read_post_stages(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* list = require_child(root, "post_stages", error);
  if (list == nullptr) return false;
  std::int32_t n_post_stages = 0;
  if (!read_child_integer(*list, "n_post_stages", n_post_stages, error)) return false;
  if (n_post_stages < 0) {
    error = "Number of post-stages is negative";
    return false;
  }
  if (!check_stage_count(n_post_stages, *list, "n_post_stages", error)) return false;
  const ChildIndex index(*list);
  for (std::int32_t i = 1; i <= n_post_stages; ++i) {
    PrePostStageRecord stage;
    if (!read_pre_post_stage(index, "post_stage_", i, stage, error)) return false;
    recipe.add_post_stage(stage, error);
  }
  return true;
}

// The optional element integration. False with the fault in error.
bool read_integration(const TiXmlElement& root, ProcessRecipe& recipe, std::string& error) {
  const TiXmlElement* integration = root.FirstChildElement("integration");
  if (integration == nullptr) return true;
  if (integration->FirstChildElement("scheme") != nullptr &&
      !read_keyword(*integration, "scheme", SCHEMES, "Integration scheme", recipe.scheme, error)) {
    return false;
  }
  if (integration->FirstChildElement("tolerance") == nullptr) return true;
  if (!read_child_real(*integration, "tolerance", recipe.tolerance, error)) return false;
  if (recipe.tolerance >= TOLERANCE_MIN && recipe.tolerance <= TOLERANCE_MAX) return true;
  error = "Integration tolerance is beyond [1e-10;1e-3]";
  return false;
}

}  // namespace

std::int32_t read_recipe(const char* path, ProcessRecipe& recipe, std::string& error) {
  constexpr std::int32_t READ = 0, BAD_RECIPE = 1, BAD_FILE = -1;
  const ClassicLocaleScope classic_locale;
  error.clear();
  TiXmlDocument document;
  if (!load_document(path, document, error)) return BAD_FILE;

  const TiXmlElement* root = require_child(document, "NonstSurfChem", error);
  if (root == nullptr) return BAD_RECIPE;
  if (!read_keyword(*root, "material", MATERIALS, "Material", recipe.material, error) ||
      !read_chemistry(*root, recipe, error) || !read_stress(*root, recipe, error) ||
      !read_transport(*root, recipe, error)) {
    return BAD_RECIPE;
  }
  switch (read_pre_stages(*root, recipe, error)) {
    case ListResult::failed:
      return BAD_RECIPE;
    case ListResult::incomplete:
      // The caller goes on, and validate_recipe refuses a recipe without active stages.
      return READ;
    case ListResult::complete:
      break;
  }
  if (!read_process_stages(*root, recipe, error) || !read_post_stages(*root, recipe, error)) return BAD_RECIPE;
  read_integration(*root, recipe, recipe.integration_fault);
  return READ;
}

}  // namespace vorlen
