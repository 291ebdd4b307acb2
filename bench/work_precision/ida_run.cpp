// A run by SUNDIALS IDA on the residual F = M y' - f(t, y), with a dense or band matrix and IDA's own difference
// quotients.
#include <ida/ida.h>
#include <nvector/nvector_serial.h>
#include <sunlinsol/sunlinsol_band.h>
#include <sunlinsol/sunlinsol_dense.h>
#include <sunmatrix/sunmatrix_band.h>
#include <sunmatrix/sunmatrix_dense.h>

#include <algorithm>
#include <cmath>

#include "work_precision/processor_clock.h"
#include "work_precision/solvers.h"

namespace vorlen::bench {

namespace {

constexpr long MAX_IDA_STEPS = 1000000;
constexpr int RECOVERABLE = 1;  // return value of the residual that makes IDA try a smaller step

struct CountedProblem {
  const Problem* problem;
  std::vector<double> f;
  long rhs_calls;
};

int residual(realtype t, N_Vector y, N_Vector yp, N_Vector F, void* context) {
  CountedProblem& counted = *static_cast<CountedProblem*>(context);
  const Problem& problem = *counted.problem;
  ++counted.rhs_calls;
  problem.rhs(problem.n, t, N_VGetArrayPointer(y), counted.f.data(), nullptr, problem.context);
  double* out = N_VGetArrayPointer(F);
  const double* rate = N_VGetArrayPointer(yp);
  for (std::size_t i = 0; i < counted.f.size(); ++i) {
    if (!std::isfinite(counted.f[i])) return RECOVERABLE;
    out[i] = -counted.f[i];
  }
  for (const MassEntry& entry : problem.mass) out[entry.row] += entry.value * rate[entry.column];
  return 0;
}

void say_nothing(int, const char*, const char*, char*, void*) {}

// A solution of M y' = f at the start, by elimination with complete pivoting; components that M does not determine are
// 0.
std::vector<double> starting_rates(const Problem& problem, double t, const std::vector<double>& y) {
  constexpr double PIVOT_MIN = 1e-12;  // of the largest entry; below, a row is algebraic
  const std::size_t n = y.size();
  std::vector<double> rates(n, 0.0);
  std::vector<double> f(n);
  problem.rhs(problem.n, t, y.data(), f.data(), nullptr, problem.context);
  std::vector<std::vector<double>> M(n, std::vector<double>(n, 0.0));
  double largest = 0.0;
  for (const MassEntry& entry : problem.mass) {
    M[static_cast<std::size_t>(entry.row)][static_cast<std::size_t>(entry.column)] = entry.value;
    largest = std::max(largest, std::abs(entry.value));
  }
  // Gauss-Jordan: every pivot row is eliminated from all other rows.
  std::vector<bool> row_used(n, false);
  std::vector<std::size_t> row_of(n, n);
  for (std::size_t step = 0; step < n; ++step) {
    std::size_t row = n;
    std::size_t column = n;
    double pivot = PIVOT_MIN * largest;
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n && !row_used[i]; ++j) {
        if (row_of[j] == n && std::abs(M[i][j]) > pivot) {
          pivot = std::abs(M[i][j]);
          row = i;
          column = j;
        }
      }
    }
    if (row == n) break;
    row_used[row] = true;
    row_of[column] = row;
    for (std::size_t i = 0; i < n; ++i) {
      if (i == row || M[i][column] == 0.0) continue;
      const double factor = M[i][column] / M[row][column];
      for (std::size_t j = 0; j < n; ++j) M[i][j] -= factor * M[row][j];
      f[i] -= factor * f[row];
    }
  }
  for (std::size_t j = 0; j < n; ++j) {
    if (row_of[j] != n) rates[j] = f[row_of[j]] / M[row_of[j]][j];
  }
  return rates;
}

std::string status_of(int flag) {
  switch (flag) {
    case IDA_SUCCESS:
    case IDA_TSTOP_RETURN:
      return "ok";
    case IDA_TOO_MUCH_WORK:
      return "too many steps";
    case IDA_TOO_MUCH_ACC:
      return "too much accuracy asked";
    case IDA_ERR_FAIL:
      return "error test failed repeatedly";
    case IDA_CONV_FAIL:
      return "Newton failed repeatedly";
    case IDA_LSETUP_FAIL:
      return "matrix setup failed";
    case IDA_REP_RES_ERR:
      return "residual failed repeatedly";
    case IDA_LINESEARCH_FAIL:
    case IDA_NO_RECOVERY:
      return "no consistent start found";
    default:
      return "IDA code " + std::to_string(flag);
  }
}

}  // namespace

RunRecord run_ida(const Problem& problem, double tolerance, bool suppress_algebraic) {
  RunRecord record;
  record.y = problem.y0;
  CountedProblem counted{&problem, std::vector<double>(problem.y0.size()), 0};

  SUNContext sundials = nullptr;
  SUNContext_Create(nullptr, &sundials);
  const sunindextype n = problem.n;
  N_Vector y = N_VNew_Serial(n, sundials);
  N_Vector yp = N_VNew_Serial(n, sundials);
  N_Vector atol = N_VNew_Serial(n, sundials);
  N_Vector id = N_VNew_Serial(n, sundials);
  const bool banded = problem.lower >= 0 && problem.block_count == 0;
  SUNMatrix matrix = banded ? SUNBandMatrix(n, problem.upper, problem.lower, sundials) : SUNDenseMatrix(n, n, sundials);
  SUNLinearSolver linear_solver = banded ? SUNLinSol_Band(y, matrix, sundials) : SUNLinSol_Dense(y, matrix, sundials);
  void* ida = IDACreate(sundials);
  IDASetErrHandlerFn(ida, say_nothing, nullptr);

  N_VConst(0.0, id);
  for (const MassEntry& entry : problem.mass) N_VGetArrayPointer(id)[entry.column] = 1.0;
  std::copy(problem.y0.begin(), problem.y0.end(), N_VGetArrayPointer(y));
  for (std::size_t i = 0; i < problem.scale.size(); ++i) N_VGetArrayPointer(atol)[i] = tolerance * problem.scale[i];

  double t = problem.t0;
  int flag = IDA_SUCCESS;
  for (std::size_t k = 0; k < problem.segment_ends.size() && flag >= 0; ++k) {
    const double t_end = problem.segment_ends[k];
    if (problem.enter_segment != nullptr) problem.enter_segment(problem.context, k);
    std::copy_n(N_VGetArrayPointer(y), n, record.y.begin());
    const std::vector<double> rates = starting_rates(problem, t, record.y);
    std::copy(rates.begin(), rates.end(), N_VGetArrayPointer(yp));
    if (k == 0) {
      IDAInit(ida, residual, t, y, yp);
      IDASVtolerances(ida, tolerance, atol);
      IDASetUserData(ida, &counted);
      IDASetLinearSolver(ida, linear_solver, matrix);
      IDASetMaxNumSteps(ida, MAX_IDA_STEPS);
      IDASetId(ida, id);
      IDASetSuppressAlg(ida, suppress_algebraic ? SUNTRUE : SUNFALSE);
      if (problem.max_step > 0.0) IDASetMaxStep(ida, problem.max_step);
    } else {
      IDAReInit(ida, t, y, yp);
    }
    IDASetInitStep(ida, problem.ida_first_step);
    IDASetStopTime(ida, t_end);

    const double begin = processor_seconds();
    if (k > 0 || !problem.consistent_start) {
      flag = IDACalcIC(ida, IDA_YA_YDP_INIT, t_end);
      if (flag >= 0) IDAGetConsistentIC(ida, y, yp);
    }
    if (flag >= 0) flag = IDASolve(ida, t_end, &t, y, yp, IDA_NORMAL);
    record.seconds += processor_seconds() - begin;

    long steps = 0, rejected = 0, newton_failed = 0, setups = 0, jacobians = 0, solves = 0;
    IDAGetNumSteps(ida, &steps);
    IDAGetNumErrTestFails(ida, &rejected);
    IDAGetNumStepSolveFails(ida, &newton_failed);
    IDAGetNumLinSolvSetups(ida, &setups);
    IDAGetNumJacEvals(ida, &jacobians);
    IDAGetNumNonlinSolvIters(ida, &solves);
    record.steps += steps;
    record.rejected += rejected;
    record.newton_failed += newton_failed;
    record.factorisations += setups;
    record.jacobians += jacobians;
    record.solves += solves;
  }
  record.rhs_calls = counted.rhs_calls;
  record.status = status_of(flag);
  std::copy_n(N_VGetArrayPointer(y), n, record.y.begin());

  IDAFree(&ida);
  SUNLinSolFree(linear_solver);
  SUNMatDestroy(matrix);
  for (N_Vector vector : {y, yp, atol, id}) N_VDestroy(vector);
  SUNContext_Free(&sundials);
  return record;
}

}  // namespace vorlen::bench
