// The comparison of layers for people.
#include <fmt/core.h>

#include <algorithm>

#include "platform/terminal.h"
#include "results/layer_diff.h"
#include "terminal/printable.h"
#include "terminal/row_groups.h"
#include "terminal/table.h"

namespace {

constexpr double THIN = 1.0;  // nm; duration and rate of a thinner layer count less

bool in_both(const ComparedLayer& layer) { return layer.pair.a != NO_LAYER && layer.pair.b != NO_LAYER; }

const char* arrow() { return platform::uses_utf8() ? " \u2192 " : " -> "; }

// "a" if both are the same, otherwise "a -> b".
std::string from_to(const std::string& a, const std::string& b) { return a == b ? a : a + arrow() + b; }

std::string name_of(const LayerComparison& comparison, const LayerPair& pair) {
  if (pair.a == NO_LAYER) return printable(comparison.b[pair.b].name);
  if (pair.b == NO_LAYER) return printable(comparison.a[pair.a].name);
  return from_to(printable(comparison.a[pair.a].name), printable(comparison.b[pair.b].name));
}

// The layers of a comparison that are said in one line: of the same name, with the same texts.
struct LayerGroup {
  const ComparedLayer* first = nullptr;
  std::vector<const ComparedLayer*> layers;
  Indices a;
  Indices b;
};

// Groups the layers for which key is the same, in the order of their first layers.
template <typename Selected, typename Key>
std::vector<LayerGroup> group_layers(const LayerComparison& comparison, Selected selected, Key key) {
  std::vector<const ComparedLayer*> layers;
  std::vector<std::string> keys;
  for (const ComparedLayer& layer : comparison.layers) {
    if (!selected(layer)) continue;
    layers.push_back(&layer);
    keys.push_back(key(layer));
  }
  std::vector<LayerGroup> groups;
  for (const Indices& places : equal_keys(keys)) {
    LayerGroup group{layers[places.front()], {}, {}, {}};
    for (const std::size_t place : places) {
      const LayerPair& pair = layers[place]->pair;
      group.layers.push_back(layers[place]);
      if (pair.a != NO_LAYER) group.a.push_back(pair.a);
      if (pair.b != NO_LAYER) group.b.push_back(pair.b);
    }
    groups.push_back(std::move(group));
  }
  return groups;
}

// The texts of a value by which layers are grouped: the change, too, if it is more than the digits show.
std::string value_key(const ComparedValue& value) {
  return value.text_a + '\n' + value.text_b + '\n' + (value.visible ? value.change : "") + '\n';
}

// The change of a value in all layers of a group: "0" only if it is that in every one.
const std::string& change_of(const LayerGroup& group, std::size_t q) {
  const auto differs = [q](const ComparedLayer* layer) { return layer->values[q].change != "0"; };
  const auto found = std::find_if(group.layers.begin(), group.layers.end(), differs);
  return (found == group.layers.end() ? group.first : *found)->values[q].change;
}

// "layer 5, GaN cap" or "layers 3, 5 (in the second 4, 6), QW".
std::string layers_text(const LayerComparison& comparison, const LayerGroup& group) {
  const Indices& numbers = group.a.empty() ? group.b : group.a;
  std::string text = (numbers.size() > 1 ? "layers " : "layer ") + numbers_text(numbers);
  if (!group.a.empty() && !group.b.empty() && group.a != group.b) {
    text += " (in the second " + numbers_text(group.b) + ")";
  }
  return text + ", " + name_of(comparison, group.first->pair);
}

std::string only_in(const LayerComparison& comparison, const char* which, bool first) {
  const auto groups = group_layers(
      comparison, [first](const ComparedLayer& layer) { return (first ? layer.pair.b : layer.pair.a) == NO_LAYER; },
      [&](const ComparedLayer& layer) {
        return name_of(comparison, layer.pair) + '\n' + layer.values[THICKNESS].text_a + layer.values[THICKNESS].text_b;
      });
  std::string text = groups.empty() ? "" : fmt::format("Only in the {}:\n", which);
  for (const LayerGroup& group : groups) {
    const ComparedValue& thickness = group.first->values[THICKNESS];
    text += fmt::format("  {}, {} nm\n", layers_text(comparison, group), first ? thickness.text_a : thickness.text_b);
  }
  return text;
}

std::string count_text(std::size_t count, const char* other, const std::string& of_one, const std::string& of_many) {
  if (count == 0) return {};
  return fmt::format("{} {}{}\n", count, other, count == 1 ? of_one : of_many);
}

// How many layers are not in the table.
std::string rest_text(const LayerComparison& comparison, bool has_table) {
  std::size_t equal = 0;
  std::size_t close = 0;
  std::size_t renamed = 0;
  std::size_t slivers = 0;
  for (const ComparedLayer& layer : comparison.layers) {
    if (!in_both(layer) || layer.visible) continue;
    ++(layer.equal ? equal : layer.differs ? slivers : close);
    if (comparison.a[layer.pair.a].name != comparison.b[layer.pair.b].name) ++renamed;
  }
  const char* other = has_table ? "other " : "";
  const std::string limit = comparison.tolerance > 0.0 ? "the digits show or the tolerance." : "the digits show.";
  return count_text(equal, other, "layer is the same.", "layers are the same.") +
         count_text(close, other, "layer differs by less than " + limit, "layers differ by less than " + limit) +
         count_text(slivers, "", fmt::format("layer thinner than {} nm differs.", SLIVER),
                    fmt::format("layers thinner than {} nm differ.", SLIVER)) +
         count_text(renamed, "", "of them has another name.", "of them have other names.");
}

// How much a value counts when the largest change is looked for.
double weighted_share(const ComparedLayer& layer, std::size_t q) {
  const double share = compared_quantities()[q].weight * layer.values[q].share;
  if (q != DURATION && q != RATE) return share;
  const ComparedValue& thickness = layer.values[THICKNESS];
  return share * std::min(1.0, std::max(thickness.a, thickness.b) / THIN);
}

// For results that differ visibly only in the layers that one of them lacks.
std::string added_text(const LayerComparison& comparison) {
  std::size_t first = 0;
  std::size_t second = 0;
  for (const ComparedLayer& layer : comparison.layers) {
    if (!in_both(layer)) ++(layer.pair.b == NO_LAYER ? first : second);
  }
  const auto text = [](std::size_t count, const char* which) {
    return fmt::format("{} {} only in the {}", count, count == 1 ? "layer is" : "layers are", which);
  };
  if (first + second == 0) return {};
  if (second == 0) return "The largest change: " + text(first, "first") + '.';
  return "The largest change: " + (first == 0 ? "" : text(first, "first") + ", and ") + text(second, "second") + '.';
}

bool common_names(const LayerComparison& comparison) {
  return std::any_of(comparison.layers.begin(), comparison.layers.end(), [&](const ComparedLayer& layer) {
    return in_both(layer) && comparison.a[layer.pair.a].name == comparison.b[layer.pair.b].name;
  });
}

}  // namespace

std::string layer_table_text(const LayerComparison& comparison) {
  const auto& quantities = compared_quantities();
  std::string text;
  const bool any_pair = std::any_of(comparison.layers.begin(), comparison.layers.end(), in_both);
  if (!any_pair) {
    return "No layer of one corresponds to a layer of the other.\n";
  }
  if (!common_names(comparison)) {
    text += "The two have no layer name in common; layers are compared by their number.\n";
  }
  const auto key = [&](const ComparedLayer& layer) {
    std::string all = name_of(comparison, layer.pair);
    for (std::size_t q = 0; q < N_COMPARED; ++q) {
      if (comparison.shown[q]) all += '\n' + value_key(layer.values[q]);
    }
    return all;
  };
  const auto groups = group_layers(
      comparison, [](const ComparedLayer& layer) { return in_both(layer) && layer.visible; }, key);

  const bool other_numbers =
      std::any_of(groups.begin(), groups.end(), [](const LayerGroup& group) { return group.a != group.b; });
  Table table{{{" No."}}, {}};
  if (other_numbers) table.columns.push_back({"in the second"});
  table.columns.push_back({"Layer", true});
  table.names = table.columns.size();
  std::array<std::size_t, N_COMPARED> width{};  // of the first value of a cell, so that the second ones are aligned
  for (std::size_t q = 0; q < N_COMPARED; ++q) {
    if (!comparison.shown[q]) continue;
    table.columns.push_back({quantities[q].heading, true});
    table.columns.push_back({"Change", false, true});
    for (const LayerGroup& group : groups) {
      width[q] = std::max(width[q], display_width(group.first->values[q].text_a));
    }
  }
  for (const LayerGroup& group : groups) {
    std::vector<std::string> cells = {numbers_text(group.a)};
    if (other_numbers) cells.push_back(numbers_text(group.b));
    cells.push_back(name_of(comparison, group.first->pair));
    for (std::size_t q = 0; q < N_COMPARED; ++q) {
      if (!comparison.shown[q]) continue;
      const ComparedValue& value = group.first->values[q];
      cells.push_back(std::string(width[q] - display_width(value.text_a), ' ') + from_to(value.text_a, value.text_b));
      cells.push_back(change_of(group, q));
    }
    table.rows.push_back(cells);
  }
  if (!groups.empty()) text += table_for_stdout(table) + '\n';
  return text + rest_text(comparison, !groups.empty()) + only_in(comparison, "first", true) +
         only_in(comparison, "second", false);
}

std::string largest_change(const LayerComparison& comparison) {
  const auto& quantities = compared_quantities();
  const ComparedLayer* largest = nullptr;
  std::size_t which = 0;
  double largest_share = 0.0;
  for (const ComparedLayer& layer : comparison.layers) {
    for (std::size_t q = 0; q < N_COMPARED; ++q) {
      const ComparedValue& value = layer.values[q];
      const double share = weighted_share(layer, q);
      if (!in_both(layer) || !comparison.shown[q] || !value.visible || !(share > largest_share)) continue;
      largest_share = share;
      largest = &layer;
      which = q;
    }
  }
  const bool any_pair = std::any_of(comparison.layers.begin(), comparison.layers.end(), in_both);
  if (largest == nullptr) {
    std::string added = any_pair ? added_text(comparison) : "";
    const bool any_sliver = std::any_of(comparison.layers.begin(), comparison.layers.end(),
                                        [](const ComparedLayer& layer) { return in_both(layer) && layer.differs; });
    if (!added.empty() || !any_sliver) return added;
    return fmt::format("The only change is in layers thinner than {} nm.", SLIVER);
  }
  const auto key = [&](const ComparedLayer& layer) {
    return name_of(comparison, layer.pair) + '\n' + value_key(layer.values[which]);
  };
  const std::string wanted = key(*largest);
  const auto groups = group_layers(
      comparison, [&](const ComparedLayer& layer) { return in_both(layer) && key(layer) == wanted; }, key);
  const LayerGroup& group = groups.front();
  const ComparedValue& value = largest->values[which];
  const ComparedQuantity& quantity = quantities[which];
  const std::string unit = *quantity.unit == '\0' ? "" : std::string(" ") + quantity.unit;
  std::string text = fmt::format("The largest change is in {}: {} {}", layers_text(comparison, group),
                                 group.a.size() > 1 ? "their" : "its", quantity.name);
  if (value.change == "-") return text + " is defined in only one of the two.";
  text += fmt::format(" {} from {} to {}{} ({}{}).", value.b > value.a ? "rises" : "falls", value.text_a, value.text_b,
                      unit, value.change, unit);
  return text;
}
