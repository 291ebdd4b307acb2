// The recipes of the benchmarks, made on the spot: whole growth runs of adjustable length, and recipes with many stages
// for the reader. All share one set of kinetic constants that grows GaN and InGaN at the rates and compositions of real
// MOVPE.
#pragma once

#include <string>
#include <vector>

namespace vorlen::bench {

// A recipe's text with the name of the file that it goes by.
struct NamedRecipe {
  std::string name;
  std::string text;
};

// InGaN/GaN multi-quantum well, stress off: spacer, then periods of well, heating ramp, barrier and cooling ramp.
std::string multi_quantum_well(int periods);

// InGaN/GaN superlattice, stress off: thin wells and barriers with a short ramp between them.
std::string superlattice(int periods);

// Thick InGaN on GaN under V_dislocation. V-defects open after some 118 s; from then on every second of growth costs a
// hundred recorded points and more.
std::string v_defects(double tau_InGaN);

// One stage of InGaN at 1030 K, 100 s long, whose temperature moves to T_end [K]: constant conditions for 1030.
std::string single_InGaN(bool relaxes, double T_end);

// GaN from TMGa under one set of conditions from begin to end, stress off.
std::string constant_GaN(double tau);

// GaN on a GaN template under V_dislocation whose temperature jumps at each of many short stages, so that the points
// are many although the largest step is 10 s. Without mismatch no V-defect opens, and the search goes on to the end.
std::string strain_free_GaN(int periods);

// The same stages for the reader: one stage after the other without periods, about 900 bytes each.
std::string many_stages(int n_stages);

// The recipes of the whole runs, at the lengths that the benchmarks measure.
std::vector<NamedRecipe> whole_runs();

// Writes text to path. False when that fails.
bool write_file(const std::string& path, const std::string& text);

}  // namespace vorlen::bench
