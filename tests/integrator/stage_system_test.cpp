// The stage system of every matrix case, compared with plain elimination of the whole system: Jacobian, mass matrix and
// block structure are written out as full matrices of order n, the equations
//
//   (shift M - J) z = TI f - shift M w     and     (E1 filter) e = M (d1 z1 + d2 z2 + d3 z3) + f(x, y)
//
// are solved in long double and compared. Then edge cases.
#include "integrator/stage_system.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "integrator/plain_elimination.h"
#include "integrator/radau_constants.h"

namespace vorlen::test {

namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

std::size_t At(std::int32_t i) { return static_cast<std::size_t>(i); }

// A stage system of order n with random numbers, its arrays and its matrices in full.
struct Stage {
  StageSystem system;
  std::vector<double> FJAC, FMAS, E1, E2R, E2I, y;
  std::vector<double> Z1, Z2, Z3, Y0, SCAL, F1, F2, F3, CONT;
  std::vector<std::int32_t> IP_real, IP_complex, IPHES;
  PlainMatrix J, M;  // of order n, the leading components included
  double h = 0.01;
  std::int32_t zero_pivot = -1;

  Stage(std::int32_t matrix_case, std::int32_t n, std::int32_t block_count, std::int32_t block_stride,
        std::uint32_t seed = 21);

  StageArrays Arrays() {
    return {Z1.data(), Z2.data(), Z3.data(), Y0.data(), SCAL.data(), F1.data(), F2.data(), F3.data(), CONT.data()};
  }

  void SetShifts() {
    system.real_shift = radau::real_eigenvalue / h;
    system.complex_shift_re = radau::complex_eigenvalue_re / h;
    system.complex_shift_im = radau::complex_eigenvalue_im / h;
  }

  bool Form() {
    SetShifts();
    FormRealMatrix(system, zero_pivot);
    if (zero_pivot != 0) return false;
    FormComplexMatrix(system, zero_pivot);
    return zero_pivot == 0;
  }

  double Estimate(bool first_step, bool rejected, std::int32_t& rhs_calls, RadauRhsCallback rhs) {
    double err = -1.0;
    EstimateError(system, Arrays(), {rhs, nullptr, nullptr}, 0.0, y.data(), h, first_step, rejected, rhs_calls, err);
    return err;
  }
};

Stage::Stage(std::int32_t matrix_case, std::int32_t n, std::int32_t block_count, std::int32_t block_stride,
             std::uint32_t seed) {
  const std::int32_t base = matrix_case > 10 ? matrix_case - 10 : matrix_case;
  const bool banded = base == 2 || base == 4;
  const std::int32_t n_reduced = n - block_count;
  RandomNumbers random(seed);
  system.n = n;
  system.matrix_case = matrix_case;
  system.block_count = block_count;
  system.block_stride = block_stride;
  system.n_reduced = n_reduced;
  system.mljac = banded ? 2 : n_reduced;
  system.mujac = banded ? 1 : n_reduced;
  system.jac_rows = banded ? system.mljac + system.mujac + 1 : n_reduced;
  system.factor_rows = banded ? system.mljac + system.jac_rows : n_reduced;
  if (base == 3 || base == 4) {
    system.mlmas = 2;
    system.mumas = 1;
    system.mass_rows = 4;
  } else if (base == 5) {
    system.mlmas = system.mumas = system.mass_rows = n_reduced;
  }
  band_dims = BandDims{system.mljac,
                       system.mujac,
                       system.mljac + system.mujac + 1,
                       system.mlmas + system.mumas + 1,
                       system.mljac + system.mujac + 1,
                       system.mljac + system.mujac - system.mumas,
                       system.mumas + 1};

  FJAC.assign(At(system.jac_rows * n), NOT_A_NUMBER);
  J.assign(At(n), PlainVector(At(n), Complex(0.0L)));
  for (std::int32_t i = 0; i < block_count; ++i) {
    J[At(i)][At(i + block_stride)] = 1.0L;
  }
  for (std::int32_t col = 0; col < n; ++col) {
    const std::int32_t c = banded ? col % block_stride : col;
    for (std::int32_t i = 0; i < n_reduced; ++i) {
      if (banded && (i - c > system.mljac || c - i > system.mujac)) continue;
      const double value = 100.0 * random.Next();
      J[At(i + block_count)][At(col)] = value;
      FJAC[At((banded ? i - c + system.mujac : i) + col * system.jac_rows)] = value;
    }
  }
  FMAS.assign(At(std::max(1, system.mass_rows) * n_reduced), NOT_A_NUMBER);
  M.assign(At(n), PlainVector(At(n), Complex(0.0L)));
  for (std::int32_t i = 0; i < n; ++i) {
    M[At(i)][At(i)] = 1.0L;
  }
  if (base >= 3 && base <= 5) {
    for (std::int32_t j = 0; j < n_reduced; ++j) {
      for (std::int32_t i = 0; i < n_reduced; ++i) {
        if (base != 5 && (i - j > system.mlmas || j - i > system.mumas)) continue;
        const double value = random.Next() + (i == j ? 2.0 : 0.0);
        M[At(i + block_count)][At(j + block_count)] = value;
        FMAS[At((base == 5 ? i : i - j + system.mumas) + j * system.mass_rows)] = value;
      }
    }
  }
  E1.assign(At(system.factor_rows * n_reduced), NOT_A_NUMBER);
  E2R = E2I = E1;
  IP_real.assign(At(n_reduced), -3);
  IP_complex = IPHES = IP_real;
  for (std::vector<double>* values : {&Z1, &Z2, &Z3, &Y0, &F1, &F2, &F3, &y}) {
    for (std::int32_t i = 0; i < n; ++i) {
      values->push_back(random.Next());
    }
  }
  SCAL.assign(At(n), 0.5);
  CONT.assign(At(4 * n), NOT_A_NUMBER);
  system.FJAC = FJAC.data();
  system.FMAS = FMAS.data();
  system.E1 = E1.data();
  system.E2R = E2R.data();
  system.E2I = E2I.data();
  system.IP_real = IP_real.data();
  system.IP_complex = IP_complex.data();
  system.IPHES = IPHES.data();
  system.hessenberg_due = true;
}

// shift M - J
PlainMatrix IterationMatrix(const Stage& stage, const Complex& shift) {
  PlainMatrix matrix = stage.M;
  for (std::size_t i = 0; i < matrix.size(); ++i) {
    for (std::size_t j = 0; j < matrix.size(); ++j) {
      matrix[i][j] = shift * matrix[i][j] - stage.J[i][j];
    }
  }
  return matrix;
}

PlainVector MassTimes(const Stage& stage, const PlainVector& v) {
  PlainVector product(v.size(), Complex(0.0L));
  for (std::size_t i = 0; i < v.size(); ++i) {
    for (std::size_t j = 0; j < v.size(); ++j) {
      product[i] += stage.M[i][j] * v[j];
    }
  }
  return product;
}

PlainVector Pair(const std::vector<double>& re, const std::vector<double>& im) {
  PlainVector vector;
  for (std::size_t i = 0; i < re.size(); ++i) {
    vector.emplace_back(re[i], im[i]);
  }
  return vector;
}

PlainVector Real(const std::vector<double>& re) { return Pair(re, std::vector<double>(re.size(), 0.0)); }

void ExpectNear(const PlainVector& actual, const PlainVector& expected, const std::string& what) {
  long double largest = 0.0L;
  for (const Complex& value : expected) {
    largest = std::max(largest, std::abs(value));
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_LE(std::abs(actual[i] - expected[i]), 1e-11L * largest) << what << ", component " << i + 1;
  }
}

void SquareRhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  for (std::int32_t i = 0; i < n; ++i) {
    f[i] = y[i] * y[i] - 0.5;
  }
}

struct Layout {
  std::int32_t matrix_case, n, block_count, block_stride;
};

class EveryCase : public testing::TestWithParam<Layout> {};

Stage MakeStage(const Layout& layout) {
  return Stage(layout.matrix_case, layout.n, layout.block_count, layout.block_stride);
}

}  // namespace

TEST_P(EveryCase, TheNewtonUpdateSolvesTheWholeSystem) {
  Stage stage = MakeStage(GetParam());
  const Stage given = stage;
  ASSERT_TRUE(stage.Form());
  const Complex real_shift = stage.system.real_shift;
  const Complex complex_shift(stage.system.complex_shift_re, stage.system.complex_shift_im);
  SolveStageSystem(stage.system, stage.Arrays());

  PlainVector right = Real(given.Z1);
  PlainVector mass_part = MassTimes(given, Real(given.F1));
  for (std::size_t i = 0; i < right.size(); ++i) {
    right[i] -= real_shift * mass_part[i];
  }
  ExpectNear(Real(stage.Z1), SolvePlain(IterationMatrix(given, real_shift), right).solution, "Z1");

  right = Pair(given.Z2, given.Z3);
  mass_part = MassTimes(given, Pair(given.F2, given.F3));
  for (std::size_t i = 0; i < right.size(); ++i) {
    right[i] -= complex_shift * mass_part[i];
  }
  ExpectNear(Pair(stage.Z2, stage.Z3), SolvePlain(IterationMatrix(given, complex_shift), right).solution, "Z2, Z3");
  EXPECT_EQ(stage.F1, given.F1);
  EXPECT_EQ(stage.F2, given.F2);
  EXPECT_EQ(stage.F3, given.F3);
}

TEST_P(EveryCase, BothErrorEstimatesSolveTheWholeSystem) {
  const Stage given = MakeStage(GetParam());
  const auto expected_norm = [](const PlainVector& e, double scale) {
    long double sum = 0.0L;
    for (const Complex& value : e) {
      sum += (value.real() / scale) * (value.real() / scale);
    }
    return static_cast<double>(std::sqrt(sum / static_cast<long double>(e.size())));
  };
  // The first estimate with the scale 1e9 (error below 1), the second with 1e-9.
  for (const bool second : {false, true}) {
    Stage stage = MakeStage(GetParam());
    ASSERT_TRUE(stage.Form());
    const double scale = second ? 1e-9 : 1e9;
    stage.SCAL.assign(stage.SCAL.size(), scale);
    std::int32_t rhs_calls = 0;
    const double err = stage.Estimate(true, false, rhs_calls, SquareRhs);

    PlainVector combination;
    for (std::size_t i = 0; i < given.Z1.size(); ++i) {
      combination.emplace_back(
          (radau::err_d1 * given.Z1[i] + radau::err_d2 * given.Z2[i] + radau::err_d3 * given.Z3[i]) / given.h);
    }
    const PlainVector mass_part = MassTimes(given, combination);
    PlainVector right = mass_part;
    for (std::size_t i = 0; i < right.size(); ++i) {
      right[i] += given.Y0[i];
    }
    const PlainMatrix matrix = IterationMatrix(given, Complex(stage.system.real_shift));
    PlainVector e = SolvePlain(matrix, right).solution;
    if (second) {
      std::vector<double> state(e.size()), f(e.size());
      for (std::size_t i = 0; i < e.size(); ++i) {
        state[i] = static_cast<double>(given.y[i] + e[i].real());
      }
      SquareRhs(given.system.n, 0.0, state.data(), f.data(), nullptr, nullptr);
      for (std::size_t i = 0; i < e.size(); ++i) {
        right[i] = mass_part[i] + Complex(f[i]);
      }
      e = SolvePlain(matrix, right).solution;
    }
    EXPECT_EQ(rhs_calls, second ? 1 : 0);
    ExpectNear(Real(std::vector<double>(stage.CONT.begin(), stage.CONT.begin() + given.system.n)), e, "CONT");
    EXPECT_NEAR(err, std::max(1e-10, expected_norm(e, scale)), 1e-11 * expected_norm(e, scale));
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, EveryCase,
                         testing::Values(Layout{1, 7, 0, 7}, Layout{2, 7, 0, 7}, Layout{3, 7, 0, 7}, Layout{4, 7, 0, 7},
                                         Layout{5, 7, 0, 7}, Layout{7, 7, 0, 7}, Layout{11, 12, 8, 4},
                                         Layout{12, 12, 8, 4}, Layout{13, 12, 8, 4}, Layout{14, 12, 8, 4},
                                         Layout{15, 12, 8, 4}, Layout{11, 9, 4, 2}, Layout{13, 9, 4, 2},
                                         Layout{15, 9, 4, 2}, Layout{12, 10, 5, 5}, Layout{14, 10, 5, 5},
                                         Layout{3, 1, 0, 1}, Layout{1, 1, 0, 1}),
                         [](const testing::TestParamInfo<Layout>& layout) {
                           return "Case" + std::to_string(layout.param.matrix_case) + "Order" +
                                  std::to_string(layout.param.n) + "Blocks" + std::to_string(layout.param.block_count);
                         });

TEST(StageSystem, UnusedCasesDoNothing) {
  for (const std::int32_t matrix_case : {6, 8, 9, 10}) {
    SCOPED_TRACE(matrix_case);
    Stage stage(1, 3, 0, 3);
    stage.system.matrix_case = matrix_case;
    stage.E1.assign(9, 5.0);
    stage.E2R.assign(9, 5.0);
    stage.zero_pivot = 77;
    stage.SetShifts();
    FormRealMatrix(stage.system, stage.zero_pivot);
    FormComplexMatrix(stage.system, stage.zero_pivot);
    EXPECT_EQ(stage.zero_pivot, 77);
    EXPECT_EQ(stage.E1, std::vector<double>(9, 5.0));
    EXPECT_EQ(stage.E2R, std::vector<double>(9, 5.0));
    const std::vector<double> Z1 = stage.Z1;
    const std::vector<double> F1 = stage.F1;
    SolveStageSystem(stage.system, stage.Arrays());
    EXPECT_EQ(stage.Z1, Z1);
    std::int32_t rhs_calls = 0;
    EXPECT_EQ(stage.Estimate(true, false, rhs_calls, SquareRhs), -1.0);
    EXPECT_EQ(stage.F1, F1);
    EXPECT_EQ(rhs_calls, 0);
  }
}

TEST(StageSystem, AnyOtherCaseActsAsCaseOne) {
  Stage expected(1, 5, 0, 5);
  ASSERT_TRUE(expected.Form());
  SolveStageSystem(expected.system, expected.Arrays());
  for (const std::int32_t matrix_case : {0, -4, 16, 17, 99}) {
    Stage stage(1, 5, 0, 5);
    stage.system.matrix_case = matrix_case;
    ASSERT_TRUE(stage.Form());
    SolveStageSystem(stage.system, stage.Arrays());
    EXPECT_EQ(stage.Z1, expected.Z1);
    EXPECT_EQ(stage.Z2, expected.Z2);
    EXPECT_EQ(stage.Z3, expected.Z3);
  }
}

TEST(StageSystem, AZeroOfTheMassLeavesTheNegatedJacobianAlone) {
  // A diagonal Jacobian, so that the factors are the matrix itself.
  Stage stage(3, 3, 0, 3);
  stage.system.mlmas = stage.system.mumas = 0;
  stage.system.mass_rows = 1;
  band_dims.mass_diag_row = 1;
  stage.FMAS = {1.0, 0.0, 1.0};
  stage.system.FMAS = stage.FMAS.data();
  stage.FJAC = {2, 0, 0, 0, 3, 0, 0, 0, 4};
  stage.system.FJAC = stage.FJAC.data();
  ASSERT_TRUE(stage.Form());
  EXPECT_EQ(stage.E1[4], -3.0);
  EXPECT_EQ(stage.E1[0], -2.0 + stage.system.real_shift);
  EXPECT_EQ(stage.E2R[4], -3.0);
  EXPECT_EQ(stage.E2I[4], 0.0);
  EXPECT_EQ(stage.E2I[0], stage.system.complex_shift_im);
  // The right side of that row takes no term of F: the update is Z1 / -3, and likewise the complex one.
  const double z1 = stage.Z1[1];
  const double z2 = stage.Z2[1];
  SolveStageSystem(stage.system, stage.Arrays());
  EXPECT_EQ(stage.Z1[1], z1 / -3.0);
  EXPECT_NEAR(stage.Z2[1], z2 / -3.0, 1e-16);
}

TEST(StageSystem, AnInfinityBehindAZeroOfTheMassIsNotANumber) {
  Stage stage(3, 2, 0, 2);
  stage.system.mlmas = stage.system.mumas = 0;
  stage.system.mass_rows = 1;
  band_dims.mass_diag_row = 1;
  stage.FMAS = {0.0, 1.0};
  stage.system.FMAS = stage.FMAS.data();
  ASSERT_TRUE(stage.Form());
  stage.F1[0] = std::numeric_limits<double>::infinity();
  SolveStageSystem(stage.system, stage.Arrays());
  EXPECT_TRUE(std::isnan(stage.Z1[0]));
}

TEST(StageSystem, TheErrorNeverFallsBelowItsFloor) {
  Stage stage(1, 3, 0, 3);
  ASSERT_TRUE(stage.Form());
  for (std::vector<double>* values : {&stage.Z1, &stage.Z2, &stage.Z3, &stage.Y0}) {
    values->assign(3, 0.0);
  }
  std::int32_t rhs_calls = 0;
  EXPECT_EQ(stage.Estimate(true, true, rhs_calls, SquareRhs), 1e-10);
  EXPECT_EQ(rhs_calls, 0);
}

TEST(StageSystem, AnErrorThatIsNotANumberBecomesTheFloor) {
  Stage stage(1, 3, 0, 3);
  ASSERT_TRUE(stage.Form());
  stage.Y0[1] = NOT_A_NUMBER;
  std::int32_t rhs_calls = 0;
  EXPECT_EQ(stage.Estimate(true, true, rhs_calls, SquareRhs), 1e-10);
}

TEST(StageSystem, TheSecondEstimateIsMadeOnlyOnAFirstStepOrAfterARejection) {
  for (const bool first_step : {false, true}) {
    for (const bool rejected : {false, true}) {
      Stage stage(1, 3, 0, 3);
      ASSERT_TRUE(stage.Form());
      stage.SCAL.assign(3, 1e-9);
      std::int32_t rhs_calls = 0;
      stage.Estimate(first_step, rejected, rhs_calls, SquareRhs);
      EXPECT_EQ(rhs_calls, first_step || rejected ? 1 : 0);
    }
  }
}

TEST(StageSystem, OnlyTheSecondEstimateCounts) {
  // The first is far above 1; the right-hand side of the second cancels the rest, so that its result is the floor.
  Stage stage(1, 1, 0, 1);
  ASSERT_TRUE(stage.Form());
  stage.Z1 = {0.0};
  stage.Z2 = {0.0};
  stage.Z3 = {0.0};
  stage.Y0 = {1e6};
  std::int32_t rhs_calls = 0;
  const auto zero = [](std::int32_t, double, const double*, double* f, void*, void*) { f[0] = 0.0; };
  EXPECT_GE(stage.Estimate(false, false, rhs_calls, zero), 1.0);
  EXPECT_EQ(stage.Estimate(false, true, rhs_calls, zero), 1e-10);
}

TEST(StageSystem, AZeroPivotOfEitherMatrixIsTold) {
  // E1 = shift - J = 0.
  Stage real(1, 1, 0, 1);
  real.SetShifts();
  real.FJAC[0] = real.system.real_shift;
  FormRealMatrix(real.system, real.zero_pivot);
  EXPECT_EQ(real.zero_pivot, 1);

  // J has the complex shift as an eigenvalue, with an imaginary part of exactly 1, so that the second pivot vanishes.
  Stage complex(1, 2, 0, 2);
  complex.h = radau::complex_eigenvalue_im;
  complex.SetShifts();
  ASSERT_EQ(complex.system.complex_shift_im, 1.0);
  const double re = complex.system.complex_shift_re;
  complex.FJAC = {re, 1.0, -1.0, re};
  complex.system.FJAC = complex.FJAC.data();
  FormRealMatrix(complex.system, complex.zero_pivot);
  EXPECT_EQ(complex.zero_pivot, 0);
  FormComplexMatrix(complex.system, complex.zero_pivot);
  EXPECT_EQ(complex.zero_pivot, 2);
}

TEST(StageSystem, TheJacobianIsReducedOncePerJacobian) {
  Stage stage(7, 6, 0, 6);
  ASSERT_TRUE(stage.Form());
  EXPECT_FALSE(stage.system.hessenberg_due);
  const std::vector<double> reduced = stage.FJAC;
  stage.h = 0.02;
  ASSERT_TRUE(stage.Form());
  EXPECT_EQ(stage.FJAC, reduced);
}

TEST(StageSystem, TheJacobianAndTheMassAreNeverChangedOtherwise) {
  for (const std::int32_t matrix_case : {1, 2, 3, 4, 5}) {
    Stage stage(matrix_case, 7, 0, 7);
    const Stage given = stage;
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    ASSERT_TRUE(stage.Form());
    SolveStageSystem(stage.system, stage.Arrays());
    EXPECT_TRUE(std::equal(stage.FJAC.begin(), stage.FJAC.end(), given.FJAC.begin(), same));
    EXPECT_TRUE(std::equal(stage.FMAS.begin(), stage.FMAS.end(), given.FMAS.begin(), same));
  }
}

TEST(MethodConstants, AreTheRootsNodesAndEigenvaluesOfTheMethod) {
  // The nodes are the zeros of 10 c^2 - 8 c + 1 beside 1; the eigenvalues those of t^3 - 9 t^2 + 36 t - 60.
  for (const double c : {radau::c1, radau::c2}) {
    EXPECT_NEAR(10.0 * c * c - 8.0 * c + 1.0, 0.0, 1e-14);
  }
  const auto characteristic = [](Complex t) { return t * t * t - 9.0L * t * t + 36.0L * t - 60.0L; };
  EXPECT_NEAR(static_cast<double>(std::abs(characteristic(radau::real_eigenvalue))), 0.0, 1e-13);
  const Complex pair(radau::complex_eigenvalue_re, radau::complex_eigenvalue_im);
  EXPECT_NEAR(static_cast<double>(std::abs(characteristic(pair))), 0.0, 1e-13);
}

TEST(MethodConstants, HaveTheirStoredValues) {
  EXPECT_EQ(radau::c1, 0.15505102572168222);
  EXPECT_EQ(radau::c2, 0.6449489742783178);
  EXPECT_EQ(radau::c1_minus_1, -0.8449489742783178);
  EXPECT_EQ(radau::c2_minus_1, -0.35505102572168223);
  EXPECT_EQ(radau::c1_minus_c2, -0.48989794855663554);
  EXPECT_EQ(radau::err_d1, -10.048809399827414);
  EXPECT_EQ(radau::err_d2, 1.382142733160748);
  EXPECT_EQ(radau::real_eigenvalue, 3.6378342527444962);
  EXPECT_EQ(radau::complex_eigenvalue_re, 2.6810828736277523);
  EXPECT_EQ(radau::complex_eigenvalue_im, 3.0504301992474105);
}

TEST(MethodConstants, TheTransformationBringsTheInverseCoefficientsToBlockForm) {
  using namespace radau;
  const double T[3][3] = {{T11, T12, T13}, {T21, T22, T23}, {T31, 1.0, 0.0}};
  const double TI[3][3] = {{TI11, TI12, TI13}, {TI21, TI22, TI23}, {TI31, TI32, TI33}};
  // Coefficients of the collocation method with the nodes c1, c2, 1, as inverse: A^-1 = T L TI with
  // L = diag(real, [re, -im; im, re]). A follows from A c^(k-1) = c^k / k, k = 1, 2, 3.
  const double L[3][3] = {{real_eigenvalue, 0, 0},
                          {0, complex_eigenvalue_re, -complex_eigenvalue_im},
                          {0, complex_eigenvalue_im, complex_eigenvalue_re}};
  const double c[3] = {c1, c2, 1.0};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      double identity = 0.0;
      for (int k = 0; k < 3; ++k) {
        identity += T[i][k] * TI[k][j];
      }
      EXPECT_NEAR(identity, i == j ? 1.0 : 0.0, 1e-14);
    }
  }
  // A^-1 applied to c^k / k must give c^(k-1).
  for (int k = 1; k <= 3; ++k) {
    double w[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) {
        w[i] += TI[i][j] * std::pow(c[j], k) / k;
      }
    }
    for (int i = 0; i < 3; ++i) {
      double value = 0.0;
      for (int j = 0; j < 3; ++j) {
        for (int m = 0; m < 3; ++m) {
          value += T[i][j] * L[j][m] * w[m];
        }
      }
      EXPECT_NEAR(value, std::pow(c[i], k - 1), 1e-13);
    }
  }
}

}  // namespace vorlen::test
