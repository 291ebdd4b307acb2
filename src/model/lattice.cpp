// Lattice and strain, docs/physics.md, section 6: relaxed lattice constants of a composition (Vegard's law), the
// in-plane lattice that each layer inherits from the layer below, and the strain that follows from the two.
#include "model/setup_messages.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

// Contraction along c over in-plane strain, in the chain of stages. A fixed number: the strain column eps_zz has
// 2 C13/C33 of the composition instead, so the two do not agree exactly (docs/physics.md, section 6).
constexpr double CHAIN_STRAIN_RATIO = 0.25;

// Sets the lattice, strain and inherited dislocation densities of a list of stages on the in-plane lattice a_below
// [angstrom]. The density of the first stage is known.
void set_chain(const SurfChemNonst& m, std::vector<PrePostStageRecord>& stages, double a_below) {
  const BulkSpeciesRecord& InN = m.bulk_species[InN_b];
  const BulkSpeciesRecord& GaN = m.bulk_species[GaN_b];
  const BulkSpeciesRecord& AlN = m.bulk_species[AlN_b];
  for (std::size_t i = 0; i < stages.size(); ++i) {
    PrePostStageRecord& s = stages[i];
    const double a_own = s.X_In_average * InN.a + s.X_Ga_average * GaN.a + s.X_Al_average * AlN.a;
    const double a =
        s.stress_state >= STRESS_STATE_IS_LATTICE ? s.stress_state : (a_own - a_below) * s.stress_state + a_below;
    s.a_lattice = a;
    s.eps_xx = a / a_own - 1.0;
    const double c_own = s.X_In_average * InN.c + s.X_Ga_average * GaN.c + s.X_Al_average * AlN.c;
    s.c_lattice = (1.0 - CHAIN_STRAIN_RATIO * s.eps_xx) * c_own;
    a_below = a;
    if (s.disl_model == DISL_inherited && i > 0) s.rho_D = stages[i - 1].rho_D;
  }
}

}  // namespace

double SurfChemNonst::strain_ratio(const double* x_solid) const {
  double S13 = 0.0;
  double S33 = 0.0;
  for (std::size_t k = 0; k < N_BULK; ++k) {
    S13 += x_solid[k] * bulk_species[k].C13;
    S33 += x_solid[k] * bulk_species[k].C33;
  }
  return S13 / S33;
}

bool SurfChemNonst::set_pre_stage_lattice() {
  if (pre_stages.empty()) return true;
  const PrePostStageRecord& first = pre_stages.front();
  if (first.stress_state < STRESS_STATE_IS_LATTICE) {
    error_text = "Lattice constant 'a' of first pre-stage is not defined";
    return false;
  }
  if (first.disl_model == DISL_inherited) {
    error_text = NOTHING_BELOW_FIRST_PRE_STAGE;
    return false;
  }
  set_chain(*this, pre_stages, first.stress_state);
  return true;
}

void SurfChemNonst::set_post_stage_lattice() {
  if (post_stages.empty()) return;
  const bool relaxes = stress_model == STRESS_V_dislocation;
  double a_below;
  if (relaxes) {
    a_below = a_eff_at_surface(a_bulk, rho_VD);
  } else {
    a_below = pre_stages.empty() ? bulk_species[GaN_b].a : pre_stages.back().a_lattice;
  }
  PrePostStageRecord& first = post_stages.front();
  if (first.disl_model == DISL_inherited) {
    first.rho_D = relaxes ? rho_TD_at(rho_VD, z, h) : active_stages.back().rho_D.end;
  }
  set_chain(*this, post_stages, a_below);
}

double SurfChemNonst::eps_in_plane(double a, double rho, double z_at, double h_at) const {
  const double e = a_ref / a - 1.0;
  if (stress_model != STRESS_V_dislocation) return e;
  return e + eps_relaxed(rho, z_at, h_at);
}

double SurfChemNonst::a_eff_at_surface(double a, double rho) const { return eps_relaxed(rho, z, h) * a + a_ref; }

}  // namespace vorlen
