// Lattice constants of a composition, the reference lattice and the in-plane strain.
//
// Expected numbers: Vegard averages of InN 3.54, GaN 3.189, AlN 3.112 angstrom and of the elastic constants C13 92,
// 103, 108 and C33 224, 405, 373 GPa, written out in each test.
#include <gtest/gtest.h>

#include <limits>

#include "strain/small_model.h"
#include "support/bits.h"

namespace vorlen_test {
namespace {

using namespace vorlen;

TEST(Lattice, AFractionIsClampedToZeroAndOne) {
  EXPECT_EQ(clamp_fraction(std::nextafter(1.0, 2.0)), 1.0);
  EXPECT_EQ(clamp_fraction(1.0), 1.0);
  EXPECT_EQ(clamp_fraction(0.3), 0.3);
  EXPECT_EQ(clamp_fraction(0.0), 0.0);
  EXPECT_EQ(clamp_fraction(-1e-300), 0.0);
  EXPECT_FALSE(std::signbit(clamp_fraction(-1e-300)));
  EXPECT_TRUE(same_bits(-0.0, clamp_fraction(-0.0)));
  EXPECT_EQ(clamp_fraction(std::numeric_limits<double>::quiet_NaN()), 0.0);
  EXPECT_EQ(clamp_fraction(std::numeric_limits<double>::infinity()), 1.0);
}

TEST(Lattice, TheLatticeConstantIsALinearAverageWithoutNormalisation) {
  const auto m = small_model(STRESS_OFF);
  const double mixed[] = {0.2, 0.5, 0.3};
  EXPECT_DOUBLE_EQ(m->lattice_a(mixed), 0.2 * 3.54 + 0.5 * 3.189 + 0.3 * 3.112);
  const double doubled[] = {0.4, 1.0, 0.6};
  EXPECT_DOUBLE_EQ(m->lattice_a(doubled), 2.0 * m->lattice_a(mixed));
  const double outside[] = {-0.1, 1.1, 0.0};
  EXPECT_DOUBLE_EQ(m->lattice_a(outside), 1.1 * 3.189 - 0.354);
}

TEST(Lattice, AnAllZeroCompositionHasATinyLatticeConstantAndAnEnormousStrain) {
  const auto m = small_model(STRESS_OFF);
  const double none[] = {0.0, 0.0, 0.0};
  EXPECT_EQ(m->lattice_a(none), 1e-100);
  EXPECT_DOUBLE_EQ(m->eps_in_plane(m->lattice_a(none), 0.0, m->z, 0.0), 3.189e100);
}

TEST(Lattice, TheStrainRatioIsThatOfTheMeanElasticConstants) {
  const auto m = small_model(STRESS_OFF);
  const double x[] = {0.2, 0.5, 0.3};
  const double expected = (0.2 * 92 + 0.5 * 103 + 0.3 * 108) / (0.2 * 224 + 0.5 * 405 + 0.3 * 373);
  EXPECT_DOUBLE_EQ(m->strain_ratio(x), expected);
}

TEST(Lattice, WithoutPreStagesTheReferenceIsGaN) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add(recipe, small_stage(10.0));
  const auto m = model_of(recipe);
  EXPECT_EQ(m->a_ref, 3.189);
  EXPECT_EQ(m->c_ref, 5.185);
  EXPECT_EQ(m->z_start, 0.0);
}

TEST(Lattice, TheReferenceIsTheLatticeOfTheLastPreStage) {
  ProcessRecipe recipe = bare_recipe(STRESS_OFF);
  add_pre(recipe, small_layer(3.2));
  add_pre(recipe, small_layer(3.1));
  add(recipe, small_stage(10.0));
  const auto m = model_of(recipe);
  EXPECT_EQ(m->a_ref, 3.1);
  EXPECT_DOUBLE_EQ(m->c_ref, (1.0 - 0.25 * (3.1 / 3.189 - 1.0)) * 5.185);
}

TEST(Lattice, EachReferenceConstantThatIsNotPositiveFallsBackToGaN) {
  const auto m = small_model(STRESS_OFF);
  m->set_reference_lattice(3.3, 0.0);
  EXPECT_EQ(m->a_ref, 3.3);
  EXPECT_EQ(m->c_ref, 5.185);
  m->set_reference_lattice(-1.0, 4.9);
  EXPECT_EQ(m->a_ref, 3.189);
  EXPECT_EQ(m->c_ref, 4.9);
  m->set_reference_lattice(std::numeric_limits<double>::quiet_NaN(), 1e-300);
  EXPECT_EQ(m->a_ref, 3.189);
  EXPECT_EQ(m->c_ref, 1e-300);
}

TEST(Lattice, WithoutRelaxationTheStrainIsTheCoherentMismatchAlone) {
  const auto m = small_model(STRESS_OFF);
  // Everything that would relieve strain under the other model.
  m->rho_TD0 = 1e13;
  m->z0 = m->z_start;
  m->b_burgers = B_BURGERS;
  m->tan_V = 1.0;
  m->eps_r_z0 = 0.5;
  const double a = 3.2;
  for (double rho : {0.0, 1e14}) {
    for (double z : {0.0, 2e-7}) {
      EXPECT_EQ(m->eps_in_plane(a, rho, z, 5e-9), 3.189 / 3.2 - 1.0);
    }
  }
}

TEST(Lattice, DislocationsMoveTheStrainUpwards) {
  const auto m = small_model(STRESS_V_dislocation);
  const double z = m->z_start + 1e-6;
  // 1e-6 m above the start: ln(rho_TD0 L_TD tan(45) 1e-6 + 1) b / (2 L_TD), with 5e8 cm^-2 below.
  const double relieved = std::log(5e12 * 3.1e-8 * 1e-6 + 1.0) * B_BURGERS / 6.2e-8;
  EXPECT_GT(relieved, 0.0);
  EXPECT_TRUE(close_to(3.189 / 3.2 - 1.0 + relieved, m->eps_in_plane(3.2, 0.0, z, 0.0), 1e-12));
  EXPECT_TRUE(close_to(3.189 / 3.1 - 1.0 + relieved, m->eps_in_plane(3.1, 0.0, z, 0.0), 1e-12));
}

TEST(Lattice, TheEffectiveSurfaceLatticeTakesTheCurrentThickness) {
  const auto m = small_model(STRESS_V_dislocation);
  m->z = m->z_start + 1e-6;
  m->h = 4e-7;
  const double relieved = std::log(5e12 * 3.1e-8 * 6e-7 + 1.0) * B_BURGERS / 6.2e-8;
  EXPECT_TRUE(close_to(relieved * 3.2 + 3.189, m->a_eff_at_surface(3.2, 0.0)));
  // The same from the strain: a (eps + 1).
  EXPECT_TRUE(close_to((m->eps_in_plane(3.2, 0.0, m->z, m->h) + 1.0) * 3.2, m->a_eff_at_surface(3.2, 0.0)));
}

}  // namespace
}  // namespace vorlen_test
