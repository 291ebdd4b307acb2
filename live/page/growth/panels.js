// The curves of a run, in panels: numbers only. charts.js draws them.
//
// A run is drawn from its simulated rows, heights counted from the first of them. A panel is {key, title, unit, log, zero,
// least, quantity, curves}: with zero its axis includes 0, and it covers at least `least`; quantity is one of those whose unit
// can be chosen (recipe/units.js), if it is. A curve is {name, colour, dashed, x: {time,
// height}, y}, with NaN where it has no value.
import { recipeCurves } from "./recipe_curves.js";

const SEEN = 1e-6; // fraction above which a metal is drawn
const DECADES = 6; // of densities; the first V-defects have tiny ones
export const PANELS = [ // key, name of the switch, shown at first
  ["composition", "composition", true], ["gallium", "gallium", false], ["rate", "growth rate", true], ["strain", "strain", true],
  ["densities", "densities", true], ["temperature", "temperature", true], ["flows", "metal flows", false], ["gases", "gas flows", false],
];

// The columns of the simulated rows; all rows if none was simulated.
function activeRows(columns) {
  const active = columns.active;
  const first = active.indexOf(1), last = active.lastIndexOf(1);
  if (first < 0) return columns;
  return Object.fromEntries(Object.entries(columns).map(([name, values]) => [name, values.subarray(first, last + 1)]));
}

// Panels of an outcome of the engine, or null if it has no rows. xml: its recipe, for temperature and flows.
export function panelsOf(outcome, xml) {
  if (!outcome.columns.time?.length) return null;
  const rows = activeRows(outcome.columns);
  const origin = rows.z[0];
  const x = { time: rows.time, height: rows.z.map((z) => z - origin) };
  const curve = (name, colour, y, more = {}) => ({ name, colour, x, y, ...more });
  const panels = [];
  const metal = (column, name) => (rows[column].some((value) => Math.abs(value) > SEEN) ? [curve(name, name, rows[column], { digits: "fraction" })] : []);
  const alloys = [...metal("x_in", "indium"), ...metal("x_al", "aluminium")];
  panels.push({ key: "composition", title: "composition", unit: "", zero: true, least: 0.02,
    curves: alloys.length ? alloys : metal("x_ga", "gallium") });
  if (alloys.length) panels.push({ key: "gallium", title: "gallium", unit: "", least: 0.02, curves: metal("x_ga", "gallium") });
  panels.push({ key: "rate", title: "growth rate", unit: "nm/s", zero: true, least: 1e-4, curves: [curve("rate", "ink", rows.rate)] });
  const percent = (values) => values.map((value) => 100 * value);
  panels.push({ key: "strain", title: "in-plane strain", unit: "%", least: 0.1, curves: [
    curve("as grown (t)", "strain", percent(rows.eps_xx_t)), curve("finished (z)", "strain", percent(rows.eps_xx_z), { dashed: true })] });
  panels.push(densityPanel(rows, curve));
  for (const panel of recipeCurves(xml, rows.time, x.height)) panels.push(panel);
  return { panels, rows, x, origin, range: { time: rangeOf(x.time), height: rangeOf(x.height) } };
}

function densityPanel(rows, curve) {
  const positive = (values, factor = 1) => values.map((value) => (value > 0 ? factor * value : NaN));
  const curves = [
    curve("dislocations (t)", "gallium", positive(rows.rho_td_t)),
    curve("dislocations (z)", "gallium", positive(rows.rho_td_z), { dashed: true })];
  if (rows.rho_vd0_t.some((value) => value > 0)) curves.push(curve("V-defects (t)", "indium", positive(rows.rho_vd0_t, 0.5)));
  return { key: "densities", title: "density", unit: "cm⁻²", log: true, decades: DECADES, curves };
}

// A panel in the unit that was chosen for its quantity. unitOf(quantity): {name, factor, offset}, as in recipe/units.js.
export function inChosenUnit(panel, unitOf) {
  if (!panel.quantity) return panel;
  const { name, factor, offset } = unitOf(panel.quantity);
  const curves = panel.curves.map((curve) => ({ ...curve, y: curve.y.map((value) => factor * value + offset) }));
  return { ...panel, unit: name, least: factor * (panel.least ?? 0), curves };
}

export function rangeOf(values) {
  let low = Infinity, high = -Infinity;
  for (const value of values) {
    if (value < low) low = value;
    if (value > high) high = value;
  }
  if (!(low <= high)) return [-1, 1];
  return high - low > 1e-6 ? [low, high] : [low - 1, high + 1];
}

// Where a place is between the rows: {before, after, share}, with the last rows between which the surface rose through it,
// because what was grown before has evaporated. Outside of the rows: the nearest one twice.
export function between(places, place) {
  for (let k = places.length - 1; k > 0; --k) {
    if (places[k - 1] <= place && place <= places[k]) {
      const width = places[k] - places[k - 1];
      return { before: k - 1, after: k, share: width > 0 ? (place - places[k - 1]) / width : 1 };
    }
  }
  const end = place < places[0] ? 0 : places.length - 1;
  return { before: end, after: end, share: 1 };
}

// A value between the rows; beside a gap that of the nearer row.
export function valueBetween(values, { before, after, share }) {
  const [low, high] = [values[before], values[after]];
  if (Number.isFinite(low) && Number.isFinite(high)) return low + share * (high - low);
  return share < 0.5 ? low : high;
}

// The same place on the other axis, from the rows.
export function otherPlace(x, from, place) {
  return valueBetween(x[from === "time" ? "height" : "time"], between(x[from], place));
}

// In words, for a screen reader: the range of each quantity.
export function summary(panels, number) {
  const parts = [];
  for (const { title, unit, curves } of panels) {
    for (const { name, y } of curves) {
      const finite = y.filter(Number.isFinite);
      if (!finite.length) continue;
      const [low, high] = [finite.reduce((a, b) => Math.min(a, b)), finite.reduce((a, b) => Math.max(a, b))];
      const what = curves.length > 1 && name !== title ? `${title}, ${name}` : name;
      parts.push(`${what} ${number(low, 3)} to ${number(high, 3)} ${unit.replace("cm⁻²", "per cm²")}`.trim());
    }
  }
  return parts.join("; ") + ".";
}
