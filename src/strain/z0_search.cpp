// The balances of all candidates are compared as if computed one by one, but blocks of candidates are skipped when no
// balance in them can be below the best one. The lower bound of a block takes the extremes of its members through the
// same operations; as each of them rounds monotonically, it stays below every balance as computed, and the factor
// LOG_SLACK covers the last bit of the logarithm, which need not be monotonic.
#include "strain/z0_search.h"

#include <algorithm>

#include "model/constants.h"
#include "strain/v_defect_energy.h"

namespace vorlen {

Z0Search search_z0(const SurfChemNonst& m, const CandidateLists& lists, std::size_t n, CandidateBlocks& blocks,
                   double below) {
  constexpr double LOG_SLACK = 1.0 - 1e-14;
  Z0Search search;
  search.balance = below;
  const double z_limit = m.z - CANDIDATE_DEPTH;
  const auto cannot_win = [&](const CandidateBounds& b) {
    if (!(b.z_max <= z_limit)) return false;  // the depth test may stop the loop in this block
    const double I0_from = m.I0 - b.I0_max;
    const double I0_to = m.I0 - b.I0_min;
    const double product = std::max({I0_from * b.w_min, I0_from * b.w_max, I0_to * b.w_min, I0_to * b.w_max});
    return loop_energy(m, m.z, b.z_max) * LOG_SLACK + ((m.I1 - b.I1_max) - product) >= search.balance;
  };
  const bool bounded = m.E_line > 0.0 && m.sin_V > 0.0;  // then the loop energy rises with the distance to the surface
  if (bounded) blocks.extend(lists, n, m.z_start);

  std::size_t i = 0;
  while (i < n) {
    const std::size_t skipped = bounded ? blocks.skipped_at(i, cannot_win) : 0;
    if (skipped > 0) {
      i += skipped;
      continue;
    }
    const double z_i = lists.z[i];
    if (z_i > z_limit) break;
    const double balance = candidate_balance(m, z_i, lists.h[i], lists.I0[i], lists.I1[i]);
    if (balance < search.balance) {
      search.balance = balance;
      search.index = i;
      search.found = true;
    }
    ++i;
  }
  search.passed = i;
  return search;
}

void find_z0(SurfChemNonst& m) {
  // The present point is not in the lists yet. If z is NaN the depth test never stops the search; the length does.
  History& history = m.history;
  const std::size_t n = std::min(history.t.size(), history.I1.size());
  const CandidateLists lists{history.z, history.h, history.I0, history.I1};
  const Z0Search search = search_z0(m, lists, n, history.candidate_blocks);
  if (!search.found) return;
  m.z0 = history.z[search.index];
  m.z0_index = static_cast<std::uint32_t>(search.index);
}

}  // namespace vorlen
