// The controls of a report: zoom to a stage or region, units, gallium; the chart of the interfaces; links to files.
"use strict";
(() => {
  const { stem, charts: model, tables } = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);
  const pictures = {};
  const waiting = [];

  if (model) {
    const charts = Charts.linked(model, { time: byId("chart-time"), height: byId("chart-height") });
    waiting.push(charts.ready);
    for (const axis of ["time", "height"]) pictures[axis] = { name: `${stem}-${axis}.svg`, svg: () => charts.svg(axis) };
    zoomControls(charts);
    unitControls(charts);
    if (model.interfaces) waiting.push(interfaces(model.interfaces));
  }
  for (const key of ["active", "whole"]) {
    const node = document.querySelector(".stack-" + key);
    if (node) pictures["layers-" + key] = { name: `${stem}-layers-${key}.svg`, svg: () => Charts.picture(node) };
  }
  const all = byId("all-layers"), list = document.querySelector("table.layers");
  if (all) {
    const filter = () => list.classList.toggle("few", !all.checked);
    all.addEventListener("change", filter);
    filter();
  }
  Downloads.connect(tables, pictures);
  Promise.all(waiting).then(() => {
    // Each chart is one picture with a description; a screen reader skips its parts.
    for (const part of document.querySelectorAll(".chart > *, #js-plotly-tester")) part.setAttribute("aria-hidden", "true");
    document.documentElement.dataset.drawn = "yes";
  });

  // A button for each region and for up to six stages; a list of more stages.
  function zoomControls(charts) {
    const box = byId("zoom"), buttons = [], FEW = 6;
    const list = model.stages.length > FEW ? document.createElement("select") : null;
    const titled = (stage) => ({ label: `${stage.number}. ${stage.name}`, time: wide(stage.time), height: wide(stage.height) });
    function button(region) {
      const made = document.createElement("button");
      made.type = "button";
      made.textContent = region.label.length > 32 ? region.label.slice(0, 31) + "…" : region.label;
      made.addEventListener("click", () => charts.show(region, region.label));
      made.dataset.label = region.label;
      buttons.push(made);
      box.append(made);
    }
    model.regions.forEach(button);
    if (list) {
      const label = document.createElement("label");
      label.textContent = "Stage";
      list.id = "stage-choice";
      label.htmlFor = list.id;
      list.add(new Option("choose …", ""));
      model.stages.forEach((stage, index) => list.add(new Option(titled(stage).label, String(index))));
      list.addEventListener("change", () => {
        if (list.value === "") return;
        const stage = titled(model.stages[Number(list.value)]);
        charts.show(stage, stage.label);
      });
      box.append(label, list);
    } else {
      model.stages.forEach((stage) => button(titled(stage)));
    }
    function mark(shown) {
      for (const made of buttons) made.setAttribute("aria-pressed", String(made.dataset.label === shown));
      if (list && (list.value === "" || titled(model.stages[Number(list.value)]).label !== shown)) list.value = "";
    }
    charts.onZoom(mark);
    mark(charts.first);
  }

  // A stage with a little of its neighbours.
  function wide([low, high]) {
    const room = high - low > 1e-6 ? 0.08 * (high - low) : 1;
    return [low - room, high + room];
  }

  function unitControls(charts) {
    const box = byId("units");
    for (const panel of model.panels) {
      if (panel.units) {
        const label = document.createElement("label"), choice = document.createElement("select");
        label.textContent = panel.title.charAt(0).toUpperCase() + panel.title.slice(1);
        choice.id = "unit-" + panel.key;
        label.htmlFor = choice.id;
        panel.units.forEach(([unit], index) => choice.add(new Option(unit, String(index))));
        choice.addEventListener("change", () => {
          charts.setUnit(panel.key, Number(choice.value));
          if (panel.key === "rate") changeTables(panel.units[Number(choice.value)]);
        });
        const pair = document.createElement("span");
        pair.append(label, choice);
        box.append(pair);
      }
    }
    const gallium = model.panels.find((panel) => panel.key === "gallium");
    if (gallium) {
      const label = document.createElement("label"), check = document.createElement("input");
      check.type = "checkbox";
      check.id = "show-gallium";
      check.addEventListener("change", () => charts.setPanel("gallium", check.checked));
      label.append(check, "Gallium");
      box.append(label);
    }
  }

  // Growth rates of the tables in another unit.
  function changeTables([unit, factor]) {
    for (const head of document.querySelectorAll(".rate-unit")) head.textContent = unit;
    for (const cell of document.querySelectorAll("td[data-rate]")) {
      const value = Number(cell.dataset.rate) * factor;
      if (cell.dataset.rate !== "") cell.textContent = String(Number(value.toPrecision(4))).replace("-", "−");
    }
  }

  function interfaces(data) {
    const choice = byId("interface-choice");
    choice.value = String(data.first);
    const place = () => data.places[Number(choice.value)];
    function build(colour, width) {
      const shown = place(), layout = Charts.baseLayout(model.axes.height, colour, width), step = shown.y[1] - shown.y[0];
      Object.assign(layout, { height: 340, hovermode: "x unified", hoverdistance: -1,  // the nearest row at any distance
        hoverlabel: { font: { size: 12, color: colour("ink") }, bgcolor: colour("paper"), bordercolor: colour("strong") } });
      layout.margin.t = 42;
      Object.assign(layout.xaxis, { range: shown.range.slice(), nticks: Math.min(8, Math.floor(width / 80)), hoverformat: ".7~g" });
      layout.yaxis = Object.assign(Charts.yAxis(colour), {
        range: [shown.y[0] - 0.12 * step, shown.y[1] + 0.12 * step] });
      const marks = shown.marks.map((x, index) => [x, index ? "90 %" : "10 %", index]).filter(([x]) => x !== null);
      layout.shapes = marks.map(([x]) => ({ type: "line", xref: "x", yref: "paper", x0: x, x1: x, y0: 0, y1: 1,
        line: { color: colour("axis"), width: 1, dash: "dot" } }));
      layout.annotations = marks.map(([x, text, index]) => ({ x, xref: "x", y: 1, yref: "paper", yanchor: "bottom",
        showarrow: false, font: { size: 11 }, xanchor: index ? "left" : "right", text }));
      layout.annotations.push({ x: 0, xref: "paper", y: 1, yref: "paper", xanchor: "left", yanchor: "bottom", yshift: 18,
        showarrow: false, font: { size: 12 }, text: Charts.keyOf("fraction", "", data.curves, colour, width - 60).join("<br>") });
      const curves = data.curves.map((curve) => Object.assign(Charts.line(curve, colour),
        { hovertemplate: "%{y:.4~f}", x: data.height, y: curve.y, mode: "lines+markers", marker: { size: 4, color: colour(curve.colour) } }));
      return { data: curves, layout };
    }
    const draw = Charts.chart(byId("chart-interface"), build);
    function zoom() {
      const shown = place();
      byId("interface-caption").textContent = shown.label +
        (shown.width === null ? ": the step is not complete between the middles of the two layers."
          : ": 10–90 % width " + shown.width + " nm.");
      return draw();
    }
    choice.addEventListener("change", zoom);
    pictures.interface = { name: `${stem}-interface.svg`, svg: () => Charts.svg(build) };
    return zoom();
  }
})();
