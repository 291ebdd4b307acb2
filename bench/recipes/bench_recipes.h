// Recipes of the benchmarks, generated: whole growth runs of adjustable length, and recipes with many stages for the
// reader. All share one set of kinetic constants, which gives realistic growth rates and compositions of GaN and InGaN.
#pragma once

#include <string>
#include <vector>

namespace vorlen::bench {

// Text of a recipe, and the name of its file.
struct NamedRecipe {
  std::string name;
  std::string text;
};

// InGaN/GaN multi-quantum well, stress off: spacer, then periods of well, heating ramp, barrier and cooling ramp.
std::string multi_quantum_well(int periods);

// InGaN/GaN superlattice, stress off: thin wells and barriers with a short ramp between them.
std::string superlattice(int periods);

// Thick InGaN on GaN under V_dislocation. V-defects open after about 118 s. From then on each second of growth records
// a hundred points or more.
std::string v_defects(double tau_InGaN);

// One stage of InGaN, 100 s long, whose temperature ramps from 1030 K to T_end [K]; constant if T_end is 1030.
std::string single_InGaN(bool relaxes, double T_end);

// GaN from TMGa under constant conditions, stress off.
std::string constant_GaN(double tau);

// GaN on a GaN template under V_dislocation, in many short stages of alternating TEGa flow, so that many points are
// recorded although the maximum step is 10 s. Without mismatch no V-defect opens, and each search visits all points.
std::string strain_free_GaN(int periods);

// Many stages for the reader, written out without periods, about 900 bytes each.
std::string many_stages(int n_stages);

// The recipes of the run benchmarks, with the lengths that are measured.
std::vector<NamedRecipe> whole_runs();

// Writes text to path. Returns false on failure.
bool write_file(const std::string& path, const std::string& text);

}  // namespace vorlen::bench
