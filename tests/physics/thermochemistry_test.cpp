// The built-in free energies against thermochemical tables: NIST-JANAF, 4th edition, tables H-083 (NH3), N-023 (N2),
// H-050 (H2), Al-005 (Al, gas), Ga-005 (Ga, gas), Al-071 (AlN), all for a standard pressure of 1 bar.
//
// The built-in polynomials are for 1 atm. Compressing an ideal gas from 1 bar to 1 atm costs RT ln(1.01325), so the
// reduced potential of a gas lies R ln(1.01325) = 0.1094 J/(mol K) below JANAF, and log10 of an equilibrium constant
// moves by log10(1.01325) = 0.0057 for each molecule that the reaction takes away.
#include <gtest/gtest.h>

#include <cmath>

#include "recipe/species_data.h"

namespace vorlen {
namespace {

constexpr double R = 8.314462618;  // J/(mol K), CODATA
constexpr double ATM_OVER_BAR = 1.01325;

double G_gas(GasSpecies species, double T) {
  return gibbs_energy(builtin_gas_species()[static_cast<std::size_t>(species)], T);
}

double G_bulk(BulkSpecies species, double T) {
  return gibbs_energy(builtin_bulk_species()[static_cast<std::size_t>(species)], T);
}

// log10 of the formation constant of ammonia, 1/2 N2 + 3/2 H2 = NH3, at the data's own standard pressure.
double log10_Kf_NH3(double T) {
  const double dG = G_gas(NH3_g, T) - 0.5 * G_gas(N2_g, T) - 1.5 * G_gas(H2_g, T);
  return -dG / (R * T * std::log(10.0));
}

struct FormationConstant {
  double T, janaf, builtin;
};

// builtin: the polynomials evaluated independently of this code.
constexpr FormationConstant NH3_CONSTANTS[] = {
    {298.15, 2.867, 2.8800},   {500.0, -0.501, -0.4921},  {700.0, -2.029, -2.0211},  {900.0, -2.916, -2.9095},
    {1000.0, -3.234, -3.2276}, {1100.0, -3.496, -3.4906}, {1200.0, -3.716, -3.7112}, {1300.0, -3.903, -3.8989},
    {1400.0, -4.064, -4.0602}, {1500.0, -4.203, -4.2002},
};

TEST(AmmoniaEquilibrium, LiesWithin0_015OfJanafInLog10From298To1500K) {
  for (const FormationConstant& row : NH3_CONSTANTS)
    EXPECT_NEAR(log10_Kf_NH3(row.T), row.janaf, 0.015) << row.T << " K";
}

// Two molecules become one, so Kf at 1 atm is 1.01325 times Kf at 1 bar. What is left is below 0.008: 0.0073 at 298 K,
// where the 40 J/mol between the built-in enthalpy of ammonia, -45.940 kJ/mol, and JANAF's -45.898 kJ/mol show most.
TEST(AmmoniaEquilibrium, LosesHalfItsDeviationWithTheStepFrom1BarTo1Atm) {
  double left = 0.0;
  double all = 0.0;
  for (const FormationConstant& row : NH3_CONSTANTS) {
    const double deviation = log10_Kf_NH3(row.T) - row.janaf;
    all += std::abs(deviation);
    left += std::abs(deviation - std::log10(ATM_OVER_BAR));
    EXPECT_NEAR(deviation, std::log10(ATM_OVER_BAR), 0.008) << row.T << " K";
  }
  EXPECT_LT(left, 0.5 * all);
}

// To the four decimals of the independent values.
TEST(AmmoniaEquilibrium, HasTheIndependentlyEvaluatedConstants) {
  for (const FormationConstant& row : NH3_CONSTANTS)
    EXPECT_NEAR(log10_Kf_NH3(row.T), row.builtin, 0.00006) << row.T << " K";
}

// Ammonia decomposes above about 450 K at 1 bar: Kf crosses 1 there.
TEST(AmmoniaEquilibrium, TurnsFromAmmoniaToItsElementsBetween450And475K) {
  EXPECT_GT(log10_Kf_NH3(450.0), 0.0);
  EXPECT_LT(log10_Kf_NH3(475.0), 0.0);
}

struct FreeEnergy {
  GasSpecies species;
  double T, G;
};

// The polynomials evaluated independently of this code, to their three decimals.
TEST(FreeEnergies, OfTheReactorGasesAreTheIndependentlyEvaluatedOnes) {
  constexpr FreeEnergy ROWS[] = {
      {N2_g, 1000.0, -206596.802}, {H2_g, 1000.0, -145426.523}, {NH3_g, 1000.0, -259645.758},
      {N2_g, 1300.0, -276378.199}, {H2_g, 1300.0, -196516.263}, {NH3_g, 1300.0, -335927.051},
  };
  for (const FreeEnergy& row : ROWS)
    EXPECT_NEAR(G_gas(row.species, row.T), row.G, 0.0006) << row.species << " at " << row.T << " K";
}

// JANAF's -[G - H(298)]/T at 1000 K is the reduced potential. The metals are gases: 0.1094 J/(mol K) less at 1 atm, and
// within 0.005 of JANAF with that.
TEST(GibbsFunction, OfAluminiumAndGalliumVapourAt1000KIsJanafsAt1Atm) {
  const auto gas = builtin_gas_species();
  const auto phi = [&](GasSpecies i) {
    const SpeciesRecord& s = gas[static_cast<std::size_t>(i)];
    return (s.H0 - gibbs_energy(s, 1000.0)) / 1000.0;
  };
  const double shift = R * std::log(ATM_OVER_BAR);
  EXPECT_NEAR(shift, 0.1094, 0.0001);
  EXPECT_NEAR(phi(Al_g), 175.266 - shift, 0.005);
  EXPECT_NEAR(phi(Ga_g), 182.428 - shift, 0.005);
  EXPECT_NEAR(phi(Al_g), 175.157, 0.0006);
  EXPECT_NEAR(phi(Ga_g), 182.317, 0.0006);
}

// A solid has no such shift. The 0.3 J/(mol K) that are left are another data set's entropy; over 1000 K they are
// 0.3 kJ/mol, a hundredth of what the 318 kJ/mol of formation are.
TEST(GibbsFunction, OfAluminiumNitrideAt1000KLiesWithin0_3OfJanaf) {
  const BulkSpeciesRecord AlN = builtin_bulk_species()[AlN_b];
  const double phi = (AlN.H0 - gibbs_energy(AlN, 1000.0)) / 1000.0;
  EXPECT_NEAR(phi, 39.850, 0.3);
  EXPECT_NEAR(phi, 40.139, 0.0006);
}

// Enthalpies of formation at 298 K, JANAF: Al gas 329.70, Ga gas 271.96, NH3 -45.898, AlN -317.98 kJ/mol. The largest
// deviation is that of AlN, 1.0 kJ/mol.
TEST(FormationEnthalpies, AreThoseOfJanaf) {
  const auto gas = builtin_gas_species();
  EXPECT_NEAR(gas[Al_g].H0, 329700.0, 50.0);
  EXPECT_NEAR(gas[Ga_g].H0, 271960.0, 50.0);
  EXPECT_NEAR(gas[NH3_g].H0, -45898.0, 50.0);
  EXPECT_NEAR(builtin_bulk_species()[AlN_b].H0, -317980.0, 1100.0);
}

// Free energy of M(g) + NH3 = MN + 3/2 H2, J/mol.
double nitriding(GasSpecies metal, BulkSpecies nitride, double T) {
  return G_bulk(nitride, T) + 1.5 * G_gas(H2_g, T) - G_gas(metal, T) - G_gas(NH3_g, T);
}

// Independently evaluated to 0.1 kJ/mol. The order AlN, GaN, InN is that of the bond strengths.
TEST(NitrideStability, At1300KIsGreatestForAluminiumAndLeastForIndium) {
  const double AlN = nitriding(Al_g, AlN_b, 1300.0);
  const double GaN = nitriding(Ga_g, GaN_b, 1300.0);
  const double InN = nitriding(In_g, InN_b, 1300.0);
  EXPECT_NEAR(AlN, -437.8e3, 60.0);
  EXPECT_NEAR(GaN, -190.3e3, 60.0);
  EXPECT_NEAR(InN, -100.9e3, 60.0);
  EXPECT_LT(AlN, GaN);
  EXPECT_LT(GaN, InN);
}

TEST(NitrideStability, KeepsItsOrderAtAllGrowthTemperatures) {
  for (double T = 900.0; T <= 1500.0; T += 50.0) {
    EXPECT_LT(nitriding(Al_g, AlN_b, T), nitriding(Ga_g, GaN_b, T)) << T << " K";
    EXPECT_LT(nitriding(Ga_g, GaN_b, T), nitriding(In_g, InN_b, T)) << T << " K";
    EXPECT_LT(nitriding(In_g, InN_b, T), 0.0) << T << " K";
  }
}

}  // namespace
}  // namespace vorlen
