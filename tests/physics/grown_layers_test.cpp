// Rate and composition of the layers that grow in the steady state, at conditions of real MOVPE. The expected values
// were computed independently of this code from the same equations, and have the digits that were given;
// the tolerance is six tenths of the last digit.
#include <gtest/gtest.h>

#include "physics/growth_run.h"

namespace vorlen {
namespace {

using vorlen_test::algan_in_hydrogen;
using vorlen_test::alinn_in_nitrogen;
using vorlen_test::Conditions;
using vorlen_test::constant_stage;
using vorlen_test::gan_in_hydrogen;
using vorlen_test::grow;
using vorlen_test::ingan_in_nitrogen;
using vorlen_test::Layer;
using vorlen_test::RecipeBuilder;
using vorlen_test::steady_layer;

constexpr double THIRD_DECIMAL = 0.0006;
constexpr double FOURTH_DECIMAL = 0.00006;

// Without indium or aluminium flow the fractions are 0 to rounding.
constexpr double NONE = 1e-9;

TEST(GrownGaN, InHydrogenHasTheIndependentRates) {
  struct {
    double T, TMGa, rate;
  } constexpr ROWS[] = {{1250.0, 1.0, 0.381}, {1300.0, 1.0, 0.389}, {1350.0, 1.0, 0.391}, {1310.0, 2.5, 0.980}};
  for (const auto& row : ROWS) {
    Conditions c = gan_in_hydrogen();
    c.T = row.T;
    c.TMGa = row.TMGa;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_In, 0.0, NONE);
    EXPECT_NEAR(layer.x_Al, 0.0, NONE);
  }
}

TEST(GrownGaN, InNitrogenHasTheIndependentRate) {
  Conditions c = gan_in_hydrogen();
  c.H2 = 0.0;
  c.N2 = 9000.0;
  EXPECT_NEAR(grow(c).rate, 0.204, THIRD_DECIMAL);
}

TEST(GrownGaN, BetweenQuantumWellsHasTheIndependentRates) {
  Conditions c = ingan_in_nitrogen();
  c.TMIn = 0.0;
  EXPECT_NEAR(grow(c).rate, 0.0357, FOURTH_DECIMAL);
  c.T = 1080.0;
  EXPECT_NEAR(grow(c).rate, 0.0370, FOURTH_DECIMAL);
}

TEST(GrownInGaN, AtEachTemperatureHasTheIndependentRateAndComposition) {
  struct {
    double T, rate, x_In;
  } constexpr ROWS[] = {{1000.0, 0.0506, 0.244}, {1010.0, 0.0495, 0.227}, {1020.0, 0.0485, 0.210},
                        {1030.0, 0.0476, 0.193}, {1040.0, 0.0467, 0.176}, {1050.0, 0.0459, 0.160}};
  for (const auto& row : ROWS) {
    Conditions c = ingan_in_nitrogen();
    c.T = row.T;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, FOURTH_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_In, row.x_In, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_Al, 0.0, NONE);
  }
}

TEST(GrownInGaN, AtEachPressureHasTheIndependentRateAndComposition) {
  struct {
    double P, rate, x_In;
  } constexpr ROWS[] = {{30000.0, 0.0466, 0.180}, {50000.0, 0.0484, 0.203}};
  for (const auto& row : ROWS) {
    Conditions c = ingan_in_nitrogen();
    c.P = row.P;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, FOURTH_DECIMAL) << row.P << " Pa";
    EXPECT_NEAR(layer.x_In, row.x_In, THIRD_DECIMAL) << row.P << " Pa";
  }
}

TEST(GrownInGaN, AtEachIndiumFlowHasTheIndependentRateAndComposition) {
  struct {
    double TMIn, rate, x_In;
  } constexpr ROWS[] = {
      {0.02, 0.0379, 0.041}, {0.05, 0.0404, 0.087}, {0.1, 0.0435, 0.136}, {0.3, 0.0504, 0.229}, {0.6, 0.0563, 0.293}};
  for (const auto& row : ROWS) {
    Conditions c = ingan_in_nitrogen();
    c.TMIn = row.TMIn;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, FOURTH_DECIMAL) << row.TMIn << " sccm";
    EXPECT_NEAR(layer.x_In, row.x_In, THIRD_DECIMAL) << row.TMIn << " sccm";
  }
}

TEST(GrownAlGaN, AtEachTemperatureHasTheIndependentRateAndComposition) {
  struct {
    double T, rate, x_Al;
  } constexpr ROWS[] = {{1300.0, 0.519, 0.248}, {1350.0, 0.519, 0.254}, {1380.0, 0.506, 0.264}};
  for (const auto& row : ROWS) {
    Conditions c = algan_in_hydrogen();
    c.T = row.T;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_Al, row.x_Al, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_In, 0.0, NONE);
  }
}

TEST(GrownAlGaN, AtEachAluminiumFlowHasTheIndependentRateAndComposition) {
  struct {
    double TMAl, rate, x_Al;
  } constexpr ROWS[] = {
      {0.05, 0.416, 0.053}, {0.1, 0.437, 0.101}, {0.2, 0.479, 0.182}, {0.5, 0.604, 0.357}, {1.0, 0.809, 0.526}};
  for (const auto& row : ROWS) {
    Conditions c = algan_in_hydrogen();
    c.T = 1330.0;
    c.TMAl = row.TMAl;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, THIRD_DECIMAL) << row.TMAl << " sccm";
    EXPECT_NEAR(layer.x_Al, row.x_Al, THIRD_DECIMAL) << row.TMAl << " sccm";
  }
}

// The rest to 1 is gallium, of the floor that keeps a trace of its precursor in the gas.
TEST(GrownAlInN, AtEachTemperatureHasTheIndependentRateAndComposition) {
  struct {
    double T, rate, x_In, x_Al;
  } constexpr ROWS[] = {{1050.0, 0.109, 0.225, 0.774}, {1070.0, 0.103, 0.184, 0.815}, {1090.0, 0.098, 0.147, 0.852}};
  for (const auto& row : ROWS) {
    Conditions c = alinn_in_nitrogen();
    c.T = row.T;
    const Layer layer = grow(c);
    EXPECT_NEAR(layer.rate, row.rate, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_In, row.x_In, THIRD_DECIMAL) << row.T << " K";
    EXPECT_NEAR(layer.x_Al, row.x_Al, THIRD_DECIMAL) << row.T << " K";
    EXPECT_GT(layer.x_Ga, 0.0);
    EXPECT_LT(layer.x_Ga, 0.002);
  }
}

TEST(GrownAlInGaN, HasTheIndependentRateAndComposition) {
  Conditions c = alinn_in_nitrogen();
  c.T = 1050.0;
  c.TEGa = 0.2;
  c.TMAl = 0.3;
  const Layer layer = grow(c);
  EXPECT_NEAR(layer.rate, 0.094, THIRD_DECIMAL);
  EXPECT_NEAR(layer.x_In, 0.214, THIRD_DECIMAL);
  EXPECT_NEAR(layer.x_Al, 0.544, THIRD_DECIMAL);
}

TEST(GrownGaN, ByThickGaNAtItsReferenceConditionsHasTheIndependentRate) {
  RecipeBuilder recipe({.stress_model = "off", .transport_model = "thick_GaN"});
  recipe.set("process_stages/stage_1/tau", "100");
  EXPECT_NEAR(steady_layer(recipe).rate, 0.492, THIRD_DECIMAL);
}

// GR_average 0.05 and XIn_average 0.19, which the layer comes near to.
TEST(GrownInGaN, ByInGaNGRXHasTheIndependentRateAndComposition) {
  RecipeBuilder recipe({.stress_model = "off", .transport_model = "InGaN_GR_X"});
  recipe.set("process_stages/stage_1/tau", "100");
  const Layer layer = steady_layer(recipe);
  EXPECT_NEAR(layer.rate, 0.0492, FOURTH_DECIMAL);
  EXPECT_NEAR(layer.x_In, 0.180, THIRD_DECIMAL);
}

// Powers of T instead of activation energies, and constants without either, chosen to have nearly the same values at
// growth temperatures: the layers are those of the first set to about 1 %; 2 % and one point of composition are
// allowed.
TEST(GrownLayers, WithRateConstantsOfTheOtherFormAreTheSameToAPercent) {
  for (const Conditions& c : {gan_in_hydrogen(), ingan_in_nitrogen(), algan_in_hydrogen()}) {
    RecipeBuilder recipe = constant_stage(c);
    const Layer first = steady_layer(recipe);
    const auto constant = [&](const char* name, const char* A, const char* Ta, const char* Tn) {
      const std::string path = std::string("chemistry/") + name;
      recipe.set(path, "A", A).set(path, "Ta", Ta).set(path, "Tn", Tn);
    };
    constant("Kd_Ga", "9.1e9", "32500", "1");
    constant("Kd_Al", "2.5e-3", "0", "0");
    constant("Kd_N2", "1.66e22", "19700", "-0.5");
    constant("K_InN_plus", "1.5e19", "26700", "0.5");
    constant("K_AlN_plus", "2.0e9", "0", "0");
    const Layer second = steady_layer(recipe);
    EXPECT_NEAR(second.rate / first.rate, 1.0, 0.02) << c.T << " K";
    EXPECT_NEAR(second.x_In, first.x_In, 0.01) << c.T << " K";
    EXPECT_NEAR(second.x_Al, first.x_Al, 0.01) << c.T << " K";
  }
}

}  // namespace
}  // namespace vorlen
