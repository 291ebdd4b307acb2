// The recipe of one growth run: what is grown, with which constants and models, and three ordered lists of stages
// on one time axis. Filled by read_recipe (recipe/read_recipe.h), copied by the growth model at construction.
//
// "Not specified" is a sentinel: -1 in an enumeration, -1.0 in a real, -1e20 in GR_average.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vorlen {

// Keyword values of the recipe; -1 stands for "not specified" in all of them.
enum Material : std::int32_t { MATERIAL_InGaN = 0, MATERIAL_AlGaN = 1, MATERIAL_AlInN = 2, MATERIAL_AlInGaN = 3 };
enum StressModel : std::int32_t { STRESS_OFF = -1, STRESS_V_dislocation = 0 };
enum VacancyModel : std::int32_t { VACANCY_none = -1, VACANCY_In = 0 };
enum TransportModel : std::int32_t {
  TRANSPORT_fixed_thickness = 0,
  TRANSPORT_thick_GaN = 1,
  TRANSPORT_InGaN_GR_X = 2,
  TRANSPORT_InGaN_GR = 3
};
enum Reactor : std::int32_t { REACTOR_CCS = 0, REACTOR_TDR = 1, REACTOR_HFR = 2 };
enum DislocationModel : std::int32_t { DISL_given = 0, DISL_inherited = 1 };
// How the process is integrated in time: in one sweep over all stages, or stage by stage (docs/integration.md).
enum IntegrationScheme : std::int32_t { SCHEME_continuous = 0, SCHEME_staged = 1 };
inline constexpr std::int32_t NOT_SPECIFIED = -1;

inline constexpr int N_FLOWS = 11;    // flow slots: the first eleven gas species (recipe/species_data.h)
inline constexpr int N_GAS = 14;      // gas species
inline constexpr int N_BULK = 3;      // bulk species, the group-III nitrides
inline constexpr int N_ADSORBED = 5;  // adsorbed species, and desorption constants
inline constexpr double GR_NOT_SPECIFIED = -1e20;
inline constexpr double TOLERANCE_DEFAULT = 1e-6;  // relative, of the staged scheme
// A stress_state below this is a degree of relaxation, otherwise a lattice constant in angstrom.
inline constexpr double STRESS_STATE_IS_LATTICE = 1.0000000001;

// A quantity that changes linearly during a stage, from val to end.
struct ValueRange {
  double val = -1.0;
  double end = -1.0;

  // Either value is below 0; exactly 0 is defined.
  bool undefined() const;
  // The two values differ by more than 1e-8 of their sum.
  bool varies() const;
  // Both values agree with those of other within 1e-8 of their sums.
  bool equal_to(const ValueRange& other) const;
  double average() const;
  void set_both(double value);
};

// One active stage of the process.
struct StageRecord {
  ValueRange time;                          // start and end, s
  std::string label;                        // element name: stage_3, or stage_3_2 for sub-stage 2 of periodic stage 3
  std::string name;                         // the user's name
  std::int32_t period = -1;                 // -1 in single stages, otherwise the number of the period, from 1
  double tau = -1.0;                        // duration, s
  double GR_average = GR_NOT_SPECIFIED;     // prescribed growth rate, mkm/hr; InGaN_GR_X takes the number as nm/s
  double XIn_average = -1.0;                // prescribed indium fraction
  double XAl_average = 0.0;                 // prescribed aluminium fraction
  double thickness = 0.0;                   // thickness grown, nm; summed up by the result writer
  std::int32_t disl_model = NOT_SPECIFIED;  // DislocationModel
  ValueRange rho_D;                         // dislocation density, cm^-2 (m^-2 in the model under V_dislocation)
  ValueRange T;                             // temperature, K
  ValueRange P;                             // pressure, Pa
  ValueRange omega_TDR;                     // rotation rate, rpm
  double delta = -1.0;                      // thickness of the transport layer, m
  std::array<double, N_GAS> delta_species;  // one layer thickness per gas species, m; InGaN_GR_X
  double delta_ref = -1.0;                  // reference precursor's diffusion coefficient, m^2/s; thick_GaN
  std::array<ValueRange, N_FLOWS> Q;        // gas flows, sccm
  bool flows_vary = false;                  // a flow changes inside this stage or from the stage before

  StageRecord() { delta_species.fill(-1.0); }
  double begin_time() const { return time.val; }
  double end_time() const { return time.end; }
  void set_times(double begin);
};

// A layer that exists before the process (pre-stage) or is added after it (post-stage). Not integrated in time.
struct PrePostStageRecord {
  ValueRange time;                          // start and end, s
  std::string label;                        // element name: pre_stage_2, post_stage_1
  std::string name;                         // the user's name
  std::int32_t period = -1;                 // stays -1
  double tau = -1.0;                        // duration, s
  double GR_average = GR_NOT_SPECIFIED;     // average growth rate, mkm/hr; only printed
  double X_In_average = -1.0;               // indium fraction
  double X_Ga_average = -1.0;               // gallium fraction
  double X_Al_average = -1.0;               // aluminium fraction
  double thickness = -1.0;                  // layer thickness, nm
  std::int32_t disl_model = NOT_SPECIFIED;  // DislocationModel
  double rho_D = -1.0;                      // dislocation density, cm^-2
  double stress_state = -1.0;  // degree of relaxation, or from 1.0000000001 up the lattice constant, angstrom
  double a_lattice = -1.0;     // in-plane lattice constant, angstrom; computed
  double c_lattice = -1.0;     // out-of-plane lattice constant, angstrom; computed
  double eps_xx = -1.0;        // in-plane strain; computed

  double begin_time() const { return time.val; }
  double end_time() const { return time.end; }
  void set_times(double begin);
};

struct ProcessRecipe {
  std::vector<StageRecord> active_stages;  // in time order, periodic stages expanded
  std::vector<PrePostStageRecord> pre_stages;
  std::vector<PrePostStageRecord> post_stages;
  double t0 = 0.0;               // start of the process, s
  bool conditions_vary = false;  // a flow, T, P or omega_TDR changes inside a stage or between two
  std::int32_t material = NOT_SPECIFIED;
  std::int32_t stress_model = STRESS_OFF;
  double cut_angle = 0.0;   // substrate's cut angle; no formula uses it
  double V_angle_05 = 0.0;  // inclination angle of the dislocations, degree
  double X_ref = -1.0;      // reference solid composition of the relaxation model
  std::int32_t vacancy_model = VACANCY_none;
  std::int32_t transport_model = NOT_SPECIFIED;
  std::int32_t reactor = NOT_SPECIFIED;
  double GR_ref = 0.0;                     // reference growth rate of thick_GaN, nm/s
  double P_ref = 0.0;                      // reference pressure, Pa
  double T_ref = 0.0;                      // reference temperature, K
  double omega_TDR_ref = 0.0;              // reference rotation rate, rpm
  std::array<double, N_FLOWS> Q_ref{};     // reference flows, sccm
  std::array<double, N_ADSORBED> Kd_A{};   // desorption constants A * exp(-Ta/T) * T^Tn of In, Ga, Al, N2, H2
  std::array<double, N_ADSORBED> Kd_Ta{};  // K
  std::array<double, N_ADSORBED> Kd_Tn{};
  std::array<double, N_BULK> K_plus_A{};   // incorporation constants of InN, GaN, AlN, of the same form
  std::array<double, N_BULK> K_plus_Ta{};  // K
  std::array<double, N_BULK> K_plus_Tn{};
  std::int32_t scheme = SCHEME_continuous;  // IntegrationScheme
  double tolerance = TOLERANCE_DEFAULT;     // relative; without effect under SCHEME_continuous
  bool detail_output = false;               // further columns in the result file
  std::string late_fault;                   // in the elements integration and output; the run reports it last

  // Appends a copy of stage and places it after the last record on the time axis.
  void add_pre_stage(const PrePostStageRecord& stage);
  void add_post_stage(const PrePostStageRecord& stage);

  // Appends a copy of stage after the last active stage, validates it, and sets flows_vary of the copy and
  // conditions_vary. False with the reason in error for a bad stage, which then is the last of the list.
  bool add_active_stage(const StageRecord& stage, std::string& error);

  // Checks that one stage has a duration, times, temperature, pressure and flows.
  bool validate_stage(const StageRecord& stage, std::string& error) const;

  // Checks the recipe as a whole. True with error empty, or false with the first fault.
  bool validate_recipe(std::string& error) const;
};

}  // namespace vorlen
