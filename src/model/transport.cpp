// Gas transport through the stagnant layer (docs/physics.md, section 3): diffusion coefficients by Wilke's mixture rule
// on Chapman-Enskog binary coefficients (Bird, Stewart, Lightfoot, Transport Phenomena), and the thickness of the layer
// by transport model.
//
// In order: layers at construction, collision function, diffusion in the mixture, layers under given conditions.
#include "model/transport.h"

#include <cmath>

#include "model/constants.h"
#include "model/setup_messages.h"
#include "recipe/recipe_table.h"

namespace vorlen {

namespace {

constexpr double D_MIN = 1e-20;          // m^2/s
constexpr double OMEGA_FIT_FROM = 0.3;   // reduced temperature above which the fit in its logarithm holds
constexpr double OMEGA_LOG_SHIFT = 1.4;  // of that logarithm

bool reject(SurfChemNonst& m, const char* text) {
  m.error_text = text;
  return false;
}

// The text of the recipe's table for a value that is not allowed.
const char* rejection_of(recipe::Section section, const char* name) {
  return recipe::find_row(section, name)->rejection;
}

// omega_inverse above OMEGA_FIT_FROM, for L = ln T_star + OMEGA_LOG_SHIFT. This fit and the one below OMEGA_FIT_FROM
// are fits of this model; docs/physics.md, section 3, compares them with Neufeld's collision integral.
double omega_inverse_of(double L) {
  const double u = 1.0 / L;
  return ((0.19779 - 0.0225768 * u) * u - 0.16845) + (((0.0071131 * L) - 0.0926718) * L + 0.64373) * L;
}

// The gallium precursor whose layer is the measure of the others: TMGa if it flows, else TEGa.
GasSpecies reference_precursor(double Q_TMGa) { return !(Q_TMGa < FLOW_MIN) ? TMGa_g : TEGa_g; }

// thick_GaN: the layer through which the reference flow diffuses just fast enough for the reference growth rate.
bool set_reference_layer(SurfChemNonst& m) {
  m.Q_ref_total = 0.0;
  for (double Q : m.Q_ref) m.Q_ref_total += Q;
  if (m.Q_ref_total < FLOW_MIN) return reject(m, LOW_REFERENCE_FLOW);
  if (m.Q_ref[TMGa_g] < FLOW_MIN && m.Q_ref[TEGa_g] < FLOW_MIN) {
    return reject(m, rejection_of(recipe::Section::Q_ref, "TMGa"));
  }
  std::array<double, N_GAS> x_ref{};
  std::array<double, N_GAS> D_ref{};
  for (std::size_t i = 0; i < N_FLOWS; ++i) x_ref[i] = m.Q_ref[i] / m.Q_ref_total;
  m.mix_diffusion(m.T_ref, m.P_ref, x_ref.data(), D_ref.data());
  if (D_ref[TMGa_g] < D_MIN && D_ref[TEGa_g] < D_MIN) {
    return reject(m, "Refence diffusion coefficients of TMGa and TEGa are less than 1e-20");
  }
  if (!recipe::find_row(recipe::Section::parameters, "GR_ref")->limits.allows(m.GR_ref)) {
    return reject(m, rejection_of(recipe::Section::parameters, "GR_ref"));
  }
  m.GR_ref *= NM;
  const GasSpecies r = reference_precursor(m.Q_ref[TMGa_g]);
  const BulkSpeciesRecord& GaN = m.bulk_species[GaN_b];
  const double delta_0 =
      (1.0 / m.GR_ref) * x_ref[r] * m.P_ref * D_ref[r] / (R_TRANSPORT * m.T_ref) * GaN.molar_mass / GaN.rho;
  for (StageRecord& stage : m.active_stages) {
    stage.delta = delta_0;
    stage.delta_ref = D_ref[r];
  }
  return true;
}

// InGaN_GR_X: for each stage the layer through which the gallium flow gives the prescribed growth rate at the
// prescribed composition.
bool set_prescribed_growth_layers(SurfChemNonst& m) {
  for (std::size_t k = 0; k < m.active_stages.size(); ++k) {
    StageRecord& stage = m.active_stages[k];
    const double T_av = stage.T.average();
    const double P_av = stage.P.average();
    std::array<double, N_GAS> x_av{};
    std::array<double, N_GAS> D_av{};
    double sum = 0.0;
    for (std::size_t i = 0; i < N_FLOWS; ++i) {
      if (!m.gas_present[i]) continue;
      x_av[i] = stage.Q[i].average();
      sum += x_av[i];
    }
    const double Q_TMGa = x_av[TMGa_g];
    if (Q_TMGa < FLOW_MIN && x_av[TEGa_g] < FLOW_MIN) {
      if (k == 0) {
        return reject(m, NO_GALLIUM_IN_FIRST_STAGE);
      }
      stage.delta_species = m.active_stages[k - 1].delta_species;
      continue;
    }
    for (std::size_t i = 0; i < N_FLOWS; ++i) x_av[i] /= sum;
    m.mix_diffusion(T_av, P_av, x_av.data(), D_av.data());

    const double GR = stage.GR_average * NM;
    const double X_In = stage.XIn_average;
    const double X_Al = stage.XAl_average;
    const GasSpecies r = reference_precursor(Q_TMGa);
    const double f = (1.0 / GR) * x_av[r] * P_av * D_av[r] / (R_TRANSPORT * T_av);
    const std::vector<BulkSpeciesRecord>& b = m.bulk_species;
    const double V_In = X_In / (1.0 - X_In - X_Al) * b[InN_b].molar_mass / b[InN_b].rho;
    const double V_Ga = b[GaN_b].molar_mass / b[GaN_b].rho;
    const double V_Al = X_Al / (1.0 - X_In - X_Al) * b[AlN_b].molar_mass / b[AlN_b].rho;
    const double g = (V_Al + (V_Ga + V_In)) * f;
    for (std::size_t i = 0; i < N_GAS; ++i) stage.delta_species[i] = std::sqrt(D_av[i] / D_av[r]) * g;
  }
  return true;
}

}  // namespace

double omega_inverse(double T_star) {
  if (!(T_star > OMEGA_FIT_FROM)) {
    const double d = T_star - OMEGA_FIT_FROM;
    return 1.0 / (((5.6 * d) - 4.0) * d + 2.662);
  }
  return omega_inverse_of(std::log(T_star) + OMEGA_LOG_SHIFT);
}

// Row by row of a species j that counts, over all species i that are present: each sum grows in the order of j. A row
// goes through one operation after the other, so that the divisions and polynomials take two species in one
// instruction, which rounds each as if alone.
void SurfChemNonst::mix_diffusion(double T_gas, double P_gas, const double* x_in, double* D_out) const {
  const double s = std::pow(T_gas, 1.5) / P_gas;
  std::size_t present[N_GAS] = {};
  std::size_t n = 0;
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (gas_present[i]) present[n++] = i;
  }
  double sum[N_GAS] = {};
  double L[N_GAS][N_GAS];
  for (std::size_t row = 0; row < n; ++row) {
    const std::size_t j = present[row];
    const double x_j = x_in[j];
    if (x_j == 0.0) continue;
    double T_star[N_GAS], omega[N_GAS], factor[N_GAS];
    for (std::size_t k = 0; k < n; ++k) T_star[k] = eps_pair[j][present[k]];
    for (std::size_t k = 0; k < n; ++k) factor[k] = D_binary[j][present[k]];
    for (std::size_t k = 0; k < n; ++k) T_star[k] = T_gas / T_star[k];
    // A binary coefficient is the same in both directions, to the last bit, and so is its logarithm.
    for (std::size_t k = 0; k < n; ++k) {
      const bool is_known = k < row && x_in[present[k]] != 0.0;
      L[row][k] = is_known ? L[k][row] : k == row ? 1.0 : std::log(T_star[k]) + OMEGA_LOG_SHIFT;
    }
    for (std::size_t k = 0; k < n; ++k) omega[k] = omega_inverse_of(L[row][k]);
    for (std::size_t k = 0; k < n; ++k) {
      if (!(T_star[k] > OMEGA_FIT_FROM)) omega[k] = omega_inverse(T_star[k]);
    }
    const double sum_of_row = sum[row];  // a species does not hinder itself: its own share is taken out again
    for (std::size_t k = 0; k < n; ++k) sum[k] += x_j / (omega[k] * (factor[k] * s));
    sum[row] = sum_of_row;
  }
  for (std::size_t k = 0; k < n; ++k) D_out[present[k]] = (1.0 - x_in[present[k]]) / sum[k];
}

std::array<double, N_GAS> SurfChemNonst::transport_layers(const std::array<double, N_GAS>& D) const {
  const StageRecord& S = active_stages[stage_index];
  if (transport_model == TRANSPORT_InGaN_GR_X) return S.delta_species;
  std::array<double, N_GAS> delta;
  delta.fill(S.delta);
  if (transport_model != TRANSPORT_thick_GaN) return delta;
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (reactor == REACTOR_TDR) delta[i] = std::sqrt(D[i] / S.delta_ref * omega_TDR_ref / omega_TDR) * S.delta;
    if (reactor == REACTOR_HFR) {
      delta[i] =
          std::sqrt(D[i] / S.delta_ref * Q_ref_total / terms.mixtures.last().Q_total * T_ref / T * P / P_ref) * S.delta;
    }
  }
  return delta;
}

bool set_transport_layers(SurfChemNonst& model) {
  switch (model.transport_model) {
    case TRANSPORT_thick_GaN:
      return set_reference_layer(model);
    case TRANSPORT_InGaN_GR_X:
      return set_prescribed_growth_layers(model);
    case TRANSPORT_InGaN_GR:
      return reject(model, NO_LAYER_OF_InGaN_GR);
    default:
      return true;
  }
}

}  // namespace vorlen
