// The growth model: one plain object with everything a run knows: the options, the conditions at the current time, the
// values of the residual, and the history of accepted steps.
//
// The operations are in the files of the subsystem that owns them:
//   model/construction.cpp    construction from a recipe
//   model/species_check.cpp   species lists
//   model/conditions.cpp      conditions at a time
//   model/transport.cpp       diffusion and transport layers
//   model/residual.cpp        surface chemistry residual
//   model/initial_state.cpp   first state vector
//   model/lattice.cpp         lattice and strain
//   model/relaxation.cpp      dislocations and relaxation
// Operations that only strain/ or results/ needs are free functions there: accepted steps, the opening and density of
// V-defects, and the result file.
//
// In order: options and process, species, values of the residual, run control, materials and kinetics, kept terms, the
// layer, relaxation and V-defects, history; then the operations, grouped as above; free functions.
//
// Units are SI with kilomoles: m, s, K, Pa, kmol/m^2, kmol/(m^2 s). Lattice constants are in angstrom, elastic
// constants in GPa, flows in sccm. Strain is positive for in-plane stretching. Arrays of 14 are indexed by GasSpecies,
// arrays of 3 by BulkSpecies, arrays of 5 by AdsorbedSpecies (recipe/species_data.h).
//
// The state vector y has n = 10 components, or 15 under V_dislocation:
//   c_a[0..4], z, (h, I0, I1, J0_0, J0_1 under V_dislocation,) x_b[0..2], GR.
// The first n - 4 equations are differential, the last four algebraic. The constants STATE_ and ALGEBRAIC_ below name
// the components of y, and of the residual f with them.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "model/history.h"
#include "model/residual_terms.h"
#include "model/result_output.h"
#include "recipe/process_recipe.h"
#include "recipe/species_data.h"

namespace vorlen {

inline constexpr int N_STATE_MAX = 15;
inline constexpr int N_ALGEBRAIC = 4;
inline constexpr int N_STATE_SHORT = 10;  // without V_dislocation

// Components of y and f from the first on.
inline constexpr std::size_t STATE_C_A = 0;  // of c_a[0]
inline constexpr std::size_t STATE_Z = STATE_C_A + N_ADSORBED;
inline constexpr std::size_t STATE_H = STATE_Z + 1;  // this and the following ones under V_dislocation only
inline constexpr std::size_t STATE_I0 = STATE_Z + 2;
inline constexpr std::size_t STATE_I1 = STATE_Z + 3;
inline constexpr std::size_t STATE_J0_0 = STATE_Z + 4;
inline constexpr std::size_t STATE_J0_1 = STATE_Z + 5;
// Components from first_algebraic() on. The rows of f in the places of x_b are the two ratios of the
// incorporation rates and the sum of the composition.
inline constexpr std::size_t ALGEBRAIC_X_B = 0;  // of x_b[0]
inline constexpr std::size_t ALGEBRAIC_GR = ALGEBRAIC_X_B + N_BULK;

// Rates of the surface, with the fluxes and resistances that they come from.
struct SurfaceRates {
  double mismatch = 0.0;                  // relative lattice mismatch; -1 without V_dislocation
  double free_sites = 1.0;                // share of the sites that is free for indium; for the others it is 1
  std::array<double, N_GAS> R_gas{};      // transport plus kinetic resistance
  std::array<double, N_GAS> J{};          // molar flux towards the surface, kmol/(m^2 s)
  std::array<double, N_BULK> R_b{};       // incorporation rate of each group-III element, kmol/(m^2 s)
  std::array<double, N_ADSORBED> dc_a{};  // rate of each surface concentration, kmol/(m^2 s)
  double GR = 0.0;                        // growth rate, m/s
};

// Rates of the relaxation at the surface, for a film that grows by GR.
struct RelaxationRates {
  double z_rel = 0.0;   // thickness grown outside tension, m
  double R_disl = 0.0;  // of I0
  double S_disl = 0.0;  // of J0_1
  double eps_xx = 0.0;  // in-plane strain at the surface
};

// The single-point layout of the result file, which no entry of the library selects (results/single_point.cpp).
struct SinglePoint {
  bool selected = false;
  std::vector<std::int32_t> species;  // gas species whose pressures and fluxes are written, GasSpecies
};

class SurfChemNonst {
 public:
  // ---- Options and process description
  std::vector<StageRecord> active_stages;  // copies; construction fills in delta, delta_species, delta_ref, rho_D
  std::vector<PrePostStageRecord> pre_stages;
  std::vector<PrePostStageRecord> post_stages;
  std::int32_t stress_model = STRESS_OFF;
  double V_angle_05 = 0.0;  // inclination angle of the dislocations, radian
  double X_ref = -1.0;      // reference composition of the shear modulus
  std::int32_t vacancy_model = VACANCY_none;
  std::int32_t transport_model = NOT_SPECIFIED;
  std::int32_t reactor = NOT_SPECIFIED;
  double GR_ref = 0.0;                  // m/s for thick_GaN
  double P_ref = 0.0;                   // Pa
  double T_ref = 0.0;                   // K
  double omega_TDR_ref = 0.0;           // rpm
  std::array<double, N_FLOWS> Q_ref{};  // sccm
  double Q_ref_total = 0.0;             // sccm, for thick_GaN
  std::array<double, N_ADSORBED> Kd_A{}, Kd_Ta{}, Kd_Tn{};
  std::array<double, N_BULK> K_plus_A{}, K_plus_Ta{}, K_plus_Tn{};

  // ---- Species. All bulk species take part in every run; of the gas species those that are present.
  std::vector<SpeciesRecord> gas_species;
  std::vector<BulkSpeciesRecord> bulk_species;
  std::array<bool, N_GAS> gas_present{};

  // ---- Values of the residual, overwritten by each evaluation
  std::array<double, N_GAS> p{};          // partial pressure in the inlet gas, Pa
  std::array<double, N_BULK> x_b{};       // composition of the solid In, Ga, Al (state)
  std::array<double, N_BULK> x_b_clip{};  // x_b, each limited to 0..1
  std::array<double, N_ADSORBED> c_a{};   // surface concentration, kmol/m^2 (state)
  SurfaceRates surface;                   // of the last evaluation

  // ---- Run control
  std::string error_text;
  ResultOutput out;            // the result file
  bool detail_output = false;  // keep surface concentrations and energy terms, and write their columns
  SinglePoint single_point;
  double t = 0.0;                   // time of the last conditions lookup, s
  double t_begin = 0.0;             // start of the first active stage, s
  double t_end = 0.0;               // end of the last active stage, s
  double T = 0.0;                   // K, at t
  double P = 0.0;                   // Pa, at t
  double rho_D = 0.0;               // the stage's dislocation density at t
  double rho_TD0 = 0.0;             // threading dislocation density under the active layers, m^-2
  double rho_TD_z0 = 0.0;           // threading dislocation density at z0, m^-2
  double rho_VD = 0.0;              // density of V-defects, m^-2
  std::array<double, N_FLOWS> Q{};  // sccm, at t
  double omega_TDR = 0.0;           // rpm
  std::uint32_t stage_index = 0;    // current active stage
  bool conditions_vary = false;     // conditions are looked up at every evaluation
  std::int64_t eval_rhs_calls = 0;  // evaluations of the residual so far

  // ---- Materials and kinetics
  double a_ref = 0.0;                                       // in-plane lattice imposed on the active layers, angstrom
  double c_ref = 0.0;                                       // its out-of-plane companion, angstrom
  std::array<std::array<double, N_GAS>, N_GAS> D_binary{};  // constant factors of the binary diffusion coefficients
  std::array<std::array<double, N_GAS>, N_GAS> eps_pair{};  // Lennard-Jones energy of each pair, K

  // ---- Terms of the residual that are kept from one evaluation to the next
  ResidualTerms terms;
  bool reuse_terms = true;  // off: every evaluation computes all of them, with the same bits

  // ---- The layer
  double GR = 0.0;       // growth rate, m/s (state, algebraic)
  double z = 0.0;        // total thickness, m (state)
  double z_start = 0.0;  // z at the start of the active stages
  double a_bulk = 0.0;   // Vegard average of a at x_b_clip, angstrom
  double t_prev = 0.0;   // time of the last accepted step
  double z_prev = 0.0;   // z at the last accepted step
  double Vg = 0.0;       // growth rate over the last accepted step, m/s

  // ---- Relaxation and V-defects
  double z0 = -1e-9;  // height at which V-defects begin, m; negative means not found
  std::uint32_t z0_index = std::numeric_limits<std::uint32_t>::max();  // its index in the history
  double sin_V = 0.0, tan_V = 0.0;                                     // of V_angle_05
  double b_burgers = 0.0;                                              // length of the Burgers vector, m
  double E_line = 0.0;                                                 // coefficient of the loop energy, J/m
  double h = 0.0;                                                      // thickness grown in tension, m (state)
  double h_z0 = 0.0;                                                   // h at z0
  double h_prev = 0.0;                                                 // h at the last accepted step
  double I0 = 0.0;                                                     // time integral of R_disl (state)
  double I1 = 0.0;                                                     // time integral of z_rel * R_disl (state)
  double J0_0 = 0.0;                                                   // time integral of z_rel * S_disl (state)
  double J0_1 = 0.0;                                                   // time integral of S_disl (state)
  double J0_0_z0 = 0.0, J0_1_z0 = 0.0;                                 // two of the integrals at z0
  double J0 = 0.0;                                                     // balance term of the coherent mismatch
  double J1 = 0.0;                                                     // balance term of the strain relieved up to z0
  double J2 = 0.0;                                                     // balance term of the defects' dislocations
  double eps_r_z0 = 0.0;                                               // strain relieved up to z0
  // In-plane strain at the surface in the last evaluation of the residual, which need not be one of an accepted state.
  // It decides how record_step files the step.
  double eps_xx_last_trial = -1.0;

  // ---- Accepted steps
  History history;
  Segments segments;

  // Builds the model from a recipe; the recipe is not kept. Opens and empties the file at output_path, unless that is
  // empty, or output_text, unless that is null. err is 0 on success, 1, -1 or 100 to 103 on failure, with the text in
  // error_text.
  SurfChemNonst(const ProcessRecipe& recipe, const char* output_path, std::int32_t& err,
                std::string* output_text = nullptr);

  // Number of components of the state vector, 10 or 15.
  std::int32_t n_state() const { return stress_model == STRESS_V_dislocation ? N_STATE_MAX : N_STATE_SHORT; }
  // Index of the first algebraic component, 6 or 11.
  std::size_t first_algebraic() const { return static_cast<std::size_t>(n_state() - N_ALGEBRAIC); }

  // ---- Construction
  // Sets the lattice imposed on the active layers [angstrom]; a constant that is not above 0 is replaced by that of
  // GaN.
  void set_reference_lattice(double a_pre, double c_pre);

  // ---- Conditions
  // Brings the conditions up to time t_new [s]. stage_changed: do what is otherwise done only at a change of stage.
  // Returns 0, or 1 with error_text set for a time outside the process; then only t has changed.
  std::int32_t update_conditions(double t_new, bool stage_changed);

  // Sets the conditions of the current stage at a fraction of its duration. stage_changed: the stage is a new one.
  void set_conditions(double fraction, bool stage_changed);

  // ---- Transport
  // Diffusion coefficients [m^2/s] in the mixture x_in at T_gas [K] and P_gas [Pa], by Wilke's rule on Chapman-Enskog
  // binary coefficients. x_in and D_out hold 14 entries; those of absent species are left alone.
  void mix_diffusion(double T_gas, double P_gas, const double* x_in, double* D_out) const;
  // Thickness of the transport layer of each species [m] under the present conditions, where the diffusion coefficients
  // are D [m^2/s]. D is read for thick_GaN with reactor TDR or HFR only.
  std::array<double, N_GAS> transport_layers(const std::array<double, N_GAS>& D) const;

  // ---- Residual
  // Writes f(t_new, y), n components. Returns 0, or the code of update_conditions with f left as it was.
  std::int32_t eval_rhs(double t_new, const double* y, double* f);
  // Terms of the present conditions, and those of the present composition under them.
  ConditionTerms& condition_terms();
  const CompositionTerms& composition_terms(ConditionTerms& conditions);
  // Brings surface up to the present state and conditions, and returns it.
  const SurfaceRates& surface_rates();
  // Copies the state vector into the model; z is raised to z_start, x_b_clip and a_bulk follow.
  void unpack_state(const double* y);
  // The reverse, without additions.
  void pack_state(double* y) const;
  // Rate constant of incorporation of bulk species b at T.
  double k_plus(std::size_t b) const;

  // ---- Initial state
  // Builds the first state vector y (room for 15) from the conditions at t_begin.
  void init_state(double* y);

  // ---- Lattice and strain
  // Relaxed lattice constant of the composition x_solid[3], angstrom (Vegard's law).
  double lattice_a(const double* x_solid) const;
  // C13/C33 of the composition x_solid[3].
  double strain_ratio(const double* x_solid) const;
  // Sets the lattice fields of the pre-stages. False with error_text set for a bad first pre-stage.
  bool set_pre_stage_lattice();
  // Sets those of the post-stages, which follow on the layer in its present state.
  void set_post_stage_lattice();
  // In-plane strain of a layer with relaxed constant a at thickness z_at, tension thickness h_at.
  double eps_in_plane(double a, double rho, double z_at, double h_at) const;
  // Effective in-plane lattice at the surface, angstrom.
  double a_eff_at_surface(double a, double rho) const;

  // ---- Relaxation by dislocations
  // Strain relieved at thickness z_at with the V-defect density rho.
  double eps_relaxed(double rho, double z_at, double h_at) const;
  // Threading dislocation density at thickness z_at, cm^-2.
  double rho_TD_at(double rho, double z_at, double h_at) const;
  // Stress per strain times the step of an inclined dislocation, M 2 b tan(V), J/m^2: the factor of I0 and J0_1.
  double bending_stiffness() const;
  // Strain at the surface, and the rates of the integrals at the growth rate GR_calc [m/s].
  RelaxationRates relaxation_rates(double GR_calc);
  // Writes the five rows of h, I0, I1, J0_0, J0_1 to f and sets eps_xx_last_trial. GR_calc is the growth rate, m/s.
  void relaxation_rows(double GR_calc, double* f);
  // Relative lattice mismatch of the surface under V_dislocation.
  double relative_mismatch() const;
  // Strain that the reactions of the dislocations from below relieve at thickness z_at. Below z_start, where
  // eps_relaxed is 0, the same formula holds.
  double eps_reacted(double z_at, double h_at) const;
  // The logarithms at the present depth.
  const DepthTerms& depth_terms();
};

// 1.0 above 1, v from 0 to 1, else 0.0 (also for NaN).
inline double clamp_fraction(double v) {
  if (v > 1.0) return 1.0;
  return v >= 0.0 ? v : 0.0;
}

inline double SurfChemNonst::lattice_a(const double* x_solid) const {
  double a = 1e-100;  // keeps a lattice constant from being exactly zero
  for (std::size_t k = 0; k < N_BULK; ++k) a += bulk_species[k].a * x_solid[k];
  return a;
}

// Value of the range at a fraction of the stage; a value that is not above 0 becomes 0.
double interpolate(const ValueRange& range, double fraction);

// Reduced collision function of the Lennard-Jones potential at the reduced temperature T_star.
double omega_inverse(double T_star);

// Biaxial modulus of In0.1Ga0.9N, Pa.
double modulus_M();

// Fills the species lists of the model with the built-in records.
void fill_species_lists(SurfChemNonst& model);

// Checks that the elements of nitride growth are in the gases that flow, marks the species present in every run, and
// fills D_binary and eps_pair.
// False with err 100 to 103 and error_text set.
bool species_check(SurfChemNonst& model, std::int32_t& err);

}  // namespace vorlen
