// The layers of a run: heights, composition, repeated groups, a range to look at, and what grew in one sentence.
// A layer is an object as `vorlen show --json` gives it.
import { isNumber, length, SPACE } from "./numbers.js";
import { repeats } from "./repeats.js";

const ABSENT = 0.005; // fraction of a metal that does not count
const MONOLAYER = 0.25; // nm; a thinner layer is a pause or an interface
const THICK = 200; // nm; a layer that hides thin ones beside it
const ITEMS_MAX = 6; // layers and groups named in the sentence

// The layers that were reached by a run whose last row is at this time, s.
export function reachedLayers(layers, last) {
  return layers.filter((layer) => !(layer.begin >= last) || layer.kind === "pre");
}

// Thickness, nm; 0 if it is unknown.
export function thicknessOf(layer) {
  return isNumber(layer.thickness) ? layer.thickness : 0;
}

// [{bottom, top}] of all layers above the pre-stages, nm.
export function heightsOf(layers) {
  let height = -layers.reduce((sum, layer) => sum + (layer.kind === "pre" ? thicknessOf(layer) : 0), 0);
  return layers.map((layer) => {
    const bottom = height;
    height += thicknessOf(layer);
    return { bottom, top: height };
  });
}

// Fractions of In, Ga, Al without the interfaces; the mean of the layer if these are unknown. NaN: unknown.
export function compositionOf(layer) {
  return ["x_in", "x_ga", "x_al"].map((metal) => layer[`${metal}_mid`] ?? layer[metal] ?? NaN);
}

// GaN, In 0.150, Al 0.254, In 0.180 Al 0.820
export function alloy(x) {
  if (!x.every(isNumber)) return "unknown";
  const parts = [[x[0], "In"], [x[2], "Al"]].filter(([value]) => value > ABSENT);
  if (!parts.length) return "GaN";
  const pure = parts.find(([value]) => value > 1 - ABSENT);
  return pure ? `${pure[1]}N` : parts.map(([value, symbol]) => symbol + SPACE + value.toFixed(3)).join(" ");
}

export function oneLine(name) {
  return name.split(/\s+/).join(" ").trim();
}

// Repeated groups of layers.
export function groupsOf(layers) {
  return repeats(layers.map((layer) => ({
    label: `${layer.name}\n${layer.kind}`,
    thickness: thicknessOf(layer),
    x: compositionOf(layer).map((value) => (isNumber(value) ? value : -1)),
  })));
}

// Heights {low, high} of the thin simulated layers above a thick one, nm, with a little of what is below; null if the
// whole run shows them as well.
export function thinRange(layers) {
  const heights = heightsOf(layers);
  const active = layers.map((layer, place) => ({ layer, ...heights[place] })).filter(({ layer }) => layer.kind === "active");
  const isAlloy = ({ layer }) => thicknessOf(layer) > MONOLAYER && thicknessOf(layer) < THICK && compositionOf(layer)[1] < 1 - ABSENT;
  const first = active.findIndex(isAlloy), last = active.findLastIndex(isAlloy);
  if (first < 0) return null;
  const room = Math.max(10, 0.15 * (active[last].top - active[first].bottom));
  const low = Math.max(active[first].bottom - room, active[0].bottom);
  const high = Math.min(active[last].top + room, active.at(-1).top);
  const whole = active.at(-1).top - active[0].bottom;
  return high - low < 0.7 * whole ? { low, high } : null;
}

// What grew, from the bottom up: "3 × (5.55 nm GaN / 3.46 nm In 0.223), 10.2 nm GaN, on 2.00 µm GaN".
export function sentence(layers) {
  const grown = layers.filter((layer) => layer.kind === "active");
  const base = layers.filter((layer) => layer.kind === "pre").at(-1);
  const on = base ? ` on ${described(base)}` : "";
  const groups = groupsOf(grown);
  const items = [];
  for (const { first, size, periods } of groups) {
    const inside = joined(grown.slice(first, first + size));
    if (!inside.length) continue;
    if (periods > 1) items.push({ text: `${periods} × (${inside.map(inWords).join(" / ")})` });
    else if (inside[0].text === items.at(-1)?.alloy) items.at(-1).thickness += inside[0].thickness;
    else items.push({ alloy: inside[0].text, thickness: inside[0].thickness });
  }
  if (!items.length) return `Nothing grew${on}.`;
  const words = items.map((item) => item.text ?? inWords({ text: item.alloy, thickness: item.thickness }));
  const left = words.length - ITEMS_MAX;
  if (left > 0) words.splice(ITEMS_MAX - 1, left + 1, `${left + 1} more`);
  return `From the bottom up: ${words.join(", ")}${on}.`;
}

function inWords({ thickness, text }) {
  return `${length(thickness)} ${text}`;
}

function described(layer) {
  return inWords({ thickness: thicknessOf(layer), text: alloy(compositionOf(layer)) });
}

// Neighbours of one composition as one, without pauses.
function joined(layers) {
  const parts = [];
  for (const layer of layers) {
    const thickness = thicknessOf(layer), text = alloy(compositionOf(layer));
    if (thickness < MONOLAYER) continue;
    if (parts.at(-1)?.text === text) parts.at(-1).thickness += thickness;
    else parts.push({ text, thickness });
  }
  return parts;
}

