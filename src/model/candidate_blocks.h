// Bounds on blocks of candidate depths. With them the search for z0 (docs/physics.md, section 8) skips candidates whose
// energy balance cannot be the most negative one.
#pragma once

#include <cstddef>
#include <vector>

namespace vorlen {

// The lists that the balance of a candidate is computed from; all have at least the requested length.
struct CandidateLists {
  const std::vector<double>& z;
  const std::vector<double>& h;
  const std::vector<double>& I0;
  const std::vector<double>& I1;
};

// Extremes of a block of candidates. w = z - z_start - h, rounded as the balance rounds it.
struct CandidateBounds {
  double z_max;
  double I0_min, I0_max;
  double I1_max;
  double w_min, w_max;
};

// Bounds on the blocks of 8, 64, 512, ... candidates of lists that grow at their ends.
class CandidateBlocks {
 public:
  static constexpr std::size_t FANOUT = 8;

  // Adds the candidates up to count. A count below the last one starts over.
  void extend(const CandidateLists& lists, std::size_t count, double z_start);

  // Forgets the candidates from count on.
  void truncate(std::size_t count);

  // Calls skip(bounds) for the complete blocks that start at candidate i, the largest first, until it returns true.
  // Returns how many candidates that block holds, or 0.
  template <class Skip>
  std::size_t skipped_at(std::size_t i, Skip skip) const {
    std::size_t size = FANOUT;
    std::size_t level = 0;
    while (level < levels_.size() && i % size == 0 && i / size < levels_[level].size()) {
      size *= FANOUT;
      ++level;
    }
    while (level > 0) {
      --level;
      size /= FANOUT;
      if (skip(levels_[level][i / size])) return size;
    }
    return 0;
  }

 private:
  std::vector<std::vector<CandidateBounds>> levels_;  // level k: blocks of FANOUT^(k + 1)
  std::size_t count_ = 0;
};

}  // namespace vorlen
