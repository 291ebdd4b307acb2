// A problem for both solvers, M y' = f(t, y) with constant M, and the reference for its end values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "integrator/radau_callbacks.h"

namespace vorlen::bench {

// An entry of the mass matrix; row and column from 0.
struct MassEntry {
  std::int32_t row = 0;
  std::int32_t column = 0;
  double value = 0.0;
};

struct Problem {
  std::string name;
  std::string group;  // "published", "closed_form" or "growth"
  std::int32_t n = 0;
  RadauRhsCallback rhs = nullptr;
  void* context = nullptr;       // model_context of rhs
  std::vector<MassEntry> mass;   // the entries that are not 0
  bool identity_mass = false;    // M is the identity, and the Radau integrator gets no mass matrix
  std::int32_t lower = -1;       // bandwidths of the Jacobian, with block structure those of the equations ..
  std::int32_t upper = -1;       // .. after it; -1: full
  std::int32_t block_count = 0;  // block structure for the Radau integrator; IDA then has a full matrix
  std::array<std::int32_t, 3> index_counts{};  // components of index 1, 2, 3, in this order
  double t0 = 0.0;                             // start
  std::vector<double> segment_ends;            // the solvers are restarted at all but the last, which is the end
  void (*enter_segment)(void*, std::size_t) = nullptr;  // prepares rhs for a segment, counted from 0; may be null
  std::vector<double> y0;                               // state at t0
  bool consistent_start = true;                         // false: the algebraic components of y0 are guesses
  double first_step = 0.0;                              // of the Radau integrator, in each segment
  double ida_first_step = 0.0;                          // of IDA; 0: its own estimate
  double max_step = 0.0;                                // largest step of both solvers; 0: no limit
  std::vector<double> scale;                            // absolute tolerance of a component over the relative tolerance
  std::vector<double> reference;                        // values at the end
  std::vector<double> error_scale;                      // what an error is divided by; 0: the component is not compared
};

// Largest scaled error of y at the end; infinity if a compared component is NaN.
double error_of(const Problem& problem, const std::vector<double>& y);

}  // namespace vorlen::bench
