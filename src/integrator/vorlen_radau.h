// Integrator for stiff systems of ordinary differential equations and differential-algebraic equations
//
//   M y' = f(x, y),   y(x) given,   M constant, possibly singular,
//
// by the three-stage Radau IIA method of order 5 with adaptive step size, simplified Newton iteration and dense output.
//
// This is the public header of the library vorlen_radau: records that describe a problem and the options, and free
// functions. It needs C++17. The library writes no text, throws nothing, keeps nothing between calls, and never ends
// the process; every failure is a Result. Calls on different threads are independent, but a callback must not start
// another integration on its own thread. An exception thrown by a callback passes through to the caller.
//
//   1. results       4. options
//   2. counters      5. state
//   3. problem       6. workspace, integration, dense output
//
// All indices count from 0. Matrices are stored by columns. docs/integrator.md has examples and explains the choices.
#pragma once

#include <cstdint>

namespace vorlen::radau {

// ---- 1. Results ----------------------------------------------------------------------------------------------------

// Positive: the run did what was requested. Negative: it did not. After BAD_... and OUT_OF_MEMORY no callback was
// called and x, y and step are unchanged; after the others they hold the last accepted point, after NOT_FINITE the
// point that is not finite.
enum class Result : std::int32_t {
  REACHED_END = 1,  // x_end reached
  STOPPED = 2,      // the step callback returned Next::STOP

  BAD_OPTION = -1,           // an option is out of its range, NaN or infinite; or x, x_end or the step is
  TOO_MANY_STEPS = -2,       // max_steps steps did not reach x_end
  STEP_TOO_SMALL = -3,       // the step became too small for the position x; also x_end = x
  REPEATEDLY_SINGULAR = -4,  // the fifth singular iteration matrix of the run
  NOT_FINITE = -5,           // the state became NaN or infinite in the step that ends at x; see docs/integrator.md
  BAD_PROBLEM = -6,          // n is not positive, or rhs or y is null
  BAD_TOLERANCE = -7,        // an absolute tolerance <= 0, a relative one <= 10 unit_roundoff, or one not finite
  BAD_MATRIX = -8,           // the shapes of the matrices, the blocks and the Hessenberg form do not fit together
  BAD_INDEX_COUNTS = -9,     // an index count is negative or the three do not add up to n
  BAD_WORKSPACE = -10,       // the workspace is too small or null, or more than 2^31 - 1 elements would be needed
  OUT_OF_MEMORY = -11,       // the workspace could not be allocated
};

// What a result means, in a few English words. Never null; "unknown result" for a value that is not listed above.
const char* Describe(Result result);

// ---- 2. Counters ---------------------------------------------------------------------------------------------------

// The work done by one call of Integrate.
struct Counters {
  std::int32_t rhs_calls = 0;            // evaluations of f, without those of difference quotients
  std::int32_t jacobian_rhs_calls = 0;   // evaluations of f for difference quotients
  std::int32_t jacobian_count = 0;       // Jacobians computed
  std::int32_t step_count = 0;           // steps attempted, accepted or not; max_steps + 1 after TOO_MANY_STEPS
  std::int32_t accepted_count = 0;       // steps accepted
  std::int32_t rejected_count = 0;       // steps rejected by the error test after the first accepted step
  std::int32_t factorisation_count = 0;  // factorisations, one real and one complex matrix together
  std::int32_t solve_count = 0;          // Newton iterations, each one real and one complex system
};

// ---- 3. Problem ----------------------------------------------------------------------------------------------------

// f[i] := f_i(x, y), i = 0 .. n-1. y is a state, a state perturbed for a difference quotient, or a stage.
using RightHandSide = void (*)(std::int32_t n, double x, const double* y, double* f, void* user);

// Writes a matrix by columns into A, which has `rows` rows and is zero at entry, so only nonzero entries need writing.
// Matrix entry (i, j), row i and column j from 0, goes to
//
//   Full shape:                A[i + j * rows]                       rows = order of the matrix
//   Band(lower, upper) shape:  A[(i - j + upper) + j * rows]         rows = lower + upper + 1
//
// For a band with lower = 2, upper = 1 and order 5 (a column of A below a column of the matrix, * not read):
//
//                matrix                              A
//       | 00  01   .   .   . |         row 0 |  *  01  12  23  34 |   superdiagonal
//       | 10  11  12   .   . |         row 1 | 00  11  22  33  44 |   diagonal
//       | 20  21  22  23   . |         row 2 | 10  21  32  43   * |   first subdiagonal
//       |  .  31  32  33  34 |         row 3 | 20  31  42   *   * |   second subdiagonal
//       |  .   .  42  43  44 |
//
// Jacobian: entry (i, j) is the derivative of f_i by y_j at (x, y). With block structure (Options::block_count) A has n
// columns, but only the rows of the last n - block_count equations: i counts from the first of these, and in a band j
// is replaced by j modulo block_stride in the row index: A[(i - j % block_stride + upper) + j * rows].
using JacobianCallback = void (*)(std::int32_t n, double x, const double* y, double* A, std::int32_t rows, void* user);

// Mass matrix, called once per run: the entries of M for the last `order` equations, order = n - block_count.
using MassCallback = void (*)(std::int32_t order, double* A, std::int32_t rows, void* user);

// An accepted step, valid only during the call of the step callback that receives it.
struct Step {
  std::int32_t index = 0;              // 0: the start, before any step; k: after the k-th accepted step
  double x_old = 0.0;                  // start of the step; x at index 0
  double x = 0.0;                      // end of the step
  std::int32_t n = 0;                  // number of components
  const double* y = nullptr;           // [n] state at x
  const double* dense_data = nullptr;  // [4 n] polynomial of the step, for DenseValue
};

enum class Next : std::int32_t { CONTINUE, STOP };

// Called at the start and after each accepted step. STOP ends the run at step.x with Result::STOPPED.
using StepCallback = Next (*)(const Step& step, void* user);

struct Problem {
  std::int32_t n = 0;                   // number of components
  RightHandSide rhs = nullptr;          // f; required
  JacobianCallback jacobian = nullptr;  // null: difference quotients
  MassCallback mass = nullptr;          // null: the identity
  StepCallback step = nullptr;          // null: not called
  void* user = nullptr;                 // passed to every callback
};

// ---- 4. Options ----------------------------------------------------------------------------------------------------

// How a matrix is stored. The members below the form are not read for FULL.
struct Shape {
  enum Form : std::int32_t { FULL, BAND };
  Form form = FULL;
  std::int32_t lower = 0;  // BAND: nonzero diagonals below the main one, 0 .. order - 1
  std::int32_t upper = 0;  // BAND: nonzero diagonals above the main one, 0 .. order - 1
};

constexpr Shape Full() { return {Shape::FULL, 0, 0}; }
constexpr Shape Band(std::int32_t lower, std::int32_t upper) { return {Shape::BAND, lower, upper}; }
constexpr Shape Diagonal() { return {Shape::BAND, 0, 0}; }

// Step-size controller. PREDICTIVE uses the errors of two steps; it is safer where the step must shrink.
enum class Controller : std::int32_t { PREDICTIVE, CLASSICAL };

// The defaults suit most problems once the tolerances are set. A 0 in a number selects the default that its line names.
struct Options {
  // Tolerances. The error of component i is kept near absolute + relative * |y_i|.
  double relative_tolerance = 1e-6;             // used for all components unless relative_tolerances is given
  double absolute_tolerance = 1e-6;             // used for all components unless absolute_tolerances is given
  const double* relative_tolerances = nullptr;  // [n] or null; only read
  const double* absolute_tolerances = nullptr;  // [n] or null; only read

  // Matrices
  Shape jacobian_shape;           // full, or band
  Shape mass_shape = Diagonal();  // read when Problem::mass is given; bandwidths not above those of the Jacobian
  bool hessenberg = false;  // reduce each Jacobian to Hessenberg form: full Jacobian without mass matrix and blocks; no
                            // effect for n <= 2

  // Block structure: the first block_count equations are y_i' = y_(i + block_stride) and are eliminated beforehand.
  std::int32_t block_count = 0;   // 0: none
  std::int32_t block_stride = 0;  // a divisor of block_count, at most n - block_count (equal to it for a band);
                                  // 0: block_count

  // Index of differential-algebraic systems: components in the order index 1, index 2, index 3.
  std::int32_t index1_count = 0;  // 0: n, so leave all three at 0 for ordinary differential equations
  std::int32_t index2_count = 0;
  std::int32_t index3_count = 0;

  // Step size
  double max_step = 0.0;       // largest magnitude of a step; 0: |x_end - x|
  std::int32_t max_steps = 0;  // largest number of steps attempted; 0: 100000
  Controller controller = Controller::PREDICTIVE;
  double safety_factor = 0.0;    // 0.001 < .. < 1; 0: 0.9
  double min_step_factor = 0.0;  // smallest factor of the step size in one change, <= 1; 0: 0.2
  double max_step_factor = 0.0;  // largest factor of the step size in one change, >= 1; 0: 8
  double keep_step_low = 0.0;    // a step size that would change by a factor from keep_step_low ..
  double keep_step_high = 0.0;   // .. to keep_step_high is kept; <= 1 and >= 1; 0: 1 and 1.2

  // Newton iteration
  std::int32_t max_newton_iterations = 0;  // per step attempted; 0: 7
  bool zero_start = false;                 // start each iteration from zero, not from the extrapolated last step
  double newton_stop_factor = 0.0;         // stops when the estimated iteration error is below this fraction of the
                                           // tolerance; 0: max(1e-15 / tol, min(0.03, sqrt(tol))) with
                                           // tol = 0.1 rtol_0^(2/3)
  double jacobian_reuse_limit = 0.0;  // < 1; the Jacobian is kept while Newton contracts faster than this; 0: 0.001;
                                      // negative: a new Jacobian after every accepted step

  double unit_roundoff = 0.0;  // relative accuracy of f, 1e-19 < .. < 1; 0: 1e-16
};

// ---- 5. State ------------------------------------------------------------------------------------------------------

// Where a run starts and, afterwards, where it has arrived. The same record may be passed to the next call.
struct State {
  double x = 0.0;       // in: start; out: last accepted point
  double* y = nullptr;  // [n] in: state at the start; out: state at x
  double step = 0.0;    // in: first step to try, sign ignored, 0: 1e-6; out: proposal for the next step after
                        // REACHED_END, otherwise the step in use when the run ended
  Counters counters;    // out: work of this call
};

// ---- 6. Workspace, integration, dense output -----------------------------------------------------------------------

// Number of elements that a run needs. Both are 0 when problem or options are bad, or the problem is too large.
struct WorkspaceSize {
  std::int64_t reals = 0;
  std::int64_t integers = 0;
};

// Memory that the caller owns. The contents do not matter, and it may be used for any number of runs, one at a time.
struct Workspace {
  double* reals = nullptr;
  std::int64_t real_count = 0;
  std::int32_t* integers = nullptr;
  std::int64_t integer_count = 0;
};

// Size of the workspace for a problem. Depends on n, the shapes, the blocks, and on whether Problem::mass and an array
// of tolerances are given.
WorkspaceSize RequiredWorkspace(const Problem& problem, const Options& options);

// Integrates from state.x to x_end, which may be below state.x, and updates the state. Allocates nothing.
Result Integrate(const Problem& problem, const Options& options, double x_end, State& state,
                 const Workspace& workspace);

// The same with a workspace allocated for this call.
Result Integrate(const Problem& problem, const Options& options, double x_end, State& state);

// Component i of the solution at x inside the step just accepted, of order 4. Only inside the step callback. Outside of
// [x_old, x] the polynomial of the step is extrapolated; at index 0 the value is y[i] for every x.
double DenseValue(const Step& step, std::int32_t i, double x);

}  // namespace vorlen::radau
