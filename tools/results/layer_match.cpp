// The alignment of two sequences with the greatest sum of scores (Needleman and Wunsch, J. Mol. Biol. 48 (1970) 443),
// where a gap costs nothing and only layers of the same name have a score: the longest common subsequence of the names.
#include "results/layer_match.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

namespace {

// More than this many comparisons take too long and too much memory; layers are then matched by number.
constexpr std::size_t MAX_COMPARISONS = 100'000'000;

constexpr std::int64_t SCORE_NAME = 1'000'000;  // more than duration and composition can add in all pairs
constexpr std::int64_t SCORE_DURATION = 1;
constexpr std::int64_t SCORE_COMPOSITION = 2;
constexpr double SAME_FRACTION = 0.01;

// The names by which layers are matched. Empty for a layer that the recipe does not name: it is called "Layer" and its
// number.
std::vector<std::string> own_names(const std::vector<LayerValues>& layers) {
  std::vector<std::string> names;
  for (const LayerValues& layer : layers) {
    const bool numbered = layer.name == "Layer" + std::to_string(names.size() + 1);
    names.push_back(numbered ? std::string() : layer.name);
  }
  return names;
}

bool same_composition(const LayerValues& a, const LayerValues& b) {
  for (std::size_t metal = 0; metal < a.x_mid.size(); ++metal) {
    const double difference = std::fabs(a.x_mid[metal] - b.x_mid[metal]);
    const bool nothing_grew = std::isnan(a.x_mid[metal]) && std::isnan(b.x_mid[metal]);
    if (!(difference <= SAME_FRACTION) && !nothing_grew) return false;
  }
  return true;
}

struct Sequences {
  const std::vector<LayerValues>& a;
  const std::vector<LayerValues>& b;
  std::vector<std::string> names_a;
  std::vector<std::string> names_b;

  bool same_name(std::size_t i, std::size_t j) const { return a[i].kind == b[j].kind && names_a[i] == names_b[j]; }
  bool alike(std::size_t i, std::size_t j) const {
    return same_name(i, j) && a[i].duration == b[j].duration && same_composition(a[i], b[j]);
  }
  std::int64_t score(std::size_t i, std::size_t j) const {
    if (!same_name(i, j)) return 0;
    return SCORE_NAME + (a[i].duration == b[j].duration ? SCORE_DURATION : 0) +
           (same_composition(a[i], b[j]) ? SCORE_COMPOSITION : 0);
  }
};

bool same_sequence(const Sequences& layers) {
  if (layers.a.size() != layers.b.size()) return false;
  for (std::size_t i = 0; i < layers.a.size(); ++i) {
    if (!layers.same_name(i, i)) return false;
  }
  return true;
}

// The pairs of the best alignment of the layers [begin, end_a) and [begin, end_b), in order.
std::vector<LayerPair> aligned(const Sequences& layers, std::size_t begin, std::size_t end_a, std::size_t end_b) {
  enum Step : std::uint8_t { PAIR, SKIP_A, SKIP_B };
  const std::size_t count_a = end_a - begin;
  const std::size_t count_b = end_b - begin;
  std::vector<LayerPair> pairs;
  if (count_b > 0 && count_a > MAX_COMPARISONS / count_b) {
    for (std::size_t i = begin; i < std::min(end_a, end_b); ++i) {
      if (layers.same_name(i, i)) pairs.push_back({i, i});
    }
    return pairs;
  }
  // best[j]: the greatest sum of scores of the layers from i on and from j on; steps: how it is reached.
  std::vector<std::int64_t> best(count_b + 1, 0);
  std::vector<Step> steps(count_a * count_b);
  for (std::size_t i = count_a; i-- > 0;) {
    std::int64_t diagonal = 0;  // best[j + 1] of the row below
    for (std::size_t j = count_b; j-- > 0;) {
      const std::int64_t score = layers.score(begin + i, begin + j);
      const std::int64_t paired = score > 0 ? diagonal + score : 0;
      diagonal = best[j];
      const std::int64_t skipped = std::max(best[j], best[j + 1]);
      Step& step = steps[i * count_b + j];
      step = paired > 0 && paired >= skipped ? PAIR : best[j] >= best[j + 1] ? SKIP_A : SKIP_B;
      best[j] = std::max(paired, skipped);
    }
  }
  for (std::size_t i = 0, j = 0; i < count_a && j < count_b;) {
    const Step step = steps[i * count_b + j];
    if (step == PAIR) pairs.push_back({begin + i, begin + j});
    if (step != SKIP_B) ++i;
    if (step != SKIP_A) ++j;
  }
  return pairs;
}

// The layers between two pairs: renamed ones if there are as many of the same kinds on both sides.
void add_gap(const Sequences& layers, LayerPair from, LayerPair to, std::vector<LayerPair>& pairs) {
  const std::size_t count = to.a - from.a;
  bool renamed = count == to.b - from.b;
  for (std::size_t k = 0; renamed && k < count; ++k) {
    renamed = layers.a[from.a + k].kind == layers.b[from.b + k].kind;
  }
  for (std::size_t k = 0; k < count; ++k) pairs.push_back({from.a + k, renamed ? from.b + k : NO_LAYER});
  for (std::size_t j = from.b; !renamed && j < to.b; ++j) pairs.push_back({NO_LAYER, j});
}

}  // namespace

std::vector<LayerPair> match_layers(const std::vector<LayerValues>& a, const std::vector<LayerValues>& b) {
  const Sequences layers = {a, b, own_names(a), own_names(b)};
  std::vector<LayerPair> pairs;
  if (same_sequence(layers)) {
    for (std::size_t i = 0; i < a.size(); ++i) pairs.push_back({i, i});
    return pairs;
  }
  // What is alike at both ends needs no alignment.
  std::size_t begin = 0;
  std::size_t end_a = a.size();
  std::size_t end_b = b.size();
  while (begin < std::min(end_a, end_b) && layers.alike(begin, begin)) ++begin;
  while (std::min(end_a, end_b) > begin && layers.alike(end_a - 1, end_b - 1)) --end_a, --end_b;

  std::vector<LayerPair> matched;
  for (std::size_t i = 0; i < begin; ++i) matched.push_back({i, i});
  const std::vector<LayerPair> middle = aligned(layers, begin, end_a, end_b);
  matched.insert(matched.end(), middle.begin(), middle.end());
  for (; end_a < a.size(); ++end_a, ++end_b) matched.push_back({end_a, end_b});

  LayerPair from = {0, 0};
  for (const LayerPair& pair : matched) {
    add_gap(layers, from, pair, pairs);
    pairs.push_back(pair);
    from = {pair.a + 1, pair.b + 1};
  }
  add_gap(layers, from, {a.size(), b.size()}, pairs);
  return pairs;
}
