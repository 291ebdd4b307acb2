// The built-in species: tables of their data with the source of each row, and the free energy.
//
// In order: gas species, bulk species, their free energies, free energy at a temperature, records.
// Rows are in the order of the species numbers. Molar masses are sums of whole-number atomic masses. docs/physics.md,
// sections 3 to 5, compares them with published data.
//
// Sources:
//   model     value of this model; its origin is not recorded
//   Svehla    R. A. Svehla, NASA Technical Report R-132 (1962)
//   V&M       I. Vurgaftman, J. R. Meyer, Journal of Applied Physics 94, 3675 (2003)
//   Wright    A. F. Wright, Journal of Applied Physics 82, 2833 (1997)
//   JANAF     value of this model; docs/physics.md, section 4, compares it with NIST-JANAF Thermochemical Tables, 4th
//             edition
#include "recipe/species_data.h"

#include <cmath>
#include <cstddef>

#include "recipe/process_recipe.h"

namespace vorlen {

namespace {

// Free energy: the enthalpy term H0 [J/mol] and the coefficients phi1 to phi7 of the reduced potential [J/(mol K)], in
// the form of L. V. Gurvich, I. V. Veyts, C. B. Alcock, Thermodynamic Properties of Individual Substances.
struct ThermoRow {
  const char* name;
  double H0, phi1, phi2, phi3, phi4, phi5, phi6, phi7;
};

// Atoms in one molecule, molar mass [kg/kmol], Lennard-Jones diameter sigma [angstrom] and energy eps [K].
struct GasRow {
  const char* name;
  std::uint8_t n_In, n_Ga, n_Al, n_N, n_H, n_C;
  double molar_mass, sigma, eps;
};

// Atoms in one formula unit, molar mass [kg/kmol], density rho [kg/m^3], lattice constants [angstrom], elastic
// constants [GPa].
struct BulkRow {
  const char* name;
  std::uint8_t n_In, n_Ga, n_Al, n_N;
  double molar_mass, rho, a, c, C11, C12, C13, C33;
};

// clang-format off
constexpr GasRow GAS[N_GAS] = {
    // name       In  Ga  Al  N  H   C  mass   sigma  eps       // source of sigma, eps
    {"TMIn_g",    1,  0,  0,  0, 9,  3, 160.0, 5.4,   688.8},   // model
    {"MMIn_g",    1,  0,  0,  0, 3,  1, 130.0, 4.4,   385.4},   // model
    {"TMInNH3_g", 1,  0,  0,  1, 12, 3, 177.0, 5.97,  580.13},  // model
    {"TMGa_g",    0,  1,  0,  0, 9,  3, 115.0, 5.68,  388.0},   // model
    {"MMGa_g",    0,  1,  0,  0, 3,  1, 85.0,  4.22,  399.0},   // model
    {"TEGa_g",    0,  1,  0,  0, 15, 6, 157.0, 7.01,  491.0},   // model
    {"TEGaNH3_g", 0,  1,  0,  1, 18, 6, 174.0, 7.04,  640.55},  // model
    {"TMAl_g",    0,  0,  1,  0, 9,  3, 72.0,  5.41,  472.0},   // model
    {"N2_g",      0,  0,  0,  2, 0,  0, 28.0,  3.798, 71.4},    // Svehla
    {"H2_g",      0,  0,  0,  0, 2,  0, 2.0,   2.93,  34.1},    // model
    {"NH3_g",     0,  0,  0,  1, 3,  0, 17.0,  3.0,   300.0},   // model
    {"In_g",      1,  0,  0,  0, 0,  0, 115.0, 3.025, 2710.0},  // model
    {"Ga_g",      0,  1,  0,  0, 0,  0, 70.0,  2.748, 2974.0},  // model
    {"Al_g",      0,  0,  1,  0, 0,  0, 27.0,  2.655, 3213.0},  // model
};

constexpr BulkRow BULK[N_BULK] = {
    // name   In  Ga  Al  N  mass   rho     a      c      C11    C12    C13    C33      // source of rho; a, c; Cij
    {"InN_b", 1,  0,  0,  1, 129.0, 6810.0, 3.54,  5.705, 223.0, 115.0, 92.0,  224.0},  // model; model; Wright
    {"GaN_b", 0,  1,  0,  1, 84.0,  6150.0, A_GaN, 5.185, 367.0, 135.0, 103.0, 405.0},  // model; V&M; Wright
    {"AlN_b", 0,  0,  1,  1, 41.0,  3255.0, 3.112, 4.982, 396.0, 137.0, 108.0, 373.0},  // model; V&M; Wright
};

constexpr ThermoRow GAS_THERMO[N_GAS] = {
    // name       H0         phi1      phi2      phi3          phi4        phi5        phi6       phi7          // source
    {"TMIn_g",    104709.0,  486.1998, 75.34946, -0.00966392,  3.760722,   1060.398,   -1344.147, 926.5466},    // model
    {"MMIn_g",    161619.0,  327.9518, 37.02704, -0.00234819,  1.5345267,  331.9569,   -408.1081, 273.5027},    // model
    {"TMInNH3_g", -3392.0,   637.5742, 115.9511, -0.009562575, 5.221112,   1367.851,   -1693.338, 1144.322},    // model
    {"TMGa_g",    -45100.0,  419.6335, 56.51964, -0.00623311,  3.1207383,  1253.185,   -1835.496, 1583.225},    // model
    {"MMGa_g",    79000.0,   310.9298, 33.36529, -0.00299805,  1.4928029,  363.5709,   -463.8545, 321.0485},    // model
    {"TEGa_g",    -53000.0,  434.2065, 49.88135, -0.001009328, 3.6769453,  2587.624,   -3667.316, 2775.356},    // model
    {"TEGaNH3_g", -158562.0, 536.1018, 118.1514, -0.03151391,  7.750811,   2628.531,   -3530.13,  2564.582},    // model
    {"TMAl_g",    -87864.0,  439.3127, 67.03525, -0.00997983,  3.579156,   1117.969,   -1438.63,  1005.325},    // model
    {"N2_g",      0.0,       242.8156, 21.47467, 0.001748786,  0.5910039,  81.08497,   -103.6265, 71.30775},    // JANAF
    {"H2_g",      0.0,       205.5368, 29.50487, 0.000168424,  0.86065612, -14.95312,  78.18955,  -82.78981},   // JANAF
    {"NH3_g",     -45940.0,  231.1183, 20.52222, 0.000716251,  0.7677236,  244.6296,   -251.69,   146.6947},    // JANAF
    {"In_g",      240389.0,  179.4259, 5.544982, 0.002369352,  0.1624565,  199.5227,   -392.3531, 350.0412},    // model
    {"Ga_g",      271979.0,  268.3674, 38.19512, -0.00269398,  1.226597,   -118.8071,  194.3493,  -161.9061},   // JANAF
    {"Al_g",      329700.0,  217.0413, 20.81346, 0.000249045,  0.60354813, -0.2495735, 0.5140443, -0.5629165},  // JANAF
};

constexpr ThermoRow BULK_THERMO[N_BULK] = {
    // name   H0         phi1       phi2       phi3         phi4      phi5      phi6       phi7        // source
    {"InN_b", -53000.0,  -106.3564, -33.17936, 0.00639207,  -0.42342, 1457.85,  -6358.016, 14849.28},  // model
    {"GaN_b", -114000.0, 160.2647,  52.86351,  -0.00799055, 2.113389, 1.313428, -2.441129, 1.945731},  // model
    {"AlN_b", -319000.0, 123.1132,  44.98092,  -0.00734504, 1.86107,  31.39626, -49.92139, 81.22038},  // JANAF
};
// clang-format on

// Fills the levels that a species of the thermodynamic kind shares, apart from the atoms of H and C.
template <typename Row>
void fill_thermo(const Row& row, const ThermoRow& thermo, ThermoSpeciesRecord& record) {
  record.name = row.name;
  record.n_In = row.n_In;
  record.n_Ga = row.n_Ga;
  record.n_Al = row.n_Al;
  record.n_N = row.n_N;
  record.molar_mass = row.molar_mass;
  record.H0 = thermo.H0;
  record.phi1 = thermo.phi1;
  record.phi2 = thermo.phi2;
  record.phi3 = thermo.phi3;
  record.phi4 = thermo.phi4;
  record.phi5 = thermo.phi5;
  record.phi6 = thermo.phi6;
  record.phi7 = thermo.phi7;
}

}  // namespace

BulkSpeciesRecord::BulkSpeciesRecord(const ThermoSpeciesRecord& thermo, double density, double a_axis, double c_axis,
                                     double c11, double c12, double c13, double c33)
    : ThermoSpeciesRecord(thermo),
      rho(density),
      a(a_axis),
      c(c_axis),
      C11(c11),
      C12(c12),
      C13(c13),
      C33(c33),
      M((c11 + c12) - 2.0 * c13 * c13 / c33),
      molar_volume(thermo.molar_mass / density) {}

FreeEnergyPowers::FreeEnergyPowers(double temperature) : T(temperature), x(0.0001 * T), x2(x * x), L(std::log(x)) {}

double gibbs_energy(const ThermoSpeciesRecord& record, const FreeEnergyPowers& powers) {
  const double x = powers.x;
  const double x2 = powers.x2;
  const double phi = record.phi3 / x2 + record.phi1 + record.phi4 / x + record.phi2 * powers.L + record.phi5 * x +
                     record.phi6 * x2 + record.phi7 * x * x2;
  return record.H0 - phi * powers.T;
}

double gibbs_energy(const ThermoSpeciesRecord& record, double T) { return gibbs_energy(record, FreeEnergyPowers(T)); }

std::vector<SpeciesRecord> builtin_gas_species() {
  std::vector<SpeciesRecord> species(N_GAS);
  for (std::size_t i = 0; i < N_GAS; ++i) {
    fill_thermo(GAS[i], GAS_THERMO[i], species[i]);
    species[i].n_H = GAS[i].n_H;
    species[i].n_C = GAS[i].n_C;
    species[i].sigma = GAS[i].sigma;
    species[i].eps = GAS[i].eps;
  }
  return species;
}

std::vector<BulkSpeciesRecord> builtin_bulk_species() {
  std::vector<BulkSpeciesRecord> species;
  species.reserve(N_BULK);
  for (std::size_t i = 0; i < N_BULK; ++i) {
    const BulkRow& row = BULK[i];
    ThermoSpeciesRecord thermo;
    fill_thermo(row, BULK_THERMO[i], thermo);
    species.emplace_back(thermo, row.rho, row.a, row.c, row.C11, row.C12, row.C13, row.C33);
  }
  return species;
}

}  // namespace vorlen
