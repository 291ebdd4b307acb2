#include "integrator/stiff_problems.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <stdexcept>

#include "integrator/reference_problems.h"

namespace vorlen::test {

namespace {

using Json = nlohmann::json;
constexpr double PI = std::numbers::pi;

void PollutionRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  const double r1 = 0.35 * y[0];
  const double r2 = 26.6 * y[1] * y[3];
  const double r3 = 12300.0 * y[4] * y[1];
  const double r4 = 0.86e-3 * y[6];
  const double r5 = 0.82e-3 * y[6];
  const double r6 = 15000.0 * y[6] * y[5];
  const double r7 = 0.13e-3 * y[8];
  const double r8 = 24000.0 * y[8] * y[5];
  const double r9 = 16500.0 * y[10] * y[1];
  const double r10 = 9000.0 * y[10] * y[0];
  const double r11 = 0.022 * y[12];
  const double r12 = 12000.0 * y[9] * y[1];
  const double r13 = 1.88 * y[13];
  const double r14 = 16300.0 * y[0] * y[5];
  const double r15 = 4.8e6 * y[2];
  const double r16 = 0.35e-3 * y[3];
  const double r17 = 0.0175 * y[3];
  const double r18 = 1e8 * y[15];
  const double r19 = 0.444e12 * y[15];
  const double r20 = 1240.0 * y[16] * y[5];
  const double r21 = 2.1 * y[18];
  const double r22 = 5.78 * y[18];
  const double r23 = 0.0474 * y[0] * y[3];
  const double r24 = 1780.0 * y[18] * y[0];
  const double r25 = 3.12 * y[19];
  f[0] = -r1 - r10 - r14 - r23 - r24 + r2 + r3 + r9 + r11 + r12 + r22 + r25;
  f[1] = -r2 - r3 - r9 - r12 + r1 + r21;
  f[2] = -r15 + r1 + r17 + r19 + r22;
  f[3] = -r2 - r16 - r17 - r23 + r15;
  f[4] = -r3 + r4 + r4 + r6 + r7 + r13 + r20;
  f[5] = -r6 - r8 - r14 - r20 + r3 + r18 + r18;
  f[6] = -r4 - r5 - r6 + r13;
  f[7] = r4 + r5 + r6 + r7;
  f[8] = -r7 - r8;
  f[9] = -r12 + r7 + r9;
  f[10] = -r9 - r10 + r8 + r11;
  f[11] = r9;
  f[12] = -r11 + r10;
  f[13] = -r13 + r12;
  f[14] = r14;
  f[15] = -r18 - r19 + r16;
  f[16] = -r20;
  f[17] = r20;
  f[18] = -r21 - r22 - r24 + r23 + r25;
  f[19] = -r25 + r24;
}

void RingModulatorRhs(std::int32_t, double t, const double* y, double* f, void*, void*) {
  const auto diode = [](double u) { return 40.67286402e-9 * (std::exp(17.7493332 * u) - 1.0); };
  const double uin1 = 0.5 * std::sin(2000.0 * PI * t);
  const double uin2 = 2.0 * std::sin(20000.0 * PI * t);
  const double q1 = diode(y[2] - y[4] - y[6] - uin2);
  const double q2 = diode(-y[3] + y[5] - y[6] - uin2);
  const double q3 = diode(y[3] + y[4] + y[6] + uin2);
  const double q4 = diode(-y[2] - y[5] + y[6] + uin2);
  f[0] = (y[7] - 0.5 * y[9] + 0.5 * y[10] + y[13] - y[0] / 25e3) / 1.6e-8;
  f[1] = (y[8] - 0.5 * y[11] + 0.5 * y[12] + y[14] - y[1] / 25e3) / 1.6e-8;
  f[2] = (y[9] - q1 + q4) / 2e-12;
  f[3] = (-y[10] + q2 - q3) / 2e-12;
  f[4] = (y[11] + q1 - q3) / 2e-12;
  f[5] = (-y[12] - q2 + q4) / 2e-12;
  f[6] = (-y[6] / 50.0 + q1 + q2 - q3 - q4) / 1e-8;
  f[7] = -y[0] / 4.45;
  f[8] = -y[1] / 4.45;
  f[9] = (0.5 * y[0] - y[2] - 17.3 * y[9]) / 5e-4;
  f[10] = (-0.5 * y[0] + y[3] - 17.3 * y[10]) / 5e-4;
  f[11] = (0.5 * y[1] - y[4] - 17.3 * y[11]) / 5e-4;
  f[12] = (-0.5 * y[1] + y[5] - 17.3 * y[12]) / 5e-4;
  f[13] = (-y[0] + uin1 - (50.0 + 36.3) * y[13]) / 2e-3;
  f[14] = (-y[1] - (600.0 + 36.3) * y[14]) / 2e-3;
}

void E5Rhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  const double p1 = 7.89e-10 * y[0];
  const double p2 = 1.1e7 * y[0] * y[2];
  const double p3 = 1.13e9 * y[1] * y[2];
  const double p4 = 1.13e3 * y[3];
  f[0] = -p1 - p2;
  f[1] = p1 - p3;
  f[2] = p1 - p3 - p2 + p4;
  f[3] = p2 - p4;
}

void E5Jacobian(std::int32_t, double, const double* y, double* FJAC, std::int32_t rows, void*, void*) {
  const auto entry = [FJAC, rows](std::int32_t i, std::int32_t j) -> double& { return FJAC[i - 1 + (j - 1) * rows]; };
  const double a = 7.89e-10;
  const double b = 1.1e7;
  const double cm = 1.13e9;
  const double c = 1.13e3;
  entry(1, 1) = -a - b * y[2];
  entry(1, 2) = 0.0;
  entry(1, 3) = -b * y[0];
  entry(1, 4) = 0.0;
  entry(2, 1) = a;
  entry(2, 2) = -cm * y[2];
  entry(2, 3) = -cm * y[1];
  entry(2, 4) = 0.0;
  entry(3, 1) = a - b * y[2];
  entry(3, 2) = -cm * y[2];
  entry(3, 3) = -cm * y[1] - b * y[0];
  entry(3, 4) = c;
  entry(4, 1) = b * y[2];
  entry(4, 2) = 0.0;
  entry(4, 3) = b * y[0];
  entry(4, 4) = -c;
}

// The third equation replaced by the invariant that it keeps.
void E5InvariantRhs(std::int32_t n, double x, const double* y, double* f, void* a, void* b) {
  E5Rhs(n, x, y, f, a, b);
  f[2] = y[1] - y[2] - y[3];
}

void E5InvariantJacobian(std::int32_t n, double x, const double* y, double* FJAC, std::int32_t rows, void* a, void* b) {
  E5Jacobian(n, x, y, FJAC, rows, a, b);
  FJAC[2] = 0.0;
  FJAC[2 + rows] = 1.0;
  FJAC[2 + 2 * rows] = -1.0;
  FJAC[2 + 3 * rows] = -1.0;
}

void OregonatorRhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = 77.27 * (y[1] + y[0] * (1.0 - 8.375e-6 * y[0] - y[1]));
  f[1] = (y[2] - (1.0 + y[0]) * y[1]) / 77.27;
  f[2] = 0.161 * (y[0] - y[2]);
}

void TransistorAmplifierRhs(std::int32_t, double t, const double* y, double* f, void*, void*) {
  const auto current = [](double u) { return 1e-6 * (std::exp(u / 0.026) - 1.0); };
  const double ue = 0.1 * std::sin(200.0 * PI * t);
  const double g23 = current(y[1] - y[2]);
  const double g56 = current(y[4] - y[5]);
  f[0] = (y[0] - ue) / 1000.0;
  f[1] = y[1] / 9000.0 + (y[1] - 6.0) / 9000.0 + (1.0 - 0.99) * g23;
  f[2] = y[2] / 9000.0 - g23;
  f[3] = (y[3] - 6.0) / 9000.0 + 0.99 * g23;
  f[4] = y[4] / 9000.0 + (y[4] - 6.0) / 9000.0 + (1.0 - 0.99) * g56;
  f[5] = y[5] / 9000.0 - g56;
  f[6] = (y[6] - 6.0) / 9000.0 + 0.99 * g56;
  f[7] = y[7] / 9000.0;
}

void TransistorAmplifierMass(std::int32_t n, double* FMAS, std::int32_t rows, void*, void*) {
  const double diagonal[] = {-1, -1, -2, -3, -3, -4, -5, -5};
  const double beside[] = {1, 0, 0, 3, 0, 0, 5};
  for (std::int32_t j = 0; j < n; ++j) {
    FMAS[1 + j * rows] = diagonal[j] * 1e-6;
    FMAS[j * rows] = j > 0 ? beside[j - 1] * 1e-6 : 0.0;      // entry (j - 1, j)
    FMAS[2 + j * rows] = j < n - 1 ? beside[j] * 1e-6 : 0.0;  // entry (j + 1, j)
  }
}

void CarAxisRhs(std::int32_t, double t, const double* y, double* f, void*, void*) {
  const double yb = 0.1 * std::sin(10.0 * t);
  const double xb = std::sqrt(1.0 - yb * yb);
  const double left = std::sqrt(y[0] * y[0] + y[1] * y[1]);
  const double right = std::sqrt((y[2] - xb) * (y[2] - xb) + (y[3] - yb) * (y[3] - yb));
  f[0] = y[4];
  f[1] = y[5];
  f[2] = y[6];
  f[3] = y[7];
  f[4] = (0.5 - left) * y[0] / left + y[8] * xb + 2.0 * y[9] * (y[0] - y[2]);
  f[5] = (0.5 - left) * y[1] / left + y[8] * yb + 2.0 * y[9] * (y[1] - y[3]) - 5e-4;
  f[6] = (0.5 - right) * (y[2] - xb) / right - 2.0 * y[9] * (y[0] - y[2]);
  f[7] = (0.5 - right) * (y[3] - yb) / right - 2.0 * y[9] * (y[1] - y[3]) - 5e-4;
  f[8] = xb * y[0] + yb * y[1];
  f[9] = (y[0] - y[2]) * (y[0] - y[2]) + (y[1] - y[3]) * (y[1] - y[3]) - 1.0;
}

void WaterTubesRhs(std::int32_t, double t, const double* y, double* f, void*, void*) {
  constexpr std::int32_t TUBES = 18;
  const double area = PI / 4.0;
  const double nu = 1.31e-6;
  const double rho = 1e3;
  const double mu = nu * rho;
  const double length = 1e3;
  const double roughness = 2e-4;
  const double critical = 2.3e3;
  // Nodes at the two ends of each tube, and the component that holds the pressure of each node, from 1.
  const std::int32_t from[TUBES] = {1, 2, 2, 3, 3, 4, 5, 6, 7, 7, 8, 8, 9, 11, 11, 12, 12, 13};
  const std::int32_t to[TUBES] = {2, 3, 6, 4, 5, 5, 10, 5, 4, 8, 5, 10, 8, 9, 12, 7, 8, 11};
  const std::int32_t pressure[14] = {0, 39, 40, 41, 42, 37, 43, 44, 38, 45, 46, 47, 48, 49};
  for (std::int32_t i = 0; i < TUBES; ++i) {
    const double flow = y[i];
    const double lambda = y[18 + i];
    const double drop = y[pressure[from[i]] - 1] - y[pressure[to[i]] - 1];
    const double reynolds = std::abs(flow / (nu * area));
    f[i] = reynolds > critical ? drop - lambda * rho * length * flow * flow / (area * area)
                               : drop - 32.0 * mu * length * flow / area;
    const double root = std::sqrt(lambda);
    f[18 + i] = 1.0 / root - 1.74 + 2.0 * std::log10(2.0 * roughness + 18.7 / (std::max(reynolds, critical) * root));
  }
  const double hours = t / 3600.0;
  const double ramp = 1.0 - std::cos(std::exp(-hours) - 1.0);
  double net[14] = {};  // inflow less outflow of each node
  for (std::int32_t i = 0; i < TUBES; ++i) {
    net[from[i]] -= y[i];
    net[to[i]] += y[i];
  }
  net[1] += ramp / 200.0;
  net[13] += ramp / 80.0;
  net[10] -= hours * hours * (3.0 * hours * hours - 92.0 * hours + 720.0) / 1e6;
  for (std::int32_t node = 1; node <= 13; ++node) {
    f[pressure[node] - 1] = net[node];
  }
}

void PendulumIndex3Rhs(std::int32_t, double, const double* y, double* f, void*, void*) {
  f[0] = y[2];
  f[1] = y[3];
  f[2] = -y[4] * y[0];
  f[3] = -y[4] * y[1] - 1.0;
  f[4] = y[0] * y[0] + y[1] * y[1] - 1.0;
}

// The rate lambda comes through model_context.
void ProtheroRobinsonRhs(std::int32_t, double x, const double* y, double* f, void*, void* model_context) {
  f[0] = *static_cast<const double*>(model_context) * (y[0] - std::cos(x)) - std::sin(x);
}

void HeatRhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  const double d = (n + 1.0) * (n + 1.0);
  for (std::int32_t i = 0; i < n; ++i) {
    const double left = i > 0 ? y[i - 1] : 0.0;
    const double right = i < n - 1 ? y[i + 1] : 0.0;
    f[i] = d * (left - 2.0 * y[i] + right);
  }
}

void SpringChainRhs(std::int32_t n, double, const double* y, double* f, void*, void*) {
  const std::int32_t half = n / 2;
  for (std::int32_t i = 0; i < half; ++i) {
    f[i] = y[i + half];
    const double left = i > 0 ? y[i - 1] : 0.0;
    const double right = i < half - 1 ? y[i + 1] : 0.0;
    f[i + half] = 100.0 * (left - 2.0 * y[i] + right);
  }
}

// Sine mode k of a row of n points between fixed ends, at point i.
double SineMode(std::int32_t n, std::int32_t k, std::int32_t i) { return std::sin(k * PI * (i + 1) / (n + 1)); }

// The diagonal of the mass matrix comes through real_context.
void DiagonalMass(std::int32_t n, double* FMAS, std::int32_t rows, void* real_context, void*) {
  const auto* values = static_cast<const std::vector<double>*>(real_context);
  for (std::int32_t j = 0; j < n; ++j) {
    FMAS[j * rows] = values->at(static_cast<std::size_t>(j));
  }
}

RadauRhsCallback StiffRhs(const std::string& id) {
  static const std::map<std::string, RadauRhsCallback> all = {{"hires", HiresRhs},
                                                              {"pollu", PollutionRhs},
                                                              {"ringmod", RingModulatorRhs},
                                                              {"rober", RobertsonRhs},
                                                              {"e5", E5Rhs},
                                                              {"orego", OregonatorRhs},
                                                              {"vdpol", VanDerPolRhs},
                                                              {"chemakzo", AkzoRhs},
                                                              {"transamp", TransistorAmplifierRhs},
                                                              {"caraxis", CarAxisRhs},
                                                              {"water", WaterTubesRhs},
                                                              {"pendulum", PendulumIndex3Rhs}};
  return all.at(id);
}

const Json& Definition(const std::string& id) {
  static const Json file = Json::parse(std::ifstream(VORLEN_TEST_DATA "/integrator/stiff_problems.json"));
  for (const Json& problem : file.at("problems")) {
    if (problem.at("id") == id) return problem;
  }
  throw std::runtime_error("no problem " + id);
}

// Numbers in the file are JSON numbers or text.
double Number(const Json& value) {
  return value.is_string() ? std::stod(value.get<std::string>()) : value.get<double>();
}

}  // namespace

void PendulumIndex1Rhs(std::int32_t n, double x, const double* y, double* f, void* a, void* b) {
  PendulumIndex3Rhs(n, x, y, f, a, b);
  f[4] = y[2] * y[2] + y[3] * y[3] - y[1] - y[4] * (y[0] * y[0] + y[1] * y[1]);
}

void PendulumIndex2FormRhs(std::int32_t n, double x, const double* y, double* f, void* a, void* b) {
  PendulumIndex3Rhs(n, x, y, f, a, b);
  f[4] = y[0] * y[2] + y[1] * y[3];
}

StiffProblem LoadStiffProblem(const std::string& id) {
  static std::map<std::string, std::vector<double>> mass_diagonals;
  const Json& definition = Definition(id);
  StiffProblem problem{
      IntegratorCall(StiffRhs(id), definition.at("y0").get<std::vector<double>>(), Number(definition.at("t1"))), {}};
  IntegratorCall& call = problem.call;
  call.x = Number(definition.at("t0"));
  if (definition.contains("reference")) problem.reference = definition.at("reference").get<std::vector<double>>();
  const auto counts = definition.at("index_counts").get<std::vector<std::int32_t>>();
  call.Iwork(5) = counts.at(0);
  call.Iwork(6) = counts.at(1);
  call.Iwork(7) = counts.at(2);
  const std::string mass_kind = definition.at("mass").at("kind");
  if (mass_kind == "diagonal") {
    std::vector<double>& diagonal = mass_diagonals[id];
    diagonal.clear();
    for (const Json& value : definition.at("mass").at("values")) {
      diagonal.push_back(Number(value));
    }
    call.imas = 1;
    call.mass_callback = DiagonalMass;
    call.real_context = &diagonal;
  } else if (mass_kind == "entries") {
    call.imas = 1;
    call.mass_callback = TransistorAmplifierMass;
    call.mlmas = call.mumas = 1;
    call.mljac = 2;
    call.mujac = 1;
  }
  if (id == "e5") {
    // Components far below the floor of the numerical differences.
    call.ijac = 1;
    call.jacobian_callback = E5Jacobian;
  }
  return problem;
}

StiffProblem LoadE5WithInvariant() {
  static std::vector<double> diagonal = {1.0, 1.0, 0.0, 1.0};
  StiffProblem problem = LoadStiffProblem("e5");
  problem.call.rhs_callback = E5InvariantRhs;
  problem.call.jacobian_callback = E5InvariantJacobian;
  problem.call.imas = 1;
  problem.call.mass_callback = DiagonalMass;
  problem.call.real_context = &diagonal;
  return problem;
}

StiffProblem ProtheroRobinson(double lambda) {
  constexpr double END = 10.0;
  static std::map<double, double> rates;
  double& rate = rates[lambda];
  rate = lambda;
  StiffProblem problem{IntegratorCall(ProtheroRobinsonRhs, {1.0}, END), {std::cos(END)}};
  problem.call.model_context = &rate;
  return problem;
}

StiffProblem HeatEquation() {
  constexpr std::int32_t N = 100;
  constexpr double END = 0.1;
  // Mode k decays with 4 (n + 1)^2 sin^2(k pi / (2 (n + 1))).
  const auto decay = [](std::int32_t k) {
    const double s = std::sin(k * PI / (2.0 * (N + 1)));
    return std::exp(-4.0 * (N + 1) * (N + 1) * s * s * END);
  };
  std::vector<double> start, expected;
  for (std::int32_t i = 0; i < N; ++i) {
    start.push_back(SineMode(N, 1, i) + 0.5 * SineMode(N, 3, i) + 0.1 * SineMode(N, N, i));
    expected.push_back(decay(1) * SineMode(N, 1, i) + 0.5 * decay(3) * SineMode(N, 3, i) +
                       0.1 * decay(N) * SineMode(N, N, i));
  }
  StiffProblem problem{IntegratorCall(HeatRhs, start, END), expected};
  problem.call.mljac = problem.call.mujac = 1;
  return problem;
}

StiffProblem SpringChain() {
  constexpr std::int32_t M = 20;
  constexpr double END = 3.0;
  // Mode k swings with 20 sin(k pi / (2 (m + 1))).
  const auto frequency = [](std::int32_t k) { return 20.0 * std::sin(k * PI / (2.0 * (M + 1))); };
  std::vector<double> start(2 * M, 0.0), expected(2 * M, 0.0);
  for (std::int32_t i = 0; i < M; ++i) {
    const auto at = static_cast<std::size_t>(i);
    for (const std::int32_t k : {1, 2}) {
      start[at] += SineMode(M, k, i);
      expected[at] += std::cos(frequency(k) * END) * SineMode(M, k, i);
      expected[at + M] -= frequency(k) * std::sin(frequency(k) * END) * SineMode(M, k, i);
    }
  }
  StiffProblem problem{IntegratorCall(SpringChainRhs, start, END), expected};
  problem.call.Iwork(9) = M;
  problem.call.mljac = problem.call.mujac = 1;
  return problem;
}

std::vector<ReferencePoint> PendulumPoints() {
  std::vector<ReferencePoint> points;
  for (const Json& point : Definition("pendulum").at("reference_points")) {
    ReferencePoint next{Number(point.at("t")), {}};
    for (const Json& value : point.at("values")) {
      next.values.push_back(Number(value));
    }
    points.push_back(next);
  }
  return points;
}

double SignificantDigits(const std::vector<double>& y, const std::vector<double>& reference) {
  double digits = 16.0;
  for (std::size_t i = 0; i < y.size(); ++i) {
    if (reference[i] == 0.0) continue;
    const double error = std::abs(y[i] - reference[i]) / std::abs(reference[i]);
    if (!(error <= 1e300)) return -300.0;
    digits = std::min(digits, -std::log10(std::max(error, 1e-16)));
  }
  return digits;
}

}  // namespace vorlen::test
