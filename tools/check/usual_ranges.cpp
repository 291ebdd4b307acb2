// The ranges cover research and production reactors, from low-pressure AlN to atmospheric-pressure InGaN. A range that
// would hide a slip of a unit is split by what grows, because 850 K is usual for a nucleation layer of GaN and is never
// that of a layer of InGaN.
#include "check/usual_ranges.h"

#include <fmt/core.h>

#include <cmath>
#include <cstddef>

namespace vorlen::recipe {

namespace {

constexpr double CELSIUS = 273.15;         // K
constexpr double SCCM_OF_UMOL = 0.022414;  // sccm of 1 µmol/min: the molar volume of an ideal gas at 0 °C and 1 atm

constexpr OtherUnit TEMPERATURES[] = {{"°C", 1.0, CELSIUS}, {" + 273.15", 1.0, -CELSIUS, true}};
constexpr OtherUnit PRESSURES[] = {
    {"mbar", 100.0}, {"Torr", 133.322}, {"kPa", 1000.0}, {"bar", 1e5}, {" times 100", 0.01, 0.0, true}};
constexpr OtherUnit LENGTHS[] = {{"mm", 1e-3}, {"cm", 1e-2}, {"µm", 1e-6}, {" / 1000", 1e3, 0.0, true}};
constexpr OtherUnit ROTATIONS[] = {{"turns per second", 60.0}};
constexpr OtherUnit TIMES[] = {{"ms", 1e-3}};
constexpr OtherUnit RATES[] = {{"µm/h", 1.0 / 3.6}, {"Å/s", 0.1}};
constexpr OtherUnit METAL_FLOWS[] = {{"µmol/min", SCCM_OF_UMOL}, {"slm", 1e3}, {"mol/min", SCCM_OF_UMOL * 1e6}};
constexpr OtherUnit GAS_FLOWS[] = {{"slm", 1e3}, {" times 1000", 1e-3, 0.0, true}};
constexpr OtherUnit THICKNESSES[] = {{"µm", 1e3}, {"Å", 0.1}};
constexpr OtherUnit DENSITIES[] = {{"m⁻²", 1e-4}};
constexpr OtherUnit LATTICES[] = {{"nm", 10.0}, {"pm", 0.01}};
constexpr OtherUnit ANGLES[] = {{"rad", 57.29577951308232}};

using enum Quantity;

constexpr UsualRange RANGES[] = {
    {T_indium, "`T` where indium grows with gallium or aluminium", 870, 1250, "K", TEMPERATURES,
     "InGaN and AlInN grow at 600 to 950 °C; hotter layers take up no indium"},
    {T_AlGaN, "`T` where AlGaN grows in hydrogen, `T_ref` in hydrogen", 1120, 1550, "K", TEMPERATURES,
     "850 °C and more; colder AlGaN is grown in nitrogen, above wells"},
    {T_thick, "`T` of more than 300 nm without indium", 1150, 1900, "K", TEMPERATURES,
     "layers of this thickness are grown at 900 to 1200 °C, AlN up to 1600 °C"},
    {T_gallium, "`T` where gallium grows without indium", 770, 1550, "K", TEMPERATURES,
     "nucleation layers from 500 °C on; below, precursors hardly decompose"},
    {T_other, "`T` where AlN or InN grows", 770, 1900, "K", TEMPERATURES, "InN at 500 °C to AlN at 1600 °C"},
    {T_ref, "`T_ref` in nitrogen", 950, 1550, "K", TEMPERATURES, "calibration runs of GaN, from 700 °C on"},
    {P, "`P`, `P_ref`", 1200, 150000, "Pa", PRESSURES, "from 12 mbar, for AlN, to just above atmospheric pressure"},
    {delta, "`delta`, or the layer that follows from the reference", 0.0005, 0.05, "m", LENGTHS,
     "0.005 to 0.008 is usual; less in fast flow, more in tall reactors"},
    {omega, "`omega_TDR`, `omega_TDR_ref`", 20, 3000, "rpm", ROTATIONS, "rotating discs turn at 100 to 2000 rpm"},
    {tau, "`tau` of an active stage", 0, 50000, "s", TIMES, "14 hours for one layer"},
    {GR_ref, "`GR_ref`", 0.01, 10, "nm/s", RATES, "0.04 to 36 µm/h"},
    {GR_prescribed, "`GR_average` of an active stage", 0.001, 5, "nm/s", RATES, "InGaN grows at 0.01 to 0.5 nm/s"},
    {TMIn, "`TMIn`", 5e-4, 10, "sccm", METAL_FLOWS, "0.02 to 450 µmol/min; bubblers give no more"},
    {TMGa, "`TMGa`", 5e-4, 100, "sccm", METAL_FLOWS, "0.02 to 4500 µmol/min, the most in reactors for many wafers"},
    {TEGa, "`TEGa`", 5e-4, 15, "sccm", METAL_FLOWS, "0.02 to 670 µmol/min; its vapour pressure is low"},
    {TMAl, "`TMAl`", 5e-4, 40, "sccm", METAL_FLOWS, "0.02 to 1800 µmol/min"},
    {gas_flow, "`N2`, `NH3`, `H2`, each", 0, 5e5, "sccm", GAS_FLOWS, "500 slm, the largest reactors"},
    {total_flow, "total flow while something grows", 300, 1e6, "sccm", GAS_FLOWS,
     "0.3 slm, the smallest laboratory reactors, to 1000 slm"},
    {V_III_indium, "V/III ratio with indium", 500, 2e6, "", {}, "usually 3000 to 50000: indium needs much ammonia"},
    {V_III_gallium,
     "V/III ratio of GaN and AlGaN",
     25,
     2e6,
     "",
     {},
     "usually 500 to 50000; 30 to 100 for carbon doping"},
    {V_III_AlN, "V/III ratio of AlN", 0.5, 2e6, "", {}, "from about 1 at high temperatures"},
    {rate_indium, "expected growth rate with indium", 5e-4, 1.5, "nm/s", {}, "usually 0.02 to 0.4 nm/s, 1.5 µm/h"},
    {rate, "expected growth rate without indium", 5e-4, 6, "nm/s", {}, "usually 0.02 to 3 nm/s; 6 nm/s is 22 µm/h"},
    {thickness_indium, "expected thickness of a stage with indium", 0, 2000, "nm", {}, "thicker layers relax or crack"},
    {thickness, "expected thickness of a stage without indium", 0, 20000, "nm", {}, "thick templates have 5 to 10 µm"},
    {layers_below, "thickness of all pre-stages together", 10, 1e7, "nm", THICKNESSES,
     "from a nucleation layer to a substrate"},
    {rho_D, "`rho_D`", 1e3, 1e12, "cm⁻²", DENSITIES, "1e4 in substrates of GaN to 1e11 in nucleation layers"},
    {lattice, "`stress_state` as a lattice constant", 3.05, 3.6, "Å", LATTICES,
     "a of 6H-SiC 3.08, AlN 3.112, GaN 3.189, InN 3.545"},
    {V_angle, "`V_angle_05`", 1, 60, "degrees", ANGLES, "5 to 25 degrees are observed"},
};

}  // namespace

std::span<const UsualRange> usual_ranges() { return RANGES; }

const UsualRange& usual_range(Quantity quantity) { return RANGES[static_cast<std::size_t>(quantity)]; }

int side_of(const UsualRange& range, double value) { return value < range.low ? -1 : value > range.high ? 1 : 0; }

std::string other_reading(const UsualRange& range, double value) {
  std::string words;
  for (const OtherUnit& other : range.others) {
    const double converted = value * other.factor + other.offset;
    if (side_of(range, converted) != 0 || !(converted > 0.0)) continue;
    const std::string in_unit = fmt::format("{} {}", value_words(converted), range.unit);
    const std::string given = value_words(value);
    words += words.empty() ? "" : ", ";
    words += other.twice ? fmt::format("{} {} is {}{}", given, range.unit, in_unit, other.unit)
                         : fmt::format("{} {} is {}", given, other.unit, in_unit);
  }
  return words;
}

std::string value_words(double value, int digits) {
  if (value == std::floor(value) && std::fabs(value) < 1e7) return fmt::format("{:.0f}", value);
  std::string words = fmt::format("{:.{}g}", value, digits);
  // 1e+12 to 1e12, 2e-05 to 2e-5
  if (const std::size_t plus = words.find("e+"); plus != std::string::npos) words.erase(plus + 1, 1);
  const std::size_t exponent = words.find_first_of('e');
  if (exponent != std::string::npos) {
    const std::size_t power = exponent + (words[exponent + 1] == '-' ? 2 : 1);
    if (words[power] == '0') words.erase(power, 1);
  }
  return words;
}

std::string usual_ranges_table() {
  std::string table = "| quantity | from | to | unit | why |\n|---|---|---|---|---|\n";
  for (const UsualRange& range : RANGES) {
    table += fmt::format("| {} | {} | {} | {} | {} |\n", range.name, range.low == 0.0 ? "" : value_words(range.low),
                         value_words(range.high), range.unit, range.reason);
  }
  return table;
}

}  // namespace vorlen::recipe
