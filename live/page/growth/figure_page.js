// A small figure of the manual: sliders, one chart, and a link to the whole page with the recipe. figures.js lists them.
import { createEngine } from "../engine.js";
import { fragmentOf } from "../link.js";
import { applied, attributeEdits, elementAt, parseXml } from "../recipe/xml_text.js";
import { createCharts } from "./charts.js";
import { connectCursor } from "./cursor.js";
import { FIGURES } from "./figures.js";
import { alloy, compositionOf, heightsOf, oneLine } from "./layers.js";
import { number, SPACE } from "./numbers.js";
import { installPalette } from "./palette.js";
import { panelsOf } from "./panels.js";
import { htmlElement, setText } from "./svg.js";

const POINTS = 21; // of a sweep
const TIMEOUT_S = 20;

// The figure of a fragment, "#embed=NAME", as the page's only content.
export function showFigure(fragment) {
  const figure = FIGURES[decodeURIComponent(fragment.slice("#embed=".length))];
  installPalette();
  document.body.replaceChildren();
  const main = htmlElement("main", { class: "figure-page" }, document.body);
  if (!figure) {
    htmlElement("p", {}, main, `There is no such figure. There are: ${Object.keys(FIGURES).join(", ")}.`);
    return;
  }
  document.title = figure.title;
  htmlElement("h1", {}, main, figure.title);
  htmlElement("p", { class: "note" }, main, figure.text);
  const sliders = htmlElement("div", { class: "figure-sliders" }, main), values = figure.sliders.map(({ value }) => value);
  const answer = htmlElement("p", { class: "figure-answer", "aria-live": "polite" }, main);
  const charts = createCharts(htmlElement("div", { class: "growth" }, main));
  const link = htmlElement("a", { class: "no-print", target: "_blank", href: "#" }, htmlElement("p", {}, main), "Open this recipe in the live page");
  const engine = createEngine();
  let drawn = null, generation = 0;
  let sweep = null, first = null; // {x, y} of the curve, now and at the start
  const cursor = connectCursor(charts, () => drawn, () => {});
  const run = (numbers) => engine.run(recipeAt(numbers), { timeout_s: TIMEOUT_S, name: figure.name });
  const show = figure.kind === "sweep" ? showSweep : showProfile;

  figure.sliders.forEach((slider, index) => {
    const label = htmlElement("label", {}, sliders);
    htmlElement("span", {}, label, slider.label);
    const input = htmlElement("input", { type: "range", min: slider.low, max: slider.high, step: slider.step }, label);
    input.value = slider.value;
    const output = htmlElement("output", {}, label);
    const say = () => setText(output, withUnit(values[index], slider));
    input.addEventListener("input", () => {
      values[index] = Number(input.value);
      say();
      setLink();
      show(index);
    });
    say();
  });
  setLink();
  show(null);
  addEventListener("resize", () => drawn && redraw());

  async function setLink() {
    link.href = location.href.replace(/#.*/, "") + await fragmentOf(recipeAt(values), figure.name);
  }

  // The recipe with these values of the sliders.
  function recipeAt(numbers) {
    let text = figure.xml;
    figure.sliders.forEach((slider, index) => {
      for (const [path, attribute] of slider.places) {
        const stored = slider.stored ? slider.stored(numbers[index]) : String(numbers[index]);
        text = applied(text, attributeEdits(text, elementAt(parseXml(text).root, path), attribute, stored));
      }
    });
    return text;
  }

  function redraw() {
    charts.draw(drawn);
    cursor.update();
    document.documentElement.dataset.drawn = "yes";
  }

  // moved: index of the slider that was moved; null at first. The first one only moves the mark along the curve.
  async function showSweep(moved) {
    const mine = ++generation, { quantity } = figure, [slider] = figure.sliders;
    const outcome = await run(values);
    if (mine !== generation) return;
    const value = outcome.status === "ok" ? quantity.of(outcome) : NaN;
    setText(answer, outcome.status === "ok" ? `${quantity.title}: ${number(value, quantity.digits)}${SPACE}${quantity.unit}` : outcome.message);
    const at = values[0];
    if (moved !== 0 || !sweep) {
      const x = Float64Array.from({ length: POINTS }, (_, k) => slider.low + ((slider.high - slider.low) * k) / (POINTS - 1));
      const y = new Float64Array(POINTS).fill(NaN);
      for (let k = 0; k < POINTS; ++k) {
        const there = await run([x[k], ...values.slice(1)]);
        if (mine !== generation) return;
        if (there.status === "ok") y[k] = quantity.of(there);
      }
      sweep = { x, y };
      first ??= sweep;
    }
    // The curve goes through the point of the slider.
    const { x, y } = withPoint(sweep, at, value), view = { axis: "place", range: [slider.low, slider.high], label: slider.unit ? `${slider.label} (${slider.unit})` : slider.label };
    const panel = (curve) => ({ key: "sweep", title: quantity.title, unit: quantity.unit, zero: true, least: 0.01,
      curves: [{ name: "", colour: quantity.colour, x: { place: curve.x }, y: curve.y }] });
    drawn = { view, current: { x: { place: x }, panels: [panel({ x, y })], stages: [] }, head: (row) => withUnit(x[row], slider),
      others: first === sweep ? [] : [{ panels: [panel(first)], colour: "ghost", kind: "ghost" }] }; // the first curve, for comparison
    redraw();
    cursor.rest(at);
    charts.describe(`${quantity.title} from ${number(sweep.y[0], 3)} to ${number(sweep.y.at(-1), 3)} ${quantity.unit}, at ${slider.label} from ` +
      `${slider.low} to ${slider.high} ${slider.unit}.`, figure.title);
  }

  async function showProfile() {
    const mine = ++generation, xml = recipeAt(values), outcome = await run(values);
    if (mine !== generation || outcome.status === "cancelled") return;
    const found = outcome.status === "ok" ? panelsOf(outcome, xml) : null;
    if (!found) {
      setText(answer, outcome.message);
      return;
    }
    setText(answer, figure.answer(outcome, found));
    const heights = heightsOf(outcome.layers), panels = found.panels.filter(({ key }) => figure.panels.includes(key));
    const stages = outcome.layers.map((layer, k) => ({ layer, name: oneLine(layer.name), rank: alloy(compositionOf(layer)) === "GaN" ? 0 : 1,
      time: [layer.begin, layer.end], height: [heights[k].bottom, heights[k].top] })).filter(({ layer }) => layer.kind === "active");
    drawn = { view: { axis: "height", range: found.range.height }, current: { ...found, panels, stages }, others: [], has_given: true };
    redraw();
    charts.describe(answer.textContent, figure.title);
  }
}

function withUnit(value, { unit }) {
  return number(value) + (unit ? SPACE + unit : "");
}

// A curve {x, y} with one more point.
function withPoint({ x, y }, place, value) {
  const points = [...x].map((at, k) => [at, y[k]]).filter(([at]) => at !== place);
  points.push([place, value]);
  points.sort(([a], [b]) => a - b);
  return { x: Float64Array.from(points, ([at]) => at), y: Float64Array.from(points, ([, each]) => each) };
}
