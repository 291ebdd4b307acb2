#include "integrator/probe.h"

namespace vorlen::test {

namespace {

Probe& ProbeOf(void* model_context) { return *static_cast<Probe*>(model_context); }

void ProbeRhs(std::int32_t n, double x, const double* y, double* f, void* real_context, void* model_context) {
  Probe& probe = ProbeOf(model_context);
  probe.rhs_x.push_back(x);
  probe.rhs(n, x, y, f, real_context, model_context);
}

void ProbeJacobian(std::int32_t n, double x, const double* y, double* FJAC, std::int32_t jac_rows, void* real_context,
                   void* model_context) {
  Probe& probe = ProbeOf(model_context);
  probe.jacobian_calls += 1;
  probe.jacobian(n, x, y, FJAC, jac_rows, real_context, model_context);
}

void ProbeMass(std::int32_t n_reduced, double* FMAS, std::int32_t mass_rows, void* real_context, void* model_context) {
  Probe& probe = ProbeOf(model_context);
  probe.mass_calls += 1;
  probe.mass(n_reduced, FMAS, mass_rows, real_context, model_context);
}

void ProbeStep(std::int32_t accepted_index, double x_old, double x, const double* y, const double* CONT,
               std::int32_t cont_size, std::int32_t n, void*, void* model_context, std::int32_t& stop_flag) {
  Probe& probe = ProbeOf(model_context);
  probe.steps.push_back({accepted_index, x_old, x, std::vector<double>(y, y + n),
                         std::vector<double>(CONT, CONT + cont_size), cont_size, n, stop_flag});
  if (accepted_index == probe.stop_at_index) stop_flag = probe.stop_value;
}

}  // namespace

void Attach(Probe& probe, IntegratorCall& call) {
  probe.rhs = call.rhs_callback;
  probe.jacobian = call.jacobian_callback;
  probe.mass = call.mass_callback;
  call.rhs_callback = ProbeRhs;
  if (call.jacobian_callback != nullptr) call.jacobian_callback = ProbeJacobian;
  if (call.mass_callback != nullptr) call.mass_callback = ProbeMass;
  call.step_callback = ProbeStep;
  call.iout = 1;
  call.model_context = &probe;
}

}  // namespace vorlen::test
