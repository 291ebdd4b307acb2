// Published stiff test problems. Start, end and reference values are read from
// tests/data/integrator/stiff_problems.json, which names their source; the equations are functions here. In
// addition, problems whose reference values follow from a closed-form solution.
#pragma once

#include <string>
#include <vector>

#include "integrator/integrator_call.h"

namespace vorlen::test {

struct StiffProblem {
  IntegratorCall call;
  std::vector<double> reference;  // at call.x_end; empty where the file has several points
};

// "hires", "pollu", "ringmod", "rober", "e5", "orego", "vdpol", "chemakzo", "transamp", "caraxis", "water", "pendulum"
// (index 3), with mass matrix, bandwidths and index counts in place.
StiffProblem LoadStiffProblem(const std::string& id);

// "e5" with its third equation replaced by the invariant y2 - y3 - y4 = 0 that the system keeps, as a system of
// index 1.
StiffProblem LoadE5WithInvariant();

// y' = lambda (y - cos x) - sin x with y(0) = 1, to x = 10: the solution is cos x for any lambda (Prothero and
// Robinson, 1974).
StiffProblem ProtheroRobinson(double lambda);

// u_t = u_xx on the unit interval with zeros at both ends, by central differences at 100 points, to t = 0.1; with a
// band Jacobian. The start is made of three sine modes, and each mode decays independently.
StiffProblem HeatEquation();

// 20 masses on springs between fixed ends, q'' = 100 (q(i-1) - 2 q(i) + q(i+1)), to t = 3. The components are all q,
// then all q': in block form, with a band Jacobian of the remaining equations. The start is the sum of two modes at
// rest, and each mode oscillates independently.
StiffProblem SpringChain();

// The reference points of the pendulum: t and the five values.
struct ReferencePoint {
  double t = 0.0;
  std::vector<double> values;
};
std::vector<ReferencePoint> PendulumPoints();

// The pendulum with its constraint differentiated once (index 2) or twice (index 1).
void PendulumIndex1Rhs(std::int32_t n, double x, const double* y, double* f, void*, void*);
void PendulumIndex2FormRhs(std::int32_t n, double x, const double* y, double* f, void*, void*);

// Least number of correct decimal digits, relative to the reference; components with the reference 0 are left out.
double SignificantDigits(const std::vector<double>& y, const std::vector<double>& reference);

}  // namespace vorlen::test
