// One call of the integrator with all its arguments in a record, so that a test states only what it is about.
#pragma once

#include <cstdint>
#include <vector>

#include "integrator/radau_integrator.h"

namespace vorlen::test {

// The counters in IWORK(14) to IWORK(20).
struct Counters {
  std::int32_t rhs_calls = 0;
  std::int32_t jacobian_count = 0;
  std::int32_t step_count = 0;
  std::int32_t accepted_count = 0;
  std::int32_t rejected_count = 0;
  std::int32_t factorisation_count = 0;
  std::int32_t solve_count = 0;

  bool operator==(const Counters&) const = default;
};

struct IntegratorCall {
  std::int32_t n = 0;
  RadauRhsCallback rhs_callback = nullptr;
  double x = 0.0;
  std::vector<double> y;
  double x_end = 1.0;
  double h = 1e-4;
  std::vector<double> rtol{1e-6};
  std::vector<double> atol{1e-6};
  std::int32_t itol = 0;
  RadauJacobianCallback jacobian_callback = nullptr;
  std::int32_t ijac = 0;
  std::int32_t mljac = 0;
  std::int32_t mujac = 0;
  RadauMassCallback mass_callback = nullptr;
  std::int32_t imas = 0;
  std::int32_t mlmas = 0;
  std::int32_t mumas = 0;
  RadauStepCallback step_callback = nullptr;
  std::int32_t iout = 0;
  std::vector<double> WORK;
  std::int32_t lwork = 0;
  std::vector<std::int32_t> IWORK;
  std::int32_t liwork = 0;
  void* real_context = nullptr;
  void* model_context = nullptr;
  std::int32_t idid = 0;

  // A system of the size of y_start with a full numerical Jacobian and identity mass.
  IntegratorCall(RadauRhsCallback rhs, std::vector<double> y_start, double end);

  // Parameter slots, from 1.
  double& Work(std::int32_t slot) { return WORK[static_cast<std::size_t>(slot - 1)]; }
  std::int32_t& Iwork(std::int32_t slot) { return IWORK[static_cast<std::size_t>(slot - 1)]; }

  void SetTolerance(double relative, double absolute);

  // Gives both arrays exactly the length that the arguments require, fills the storage with NaN and with a pattern,
  // and sets lwork and liwork.
  void SizeArrays();

  // SizeArrays and Run.
  void SizeAndRun();

  // Calls the integrator with the record as it is.
  void Run();

  Counters ReadCounters() const;
};

// Writes the identity matrix as a diagonal mass matrix.
void DiagonalIdentityMass(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void*, void*);

// Writes the identity matrix as a full mass matrix.
void FullIdentityMass(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void*, void*);

}  // namespace vorlen::test
