#include "results/layer_json.h"

#include <nlohmann/json.hpp>

std::vector<std::pair<const char*, double>> layer_numbers(const LayerValues& layer) {
  return {{"begin", layer.begin},
          {"end", layer.end},
          {"duration", layer.duration},
          {"thickness", layer.thickness},
          {"mean_rate", layer.mean_rate},
          {"x_in", layer.x[0]},
          {"x_ga", layer.x[1]},
          {"x_al", layer.x[2]},
          {"x_in_mid", layer.x_mid[0]},
          {"x_ga_mid", layer.x_mid[1]},
          {"x_al_mid", layer.x_mid[2]},
          {"x_in_end", layer.x_end[0]},
          {"x_ga_end", layer.x_end[1]},
          {"x_al_end", layer.x_end[2]},
          {"eps_xx_t", layer.eps_xx_t},
          {"eps_xx_z", layer.eps_xx_z},
          {"rho_td_t", layer.rho_td_t},
          {"rho_td_z", layer.rho_td_z},
          {"v_defects_t", layer.v_defects_t},
          {"relaxation", layer.relaxation}};
}

nlohmann::ordered_json layers_json(const std::vector<LayerValues>& layers) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const LayerValues& layer : layers) {
    nlohmann::ordered_json record = {
        {"number", list.size() + 1}, {"name", layer.name}, {"kind", layer_kind_name(layer.kind)}};
    for (const auto& [identifier, value] : layer_numbers(layer)) record[identifier] = value;
    list.push_back(record);
  }
  return list;
}

std::string layers_json_text(const std::string& path, const std::vector<LayerValues>& layers,
                             const std::string& unphysical) {
  const nlohmann::ordered_json document = {
      {"result_file", path},
      {"unphysical", unphysical.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(unphysical)},
      {"layers", layers_json(layers)}};
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}
