// Which layers of two results correspond: the same number if the names agree, otherwise the best alignment of the
// names.
#pragma once

#include <cstddef>
#include <vector>

#include "results/layer_values.h"

constexpr std::size_t NO_LAYER = static_cast<std::size_t>(-1);

// A layer of the first result and one of the second, by index; NO_LAYER if the layer is only in the other.
struct LayerPair {
  std::size_t a = NO_LAYER;
  std::size_t b = NO_LAYER;
};

// Pairs in the order of the layers, each layer in one pair. Paired layers are of the same kind.
// - If the results have as many layers, with the same names, layers of the same number correspond.
// - Otherwise as many layers as possible are paired by their names, in order; where several ways are possible, those of
//   the same duration and composition. A name that only says the number ("Layer7") is like no name.
// - Between two such pairs, if as many layers remain on both sides, they correspond: they were renamed.
std::vector<LayerPair> match_layers(const std::vector<LayerValues>& a, const std::vector<LayerValues>& b);
