// Linear algebra of the integrator at the orders of the growth model, 10 and 15: a pair of factorisations, real and
// complex, and a pair of solves. The matrices are those of the model, shift * M - J.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "bench_support.h"
#include "integrator/matrix_kernels.h"
#include "integrator/numerical_jacobian.h"
#if __has_include("integrator/pair_kernels.h")
#include "integrator/pair_kernels.h"
#endif
#include "integrator/radau_constants.h"
#include "recipes/bench_recipes.h"

namespace vorlen::bench {

namespace {

constexpr double STEP = 0.1;  // s
constexpr double ROUNDOFF = 1e-16;

void decompose_one_by_one(std::int32_t n, double* A, std::int32_t* IP, double* AR, double* AI, std::int32_t* IP_complex,
                          std::int32_t& zero_pivot) {
  LuDecompose(n, n, A, IP, zero_pivot);
  if (zero_pivot == 0) LuDecomposeComplex(n, n, AR, AI, IP_complex, zero_pivot);
}

void solve_one_by_one(std::int32_t n, const double* A, double* B, const std::int32_t* IP, const double* AR,
                      const double* AI, double* BR, double* BI, const std::int32_t* IP_complex) {
  LuSolve(n, n, A, B, IP);
  LuSolveComplex(n, n, AR, AI, BR, BI, IP_complex);
}

// The kernels that the integrator calls. Older revisions have none for the pair.
#if __has_include("integrator/pair_kernels.h")
void decompose_pair(std::int32_t n, double* A, std::int32_t* IP, double* AR, double* AI, std::int32_t* IP_complex,
                    std::int32_t& zero_pivot) {
  LuDecomposePair(n, n, A, IP, AR, AI, IP_complex, zero_pivot);
}

void solve_pair(std::int32_t n, const double* A, double* B, const std::int32_t* IP, const double* AR, const double* AI,
                double* BR, double* BI, const std::int32_t* IP_complex) {
  LuSolvePair(n, n, A, B, IP, AR, AI, BR, BI, IP_complex);
}
#else
constexpr auto decompose_pair = decompose_one_by_one;
constexpr auto solve_pair = solve_one_by_one;
#endif

struct Matrices {
  std::int32_t n = 0;
  std::vector<double> E1, E2R, E2I, B;
};

void rhs_callback(std::int32_t, double x, const double* y, double* f, void*, void* model_context) {
  static_cast<SurfChemNonst*>(model_context)->eval_rhs(x, y, f);
}

// Order 10 for a model without stress, 15 under V_dislocation.
Matrices model_matrices(std::int64_t order) {
  Model model = build_model(single_InGaN(order == 15, 1030));
  SurfChemNonst& m = *model.surfchem_nonst;
  Matrices matrices;
  const std::int32_t n = matrices.n = m.n_state();
  const auto count = static_cast<std::size_t>(n);
  std::vector<double> J(count * count), f(count), scratch(4 * count);
  std::vector<double> y(model.y.begin(), model.y.begin() + n);
  StageSystem system;
  system.n = system.n_reduced = system.block_stride = system.mljac = system.mujac = system.jac_rows = n;
  system.FJAC = J.data();
  StageArrays arrays;
  arrays.Y0 = f.data();
  arrays.CONT = scratch.data();
  m.eval_rhs(m.t_begin, y.data(), f.data());
  NumericalJacobian(system, arrays, {rhs_callback, nullptr, &m}, ROUNDOFF, m.t_begin, y.data());
  matrices.E1.resize(count * count);
  matrices.E2R.resize(count * count);
  matrices.E2I.assign(count * count, 0.0);
  matrices.B.assign(count, 1.0);
  for (std::size_t i = 0; i < count * count; ++i) matrices.E1[i] = matrices.E2R[i] = -J[i];
  for (std::size_t i = 0; i < count - N_ALGEBRAIC; ++i) {
    const std::size_t diagonal = i * (count + 1);
    matrices.E1[diagonal] += radau::real_eigenvalue / STEP;
    matrices.E2R[diagonal] += radau::complex_eigenvalue_re / STEP;
    matrices.E2I[diagonal] = radau::complex_eigenvalue_im / STEP;
  }
  return matrices;
}

// The time includes copying the matrices, because the factors overwrite them.
void factorise(benchmark::State& state, decltype(&decompose_one_by_one) decompose) {
  const Matrices source = model_matrices(state.range(0));
  Matrices work = source;
  std::int32_t IP[N_STATE_MAX], IP_complex[N_STATE_MAX];
  std::int32_t zero_pivot = 0;
  for (auto _ : state) {
    std::copy(source.E1.begin(), source.E1.end(), work.E1.begin());
    std::copy(source.E2R.begin(), source.E2R.end(), work.E2R.begin());
    std::copy(source.E2I.begin(), source.E2I.end(), work.E2I.begin());
    decompose(work.n, work.E1.data(), IP, work.E2R.data(), work.E2I.data(), IP_complex, zero_pivot);
    benchmark::ClobberMemory();
  }
  if (zero_pivot != 0) state.SkipWithError("a matrix is singular");
}
BENCHMARK_CAPTURE(factorise, pair, decompose_pair)->Name("factorise_pair")->Arg(10)->Arg(15);
BENCHMARK_CAPTURE(factorise, one_by_one, decompose_one_by_one)->Name("factorise_one_by_one")->Arg(10)->Arg(15);

void solve(benchmark::State& state, decltype(&solve_one_by_one) solve_both) {
  Matrices m = model_matrices(state.range(0));
  std::int32_t IP[N_STATE_MAX], IP_complex[N_STATE_MAX];
  std::int32_t zero_pivot = 0;
  decompose_pair(m.n, m.E1.data(), IP, m.E2R.data(), m.E2I.data(), IP_complex, zero_pivot);
  if (zero_pivot != 0) state.SkipWithError("a matrix is singular");
  double b[N_STATE_MAX], b_re[N_STATE_MAX], b_im[N_STATE_MAX];
  for (auto _ : state) {
    std::copy(m.B.begin(), m.B.end(), b);
    std::copy(m.B.begin(), m.B.end(), b_re);
    std::copy(m.B.begin(), m.B.end(), b_im);
    solve_both(m.n, m.E1.data(), b, IP, m.E2R.data(), m.E2I.data(), b_re, b_im, IP_complex);
    benchmark::DoNotOptimize(b);
    benchmark::DoNotOptimize(b_re);
    benchmark::DoNotOptimize(b_im);
  }
}
BENCHMARK_CAPTURE(solve, pair, solve_pair)->Name("solve_pair")->Arg(10)->Arg(15);
BENCHMARK_CAPTURE(solve, one_by_one, solve_one_by_one)->Name("solve_one_by_one")->Arg(10)->Arg(15);

}  // namespace

}  // namespace vorlen::bench
