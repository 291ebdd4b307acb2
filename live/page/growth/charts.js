// The charts: panels below each other over one axis, time or height, with the names of the layers along the top.
// readout.js shows values under the mouse, zoom.js drags. While a slider moves, only texts and paths change; the elements are
// made again when the panels or the width do.
import { axisBottom, axisLeft } from "d3-axis";
import { scaleLinear, scaleLog } from "d3-scale";
import { select } from "d3-selection";
import { number, raised, withMinus } from "./numbers.js";
import { colour } from "./palette.js";
import { pathOf, visibleRange } from "./paths.js";
import { setText, svgElement } from "./svg.js";

const LEFT = 56, RIGHT = 16, HEAD = 18, NAMES = 18, LEGEND = 22, GAP = 5, FOOT = 40; // pixels
const HEIGHTS = { composition: 118, densities: 92, sweep: 190 }, HEIGHT = 78;
const LETTER = 6.4, APART = 8; // pixels: average width of a letter, room between names
const NARROW = 480; // pixels; narrower charts have their legends from the left edge on
const AXES = { time: "time (s)", height: "height above the pre-stages (nm)" };

// node: its container. Gives {draw, svg, area, onDrawn}; area is {place(pixel), pixel(place), left, right, top, bottom}.
export function createCharts(node) {
  const svg = svgElement("svg", { class: "picture charts", role: "img", "aria-labelledby": "charts-title charts-text", tabindex: "0" }, node);
  const title = svgElement("title", { id: "charts-title" }, svg, "Curves over height or time");
  const description = svgElement("desc", { id: "charts-text" }, svg);
  let signature = "", frames = [], parts = {}, width = 0, height = 0;
  const scale = scaleLinear();

  function build(panels) {
    while (description.nextSibling) description.nextSibling.remove();
    parts.head = svgElement("text", { class: "head", x: LEFT, y: 13, "data-live": "" }, svg);
    parts.key = svgElement("text", { class: "others", x: legendStart(), y: 13 }, svg); // where the head is without a cursor
    parts.keyText = "";
    parts.names = svgElement("g", { "text-anchor": "middle" }, svg);
    frames = [];
    parts.range = "";
    let top = HEAD + NAMES;
    for (const panel of panels) {
      const high = HEIGHTS[panel.key] ?? HEIGHT;
      frames.push(buildFrame(panel, top, high));
      top += LEGEND + high + GAP;
    }
    height = top + FOOT;
    parts.axis = svgElement("g", { transform: `translate(0 ${top})` }, svg);
    parts.label = svgElement("text", { class: "soft", x: (LEFT + width - RIGHT) / 2, y: top + 34, "text-anchor": "middle" }, svg);
    parts.cursor = svgElement("path", { class: "cursor", "data-live": "" }, svg);
    parts.selection = svgElement("rect", { class: "selection", "data-live": "", y: HEAD + NAMES, height: top - HEAD - NAMES, width: 0 }, svg);
    svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
    svg.setAttribute("height", height);
  }

  function legendStart() {
    return width < NARROW ? 2 : LEFT;
  }

  function buildFrame(panel, top, high) {
    const group = svgElement("g", { "data-panel": panel.key }, svg);
    const clip = svgElement("clipPath", { id: `clip-${panel.key}` }, group);
    const begin = top + LEGEND;
    svgElement("rect", { x: LEFT, y: begin, width: width - LEFT - RIGHT, height: high }, clip);
    const legend = svgElement("text", { x: legendStart(), y: top + 13 }, group);
    svgElement("tspan", { class: "head" }, legend, panel.unit ? `${panel.title}, ${panel.unit}` : panel.title);
    const values = panel.curves.map((curve) => {
      if (!curve.name) return svgElement("tspan", { dx: 8, class: "head", "data-live": "" }, legend);
      svgElement("tspan", { dx: 10, style: `fill: ${colour(curve.colour)}; font-weight: 600` }, legend, curve.dashed ? "┄" : "━");
      svgElement("tspan", { dx: 4 }, legend, curve.name);
      return svgElement("tspan", { dx: 4, class: "head", "data-live": "" }, legend);
    });
    const shade = svgElement("path", { class: "shade" }, group);
    const grid = svgElement("path", { class: "grid" }, group);
    const axis = svgElement("g", { transform: `translate(${LEFT} 0)` }, group);
    const curves = svgElement("g", { "clip-path": `url(#clip-${panel.key})` }, group);
    const lower = svgElement("g", {}, curves), upper = svgElement("g", {}, curves);
    svgElement("rect", { class: "frame", x: LEFT, y: begin, width: width - LEFT - RIGHT, height: high }, group);
    const lines = panel.curves.map((curve) =>
      svgElement("path", { class: curve.dashed ? "curve dashed" : "curve", stroke: colour(curve.colour) }, upper));
    return { key: panel.key, begin, high, values, shade, grid, axis, lower, lines, domain: "" };
  }

  // view: {axis, range: [low, high], label}. current: {panels, stages: [{name, time, height, rank}]}. others: drawn thinner below it,
  // [{panels, colour, kind, name}]. has_given: there are pre-stages below.
  function draw({ view, current, others, has_given }) {
    const wanted = Math.max(Math.floor(node.clientWidth), 280);
    const next = wanted + current.panels.map((panel) => panel.key + panel.unit + panel.curves.map((curve) => curve.name).join()).join(";");
    if (next !== signature) {
      [signature, width] = [next, wanted];
      build(current.panels);
    }
    scale.domain(view.range).range([LEFT, width - RIGHT]);
    const slope = (width - RIGHT - LEFT) / (view.range[1] - view.range[0]);
    const place = { a: slope, b: LEFT - slope * view.range[0] };
    drawStages(current.stages, view, place);
    drawKey(others);
    current.panels.forEach((panel, index) => drawPanel(frames[index], panel, view, place, others));
    const ticks = Math.min(8, Math.floor((width - LEFT - RIGHT) / 70));
    if (parts.range !== String(view.range) + ticks) {
      select(parts.axis).call(axisBottom(scale).ticks(ticks).tickFormat((value) => withMinus(String(Number(value.toPrecision(9))))));
      for (const name of ["font-size", "font-family", "fill"]) parts.axis.removeAttribute(name);
      parts.range = String(view.range) + ticks;
    }
    setText(parts.label, view.label ?? (view.axis === "height" && !has_given ? "height (nm)" : AXES[view.axis]));
  }

  function drawPanel(frame, panel, view, place, others) {
    const beside = others.map((other) => ({ ...other, curves: other.panels.find((each) => each.key === panel.key)?.curves ?? [] }));
    const all = [...panel.curves, ...beside.flatMap(({ curves }) => curves)];
    const [low, high] = limits(panel, visibleRange(all, view.axis, view.range));
    const axis = (panel.log ? scaleLog() : scaleLinear()).domain([low, high]).range([frame.begin + frame.high, frame.begin]);
    if (!panel.log) axis.nice(4);
    const domain = axis.domain(), logs = panel.log ? domain.map(Math.log10) : domain;
    const slope = -frame.high / (logs[1] - logs[0]);
    const rise = { a: slope, b: frame.begin + frame.high - slope * logs[0] };
    if (frame.domain !== String(domain)) {
      frame.domain = String(domain);
      const ticks = panel.log ? decades(logs) : axis.ticks(4);
      const format = panel.log ? (value) => `10${raised(Math.round(Math.log10(value)))}` : (value) => number(value, 6);
      select(frame.axis).call(axisLeft(axis).tickValues(ticks).tickFormat(format));
      for (const name of ["font-size", "font-family", "fill"]) frame.axis.removeAttribute(name);
      frame.grid.setAttribute("d", ticks.map((value) => `M${LEFT} ${Math.round(axis(value)) + 0.5}H${width - RIGHT}`).join(""));
    }
    const path = (curve) => pathOf(curve.x[view.axis], curve.y, place, rise, view.range, panel.log);
    panel.curves.forEach((curve, index) => frame.lines[index].setAttribute("d", path(curve)));
    const below = beside.flatMap(({ curves, colour: name, kind }) => curves.map((curve) => ({ curve, name, kind })));
    while (frame.lower.childNodes.length > below.length) frame.lower.lastChild.remove();
    below.forEach(({ curve, name, kind }, index) => {
      const line = frame.lower.childNodes[index] ?? svgElement("path", {}, frame.lower);
      line.setAttribute("class", curve.dashed ? `curve thin dashed ${kind}` : `curve thin ${kind}`);
      line.setAttribute("stroke", colour(name));
      line.setAttribute("d", path(curve));
    });
  }

  // The names of the other runs.
  function drawKey(others) {
    const named = others.filter(({ name }) => name), text = JSON.stringify(named.map(({ name, colour: own }) => [name, own]));
    if (text === parts.keyText) return;
    parts.keyText = text;
    parts.key.replaceChildren();
    named.forEach(({ name, colour: own }, index) => {
      svgElement("tspan", { dx: index ? 10 : 0, style: `fill: ${colour(own)}; font-weight: 600` }, parts.key, "━");
      svgElement("tspan", { dx: 4 }, parts.key, name);
    });
  }

  // Shading of every second layer, and the names that have room; wider layers are named first.
  function drawStages(stages, view, place) {
    const shown = stages
      .map((stage, index) => ({ ...stage, index, left: pixelOf(stage[view.axis][0]), right: pixelOf(stage[view.axis][1]) }))
      .filter(({ left, right }) => right - left > 0.5);
    function pixelOf(value) {
      return Math.min(Math.max(place.a * value + place.b, LEFT), width - RIGHT);
    }
    for (const frame of frames) {
      const stripes = shown.filter(({ index }) => index % 2 === 0);
      frame.shade.setAttribute("d", stripes.map(({ left, right }) =>
        `M${left.toFixed(1)} ${frame.begin}H${right.toFixed(1)}v${frame.high}H${left.toFixed(1)}z`).join(""));
    }
    const named = placedNames(shown, width - RIGHT);
    while (parts.names.childNodes.length > named.length) parts.names.lastChild.remove();
    named.forEach(({ x, text }, index) => {
      const label = parts.names.childNodes[index] ?? svgElement("text", { class: "soft", y: HEAD + 13 }, parts.names);
      label.setAttribute("x", x.toFixed(1));
      setText(label, text);
    });
  }

  return {
    svg, draw,
    describe: (text, name) => { setText(description, text); setText(title, name); },
    readout: () => ({ head: parts.head, key: parts.key, cursor: parts.cursor, selection: parts.selection, frames }),
    area: () => ({ left: LEFT, right: width - RIGHT, top: HEAD + NAMES, bottom: height - FOOT, legend: width - legendStart(), place: (pixel) => scale.invert(pixel) }),
    pixel: (value) => scale(value),
  };
}

// The range of a vertical axis for the values that are visible.
function limits(panel, visible) {
  if (panel.log) {
    if (!visible) return [1, 10];
    const low = Math.max(visible[0], visible[1] * 10 ** -panel.decades);
    return [10 ** Math.floor(Math.log10(low / 1.2)), 10 ** Math.ceil(Math.log10(visible[1] * 1.2))];
  }
  let [low, high] = visible ?? [0, 1];
  if (panel.zero) [low, high] = [Math.min(low, 0), Math.max(high, 0)];
  const lack = (panel.least ?? 0) - (high - low);
  if (lack > 0) [low, high] = panel.zero && low >= 0 ? [low, high + lack] : [low - lack / 2, high + lack / 2];
  const room = 0.04 * (high - low) || 1;
  return [panel.zero && low === 0 ? 0 : low - room, high + room];
}

// Names {x, text} for which there is room: alloys first, then wider layers; a name may be wider than its layer.
function placedNames(stages, end) {
  const taken = [], named = [];
  const order = [...stages].sort((a, b) => b.rank - a.rank || b.right - b.left - (a.right - a.left));
  for (const { name, left, right } of order) {
    const middle = (left + right) / 2;
    const low = Math.max(0, ...taken.filter(([, high]) => high <= middle).map(([, high]) => high));
    const high = Math.min(end + RIGHT, ...taken.filter(([begin]) => begin > middle).map(([begin]) => begin));
    if (taken.some(([begin, past]) => begin <= middle && middle < past)) continue;
    const room = Math.floor((2 * Math.min(middle - low, high - middle)) / LETTER) - 1;
    if (room < Math.min(name.length, 6)) continue;
    const text = name.length <= room ? name : name.slice(0, room - 1) + "…";
    const half = (text.length * LETTER + APART) / 2;
    taken.push([middle - half, middle + half]);
    named.push({ x: middle, text });
  }
  return named;
}

function decades([low, high]) {
  const step = Math.ceil((high - low) / 4), values = [];
  for (let exponent = Math.ceil(low - 1e-9); exponent <= high + 1e-9; exponent += step) values.push(10 ** exponent);
  return values;
}
