#include "check/value_search.h"

#include <fmt/core.h>

#include <utility>

namespace vorlen::recipe {

namespace {

std::string with_unit(double value, const char* unit) {
  return value_words(value) + (*unit == '\0' ? "" : std::string(" ") + unit);
}

// Values with the same slip have one name: all temperatures, all pressures.
std::string cause_name(const UsualRange& range, const std::string& name) {
  for (const Quantity one : {Quantity::T_other, Quantity::P}) {
    if (range.others.data() == usual_range(one).others.data()) return usual_range(one).unit;
  }
  return name;
}

}  // namespace

void Search::add(const char* kind, const std::string& cause, const TiXmlElement& element, const StagePlace& place,
                 std::string text, std::string hint) {
  found_any = true;
  causes.add(std::string(kind) + cause,
             problem_at(Severity::warning, kind, element, nullptr, place, std::move(text), std::move(hint)));
}

std::string in_stage(const StagePlace& place) { return place.label.empty() ? "" : " in " + place.label; }

std::string outside_words(const UsualRange& range, double value) {
  if (range.low == 0.0) return "above the usual limit of " + with_unit(range.high, range.unit);
  const char* side = side_of(range, value) < 0 ? "below" : "above";
  return fmt::format("{} the usual {} to {}", side, value_words(range.low), with_unit(range.high, range.unit));
}

bool look(Search& search, Quantity quantity, const std::string& name, double value, const TiXmlElement& element,
          const StagePlace& place) {
  const UsualRange& range = usual_range(quantity);
  const int side = side_of(range, value);
  if (side == 0 || !(value > 0.0)) return false;
  const std::string reading = other_reading(range, value);
  const std::string cause = fmt::format("{}{}", cause_name(range, name), side);
  const std::string text =
      fmt::format("{} is {}{}, {}", name, with_unit(value, range.unit), in_stage(place), outside_words(range, value));
  if (reading.empty()) {
    search.add("unusual-value", cause, element, place, text, range.reason);
  } else {
    search.add("unit", cause, element, place, text + "; " + reading,
               fmt::format("the unit is {}; {}", range.unit, range.reason));
  }
  return true;
}

bool look(Search& search, Quantity quantity, const std::string& name, const vorlen::ValueRange& values,
          const TiXmlElement& element, const StagePlace& place) {
  return look(search, quantity, name, values.val, element, place) ||
         look(search, quantity, name, values.end, element, place);
}

const OtherUnit& micromoles() { return usual_range(Quantity::TMGa).others[0]; }
const OtherUnit& standard_litres() { return usual_range(Quantity::TMGa).others[1]; }

}  // namespace vorlen::recipe
