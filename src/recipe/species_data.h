// The built-in species of the nitride chemistry: 14 gas and 3 bulk species with molar masses, atoms, thermodynamic
// polynomials, Lennard-Jones parameters and, for the bulk, crystal data. The sources of the data are in
// species_data.cpp.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorlen {

// Lattice constant a of GaN, angstrom. It is also the length of the Burgers vector, whatever the alloy.
inline constexpr double A_GaN = 3.189;

// Species numbers, used as array indices everywhere. The first eleven gas numbers are the flow numbers.
enum GasSpecies {
  TMIn_g,
  MMIn_g,
  TMInNH3_g,
  TMGa_g,
  MMGa_g,
  TEGa_g,
  TEGaNH3_g,
  TMAl_g,
  N2_g,
  H2_g,
  NH3_g,
  In_g,
  Ga_g,
  Al_g
};
enum BulkSpecies { InN_b, GaN_b, AlN_b };
enum AdsorbedSpecies { In_a, Ga_a, Al_a, N_a, H_a };

// What gas and bulk species have in common: the atoms, and the free energy with the enthalpy term H0, J/mol, and the
// coefficients of the reduced potential, J/(mol K).
struct ThermoSpeciesRecord {
  std::string name;
  std::uint8_t n_In = 0, n_Ga = 0, n_Al = 0, n_N = 0, n_H = 0, n_C = 0;  // atoms in one formula unit
  double molar_mass = 0.0;                                               // kg/kmol
  double H0 = 0.0;
  double phi1 = 0.0, phi2 = 0.0, phi3 = 0.0, phi4 = 0.0, phi5 = 0.0, phi6 = 0.0, phi7 = 0.0;
};

// A gas species: adds the Lennard-Jones parameters.
struct SpeciesRecord : ThermoSpeciesRecord {
  double sigma = 0.0;  // collision diameter, angstrom
  double eps = 0.0;    // well depth over Boltzmann's constant, K
};

// A group-III nitride: adds the crystal.
struct BulkSpeciesRecord : ThermoSpeciesRecord {
  double rho = 0.0;                                   // density, kg/m^3
  double a = 0.0, c = 0.0;                            // lattice constants, angstrom
  double C11 = 0.0, C12 = 0.0, C13 = 0.0, C33 = 0.0;  // elastic constants, GPa
  double M = 0.0;                                     // biaxial modulus (C11 + C12) - 2 C13^2 / C33, GPa
  double molar_volume = 0.0;                          // molar_mass / rho, m^3/kmol

  BulkSpeciesRecord() = default;
  // Joins the crystal's data, in the units and the order of the fields, to the thermodynamic level and computes M and
  // molar_volume from them.
  BulkSpeciesRecord(const ThermoSpeciesRecord& thermo, double density, double a_axis, double c_axis, double c11,
                    double c12, double c13, double c33);
};

// Gibbs free energy at temperature T [K], J/mol: H0 - phi(x) T with x = 1e-4 T and the reduced potential
// phi = phi3/x^2 + phi1 + phi4/x + phi2 ln x + phi5 x + phi6 x^2 + phi7 x^3.
double gibbs_energy(const ThermoSpeciesRecord& record, double T);

// Powers and logarithm that the free energies of all species at one temperature have in common.
struct FreeEnergyPowers {
  explicit FreeEnergyPowers(double temperature);
  double T;   // K
  double x;   // 1e-4 T
  double x2;  // x^2
  double L;   // ln x
};
double gibbs_energy(const ThermoSpeciesRecord& record, const FreeEnergyPowers& powers);

// The built-in records, 14 and 3 of them, in the order of the species numbers.
std::vector<SpeciesRecord> builtin_gas_species();
std::vector<BulkSpeciesRecord> builtin_bulk_species();

}  // namespace vorlen
