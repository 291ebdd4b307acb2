// The values of layers by their identifiers, and as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "results/layer_values.h"

// The numbers of a layer by their identifiers, in the order of docs/result-format.md.
std::vector<std::pair<const char*, double>> layer_numbers(const LayerValues& layer);

// The list of layers. JSON has no NaN: it is null there.
nlohmann::ordered_json layers_json(const std::vector<LayerValues>& layers);

// What "vorlen show --json" prints. unphysical: the line on unphysical rows, or empty.
std::string layers_json_text(const std::string& path, const std::vector<LayerValues>& layers,
                             const std::string& unphysical);
