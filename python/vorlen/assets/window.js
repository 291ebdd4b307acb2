// The page of a process window: histograms, effects and the map, and links to files.
"use strict";
(() => {
  const { targets, map, tables } = Page.data;
  const HEIGHT = 250, BAR = 34, AROUND = 96;  // pixels: of a chart at least; of a bar of a tornado, and of what is around them
  const THICK = 0.32;  // half of the thickness of a bar
  const MARGIN = 0.15;  // of the tolerance that is shown beyond its limits

  function frame(colour, width, title) {
    const layout = Charts.baseLayout(title, colour, width);
    Object.assign(layout, { dragmode: false, showlegend: true,
      legend: { orientation: "h", x: 0, y: 1.02, yanchor: "bottom", font: { size: 12 } } });
    layout.margin.t = 36;
    layout.xaxis.fixedrange = true;
    layout.xaxis.nticks = width < 480 ? 5 : 7;
    layout.yaxis = Object.assign(Charts.yAxis(colour), { automargin: true });
    return layout;
  }

  // How often a target has which value, as steps; the range in which it holds is shaded.
  function histogram(target, colour, width) {
    const { edges, all, within } = target.histogram, layout = frame(colour, width, target.title);
    const steps = (name, counts, fill) => ({ type: "scatter", mode: "lines", name, x: edges, y: [...counts, 0], fill: "tozeroy",
      fillcolor: colour(fill), line: { color: colour(fill), width: 1, shape: "hv" }, hoverinfo: "skip" });
    const data = [];
    if (all.some((count, bin) => count > within[bin])) data.push(steps("missed", all, "indium"));
    if (within.some((count) => count > 0)) data.push(steps("holds", within, "gallium"));
    let low = edges.length ? edges[0] : target.target, high = edges.length ? edges[edges.length - 1] : target.target;
    const reach = target.low !== null && target.high !== null ? MARGIN * (target.high - target.low) : MARGIN * (high - low);
    low = Math.min(low, (target.low === null ? target.target : target.low) - reach);
    high = Math.max(high, (target.high === null ? target.target : target.high) + reach);
    const shade = { type: "rect", xref: "x", yref: "paper", y0: 0, y1: 1, x0: target.low === null ? low : target.low,
      x1: target.high === null ? high : target.high, fillcolor: colour("aluminium") + "30", line: { width: 0 }, layer: "below" };
    const mark = { type: "line", xref: "x", yref: "paper", x0: target.target, x1: target.target, y0: 0, y1: 1,
      line: { color: colour("ink"), width: 1, dash: "dot" } };
    Object.assign(layout, { height: HEIGHT, shapes: [shade, mark] });
    layout.xaxis.range = [low, high];
    Object.assign(layout.yaxis, { title: { text: "runs", standoff: 6 }, range: [0, 1.06 * Math.max(...all, 1)], nticks: 5 });
    return { data, layout };
  }

  // What one standard deviation of each value changes, down and up; the largest effect is on top.
  function tornado(target, colour, width) {
    const layout = frame(colour, width, target.unit ? `change (${target.unit})` : "change");
    function bars(name, key, fill) {
      const x = [], y = [];
      target.effects.forEach((one, place) => {
        if (one[key] === null) return;
        x.push(0, one[key], one[key], 0, 0, null);
        y.push(place - THICK, place - THICK, place + THICK, place + THICK, place - THICK, null);
      });
      return { type: "scatter", mode: "lines", name, x, y, fill: "toself", fillcolor: colour(fill),
        line: { color: colour(fill), width: 1 }, hoverinfo: "skip" };
    }
    const data = [bars("one standard deviation less", "below", "triethyl"), bars("more", "above", "warm")];
    const sizes = target.effects.flatMap((one) => [one.below, one.above]).map((change) => Math.abs(change || 0));
    const reach = 1.08 * Math.max(...sizes) || 1, count = target.effects.length;
    layout.height = Math.max(HEIGHT, AROUND + BAR * count);
    Object.assign(layout.xaxis, { range: [-reach, reach], zeroline: true, zerolinecolor: colour("axis") });
    Object.assign(layout.yaxis, { range: [count - 0.5, -0.5], showgrid: false, ticks: "", tickmode: "array",
      tickvals: target.effects.map((one, place) => place), ticktext: target.effects.map((one) => Texts.plain(one.name)) });
    return { data, layout };
  }

  const pictures = {}, draws = [];
  function add(id, name, build) {
    const node = Page.byId(id);
    if (!node) return;
    draws.push(Charts.chart(node, build));
    pictures[id] = { name, svg: () => Charts.svg(build) };
  }
  targets.forEach((target, number) => {
    add(`histogram-${number}`, `histogram_${number + 1}.svg`, (colour, width) => histogram(target, colour, width));
    add(`tornado-${number}`, `effects_${number + 1}.svg`, (colour, width) => tornado(target, colour, width));
  });
  if (map) add("map", "map.svg", (colour, width, limit) => MapFigure.build(map, colour, width, limit));
  Downloads.connect(tables, pictures);
  Page.drawn(draws.map((draw) => draw()));
})();
