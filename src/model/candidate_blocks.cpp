// Bounds on blocks of candidate depths: a tree of blocks that grows at its end.
#include "model/candidate_blocks.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorlen {

namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
// Bounds that are NaN exclude nothing: every comparison with them is false.
constexpr CandidateBounds NO_BOUNDS = {NaN, NaN, NaN, NaN, NaN, NaN};

bool usable(const CandidateBounds& b) {
  return !std::isnan(b.z_max + b.I0_min + b.I0_max + b.I1_max + b.w_min + b.w_max);
}

CandidateBounds merged(const CandidateBounds* part, std::size_t count) {
  CandidateBounds all = part[0];
  for (std::size_t i = 0; i < count; ++i) {
    const CandidateBounds& b = part[i];
    if (!usable(b)) return NO_BOUNDS;
    all.z_max = std::max(all.z_max, b.z_max);
    all.I0_min = std::min(all.I0_min, b.I0_min);
    all.I0_max = std::max(all.I0_max, b.I0_max);
    all.I1_max = std::max(all.I1_max, b.I1_max);
    all.w_min = std::min(all.w_min, b.w_min);
    all.w_max = std::max(all.w_max, b.w_max);
  }
  return all;
}

}  // namespace

void CandidateBlocks::extend(const CandidateLists& lists, std::size_t count, double z_start) {
  if (count < count_) {
    levels_.clear();
    count_ = 0;
  }
  for (; count_ + FANOUT <= count; count_ += FANOUT) {
    CandidateBounds points[FANOUT];
    for (std::size_t k = 0; k < FANOUT; ++k) {
      const std::size_t i = count_ + k;
      const double w = lists.z[i] - z_start - lists.h[i];
      points[k] = {lists.z[i], lists.I0[i], lists.I0[i], lists.I1[i], w, w};
    }
    CandidateBounds block = merged(points, FANOUT);
    for (std::size_t level = 0;; ++level) {
      if (level == levels_.size()) levels_.emplace_back();
      std::vector<CandidateBounds>& blocks = levels_[level];
      blocks.push_back(block);
      if (blocks.size() % FANOUT != 0) break;
      block = merged(blocks.data() + blocks.size() - FANOUT, FANOUT);
    }
  }
}

void CandidateBlocks::truncate(std::size_t count) {
  if (count >= count_) return;
  std::size_t size = FANOUT;
  for (std::vector<CandidateBounds>& blocks : levels_) {
    blocks.resize(count / size);
    size *= FANOUT;
  }
  count_ = count - count % FANOUT;
}

}  // namespace vorlen
