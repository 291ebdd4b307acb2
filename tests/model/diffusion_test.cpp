// The collision function of the Lennard-Jones potential, and Wilke's rule for a species in a mixture.
#include <cmath>

#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

const ProcessRecipe& plain_recipe() {
  static const ProcessRecipe recipe = recipe_of(RecipeOptions{});
  return recipe;
}

// Binary coefficient of nitrogen in hydrogen at 1000 K and 1e5 Pa: the collision function at
// T* = 1000 / sqrt(71.4 * 34.1) = 20.27, times 0.0012018907773782453, times 1000^1.5 / 1e5.
constexpr double D_N2_H2 = 0.0005783239129119888;

}  // namespace

TEST(CollisionFunction, BelowAndAtTheBoundItIsTheRationalBranch) {
  // 1 / 2.662 at T* = 0.3; at T* = 0.1, d = -0.2: 1 / (5.6 * 0.04 + 0.8 + 2.662)
  EXPECT_DOUBLE_EQ(omega_inverse(0.3), 1.0 / 2.662);
  EXPECT_DOUBLE_EQ(omega_inverse(0.1), 1.0 / 3.686);
}

TEST(CollisionFunction, AboveTheBoundItIsTheLogarithmicBranch) {
  // At T* = 1: L = 1.4, u = 1/1.4
  const double u = 1.0 / 1.4;
  const double expected =
      0.19779 * u - 0.0225768 * u * u - 0.16845 + 0.0071131 * 1.4 * 1.4 * 1.4 - 0.0926718 * 1.4 * 1.4 + 0.64373 * 1.4;
  EXPECT_NEAR(omega_inverse(1.0), expected, 1e-14);
}

TEST(CollisionFunction, TheBranchesMeetAtTheBound) {
  EXPECT_NEAR(omega_inverse(std::nextafter(0.3, 1.0)), omega_inverse(0.3), 1e-4);
  EXPECT_NE(omega_inverse(std::nextafter(0.3, 1.0)), omega_inverse(0.3));
}

TEST(CollisionFunction, ItIsTheInverseOfTheTabulatedIntegral) {
  // Omega(1,1)* of the Lennard-Jones potential (Hirschfelder, Curtiss, Bird, Molecular Theory of Gases and Liquids,
  // 1954). The fit keeps to it within 2 percent.
  constexpr double TABLE[][2] = {{0.3, 2.662},  {0.5, 2.066},   {1.0, 1.439},   {2.0, 1.075},
                                 {5.0, 0.8422}, {10.0, 0.7424}, {20.0, 0.6640}, {50.0, 0.5756}};
  for (const auto& [T_star, omega] : TABLE) EXPECT_NEAR(1.0 / omega_inverse(T_star), omega, 0.02 * omega) << T_star;
}

TEST(CollisionFunction, NaNTakesTheRationalBranchAndStays) { EXPECT_TRUE(std::isnan(omega_inverse(std::nan("")))); }

TEST(MixtureDiffusion, ATraceInOneGasHasTheBinaryCoefficient) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{};
  x[H2_g] = 1.0;
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  EXPECT_NEAR(D[N2_g], D_N2_H2, 1e-14 * D_N2_H2);
}

// At T* = 0.3 exactly Omega is 2.662; the branch in the logarithm gives another last bit.
TEST(MixtureDiffusion, TheBoundBelongsToTheRationalBranch) {
  BuiltModel model(plain_recipe());
  const double T_gas = 0.3 * 64.0;
  model->eps_pair[N2_g][H2_g] = model->eps_pair[H2_g][N2_g] = 64.0;
  std::array<double, N_GAS> x{}, D{};
  x[H2_g] = 1.0;
  model->mix_diffusion(T_gas, 1e5, x.data(), D.data());
  const double coefficient = (1.0 / 2.662) * (model->D_binary[N2_g][H2_g] * (std::pow(T_gas, 1.5) / 1e5));
  EXPECT_EQ(D[N2_g], 1.0 / (1.0 / coefficient));
}

TEST(MixtureDiffusion, AMixtureFollowsWilkesRule) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> pure{}, x{}, D_N2{}, D_H2{}, D{};
  pure[N2_g] = 1.0;
  model->mix_diffusion(1300.0, 2e4, pure.data(), D_N2.data());
  pure = {};
  pure[H2_g] = 1.0;
  model->mix_diffusion(1300.0, 2e4, pure.data(), D_H2.data());
  x[N2_g] = 0.25;
  x[H2_g] = 0.75;
  model->mix_diffusion(1300.0, 2e4, x.data(), D.data());
  // A trace: 1/D = sum of x_j / D_ij. A component of the mixture: (1 - x_i) / the sum over the others.
  EXPECT_NEAR(1.0 / D[TMGa_g], 0.25 / D_N2[TMGa_g] + 0.75 / D_H2[TMGa_g], 1e-13 / D[TMGa_g]);
  EXPECT_NEAR(D[N2_g], D_H2[N2_g], 1e-15);
}

TEST(MixtureDiffusion, GrowsWithThePower15OfTemperatureTimesTheCollisionFunctionAndFallsWithPressure) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{}, D_half{}, D_hot{};
  x[H2_g] = 1.0;
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  model->mix_diffusion(1000.0, 5e4, x.data(), D_half.data());
  EXPECT_DOUBLE_EQ(D_half[N2_g], 2.0 * D[N2_g]);
  model->mix_diffusion(4000.0, 1e5, x.data(), D_hot.data());
  const double T_star = 1000.0 / std::sqrt(71.4 * 34.1);
  EXPECT_NEAR(D_hot[N2_g] / D[N2_g], 8.0 * omega_inverse(4.0 * T_star) / omega_inverse(T_star), 1e-12);
}

TEST(MixtureDiffusion, VapoursGetACoefficientButAddNothing) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{};
  x[N2_g] = 0.5;
  x[H2_g] = 0.5;
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  EXPECT_GT(D[Ga_g], 0.0);
  EXPECT_NEAR(D[N2_g], D_N2_H2, 1e-14 * D_N2_H2);
}

TEST(MixtureDiffusion, ASpeciesThatIsAloneDividesByZero) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{};
  x[H2_g] = 1.0;
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  EXPECT_TRUE(std::isnan(D[H2_g])) << "0 / 0";
  x[H2_g] = 0.5;  // 0.5 / 0
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  EXPECT_TRUE(std::isinf(D[H2_g]));
}

TEST(MixtureDiffusion, ASpeciesWithoutFractionNeedsNoCoefficient) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{};
  D.fill(77.0);
  x[N2_g] = 0.5;
  x[H2_g] = 0.5;
  // At 0 K every binary coefficient is 0: 0.5 / 0 adds an infinity, 0 / 0 would spoil the sum.
  model->mix_diffusion(0.0, 1e5, x.data(), D.data());
  EXPECT_EQ(D[N2_g], 0.0);
  EXPECT_EQ(D[TMGa_g], 0.0);
}

TEST(MixtureDiffusion, EntriesOfAbsentSpeciesAreLeftAlone) {
  BuiltModel model(plain_recipe());
  std::array<double, N_GAS> x{}, D{};
  D.fill(77.0);
  x[N2_g] = 0.4;
  x[H2_g] = 0.4;
  x[MMIn_g] = 0.2;  // not read either
  model->mix_diffusion(1000.0, 1e5, x.data(), D.data());
  for (GasSpecies i : {MMIn_g, TMInNH3_g, MMGa_g, TEGaNH3_g}) EXPECT_EQ(D[i], 77.0);
  EXPECT_NEAR(D[N2_g], 0.6 / 0.4 * D_N2_H2, 1e-13 * D_N2_H2);
}
