// The problems of the reference runs: right-hand sides and mass matrices whose formulas are given as text in
// tests/data/integrator/reference_runs.json.
#pragma once

#include <string>

#include "integrator/radau_callbacks.h"

namespace vorlen::test {

void GrowthRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void RobertsonRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void HiresRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void VanDerPolRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void AkzoRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void PendulumIndex2Rhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void BandRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void Chain3Rhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void OscillatorRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);

// By the name in the file; null for a name it does not have.
RadauRhsCallback ReferenceRhs(const std::string& name);
RadauMassCallback ReferenceMass(const std::string& name);

}  // namespace vorlen::test
