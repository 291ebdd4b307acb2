// Construction of the growth model from a recipe: options, species, reference lattice, dislocation data of the stages,
// time axis, dislocation geometry and transport layers, in this order. A failure sets err and error_text and ends it.
#include <algorithm>
#include <cerrno>
#include <cmath>

#include "model/constants.h"
#include "model/setup_messages.h"
#include "model/surfchem_nonst.h"
#include "model/transport.h"

namespace vorlen {

namespace {

constexpr std::size_t HISTORY_ROOM = 1024;  // entries reserved for each list that the run will fill
constexpr double COSINE_MIN = 1e-10;

void reserve_history(SurfChemNonst& m) {
  for (auto* list : {&m.history.t, &m.history.z, &m.history.Vg, &m.history.x_In, &m.history.x_Ga, &m.history.x_Al}) {
    list->reserve(HISTORY_ROOM);
  }
  if (m.stress_model != STRESS_V_dislocation) return;
  for (auto* list : {&m.history.h, &m.history.rho_VD, &m.history.I0, &m.history.I1, &m.history.J0_0, &m.history.J0_1}) {
    list->reserve(HISTORY_ROOM);
  }
}

void mark_flow_species(SurfChemNonst& m) {
  for (const StageRecord& stage : m.active_stages) {
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (stage.Q[i].val >= 0.0 || stage.Q[i].end >= 0.0) m.gas_present[i] = true;
    }
  }
}

// Under V_dislocation the stages hold the density under the layer, otherwise each stage has its own, given or
// inherited from the stage before.
bool set_dislocation_densities(SurfChemNonst& m) {
  std::vector<StageRecord>& stages = m.active_stages;
  if (m.stress_model == STRESS_V_dislocation) {
    m.rho_TD0 = m.pre_stages.empty() ? 0.0 : m.pre_stages.back().rho_D * CM2_TO_M2;
    for (StageRecord& stage : stages) stage.rho_D.set_both(m.rho_TD0);
    return true;
  }
  if (stages.front().disl_model == DISL_inherited) {
    if (m.pre_stages.empty()) {
      m.error_text = NOTHING_BELOW_FIRST_STAGE;
      return false;
    }
    stages.front().rho_D.set_both(m.pre_stages.back().rho_D);
  }
  for (std::size_t k = 1; k < stages.size(); ++k) {
    if (stages[k].disl_model == DISL_inherited) stages[k].rho_D.set_both(stages[k - 1].rho_D.end);
  }
  return true;
}

void set_time_axis(SurfChemNonst& m) {
  m.t_begin = m.active_stages.front().begin_time();
  m.t = m.t_begin;
  m.t_prev = m.t_begin;
  m.t_end = m.active_stages.back().end_time();
  m.stage_index = 0;
  double thickness_nm = 0.0;
  for (const PrePostStageRecord& stage : m.pre_stages) thickness_nm += stage.thickness;
  m.z = thickness_nm * 1e-9;
  m.z_start = m.z;
  m.z_prev = m.z;
}

// Inclination of the dislocations, and the line energy of the dislocation loop around a V-defect (docs/physics.md,
// section 8). False with error_text set for an angle of 90 degrees, which the check of the recipe rejects before.
bool set_dislocation_geometry(SurfChemNonst& m) {
  m.sin_V = std::sin(m.V_angle_05);
  const double cos_V = std::cos(m.V_angle_05);
  if (std::abs(cos_V) < COSINE_MIN) {
    m.error_text = "Cosine of dislocation angle is zero";
    return false;
  }
  m.tan_V = m.sin_V / cos_V;
  const BulkSpeciesRecord& InN = m.bulk_species[InN_b];
  const BulkSpeciesRecord& GaN = m.bulk_species[GaN_b];
  const double G_shear =
      ((GaN.C11 * GPA - GaN.C12 * GPA) * (1.0 - m.X_ref) + (InN.C11 * GPA - InN.C12 * GPA) * m.X_ref) * 0.5;
  m.b_burgers = BURGERS;
  const double e = LOOP_FACTOR * G_shear * m.b_burgers * m.b_burgers;
  m.E_line = (e / (4.0 * PI * (1.0 - POISSON_RATIO)) + e / (4.0 * PI * (1.0 - POISSON_RATIO))) / cos_V;
  return true;
}

}  // namespace

SurfChemNonst::SurfChemNonst(const ProcessRecipe& recipe, const char* output_path, std::int32_t& err,
                             std::string* output_text)
    : active_stages(recipe.active_stages),
      pre_stages(recipe.pre_stages),
      post_stages(recipe.post_stages),
      stress_model(recipe.stress_model),
      V_angle_05(recipe.V_angle_05 * PI / 180.0),
      X_ref(recipe.X_ref),
      vacancy_model(recipe.vacancy_model),
      transport_model(recipe.transport_model),
      reactor(recipe.reactor),
      GR_ref(recipe.GR_ref),
      P_ref(recipe.P_ref),
      T_ref(recipe.T_ref),
      omega_TDR_ref(recipe.omega_TDR_ref),
      detail_output(recipe.detail_output),
      conditions_vary(recipe.conditions_vary) {
  err = 0;
  reserve_history(*this);

  if (output_text != nullptr) out.open_text(*output_text);
  if (*output_path != '\0' && !out.open_file(output_path)) {
    err = 1;
    error_text = errno == ENOMEM ? "Out of memory" : std::string("Unable to open file ") + output_path + " for writing";
    return;
  }

  if (!recipe.validate_recipe(error_text)) {
    err = -1;
    return;
  }

  fill_species_lists(*this);

  double a_pre = -1.0;
  double c_pre = -1.0;
  if (!pre_stages.empty()) {
    if (!set_pre_stage_lattice()) {
      err = -1;
      return;
    }
    a_pre = pre_stages.back().a_lattice;
    c_pre = pre_stages.back().c_lattice;
  }
  set_reference_lattice(a_pre, c_pre);

  Q_ref = recipe.Q_ref;
  Kd_A = recipe.Kd_A;
  Kd_Ta = recipe.Kd_Ta;
  Kd_Tn = recipe.Kd_Tn;
  K_plus_A = recipe.K_plus_A;
  K_plus_Ta = recipe.K_plus_Ta;
  K_plus_Tn = recipe.K_plus_Tn;

  if (active_stages.empty()) {
    err = 1;
    error_text = "Number of active stages is zero";
    return;
  }
  mark_flow_species(*this);
  if (!set_dislocation_densities(*this)) {
    err = 1;
    return;
  }
  if (!species_check(*this, err)) return;
  set_time_axis(*this);
  if (stress_model == STRESS_V_dislocation && !set_dislocation_geometry(*this)) {
    err = -1;
    return;
  }
  if (!set_transport_layers(*this)) err = 1;
}

void SurfChemNonst::set_reference_lattice(double a_pre, double c_pre) {
  a_ref = a_pre > 0.0 ? a_pre : bulk_species[GaN_b].a;
  c_ref = c_pre > 0.0 ? c_pre : bulk_species[GaN_b].c;
}

}  // namespace vorlen
