// One run of a problem by either solver, and its cost.
#pragma once

#include <string>
#include <vector>

#include "work_precision/problem.h"

namespace vorlen::bench {

// The result of a run. Counters are sums over the segments.
struct RunRecord {
  std::string status;  // "ok", or the cause of the failure
  std::vector<double> y;
  double seconds = 0.0;     // processor time of the calling thread inside the solver
  long steps = 0;           // accepted steps
  long rejected = 0;        // steps rejected by the error test
  long newton_failed = 0;   // steps given up because Newton did not converge; Radau does not count these, -1
  long rhs_calls = 0;       // all evaluations of f, those of difference quotients included
  long jacobians = 0;       // Jacobians by difference quotients
  long factorisations = 0;  // Radau: one real and one complex matrix together; IDA: one real matrix
  long solves = 0;          // Newton iterations
};

// The Radau integrator as the driver uses it: tolerance and tolerance * scale are its rtol and atol.
RunRecord run_radau(const Problem& problem, double tolerance);

// Variable-order BDF with a dense or band matrix, both with IDA's defaults. suppress_algebraic leaves the algebraic
// components out of the error test.
RunRecord run_ida(const Problem& problem, double tolerance, bool suppress_algebraic);

}  // namespace vorlen::bench
