// Lattice and strain, docs/physics.md, section 6: relaxed lattice constants of a composition (Vegard's law), the
// in-plane lattice that each layer inherits from the layer below, and the strain that follows from the two.
#include "model/recipe_faults.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

// Contraction along c over in-plane strain, in the chain of stages. A fixed number: the strain column eps_zz has
// 2 C13/C33 of the composition instead, so the two do not agree exactly (docs/physics.md, section 6).
constexpr double CHAIN_STRAIN_RATIO = 0.25;

}  // namespace

double SurfChemNonst::strain_ratio(const double* x_solid) const {
  double S13 = 0.0;
  double S33 = 0.0;
  for (std::size_t k = 0; k < N_BULK; ++k) {
    if (bulk_index[k] < 0) continue;
    S13 += x_solid[k] * bulk_species[k].C13;
    S33 += x_solid[k] * bulk_species[k].C33;
  }
  return S13 / S33;
}

double SurfChemNonst::stage_strain_ratio(const PrePostStageRecord& stage) const {
  const double X[N_BULK] = {stage.X_In_average, stage.X_Ga_average, stage.X_Al_average};
  double S13 = 0.0;
  double S33 = 0.0;
  for (std::size_t k = 0; k < N_BULK; ++k) {
    S13 += X[k] * bulk_species[k].C13;
    S33 += X[k] * bulk_species[k].C33;
  }
  return S13 / S33;
}

bool SurfChemNonst::stage_lattice(bool is_pre) {
  std::vector<PrePostStageRecord>& stages = is_pre ? pre_stages : post_stages;
  if (stages.empty()) return true;
  const BulkSpeciesRecord& InN = bulk_species[InN_b];
  const BulkSpeciesRecord& GaN = bulk_species[GaN_b];
  const BulkSpeciesRecord& AlN = bulk_species[AlN_b];

  PrePostStageRecord& first = stages.front();
  double a_prev;
  if (is_pre) {
    if (first.stress_state < STRESS_STATE_IS_LATTICE) {
      error_text = "Lattice constant 'a' of first pre-stage is not defined";
      return false;
    }
    a_prev = first.stress_state;
    if (first.disl_model == DISL_inherited) {
      error_text = FIRST_PRE_STAGE_INHERITS;
      return false;
    }
  } else {
    const bool relaxes = stress_model == STRESS_V_dislocation;
    if (relaxes) {
      a_prev = a_eff_at_surface(a_bulk, rho_VD);
    } else {
      a_prev = pre_stages.empty() ? GaN.a : pre_stages.back().a_lattice;
    }
    if (first.disl_model == DISL_inherited) {
      first.rho_D = relaxes ? rho_TD_at(rho_VD, z, h) : active_stages.back().rho_D.end;
    }
  }

  for (std::size_t i = 0; i < stages.size(); ++i) {
    PrePostStageRecord& s = stages[i];
    const double a_own = s.X_In_average * InN.a + s.X_Ga_average * GaN.a + s.X_Al_average * AlN.a;
    const double a =
        s.stress_state >= STRESS_STATE_IS_LATTICE ? s.stress_state : (a_own - a_prev) * s.stress_state + a_prev;
    s.a_lattice = a;
    s.eps_xx = a / a_own - 1.0;
    const double c_own = s.X_In_average * InN.c + s.X_Ga_average * GaN.c + s.X_Al_average * AlN.c;
    s.c_lattice = (1.0 - CHAIN_STRAIN_RATIO * s.eps_xx) * c_own;
    a_prev = a;
    if (s.disl_model == DISL_inherited && i > 0) s.rho_D = stages[i - 1].rho_D;
  }
  return true;
}

double SurfChemNonst::eps_in_plane(double a, double rho, double z_at, double h_at) const {
  const double e = a_ref / a - 1.0;
  if (stress_model != STRESS_V_dislocation) return e;
  return e + eps_relaxed(rho, z_at, h_at);
}

double SurfChemNonst::a_eff_at_surface(double a, double rho) const { return eps_relaxed(rho, z, h) * a + a_ref; }

}  // namespace vorlen
