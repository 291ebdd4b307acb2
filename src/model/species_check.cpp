// The species lists of the model: which species take part in a run, and the constant factors of their binary diffusion
// coefficients (docs/physics.md, section 3).
#include <cmath>

#include "model/constants.h"
#include "model/surfchem_nonst.h"

namespace vorlen {

namespace {

enum Element { EL_In, EL_Ga, EL_Al, EL_N, EL_H, EL_C, N_ELEMENTS };

// Present in every run, whatever its material and flows.
constexpr GasSpecies ALWAYS_PRESENT[] = {N2_g, H2_g, NH3_g, TMIn_g, In_g, TMGa_g, TEGa_g, Ga_g, TMAl_g, Al_g};

bool reject(SurfChemNonst& model, std::int32_t& err, std::int32_t code, const char* text) {
  err = code;
  model.error_text = text;
  return false;
}

}  // namespace

void fill_species_lists(SurfChemNonst& model) {
  model.gas_species = builtin_gas_species();
  model.bulk_species = builtin_bulk_species();
}

bool species_check(SurfChemNonst& model, std::int32_t& err) {
  std::array<bool, N_ELEMENTS> present{};
  for (std::size_t i = 0; i < N_GAS; ++i) {
    if (!model.gas_present[i]) continue;
    const SpeciesRecord& s = model.gas_species[i];
    const std::uint8_t atoms[] = {s.n_In, s.n_Ga, s.n_Al, s.n_N, s.n_H, s.n_C};
    for (std::size_t element = 0; element < N_ELEMENTS; ++element) {
      if (atoms[element] != 0) present[element] = true;
    }
  }
  if (!present[EL_N]) {
    return reject(model, err, 100, "Chemical element N is not present in precursor and bulk species");
  }
  if (!present[EL_H]) return reject(model, err, 101, "Chemical element H is not present in precursor species");
  if (!present[EL_C]) return reject(model, err, 102, "Chemical element C is not present in precursor species");
  if (present[EL_In] + present[EL_Ga] + present[EL_Al] < 2) {
    return reject(model, err, 103, "At least 2 Group-III elements from In, Ga, Al should be present ");
  }

  for (GasSpecies i : ALWAYS_PRESENT) model.gas_present[i] = true;

  for (std::size_t i = 0; i < N_GAS; ++i) {
    for (std::size_t j = 0; j < N_GAS; ++j) {
      model.D_binary[i][j] = 0.0;
      model.eps_pair[i][j] = std::sqrt(model.gas_species[i].eps * model.gas_species[j].eps);
      if (!model.gas_present[i] || !model.gas_present[j]) continue;
      const SpeciesRecord& a = model.gas_species[i];
      const SpeciesRecord& b = model.gas_species[j];
      const double sigma_ij = (a.sigma + b.sigma) * 0.5;
      model.D_binary[i][j] =
          std::sqrt((1.0 / b.molar_mass + 1.0 / a.molar_mass) * 0.5) * CHAPMAN_ENSKOG / (sigma_ij * sigma_ij);
    }
  }
  return true;
}

}  // namespace vorlen
