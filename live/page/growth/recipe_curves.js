// What a recipe states over time: temperature and flows of the simulated stages, as panels. Empty if the recipe can't be
// read; the check of the recipe says why.
import { attributeAt, parseXml } from "../recipe/xml_text.js";
import { isPeriodic, PROCESS, stagesOf } from "../recipe/stages.js";

const METALS = [["TMIn", "indium"], ["TMGa", "gallium"], ["TEGa", "kept1"], ["TMAl", "aluminium"]];
const GASES = [["N2", "gallium", "N₂"], ["H2", "aluminium", "H₂"], ["NH3", "indium", "NH₃"]];
const STAGES_MAX = 2000; // of periods too; longer recipes are not drawn
const POINTS = 9; // of a ramp, which is not straight over height

// times, heights: of the rows, increasing in time. Heights of the curves are interpolated between them.
export function recipeCurves(xml, times, heights) {
  const stages = stagesInTime(xml, times[0], times.at(-1));
  if (!stages.length) return [];
  const points = [];
  for (const stage of stages) {
    const share = Math.min((times.at(-1) - stage.begin) / stage.tau, 1); // the last stage of a failed run ends early
    for (let k = 0; k < POINTS; ++k) points.push({ stage, share: (share * k) / (POINTS - 1) });
  }
  const time = Float64Array.from(points, ({ stage, share }) => stage.begin + share * stage.tau);
  const x = { time, height: interpolated(time, times, heights) };
  const values = (name) => Float64Array.from(points, ({ stage, share }) => {
    const [begin, end] = stage[name];
    return begin + share * (end - begin);
  });
  const curves = (list) => list
    .map(([name, colour, shown]) => ({ name: shown ?? name, colour, x, y: values(name) }))
    .filter(({ y }) => y.some((value) => value > 0));
  const panels = [{ key: "temperature", title: "temperature", unit: "K", quantity: "temperature", least: 20, curves: curves([["T", "warm", "temperature"]]) },
    { key: "flows", title: "metal flows", unit: "sccm", quantity: "metal", zero: true, curves: curves(METALS) },
    { key: "gases", title: "gas flows", unit: "sccm", quantity: "gas", zero: true, curves: curves(GASES) }];
  return panels.filter((panel) => panel.curves.length);
}

// The simulated stages that were reached, with begin and tau in s and [value, end value] of each quantity.
function stagesInTime(xml, start, last) {
  const { root } = typeof xml === "string" ? parseXml(xml) : {};
  if (!root) return [];
  const stages = [];
  let begin = start;
  const add = (path) => {
    const tau = numberAt(root, `${path}/tau`, "val");
    if (!(tau > 0) || begin >= last || stages.length >= STAGES_MAX) return;
    const stage = { begin, tau, T: pair(root, `${path}/T`) };
    for (const [name] of [...METALS, ...GASES]) stage[name] = pair(root, `${path}/gas_species/Q/${name}`);
    stages.push(stage);
    begin += tau;
  };
  for (const path of stagesOf(root, PROCESS)) {
    if (!isPeriodic(root, path)) {
      add(path);
      continue;
    }
    const inside = stagesOf(root, path), periods = numberAt(root, `${path}/n_periods`, "val");
    for (let period = 0; period < periods && begin < last && stages.length < STAGES_MAX; ++period) inside.forEach(add);
  }
  return stages;
}

function numberAt(root, path, attribute) {
  return Number.parseFloat(attributeAt(root, path, attribute) ?? "");
}

function pair(root, path) {
  const value = numberAt(root, path, "val"), end = numberAt(root, path, "end");
  return [value, Number.isNaN(end) ? value : end];
}

function interpolated(places, xs, ys) {
  let k = 0;
  return places.map((place) => {
    while (k < xs.length - 2 && xs[k + 1] < place) ++k;
    const width = xs[k + 1] - xs[k];
    if (!(width > 0)) return ys[k];
    return ys[k] + Math.min(Math.max((place - xs[k]) / width, 0), 1) * (ys[k + 1] - ys[k]);
  });
}
