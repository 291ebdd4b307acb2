// Diffusion coefficients against measurements and against the kinetic theory with other molecular parameters.
//
// Measured values: Bird, Stewart, Lightfoot, Transport Phenomena, 2nd edition, Table 17.1-1. Collision integral: the
// fit of Neufeld, Janzen and Aziz to Omega(1,1)* of the Lennard-Jones potential.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "physics/model_fixture.h"

namespace vorlen {
namespace {

using vorlen_test::make_model;
using vorlen_test::RecipeBuilder;

constexpr double ATM = 101325.0;  // Pa
constexpr double CM2_PER_M2 = 1e4;
constexpr double TRACE = 1e-6;

class Diffusion : public testing::Test {
 protected:
  void SetUp() override {
    model = make_model(RecipeBuilder());
    ASSERT_NE(model, nullptr);
  }

  // D [cm^2/s] of a trace of one species in the other, at pressure P [Pa].
  double D(GasSpecies trace, GasSpecies carrier, double T, double P = ATM) const {
    std::array<double, N_GAS> x{};
    x[static_cast<std::size_t>(trace)] = TRACE;
    x[static_cast<std::size_t>(carrier)] = 1.0 - TRACE;
    std::array<double, N_GAS> result{};
    model->mix_diffusion(T, P, x.data(), result.data());
    return result[static_cast<std::size_t>(trace)] * CM2_PER_M2;
  }

  std::unique_ptr<SurfChemNonst> model;
};

// The data's deviations: hydrogen in nitrogen 3.6 % low, ammonia in nitrogen 0.6 % high, ammonia in hydrogen 15 % high,
// where the small diameter of the built-in ammonia, 3.0 angstrom, shows most.
TEST_F(Diffusion, OfTheReactorGasesIsTheMeasuredOneWithinTheModelsDeviation) {
  EXPECT_NEAR(D(H2_g, N2_g, 273.2) / 0.674, 1.0, 0.04);
  EXPECT_NEAR(D(NH3_g, N2_g, 298.0) / 0.233, 1.0, 0.01);
  EXPECT_NEAR(D(NH3_g, H2_g, 263.0) / 0.58, 1.0, 0.16);
}

// The formula evaluated independently of this code, to the four digits given.
TEST_F(Diffusion, OfTheReactorGasesIsTheIndependentlyEvaluatedOne) {
  EXPECT_NEAR(D(H2_g, N2_g, 273.2), 0.6496, 0.00006);
  EXPECT_NEAR(D(NH3_g, N2_g, 298.0), 0.2343, 0.00006);
  EXPECT_NEAR(D(NH3_g, H2_g, 263.0), 0.6695, 0.00006);
}

struct HotPair {
  GasSpecies trace, carrier;
  double T;
  double other_parameters;  // first-order Chapman-Enskog with other molecular parameters, a polar correction and
                            // Neufeld's collision integral, cm^2/s
  double builtin;           // the built-in formula and parameters evaluated independently, cm^2/s
};

constexpr HotPair HOT_PAIRS[] = {
    {H2_g, N2_g, 500.0, 1.8468, 1.8043},  {H2_g, N2_g, 1000.0, 5.849, 5.708},  {H2_g, N2_g, 1300.0, 9.033, 8.800},
    {NH3_g, N2_g, 500.0, 0.5775, 0.5918}, {NH3_g, N2_g, 1000.0, 1.964, 1.953}, {NH3_g, N2_g, 1300.0, 3.075, 3.041},
    {NH3_g, H2_g, 500.0, 2.003, 2.064},   {NH3_g, H2_g, 1000.0, 6.562, 6.681}, {NH3_g, H2_g, 1300.0, 10.19, 10.35},
};

// Two sets of molecular parameters for one theory; the largest deviation is 3.1 %, ammonia in hydrogen at 500 K.
TEST_F(Diffusion, AtGrowthTemperaturesLiesWithin3_5PercentOfOtherMolecularParameters) {
  for (const HotPair& pair : HOT_PAIRS) {
    EXPECT_NEAR(D(pair.trace, pair.carrier, pair.T) / pair.other_parameters, 1.0, 0.035)
        << pair.trace << " in " << pair.carrier << " at " << pair.T << " K";
  }
}

TEST_F(Diffusion, AtGrowthTemperaturesIsTheIndependentlyEvaluatedOne) {
  for (const HotPair& pair : HOT_PAIRS) {
    EXPECT_NEAR(D(pair.trace, pair.carrier, pair.T) / pair.builtin, 1.0, 5e-4)
        << pair.trace << " in " << pair.carrier << " at " << pair.T << " K";
  }
}

// The kinetic theory's binary coefficient does not depend on which of the two is the trace.
TEST_F(Diffusion, OfABinaryMixtureIsTheSameFromBothEnds) {
  for (double T : {500.0, 1300.0}) {
    EXPECT_NEAR(D(H2_g, N2_g, T) / D(N2_g, H2_g, T), 1.0, 1e-12);
    EXPECT_NEAR(D(TMGa_g, H2_g, T) / D(H2_g, TMGa_g, T), 1.0, 1e-12);
  }
}

TEST_F(Diffusion, GoesWithTheInverseOfThePressure) {
  EXPECT_NEAR(D(TMGa_g, N2_g, 1300.0, 10000.0) / D(TMGa_g, N2_g, 1300.0, 40000.0), 4.0, 1e-12);
}

// Between the 1.5 of hard spheres and the 2 of soft ones; measurements on many gases are best met by 1.75 (Fuller,
// Schettler, Giddings). 1.7 to 1.8 is the usual statement at growth temperatures; to one decimal that is 1.65 to 1.85.
TEST_F(Diffusion, RisesWithThe1_65thTo1_85thPowerOfTheGrowthTemperature) {
  const double ratio = 1350.0 / 950.0;
  for (GasSpecies carrier : {N2_g, H2_g}) {
    for (GasSpecies trace : {TMIn_g, TMGa_g, TEGa_g, TMAl_g, NH3_g}) {
      const double exponent = std::log(D(trace, carrier, 1350.0) / D(trace, carrier, 950.0)) / std::log(ratio);
      EXPECT_GT(exponent, 1.65) << trace << " in " << carrier;
      EXPECT_LT(exponent, 1.85) << trace << " in " << carrier;
    }
  }
}

// From 1000 to 1300 K, against the other molecular parameters of above. 0.03 is twice the largest deviation, 0.016.
TEST_F(Diffusion, HasTheTemperatureExponentOfOtherMolecularParameters) {
  for (std::size_t i = 0; i < std::size(HOT_PAIRS); i += 3) {
    const HotPair& cold = HOT_PAIRS[i + 1];
    const HotPair& hot = HOT_PAIRS[i + 2];
    ASSERT_EQ(cold.T, 1000.0);
    ASSERT_EQ(hot.T, 1300.0);
    const double other = std::log(hot.other_parameters / cold.other_parameters) / std::log(1.3);
    const double built =
        std::log(D(hot.trace, hot.carrier, 1300.0) / D(hot.trace, hot.carrier, 1000.0)) / std::log(1.3);
    EXPECT_NEAR(built, other, 0.03) << hot.trace << " in " << hot.carrier;
  }
}

// D goes with 1/sqrt(reduced mass) and with 1/sigma^2. For TMGa in hydrogen against nitrogen that is sqrt(22.5/1.97)
// times (4.74/4.31)^2 = 4.1, and much the same for the others; the collision functions shift it by some tenths.
TEST_F(Diffusion, OfAPrecursorIsThreeToFiveTimesFasterInHydrogenThanInNitrogen) {
  for (GasSpecies trace : {TMIn_g, TMGa_g, TEGa_g, TMAl_g}) {
    const double ratio = D(trace, H2_g, 1300.0) / D(trace, N2_g, 1300.0);
    EXPECT_GT(ratio, 3.0) << trace;
    EXPECT_LT(ratio, 5.0) << trace;
  }
}

// Wilke's rule: 1/D of a trace is the mean of 1/D over the carriers, weighted with their fractions.
TEST_F(Diffusion, InAMixtureOfCarriersIsTheirWeightedHarmonicMean) {
  std::array<double, N_GAS> x{};
  x[TMGa_g] = TRACE;
  x[N2_g] = 0.4 * (1.0 - TRACE);
  x[H2_g] = 0.6 * (1.0 - TRACE);
  std::array<double, N_GAS> result{};
  model->mix_diffusion(1300.0, ATM, x.data(), result.data());
  const double expected = 1.0 / (0.4 / D(TMGa_g, N2_g, 1300.0) + 0.6 / D(TMGa_g, H2_g, 1300.0));
  EXPECT_NEAR(result[TMGa_g] * CM2_PER_M2 / expected, 1.0, 1e-12);
}

double neufeld_omega(double T_star) {
  return 1.06036 / std::pow(T_star, 0.15610) + 0.19300 * std::exp(-0.47635 * T_star) +
         1.03587 * std::exp(-1.52996 * T_star) + 1.76474 * std::exp(-3.89411 * T_star);
}

// 1.3 % is the largest deviation of the built-in fit.
TEST(CollisionFunction, LiesWithin1_3PercentOfNeufeldsFitFromHalfTo100) {
  for (double T_star = 0.5; T_star <= 100.0; T_star *= 1.02)
    EXPECT_NEAR(omega_inverse(T_star) * neufeld_omega(T_star), 1.0, 0.013) << "T* " << T_star;
}

// Hotter molecules pass each other more easily.
TEST(CollisionFunction, RisesWithTheReducedTemperature) {
  for (double T_star = 0.5; T_star <= 100.0; T_star *= 1.1)
    EXPECT_LT(omega_inverse(T_star), omega_inverse(1.1 * T_star)) << "T* " << T_star;
}

// The two branches of the fit meet at 0.3; they are two fits, so only to some percent.
TEST(CollisionFunction, HasNoGapWhereItsBranchesMeet) {
  EXPECT_NEAR(omega_inverse(0.3) / omega_inverse(0.3 + 1e-9), 1.0, 0.03);
}

}  // namespace
}  // namespace vorlen
