// The outcome of a run in a sentence, for the status line and for screen readers.

import {reachedLayers} from "./growth/layers.js";

function length(nm) {
  if (nm >= 1000) return `${(nm / 1000).toPrecision(3)} µm`;
  return `${Number(nm.toPrecision(3))} nm`;
}

export function sentenceOf(outcome) {
  const words = [outcome.message, outcome.stage, outcome.unphysical].filter(Boolean);
  const text = [...new Set(words)].join(". ");
  if (outcome.status === "rejected") return `The recipe can't be run: ${text}`;
  if (outcome.status === "crashed") return `The solver stopped: ${text}`;
  if (outcome.status === "cancelled") return `The run was cancelled${text && text !== "Cancelled" ? `: ${text}` : ""}`;
  const last = outcome.status === "ok" ? Infinity : outcome.columns.time?.at(-1) ?? -Infinity;
  const grown = reachedLayers(outcome.layers, last).filter(layer => layer.kind === "active" && layer.thickness > 0);
  const sum = grown.reduce((total, layer) => total + layer.thickness, 0);
  const metal = ["in", "al"].map(key => ({key, most: Math.max(0, ...grown.map(layer => layer[`x_${key}`] ?? 0))}))
    .filter(({most}) => most >= 0.001).map(({key, most}) => `up to ${(100 * most).toFixed(1)} % ${key === "in" ? "In" : "Al"}`);
  const grew = grown.length ? `${grown.length} layer${grown.length === 1 ? "" : "s"}, ${length(sum)}${metal.length ? `, ${metal.join(", ")}` : ""}` : "nothing grew";
  if (outcome.status === "failed") return `The run failed: ${text}. Before: ${grew}`;
  return `Grown: ${grew}. Computed in ${outcome.seconds < 0.0995 ? Math.max(1, Math.round(1000 * outcome.seconds)) + " ms" : outcome.seconds.toPrecision(2) + " s"}`;
}
