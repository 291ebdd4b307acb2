// The matrix kernels and one solve of the stage system, compared bit for bit with reference values computed
// independently: these operations are + - * / and one sqrt, which are correctly rounded on every machine.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "integrator/matrix_kernels.h"
#include "integrator/radau_constants.h"
#include "integrator/stage_system.h"

namespace vorlen::test {

namespace {

using Json = nlohmann::json;
using Reals = std::vector<double>;
using Integers = std::vector<std::int32_t>;

const Json& ReferenceKernels() {
  static const Json kernels =
      Json::parse(std::ifstream(VORLEN_TEST_DATA "/integrator/reference_runs.json")).at("kernels");
  return kernels;
}

const Json& Kernel(const std::string& name) {
  for (const Json& kernel : ReferenceKernels()) {
    if (kernel.at("kernel").get<std::string>().starts_with(name)) return kernel;
  }
  throw std::runtime_error("no reference values for " + name);
}

Reals Flat(const Json& columns) {
  Reals flat;
  for (const Json& column : columns) {
    for (const Json& value : column) {
      flat.push_back(value);
    }
  }
  return flat;
}

Reals List(const Json& values) { return values.get<Reals>(); }

void ExpectEqual(const Reals& actual, const Reals& expected, const std::string& what) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_EQ(actual[i], expected[i]) << what << " at position " << i;
  }
}

// Factorise and solve with the two routines given, compare all that comes out.
template <typename Factorise, typename Solve>
void CheckReal(const Json& kernel, Factorise factorise, Solve solve) {
  const std::int32_t n = kernel.at("n");
  Reals A = Flat(kernel.at("A_columns"));
  Reals B = List(kernel.at("B"));
  Integers IP(static_cast<std::size_t>(n), 0);
  std::int32_t zero_pivot = -1;
  factorise(n, kernel.at("ndim"), A.data(), IP.data(), zero_pivot);
  EXPECT_EQ(zero_pivot, kernel.at("zero_pivot"));
  EXPECT_EQ(IP, kernel.at("IP").get<Integers>());
  ExpectEqual(A, Flat(kernel.at("A_factored_columns")), "A");
  solve(n, kernel.at("ndim"), A.data(), B.data(), IP.data());
  ExpectEqual(B, List(kernel.at("solution")), "solution");
}

template <typename Factorise, typename Solve>
void CheckComplex(const Json& kernel, Factorise factorise, Solve solve) {
  const std::int32_t n = kernel.at("n");
  Reals AR = Flat(kernel.at("AR_columns"));
  Reals AI = Flat(kernel.at("AI_columns"));
  Reals BR = List(kernel.at("BR"));
  Reals BI = List(kernel.at("BI"));
  Integers IP(static_cast<std::size_t>(n), 0);
  std::int32_t zero_pivot = -1;
  factorise(n, kernel.at("ndim"), AR.data(), AI.data(), IP.data(), zero_pivot);
  EXPECT_EQ(zero_pivot, kernel.at("zero_pivot"));
  EXPECT_EQ(IP, kernel.at("IP").get<Integers>());
  ExpectEqual(AR, Flat(kernel.at("AR_factored_columns")), "AR");
  ExpectEqual(AI, Flat(kernel.at("AI_factored_columns")), "AI");
  solve(n, kernel.at("ndim"), AR.data(), AI.data(), BR.data(), BI.data(), IP.data());
  ExpectEqual(BR, List(kernel.at("solution_re")), "real part");
  ExpectEqual(BI, List(kernel.at("solution_im")), "imaginary part");
}

void CheckBand(const Json& kernel, std::int32_t lower, std::int32_t upper) {
  CheckReal(
      kernel,
      [=](std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, std::int32_t& zero_pivot) {
        LuDecomposeBand(n, ndim, A, lower, upper, IP, zero_pivot);
      },
      [=](std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP) {
        LuSolveBand(n, ndim, A, lower, upper, B, IP);
      });
}

}  // namespace

TEST(ReferenceKernels, DenseReal) { CheckReal(Kernel("LuDecompose, "), LuDecompose, LuSolve); }

TEST(ReferenceKernels, DenseComplex) {
  CheckComplex(Kernel("LuDecomposeComplex, "), LuDecomposeComplex, LuSolveComplex);
}

TEST(ReferenceKernels, HessenbergReal) {
  CheckReal(
      Kernel("LuDecomposeHess, "),
      [](std::int32_t n, std::int32_t ndim, double* A, std::int32_t* IP, std::int32_t& zero_pivot) {
        LuDecomposeHess(n, ndim, A, 1, IP, zero_pivot);
      },
      [](std::int32_t n, std::int32_t ndim, const double* A, double* B, const std::int32_t* IP) {
        LuSolveHess(n, ndim, A, 1, B, IP);
      });
}

TEST(ReferenceKernels, HessenbergComplex) {
  CheckComplex(
      Kernel("LuDecomposeHessComplex, "),
      [](std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t* IP, std::int32_t& zero_pivot) {
        LuDecomposeHessComplex(n, ndim, AR, AI, 1, IP, zero_pivot);
      },
      [](std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, double* BR, double* BI,
         const std::int32_t* IP) { LuSolveHessComplex(n, ndim, AR, AI, 1, BR, BI, IP); });
}

TEST(ReferenceKernels, BandReal) { CheckBand(Kernel("LuDecomposeBand, LuSolveBand, lower 2, upper 1"), 2, 1); }

TEST(ReferenceKernels, BandWithoutSubdiagonals) {
  CheckBand(Kernel("LuDecomposeBand, LuSolveBand, lower 0, upper 2"), 0, 2);
}

TEST(ReferenceKernels, BandComplex) {
  CheckComplex(
      Kernel("LuDecomposeBandComplex, "),
      [](std::int32_t n, std::int32_t ndim, double* AR, double* AI, std::int32_t* IP, std::int32_t& zero_pivot) {
        LuDecomposeBandComplex(n, ndim, AR, AI, 2, 1, IP, zero_pivot);
      },
      [](std::int32_t n, std::int32_t ndim, const double* AR, const double* AI, double* BR, double* BI,
         const std::int32_t* IP) { LuSolveBandComplex(n, ndim, AR, AI, 2, 1, BR, BI, IP); });
}

TEST(ReferenceKernels, ReductionToHessenbergForm) {
  const Json& kernel = Kernel("ReduceToHessenberg");
  Reals A = Flat(kernel.at("A_columns"));
  Integers INT(A.size() / 6, 0);
  ReduceToHessenberg(kernel.at("ndim"), kernel.at("n"), kernel.at("first"), kernel.at("last"), A.data(), INT.data());
  ExpectEqual(A, Flat(kernel.at("A_reduced_columns")), "A");
  EXPECT_EQ(INT, kernel.at("INT").get<Integers>());
}

TEST(ReferenceKernels, AllNineAreCovered) { EXPECT_EQ(ReferenceKernels().size(), 9U); }

// One round of matrices, solve and error estimate with the mass matrix diag(1, 1, 1, 1, 0, 0), matrix case 3.
TEST(ReferenceKernels, OneRoundOfTheStageSystem) {
  const Json& kernel = ReferenceKernels().at(8);
  const Json& given = kernel.at("given");
  const std::int32_t n = kernel.at("n");
  const double h = given.at("h");
  Reals FJAC = Flat(given.at("FJAC_columns"));
  Reals FMAS = List(given.at("FMAS_row_1"));
  Reals E1(36), E2R(36), E2I(36);
  Integers IP_real(6), IP_complex(6), IPHES(6);
  band_dims = BandDims{n, n, 2 * n + 1, 1, 2 * n + 1, 2 * n, 1};

  StageSystem system;
  system.n = n;
  system.matrix_case = 3;
  system.block_stride = n;
  system.n_reduced = n;
  system.FJAC = FJAC.data();
  system.jac_rows = system.mljac = system.mujac = system.factor_rows = n;
  system.FMAS = FMAS.data();
  system.mass_rows = 1;
  system.E1 = E1.data();
  system.E2R = E2R.data();
  system.E2I = E2I.data();
  system.IP_real = IP_real.data();
  system.IP_complex = IP_complex.data();
  system.IPHES = IPHES.data();
  system.real_shift = radau::real_eigenvalue / h;
  system.complex_shift_re = radau::complex_eigenvalue_re / h;
  system.complex_shift_im = radau::complex_eigenvalue_im / h;

  std::int32_t zero_pivot = -1;
  FormRealMatrix(system, zero_pivot);
  EXPECT_EQ(zero_pivot, kernel.at("zero_pivots").at(0));
  FormComplexMatrix(system, zero_pivot);
  EXPECT_EQ(zero_pivot, kernel.at("zero_pivots").at(1));
  ExpectEqual(E1, Flat(kernel.at("E1_factored_columns")), "E1");
  ExpectEqual(E2R, Flat(kernel.at("E2R_factored_columns")), "E2R");
  ExpectEqual(E2I, Flat(kernel.at("E2I_factored_columns")), "E2I");
  EXPECT_EQ(IP_real, kernel.at("IP_real").get<Integers>());
  EXPECT_EQ(IP_complex, kernel.at("IP_complex").get<Integers>());

  Reals Z1 = List(given.at("Z1")), Z2 = List(given.at("Z2")), Z3 = List(given.at("Z3"));
  Reals F1 = List(given.at("F1")), F2 = List(given.at("F2")), F3 = List(given.at("F3"));
  Reals CONT(24), Y0(6), SCAL(6);
  StageArrays arrays{Z1.data(), Z2.data(), Z3.data(), Y0.data(),  SCAL.data(),
                     F1.data(), F2.data(), F3.data(), CONT.data()};
  SolveStageSystem(system, arrays);
  const Json& solved = kernel.at("SolveStageSystem");
  ExpectEqual(Z1, List(solved.at("Z1")), "Z1");
  ExpectEqual(Z2, List(solved.at("Z2")), "Z2");
  ExpectEqual(Z3, List(solved.at("Z3")), "Z3");

  const Json& estimate = kernel.at("EstimateError");
  const Reals y = List(estimate.at("y"));
  const auto rhs = [](std::int32_t count, double, const double* state, double* f, void*, void*) {
    for (std::int32_t i = 0; i < count; ++i) {
      f[i] = state[i] * state[i] - 0.5;
    }
  };
  for (const bool rejected : {false, true}) {
    Z1 = List(estimate.at("Z1"));
    Z2 = List(estimate.at("Z2"));
    Z3 = List(estimate.at("Z3"));
    Y0 = List(estimate.at("Y0"));
    SCAL = List(estimate.at("SCAL"));
    arrays = {Z1.data(), Z2.data(), Z3.data(), Y0.data(), SCAL.data(), F1.data(), F2.data(), F3.data(), CONT.data()};
    const std::string which = rejected ? "err_second_estimate" : "err_first_estimate";
    std::int32_t rhs_calls = 0;
    double err = 0.0;
    EstimateError(system, arrays, {rhs, nullptr, nullptr}, 0.0, y.data(), h, false, rejected, rhs_calls, err);
    EXPECT_EQ(err, estimate.at(which).get<double>());
    EXPECT_EQ(rhs_calls, estimate.at(which + "_rhs_calls"));
    ExpectEqual(Reals(CONT.begin(), CONT.begin() + 6), List(estimate.at(which + "_CONT")), which);
  }
}

}  // namespace vorlen::test
