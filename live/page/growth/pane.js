// The right half of the page: what grows. main.js hands it each outcome of the engine.
//
//   const pane = createGrowthPane(node, {onRecall(xml, name), unitOf(quantity), run(xml)});
//   pane.show(outcome, xml, name)  draws an outcome, or says why there is none
//   pane.busy(true)                a run has started; a run of more than 150 ms is announced
//   pane.notRun()                  the recipe can't be read: what is shown is that of an earlier one
//   pane.redraw()                  draws again, after a change of the units
//   pane.keep()                    keeps the shown run for comparison
//   pane.state(), restore(state)   view and kept recipes, as plain data for a link
// unitOf gives the unit of the curves of temperature and flows. run(xml) gives the promise of an outcome; restore() simulates kept recipes with it. Without it they can be recalled.
import { createCharts } from "./charts.js";
import { createControls } from "./controls.js";
import { connectCursor } from "./cursor.js";
import { layersText, rowsText, save, stemOf } from "./files.js";
import { createKept } from "./kept.js";
import { alloy, compositionOf, heightsOf, oneLine, reachedLayers, sentence, thinRange } from "./layers.js";
import { createBusy, createFailure } from "./notice.js";
import { number } from "./numbers.js";
import { installPalette } from "./palette.js";
import { inChosenUnit, otherPlace, panelsOf, summary } from "./panels.js";
import { createStack } from "./stack.js";
import { htmlElement, savedPicture, setText } from "./svg.js";
import { createTable } from "./table.js";

const QUIET = 600; // ms without a change, until the charts are described in words
const BESIDE = 0.15; // of a layer's thickness: how much of its neighbours a zoom to it shows

export function createGrowthPane(node, { onRecall, unitOf, run } = {}) {
  installPalette();
  node.classList.add("growth");
  const failure = createFailure(node), busy = createBusy(node);
  const grew = htmlElement("p", { class: "growth-sentence" }, node, "Nothing has been simulated yet.");
  const controls = createControls(node, { onChange: redraw, onKeep: keep, onZoom: zoomTo, onAxis: switchAxis, onSave: saveFile });
  const kept = createKept(htmlElement("ul", { class: "growth-kept", "aria-label": "Kept variants" }, node), {
    onChange: () => { controls.setKept(kept.list(), kept.isFull()); redraw(); },
    onRecall: (variant) => onRecall?.(variant.xml, variant.name),
  });
  const pictures = htmlElement("div", { class: "growth-pictures" }, node);
  const stackNode = htmlElement("figure", { class: "growth-stack" }, pictures), chartNode = htmlElement("figure", { class: "growth-charts" }, pictures);
  const stack = createStack(stackNode, zoomToLayer), charts = createCharts(htmlElement("div", {}, chartNode));
  htmlElement("figcaption", {}, stackNode, "Orange: indium, green: aluminium, blue-grey: GaN. Heights are in proportion, but thin " +
    "layers are made visible and thick ones are cut (white line).");
  htmlElement("figcaption", { class: "no-print" }, chartNode, "Point to read values, drag to zoom, double-click for the whole run. (t): each depth " +
    "when it was the surface; (z): the same depth in the finished structure.");
  const tables = htmlElement("div", { class: "growth-table" }, node);
  const table = createTable(tables, zoomToLayer);
  controls.place(tables);

  // Of the shown run, and of the last one that succeeded: {outcome, xml, name, panels, layers, reached, stages, ...}.
  let shown = null, good = null;
  let mode = "thin"; // zoom: "whole", "thin" or {axis, range}
  let quiet = null; // timer
  let drawn = null; // what the charts show: {view, current, others}
  const cursor = connectCursor(charts, () => drawn, (range) => zoomTo(range && { axis: controls.axis(), range }));
  for (const part of [pictures, tables]) part.hidden = true;

  function show(outcome, xml, name = "recipe.xml") {
    if (outcome.status === "cancelled" && /newer run/.test(outcome.message)) return; // its successor will be shown
    const result = describedRun(outcome, xml, name);
    if (result) shown = result;
    if (outcome.status === "ok" && result) {
      good = result;
      failure.hide();
    } else {
      failure.show(outcome, result !== null, good !== null);
    }
    node.classList.toggle("stale", result === null && shown !== null);
    node.dataset.status = outcome.status;
    const text = result ? sentence(result.reached) : null;
    if (text) setText(grew, outcome.status === "ok" ? text : `Until the failure, ${text[0].toLowerCase()}${text.slice(1)}`);
    controls.setKeep(outcome.status === "ok", kept.isFull());
    redraw();
  }

  function notRun() {
    failure.hide();
    node.classList.toggle("stale", shown !== null);
  }

  // Panels and layers of an outcome; null if it has no rows.
  function describedRun(outcome, xml, name) {
    const drawnRun = panelsOf(outcome, xml);
    if (!drawnRun) return null;
    const last = outcome.columns.time.at(-1), heights = heightsOf(outcome.layers);
    const reached = reachedLayers(outcome.layers, outcome.status === "ok" ? Infinity : last);
    const stages = outcome.layers
      .map((layer, place) => ({ layer, name: oneLine(layer.name), rank: alloy(compositionOf(layer)) === "GaN" ? 0 : 1, time: [layer.begin, Math.min(layer.end, last)],
        height: [heights[place].bottom, heights[place].top] }))
      .filter(({ layer }) => layer.kind === "active" && reached.includes(layer));
    return { outcome, xml, name, ...drawnRun, allPanels: drawnRun.panels, layers: outcome.layers, reached, stages, thin: thinRange(reached) };
  }

  function redraw() {
    for (const part of [pictures, tables]) part.hidden = shown === null;
    controls.setReady(shown !== null);
    if (shown === null) return;
    const axis = controls.axis();
    controls.setPanels(shown.allPanels);
    const inUnits = (panels) => panels.filter(({ key }) => controls.isOn(key)).map((panel) => inChosenUnit(panel, unitOf));
    const current = { ...shown, panels: inUnits(shown.allPanels) };
    const others = [
      ...(good !== shown && good ? [{ panels: inUnits(good.allPanels), range: good.range, colour: "ghost", kind: "ghost", name: "last run that succeeded" }] : []),
      ...kept.list().filter(({ panels }) => panels).map(({ panels, range, colour, name }) =>
        ({ panels: inUnits(panels), range, colour, name, kind: "kept" }))];
    const whole = [shown.range, ...others.map(({ range }) => range)].map((range) => range[axis]);
    const range = rangeOf(axis) ?? [Math.min(...whole.map(([low]) => low)), Math.max(...whole.map(([, high]) => high))];
    drawn = { view: { axis, range }, current, others, has_given: shown.layers.some(({ kind }) => kind === "pre") };
    charts.draw(drawn);
    cursor.update();
    stack.draw(shown.reached);
    const other = controls.compared(kept.list());
    table.draw({ layers: shown.layers, reached: new Set(shown.reached.map((layer) => layer.number)), other });
    controls.setZoom(mode === "thin" && !shown.thin ? "whole" : mode, shown.thin !== null);
    clearTimeout(quiet);
    quiet = setTimeout(describe, QUIET);
  }

  function describe() {
    charts.describe(summary(drawn.current.panels, number), `Curves over ${drawn.view.axis}`);
  }

  // The visible part of an axis; null for all of it.
  function rangeOf(axis) {
    if (mode === "thin" && shown.thin) {
      const { low, high } = shown.thin;
      return axis === "height" ? [low, high] : [low, high].map((place) => otherPlace(shown.x, "height", place));
    }
    return typeof mode === "object" && mode.axis === axis ? mode.range : null;
  }

  // to: "whole", "thin", {axis, range}, or null for the whole run.
  function zoomTo(to) {
    mode = to ?? "whole";
    redraw();
  }

  function switchAxis(axis) {
    if (typeof mode === "object" && shown) {
      const range = mode.range.map((place) => otherPlace(shown.x, mode.axis, place));
      mode = range[1] > range[0] ? { axis, range } : "whole";
    }
    redraw();
  }

  function zoomToLayer(chosen) {
    const stage = shown.stages.find(({ layer }) => layer.number === chosen);
    if (!stage) return;
    const axis = controls.axis(), [low, high] = stage[axis], room = Math.max(BESIDE * (high - low), 0.01);
    zoomTo({ axis, range: [low - room, high + room] });
  }

  function keep() {
    if (shown === null || shown.outcome.status !== "ok") return;
    const { xml, outcome, allPanels, range, layers } = shown;
    const variant = kept.add({ xml, outcome, panels: allPanels, range, layers });
    if (variant) controls.compareWith(variant, kept.list());
    redraw();
  }

  function saveFile(what) {
    const stem = stemOf(shown.name);
    const { outcome } = shown, failed = outcome.status === "ok" ? "" : ".failed";
    if (what === "result") save(failed ? `${stem}.failed.txt` : `${stem}.result.txt`, "text/plain", outcome.result);
    if (what === "layers") save(`${stem}${failed}-layers.csv`, "text/csv;charset=utf-8", layersText(outcome.layers));
    if (what === "rows") save(`${stem}${failed}-rows.csv`, "text/csv;charset=utf-8", rowsText(outcome.columns));
    if (what === "charts") save(`${stem}${failed}-charts.svg`, "image/svg+xml", savedPicture(charts.svg));
    if (what === "stack") save(`${stem}${failed}-stack.svg`, "image/svg+xml", savedPicture(stack.svg));
  }

  function state() {
    return { ...controls.state(), zoom: mode, kept: kept.list().map(({ name, xml }) => ({ name, xml })) };
  }

  // Anything that is not as state() gives it is ignored: links are changed by people.
  async function restore(saved) {
    const { zoom, kept: variants = [] } = saved ?? {};
    controls.restore(saved ?? {});
    if (zoom === "whole" || zoom === "thin") mode = zoom;
    else if (["time", "height"].includes(zoom?.axis) && zoom.range?.length === 2 && zoom.range[0] < zoom.range[1]) {
      mode = { axis: zoom.axis, range: zoom.range.map(Number) };
    }
    kept.clear();
    const added = (Array.isArray(variants) ? variants : []).filter(({ xml }) => typeof xml === "string")
      .map(({ name, xml }) => kept.add({ name: typeof name === "string" ? name : undefined, xml })).filter(Boolean);
    redraw();
    for (const variant of run ? added : []) { // one after the other, because a newer run cancels an older one
      const outcome = await run(variant.xml), described = outcome.status === "ok" ? describedRun(outcome, variant.xml, variant.name) : null;
      if (described) Object.assign(variant, { outcome, panels: described.allPanels, range: described.range, layers: described.layers });
      redraw();
    }
    controls.setKept(kept.list(), kept.isFull());
  }

  let width = 0;
  new ResizeObserver(() => requestAnimationFrame(() => {
    if (shown && chartNode.clientWidth !== width) redraw();
    width = chartNode.clientWidth;
  })).observe(chartNode);
  return { show, notRun, redraw, busy, keep, state, restore };
}
