// Search for z0, the depth at which V-defects open: among all depths that have grown, the one with the lowest negative
// energy balance (docs/physics.md, section 8).
#pragma once

#include <cstddef>

#include "model/surfchem_nonst.h"

namespace vorlen {

// Outcome of a search for the depth at which V-defects open.
struct Z0Search {
  bool found = false;      // a candidate has a low enough balance
  std::size_t index = 0;   // the candidate with the lowest one
  double balance = 0.0;    // its balance, J
  std::size_t passed = 0;  // candidates that are deep enough
};

// Searches the first n candidates for the one with the lowest balance at the present depth that is below the value
// below [J]. blocks are those of the lists.
Z0Search search_z0(const SurfChemNonst& m, const CandidateLists& lists, std::size_t n, CandidateBlocks& blocks,
                   double below = 0.0);

// Searches the history for the depth with the most negative balance; sets z0 and z0_index if there is one.
void find_z0(SurfChemNonst& m);

}  // namespace vorlen
