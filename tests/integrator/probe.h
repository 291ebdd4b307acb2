// A context between the integrator and a problem that counts the callbacks and records their arguments.
#pragma once

#include <cstdint>
#include <vector>

#include "integrator/integrator_call.h"

namespace vorlen::test {

struct StepRecord {
  std::int32_t accepted_index = 0;
  double x_old = 0.0;
  double x = 0.0;
  std::vector<double> y;
  std::vector<double> CONT;
  std::int32_t cont_size = 0;
  std::int32_t n = 0;
  std::int32_t stop_flag = 0;  // as received
};

struct Probe {
  RadauRhsCallback rhs = nullptr;
  RadauJacobianCallback jacobian = nullptr;
  RadauMassCallback mass = nullptr;
  std::int32_t stop_at_index = 0;  // accepted_index at which to stop; 0: never
  std::int32_t stop_value = -1;    // what to write into stop_flag there
  std::vector<double> rhs_x;       // x of every evaluation
  std::int32_t jacobian_calls = 0;
  std::int32_t mass_calls = 0;
  std::vector<StepRecord> steps;
};

// Makes the call go through the probe: rhs, Jacobian and mass of the call are moved into it, step_callback is set.
void Attach(Probe& probe, IntegratorCall& call);

}  // namespace vorlen::test
