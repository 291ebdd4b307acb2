// The tables of the species and the free energy.
#include "recipe/species_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "recipe/process_recipe.h"
#include "support/bits.h"

namespace vorlen {
namespace {

using vorlen_test::from_bits;
using vorlen_test::same_as_reference;
using vorlen_test::same_bits;

nlohmann::json reference_functions() {
  std::ifstream file(VORLEN_TEST_DATA "/model/model_vectors.json");
  return nlohmann::json::parse(file).at("functions");
}

std::vector<double> numbers(const nlohmann::json& value) {
  std::istringstream words(value.at("bits").get<std::string>());
  std::vector<double> result;
  for (std::string word; words >> word;) result.push_back(from_bits(word));
  return result;
}

// All species of the thermodynamic level.
std::vector<ThermoSpeciesRecord> thermo_species() {
  std::vector<ThermoSpeciesRecord> species;
  for (const SpeciesRecord& record : builtin_gas_species()) species.push_back(record);
  for (const BulkSpeciesRecord& record : builtin_bulk_species()) species.push_back(record);
  return species;
}

TEST(SpeciesData, TheListsHaveTheirLengthsAndNames) {
  const auto gas = builtin_gas_species();
  const auto bulk = builtin_bulk_species();
  ASSERT_EQ(gas.size(), 14u);
  ASSERT_EQ(bulk.size(), 3u);
  const char* const gas_names[] = {"TMIn_g", "MMIn_g", "TMInNH3_g", "TMGa_g", "MMGa_g", "TEGa_g", "TEGaNH3_g",
                                   "TMAl_g", "N2_g",   "H2_g",      "NH3_g",  "In_g",   "Ga_g",   "Al_g"};
  for (std::size_t i = 0; i < 14; ++i) {
    EXPECT_EQ(gas[i].name, gas_names[i]);
  }
  const char* const bulk_names[] = {"InN_b", "GaN_b", "AlN_b"};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(bulk[i].name, bulk_names[i]);
  }
  EXPECT_EQ(gas[NH3_g].name, "NH3_g");
  EXPECT_EQ(gas[Al_g].name, "Al_g");
  EXPECT_EQ(bulk[AlN_b].name, "AlN_b");
}

// The data set's molar masses are whole numbers: the sum of 115, 70, 27, 14, 1 and 12 for In, Ga, Al, N, H, C.
TEST(SpeciesData, TheMolarMassIsTheSumOfTheAtoms) {
  const auto expect_sum = [](const ThermoSpeciesRecord& s) {
    EXPECT_EQ(s.molar_mass, 115 * s.n_In + 70 * s.n_Ga + 27 * s.n_Al + 14 * s.n_N + s.n_H + 12 * s.n_C) << s.name;
  };
  for (const auto& species : builtin_gas_species()) expect_sum(species);
  for (const auto& species : builtin_bulk_species()) expect_sum(species);
}

// Trimethylindium In(CH3)3, its adduct with ammonia, triethylgallium Ga(C2H5)3, ammonia.
TEST(SpeciesData, TheAtomsAreThoseOfTheFormulas) {
  const auto gas = builtin_gas_species();
  const auto atoms = [&](std::size_t i) {
    const SpeciesRecord& s = gas[i];
    return std::array<int, 6>{s.n_In, s.n_Ga, s.n_Al, s.n_N, s.n_H, s.n_C};
  };
  EXPECT_EQ(atoms(TMIn_g), (std::array{1, 0, 0, 0, 9, 3}));
  EXPECT_EQ(atoms(TMInNH3_g), (std::array{1, 0, 0, 1, 12, 3}));
  EXPECT_EQ(atoms(TEGa_g), (std::array{0, 1, 0, 0, 15, 6}));
  EXPECT_EQ(atoms(TMAl_g), (std::array{0, 0, 1, 0, 9, 3}));
  EXPECT_EQ(atoms(N2_g), (std::array{0, 0, 0, 2, 0, 0}));
  EXPECT_EQ(atoms(NH3_g), (std::array{0, 0, 0, 1, 3, 0}));
}

TEST(SpeciesData, TheElementsInTheirReferenceStateHaveNoEnthalpyTerm) {
  EXPECT_EQ(builtin_gas_species()[N2_g].H0, 0.0);
  EXPECT_EQ(builtin_gas_species()[H2_g].H0, 0.0);
}

TEST(SpeciesData, LennardJonesParametersOfTheMainGases) {
  const auto gas = builtin_gas_species();
  EXPECT_EQ(gas[N2_g].sigma, 3.798);
  EXPECT_EQ(gas[N2_g].eps, 71.4);
  EXPECT_EQ(gas[H2_g].sigma, 2.93);
  EXPECT_EQ(gas[H2_g].eps, 34.1);
  EXPECT_EQ(gas[NH3_g].sigma, 3.0);
  EXPECT_EQ(gas[NH3_g].eps, 300.0);
  EXPECT_EQ(gas[TEGaNH3_g].sigma, 7.04);
  EXPECT_EQ(gas[TEGaNH3_g].eps, 640.55);
}

// 449.6098765432099 = (367 + 135) - 2 * 103^2 / 405.
TEST(SpeciesData, ModulusAndMolarVolumeOfGaNAreComputed) {
  const BulkSpeciesRecord GaN = builtin_bulk_species()[GaN_b];
  EXPECT_TRUE(same_bits(449.6098765432099, GaN.M));
  EXPECT_TRUE(same_bits(84.0 / 6150.0, GaN.molar_volume));
}

// (223 + 115) - 2 * 92^2 / 224 and (396 + 137) - 2 * 108^2 / 373.
TEST(SpeciesData, ModuliOfInNAndAlN) {
  EXPECT_NEAR(builtin_bulk_species()[InN_b].M, 338.0 - 16928.0 / 224.0, 1e-12);
  EXPECT_NEAR(builtin_bulk_species()[AlN_b].M, 533.0 - 23328.0 / 373.0, 1e-12);
}

TEST(GibbsEnergy, OfAllSpeciesAgreesWithTheReferenceValues) {
  const nlohmann::json cases = reference_functions().at("gibbs_energy");
  const auto species = thermo_species();
  std::set<std::string> seen;
  for (const nlohmann::json& one : cases) {
    const std::string name = one.at("species");
    const auto record =
        std::find_if(species.begin(), species.end(), [&](const ThermoSpeciesRecord& s) { return s.name == name; });
    ASSERT_NE(record, species.end()) << name;
    seen.insert(name);
    const std::vector<double> T = numbers(one.at("T"));
    const std::vector<double> G = numbers(one.at("value"));
    ASSERT_EQ(T.size(), G.size());
    ASSERT_FALSE(T.empty());
    for (std::size_t i = 0; i < T.size(); ++i) {
      EXPECT_TRUE(same_as_reference(G[i], gibbs_energy(*record, T[i]))) << name << " at " << T[i] << " K";
    }
  }
  EXPECT_EQ(seen.size(), species.size());
}

// At 1000 K x is 0.1 to rounding, and H0 of N2 is 0, so the free energy is -1000 times the potential, term by term.
TEST(GibbsEnergy, OfNitrogenAt1000K) {
  const double phi =
      0.001748786 * 100 + 242.8156 + 5.910039 - 21.47467 * 2.302585092994046 + 8.108497 - 1.036265 + 0.07130775;
  EXPECT_NEAR(gibbs_energy(builtin_gas_species()[N2_g], 1000.0), -1000 * phi, 1e-6);
}

// The derivative of the free energy is minus the entropy; at 298 K that of N2 is 191.6 J/(mol K), that of H2 130.7 and
// that of NH3 192.8 (standard entropies of thermochemical tables).
TEST(GibbsEnergy, SlopeIsMinusTheStandardEntropy) {
  const auto gas = builtin_gas_species();
  const auto entropy = [&](std::size_t i) { return -(gibbs_energy(gas[i], 298.65) - gibbs_energy(gas[i], 297.65)); };
  EXPECT_NEAR(entropy(N2_g), 191.6, 0.2);
  EXPECT_NEAR(entropy(H2_g), 130.7, 0.2);
  EXPECT_NEAR(entropy(NH3_g), 192.8, 0.2);
}

TEST(BitComparison, DistinguishesAdjacentDoublesAndZeroesOfBothSigns) {
  EXPECT_TRUE(same_bits(0.1, 0.1));
  EXPECT_FALSE(same_bits(0.1, std::nextafter(0.1, 1.0)));
  EXPECT_FALSE(same_bits(0.0, -0.0));
  EXPECT_TRUE(same_bits(std::nan(""), -std::nan("")));
  EXPECT_FALSE(same_bits(std::nan(""), 1.0));
  EXPECT_FALSE(same_as_reference(1.0, 1.0 + 1e-11));
  EXPECT_EQ(from_bits("4072c00000000000"), 300.0);
}

}  // namespace
}  // namespace vorlen
