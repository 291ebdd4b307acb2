// Rate constants, equilibrium constants, the nitrogen mix, the activities of the solid and the incorporation rates; the
// rows of the relaxation as far as the residual decides them.
#include <cmath>

#include "model/constants.h"
#include "model/model_fixture.h"

using namespace vorlen;
using namespace vorlen_test;

namespace {

constexpr double R_ACT = 8314.47;

// A model at the conditions of its first stage, evaluated at the composition given. Without adsorbed species unless
// the test sets them.
struct Surface {
  BuiltModel model;
  std::array<double, N_STATE_MAX> y{}, f{};

  explicit Surface(const ProcessRecipe& recipe) : model(recipe) {
    EXPECT_EQ(model.err, 0);
    EXPECT_EQ(model->update_conditions(model->t_begin, true), 0);
    y[STATE_Z] = model->z_start;
  }
  explicit Surface(const RecipeOptions& options = {.stress_model = "off"}) : Surface(recipe_of(options)) {}

  SurfChemNonst* operator->() { return &model.m; }
  const ConditionTerms& conditions() { return model->condition_terms(); }
  const CompositionTerms& composition() { return composition_of(model.m); }
  void evaluate(double In, double Ga, double Al) {
    const std::size_t n = static_cast<std::size_t>(model->n_state());
    y[n - 4] = In;
    y[n - 3] = Ga;
    y[n - 2] = Al;
    ASSERT_EQ(model->eval_rhs(model->t, y.data(), f.data()), 0);
  }
};

void expect_close(double expected, double actual, double tolerance = 1e-13) {
  EXPECT_NEAR(actual, expected, tolerance * std::fabs(expected));
}

}  // namespace

TEST(RateConstants, OfDesorptionAreInUnitsOfTheHertzKnudsenFactor) {
  ProcessRecipe recipe = recipe_of(RecipeOptions{.stress_model = "off"});
  recipe.Kd_A = {1e13, 2e13, 3e13, 4e13, 5e13};
  recipe.Kd_Ta = {20000.0, 0.0, 21000.0, 0.0, 0.0};
  recipe.Kd_Tn = {0.5, 0.5, 0.0, 0.0, -2.0};
  Surface s(recipe);
  s.evaluate(0.1, 0.9, 0.0);
  const double T = 1030.0;
  expect_close(1e13 * std::exp(-20000.0 / T) * std::sqrt(T), s.conditions().Kd[In_a] * s.conditions().v_kin[In_g]);
  expect_close(2e13 * std::sqrt(T), s.conditions().Kd[Ga_a] * s.conditions().v_kin[Ga_g]);
  expect_close(3e13 * std::exp(-21000.0 / T), s.conditions().Kd[Al_a] * s.conditions().v_kin[Al_g]);
  expect_close(4e13, s.composition().Kd_N2 * s.composition().v_kin_N2);
  expect_close(5e13 / (T * T), s.conditions().Kd[H_a] * s.conditions().v_kin[H2_g]);
}

TEST(RateConstants, OfIncorporationFollowTheTemperature) {
  Surface s;
  s->K_plus_A = {1e18, 2e18, 3e18};
  s->K_plus_Ta = {22000.0, 0.0, 0.0};
  s->K_plus_Tn = {0.0, 1.0, 0.0};
  expect_close(1e18 * std::exp(-22000.0 / 1030.0), s->k_plus(InN_b));
  expect_close(2e18 * 1030.0, s->k_plus(GaN_b));
  EXPECT_EQ(s->k_plus(AlN_b), 3e18);
}

TEST(RateConstants, AnExponentOfExactlyZeroLeavesItsFactorOut) {
  Surface s;
  s->K_plus_Ta[GaN_b] = 0.0;
  s->K_plus_Tn[GaN_b] = 0.0;
  s->T = 0.0;  // exp(-0/0) would be NaN
  EXPECT_EQ(s->k_plus(GaN_b), 1e18);
}

TEST(Equilibrium, ConstantsFollowFromTheFreeEnergies) {
  Surface s;
  s.evaluate(0.1, 0.9, 0.0);
  const double T = 1030.0;
  const auto gas = builtin_gas_species();
  const auto bulk = builtin_bulk_species();
  const double G_N2 = gibbs_energy(gas[N2_g], T);
  const double G_H2 = gibbs_energy(gas[H2_g], T);
  const double G_NH3 = gibbs_energy(gas[NH3_g], T);
  EXPECT_EQ(s.conditions().G_gas[NH3_g], G_NH3);
  EXPECT_EQ(s.conditions().G_gas[TMGa_g], 0.0) << "the free energy of a precursor is not asked for";
  expect_close(std::exp((0.5 * G_N2 + 1.5 * G_H2 - G_NH3) / (8.314 * T)) * 1e-5, s.conditions().K_NH3, 1e-12);
  for (std::size_t b = 0; b < N_BULK; ++b) {
    const double G = gibbs_energy(bulk[b], T) - 0.5 * G_N2 - gibbs_energy(gas[In_g + b], T);
    expect_close(std::exp(G / (8.314 * T)) * std::pow(1e5, 1.5), s.conditions().K_eq[b], 1e-12);
  }
}

TEST(Equilibrium, AmmoniaDesorbsAsItsConstantTiesItToTheTwoGases) {
  // p_NH3 = K p_N2^0.5 p_H2^1.5 at the surface, with p_N2 = Kd_N2 c_N^2 and p_H2 = Kd_H2 c_H^2
  Surface s;
  s.evaluate(0.1, 0.9, 0.0);
  expect_close(s.conditions().K_NH3 * std::sqrt(s.composition().Kd_N2) * std::pow(s.conditions().Kd[H_a], 1.5),
               s.composition().K_NH3_des);
}

TEST(NitrogenMix, IsTheFactorOfEachCompoundToThePowerOfItsFraction) {
  Surface s;
  const double T = 1030.0;
  const double InN = std::exp(-20000.0 / T);
  const double GaN = 0.0002811 * std::exp(-23650.0 / T);
  const double AlN = 260000000.0 * std::exp(-64746.0 / T);
  s.evaluate(0.0, 1.0, 0.0);
  expect_close(GaN, s.composition().N2_mix);
  s.evaluate(0.0, 0.0, 1.0);
  expect_close(AlN, s.composition().N2_mix);
  s.evaluate(0.2, 0.7, 0.1);
  expect_close(0.2 * std::log(InN) + 0.7 * std::log(GaN) + 0.1 * std::log(AlN), std::log(s.composition().N2_mix));
}

TEST(NitrogenMix, ReadsTheClippedFractions) {
  Surface s;
  s.evaluate(-0.01, 1.02, -0.01);
  expect_close(0.0002811 * std::exp(-23650.0 / 1030.0), s.composition().N2_mix);
}

TEST(Activity, OfAPureCompoundOnItsOwnLatticeIsOne) {
  Surface s;  // pre-stage of GaN: a_ref = 3.189
  s.evaluate(0.0, 1.0, 0.0);
  EXPECT_EQ(s.composition().activity[GaN_b], 1.0);
}

TEST(Activity, OfATraceOnTheLatticeOfItsHostIsThatOfTheMixing) {
  Surface s;
  s.evaluate(0.0, 1.0, 0.0);
  const double RT = R_ACT * 1030.0;
  expect_close(std::exp(25700000.0 / RT), s.composition().activity[InN_b]);
  expect_close(std::exp(5610000.0 / RT), s.composition().activity[AlN_b]);
  s->a_ref = 3.112;
  s.evaluate(0.0, 0.0, 1.0);
  expect_close(std::exp(90000000.0 / RT), s.composition().activity[InN_b]);
}

TEST(Activity, OfAPureCompoundOnAForeignLatticeIsThatOfTheElasticEnergy) {
  // Each kmol takes sqrt(3)/4 N_A c a_mix^2 of biaxial energy: a_mix = 3.189 - 3.54 angstrom of mismatch.
  Surface s;
  s.evaluate(1.0, 0.0, 0.0);
  const double mismatch = (3.189 - 3.54) * 1e-10;
  const double M = (223.0 + 115.0 - 2.0 * 92.0 * 92.0 / 224.0) * 1e9;
  const double E = 5.185e-10 * std::sqrt(3.0) / 4.0 * 6.02214e26 * mismatch * mismatch * M;
  expect_close(E / (R_ACT * 1030.0), std::log(s.composition().activity[InN_b]), 1e-12);
}

TEST(Activity, PartialMolarEnergiesAddUpToTheEnergyOfTheAlloy) {
  // Sum of x_k R T ln(activity_k) = W_InGa x_In x_Ga + W_InAl x_In x_Al + W_GaAl x_Ga x_Al + the elastic energy of the
  // mean mismatch, whenever the fractions add up to one.
  Surface s;
  const double x[][3] = {{0.2, 0.7, 0.1}, {0.5, 0.25, 0.25}, {0.1, 0.1, 0.8}};
  for (const auto& [In, Ga, Al] : x) {
    s.evaluate(In, Ga, Al);
    const double RT = R_ACT * 1030.0;
    const double partial = In * std::log(s.composition().activity[0]) + Ga * std::log(s.composition().activity[1]) +
                           Al * std::log(s.composition().activity[2]);
    const double mixing = 25700000.0 * In * Ga + 90000000.0 * In * Al + 5610000.0 * Ga * Al;
    const auto& b = s->bulk_species;
    const double mismatch = (3.189 - (In * 3.54 + Ga * 3.189 + Al * 3.112)) * 1e-10;
    const double M = (In * b[0].M + Ga * b[1].M + Al * b[2].M) * 1e9;
    const double elastic = 5.185e-10 * std::sqrt(3.0) / 4.0 * 6.02214e26 * mismatch * mismatch * M;
    expect_close((mixing + elastic) / RT, partial, 1e-11);
  }
}

TEST(Activity, ReadsTheFractionsUnclipped) {
  // Binary InGaN with x_In = -0.01: Q_GaN = W x_In^2, not 0.
  Surface s;
  s.evaluate(-0.01, 1.01, 0.0);
  const auto& b = s->bulk_species;
  const double a_mix = -0.01 * (3.189 - 3.54) * 1e-10;
  const double B_mix = (-0.01 * b[0].M + 1.01 * b[1].M) * 1e9;
  const double E = 5.185e-10 * std::sqrt(3.0) / 4.0 * 6.02214e26 * a_mix * (a_mix * b[1].M * 1e9 - 2.0 * a_mix * B_mix);
  expect_close((25700000.0 * 0.0001 + E) / (R_ACT * 1030.0), std::log(s.composition().activity[GaN_b]), 1e-10);
}

TEST(Activity, WithoutRelaxationTheMismatchIsWhole) {
  Surface s;
  s.evaluate(1.0, 0.0, 0.0);
  EXPECT_EQ(s->surface.mismatch, -1.0);
}

TEST(Activity, WithRelaxationTheMismatchFallsWithTheThickness) {
  Surface s(RecipeOptions{});
  s.evaluate(1.0, 0.0, 0.0);
  EXPECT_EQ(s->surface.mismatch, -1.0) << "nothing has grown yet";
  const double coherent = s.composition().activity[InN_b];
  s.y[STATE_Z] += 2e-7;
  s.evaluate(1.0, 0.0, 0.0);
  EXPECT_GT(s->surface.mismatch, -1.0);
  EXPECT_LT(s.composition().activity[InN_b], coherent);
}

TEST(Incorporation, IsForwardLessReverse) {
  Surface s;
  s.y[In_a] = 2e-10;
  s.y[Ga_a] = 1.5e-9;
  s.y[Al_a] = 3e-11;
  s.y[N_a] = 3e-9;
  s.evaluate(0.2, 0.7, 0.1);
  const double x[] = {0.2, 0.7, 0.1};
  for (std::size_t b = 0; b < N_BULK; ++b) {
    const double forward = s->k_plus(b) * s->c_a[b] * s->c_a[N_a];
    const double ratio = s.conditions().K_eq[b] / (s.conditions().Kd[b] * std::sqrt(s.composition().Kd_N2));
    const double reverse =
        s->k_plus(b) * ratio * s.composition().activity[b] * x[b] * (b == InN_b ? s->surface.free_sites : 1.0);
    EXPECT_NEAR(s->surface.R_b[b], forward - reverse, 1e-13 * (forward + reverse)) << b;
  }
}

TEST(Incorporation, StopsAtTheEquilibriumOfTheVapoursWithTheSolid) {
  // p_Ga p_N2^0.5 = K_eq activity x: the surface in equilibrium with vapours that are in equilibrium with the solid.
  Surface s;
  s.evaluate(0.0, 1.0, 0.0);
  const double p_N2 = 1.0;
  const double p_Ga = s.conditions().K_eq[GaN_b] / std::sqrt(p_N2);
  s.y[N_a] = std::sqrt(p_N2 / s.composition().Kd_N2);
  s.y[Ga_a] = p_Ga / s.conditions().Kd[Ga_a];
  s.evaluate(0.0, 1.0, 0.0);
  const double forward = s->k_plus(GaN_b) * s->c_a[Ga_a] * s->c_a[N_a];
  ASSERT_GT(forward, 0.0);
  EXPECT_NEAR(s->surface.R_b[GaN_b], 0.0, 1e-13 * forward);
}

TEST(Incorporation, ReadsTheFractionsUnclipped) {
  Surface s;
  s.evaluate(-0.01, 1.02, 0.0);
  EXPECT_GT(s->surface.R_b[InN_b], 0.0) << "a negative fraction drives the reaction forward";
  EXPECT_EQ(s->x_b_clip[InN_b], 0.0);
  const double ratio = s.conditions().K_eq[GaN_b] / (s.conditions().Kd[Ga_a] * std::sqrt(s.composition().Kd_N2));
  expect_close(-s->k_plus(GaN_b) * ratio * s.composition().activity[GaN_b] * 1.02, s->surface.R_b[GaN_b]);
}

TEST(RelaxationRows, AStrainOfExactlyTheThresholdIsNoTension) {
  // Pure GaN on its own lattice, so the strain is what was relieved up to z0: at h = z - z0 nothing is added to it.
  Surface s(RecipeOptions{.n_pre_stages = 0});
  s->z0 = std::ldexp(1.0, -22);
  s->rho_VD = 1e10;
  s.y[STATE_Z] = std::ldexp(1.0, -21);
  s.y[STATE_H] = std::ldexp(1.0, -22);
  s.y[Ga_a] = 1.5e-9;
  s.y[N_a] = 3e-9;
  s->eps_r_z0 = 0.0001;
  s.evaluate(0.0, 1.0, 0.0);
  EXPECT_EQ(s->eps_xx_last_trial, 0.0001);
  EXPECT_GT(s.f[STATE_Z], 0.0);
  EXPECT_EQ(s.f[STATE_H], 0.0);
  s->eps_r_z0 = std::nextafter(0.0001, 1.0);
  s.evaluate(0.0, 1.0, 0.0);
  EXPECT_EQ(s.f[STATE_H], s.f[STATE_Z]) << "above it the layer counts as grown in tension";
}

TEST(RelaxationRows, TheMomentsAreTheRatesTimesTheThicknessOutsideTension) {
  Surface s(RecipeOptions{});
  s.y[In_a] = 2e-10;
  s.y[Ga_a] = 1.5e-9;
  s.y[N_a] = 3e-9;
  s.y[STATE_Z] = s->z_start + 50e-9;
  s.y[STATE_H] = 20e-9;
  s.evaluate(0.2, 0.8, 0.0);
  EXPECT_LT(s->eps_xx_last_trial, 0.0);
  const double w = s.y[STATE_Z] - s->z_start - 20e-9;
  expect_close(w * s.f[STATE_I0], s.f[STATE_I1]);
  expect_close(w * s.f[STATE_J0_1], s.f[STATE_J0_0]);
  // f[STATE_J0_1] = 2 M b tan(V) eps_0 GR with M = 262.4 * 0.1 + 449.6 * 0.9 GPa
  const double eps_0 = 3.189 / (0.2 * 3.54 + 0.8 * 3.189) - 1.0;
  const double stiff = 2.0 * (262.4 * 0.1 + 449.6 * 0.9) * 1e9 * 3.189e-10 * std::tan(17.0 * PI / 180.0);
  expect_close(stiff * eps_0 * s.f[STATE_Z], s.f[STATE_J0_1], 1e-12);
}
