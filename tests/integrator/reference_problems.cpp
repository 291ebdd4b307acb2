#include "integrator/reference_problems.h"

#include <cmath>
#include <map>

#include "integrator/integrator_call.h"

namespace vorlen::test {

void GrowthRhs(std::int32_t n, double x, const double* y, double* f, void*, void*) {
  double q = 0.05;
  if (x < 100.0) {
    q = 0.2;
  } else if (x < 150.0) {
    q = 0.2 + 0.8 * (x - 100.0) / 50.0;
  } else if (x < 300.0) {
    q = 1.0;
  } else if (x < 301.0) {
    q = 1.0 + 2.0 * (x - 300.0);
  } else if (x < 450.0) {
    q = 3.0;
  }
  const std::int32_t nd = n - 4;
  const double v = 1e-8 - y[0] - y[1] - y[2] - y[3] - y[4];
  const double b1 = y[nd];
  const double b2 = y[nd + 1];
  const double b3 = y[nd + 2];
  const double gr = y[nd + 3];
  const double r1 = 4e12 * y[0] * y[3] - 1e-7 * b1;
  const double r2 = 6e12 * y[1] * y[3] - 2e-8 * b2;
  const double r3 = 8e12 * y[2] * y[3] - 5e-9 * b3;
  f[0] = q * 3e3 * v - 2.0e3 * y[0] - r1;
  f[1] = q * 1e3 * v - 1.0e2 * y[1] - r2;
  f[2] = q * 5e2 * v - 1.0e1 * y[2] - r3;
  f[3] = 2e4 * v - 5e2 * y[3] - r1 - r2 - r3;
  f[4] = 1e3 * v - 3e3 * y[4];
  f[5] = 3e-5 * (r1 + r2 + r3);
  for (std::int32_t i = 6; i < nd; ++i) {
    f[i] = 1e-2 * (y[i - 1] - y[i]) + 0.3 * gr * y[5];
  }
  const double total = r1 + r2 + r3;
  f[nd] = b1 * gr - 3e-5 * r1;
  f[nd + 1] = b2 * gr - 3e-5 * r2;
  f[nd + 2] = b1 + b2 + b3 - 1.0;
  f[nd + 3] = gr - 3e-5 * total;
}

void RobertsonRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = -0.04 * y[0] + 1e4 * y[1] * y[2];
  f[2] = 3e7 * y[1] * y[1];
  f[1] = -f[0] - f[2];
}

void HiresRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = -1.71 * y[0] + 0.43 * y[1] + 8.32 * y[2] + 0.0007;
  f[1] = 1.71 * y[0] - 8.75 * y[1];
  f[2] = -10.03 * y[2] + 0.43 * y[3] + 0.035 * y[4];
  f[3] = 8.32 * y[1] + 1.71 * y[2] - 1.12 * y[3];
  f[4] = -1.745 * y[4] + 0.43 * (y[5] + y[6]);
  f[5] = -280.0 * y[5] * y[7] + 0.69 * y[3] + 1.71 * y[4] - 0.43 * y[5] + 0.69 * y[6];
  f[6] = 280.0 * y[5] * y[7] - 1.81 * y[6];
  f[7] = -f[6];
}

void VanDerPolRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = y[1];
  f[1] = ((1.0 - y[0] * y[0]) * y[1] - y[0]) / 1e-6;
}

void AkzoRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  const double root = std::sqrt(y[1]);
  const double r1 = 18.7 * (y[0] * y[0] * y[0] * y[0]) * root;
  const double r2 = 0.58 * y[2] * y[3];
  const double r3 = 0.58 / 34.4 * y[0] * y[4];
  const double r4 = 0.09 * y[0] * (y[3] * y[3]);
  const double r5 = 0.42 * (y[5] * y[5]) * root;
  const double fin = 3.3 * (0.9 / 737.0 - y[1]);
  f[0] = -2.0 * r1 + r2 - r3 - r4;
  f[1] = -0.5 * r1 - r4 - 0.5 * r5 + fin;
  f[2] = r1 - r2 + r3;
  f[3] = -r2 + r3 - 2.0 * r4;
  f[4] = r2 - r3 + r5;
  f[5] = 115.83 * y[0] * y[3] - y[5];
}

void PendulumIndex2Rhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = y[2];
  f[1] = y[3];
  f[2] = -y[0] * y[4];
  f[3] = -y[1] * y[4] - 1.0;
  f[4] = y[0] * y[2] + y[1] * y[3];
}

void BandRhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  const double d = (n + 1.0) * (n + 1.0);
  for (std::int32_t i = 0; i < n; ++i) {
    const double a = i > 0 ? y[i - 1] : 0.0;
    const double b = i < n - 1 ? y[i + 1] : 0.0;
    const double c = i > 1 ? y[i - 2] : 0.0;
    f[i] = d * (a - 2.0 * y[i] + b) - 3.0 * y[i] * y[i] * y[i] + 0.5 * c / (1.0 + y[i] * y[i]);
  }
}

void Chain3Rhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  for (std::int32_t i = 0; i < 8; ++i) {
    f[i] = y[i + 4];
  }
  for (std::int32_t i = 0; i < 4; ++i) {
    const double a = i > 0 ? y[i - 1] : 0.0;
    const double b = i < 3 ? y[i + 1] : 0.0;
    const double va = i > 0 ? y[i + 3] : 0.0;
    f[i + 8] = a - 6.0 * y[i] + 2.0 * b - 11.0 * y[i + 4] + 0.5 * va - 6.0 * y[i + 8] - 0.1 * y[i] * y[i] * y[i];
  }
}

void OscillatorRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = y[1];
  f[1] = -400.0 * y[0];
}

namespace {

void GrowthMass(std::int32_t n, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) {
    FMAS[j * mass_rows] = j < n - 4 ? 1.0 : 0.0;
  }
}

// The diagonal 1, .., 1, 0 of the problems with one algebraic component.
void LastZeroMass(std::int32_t n, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) {
    FMAS[j * mass_rows] = j < n - 1 ? 1.0 : 0.0;
  }
}

void LastZeroMassFull(std::int32_t n, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < n; ++j) {
    for (std::int32_t i = 0; i < n; ++i) {
      FMAS[i + j * mass_rows] = i == j && i < n - 1 ? 1.0 : 0.0;
    }
  }
}

void Chain3MassBand(std::int32_t, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < 4; ++j) {
    double* column = FMAS + j * mass_rows;
    column[1] = 1.0 + (j + 1) / 10.0;
    column[0] = 0.2;
    column[2] = 0.2;
  }
}

void Chain3MassFull(std::int32_t, double* FMAS, std::int32_t mass_rows, void*, void*) {
  for (std::int32_t j = 0; j < 4; ++j) {
    for (std::int32_t i = 0; i < 4; ++i) {
      FMAS[i + j * mass_rows] = 0.0;
    }
    FMAS[j + j * mass_rows] = 1.0 + (j + 1) / 10.0;
  }
  for (std::int32_t j = 0; j < 3; ++j) {
    FMAS[j + (j + 1) * mass_rows] = 0.2;
    FMAS[j + 1 + j * mass_rows] = 0.2;
  }
}

}  // namespace

RadauRhsCallback ReferenceRhs(const std::string& name) {
  static const std::map<std::string, RadauRhsCallback> problems = {
      {"growth", GrowthRhs},   {"robertson", RobertsonRhs}, {"hires", HiresRhs},
      {"vdpol", VanDerPolRhs}, {"akzo", AkzoRhs},           {"pendulum_index2", PendulumIndex2Rhs},
      {"band", BandRhs},       {"chain3", Chain3Rhs},       {"oscillator", OscillatorRhs}};
  const auto found = problems.find(name);
  return found == problems.end() ? nullptr : found->second;
}

RadauMassCallback ReferenceMass(const std::string& name) {
  static const std::map<std::string, RadauMassCallback> masses = {{"growth_mass", GrowthMass},
                                                                  {"akzo_mass", LastZeroMass},
                                                                  {"akzo_mass_full", LastZeroMassFull},
                                                                  {"pendulum_mass", LastZeroMass},
                                                                  {"identity_mass", DiagonalIdentityMass},
                                                                  {"chain3_mass_band", Chain3MassBand},
                                                                  {"chain3_mass_full", Chain3MassFull}};
  const auto found = masses.find(name);
  return found == masses.end() ? nullptr : found->second;
}

}  // namespace vorlen::test
