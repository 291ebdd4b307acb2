// The controls of a report: zoom, units, gallium; which layers the table has; links to files.
"use strict";
(() => {
  const { byId, data: { stem, charts: model, observed, tables } } = Page;
  const pictures = {};
  const waiting = [];

  if (model) {
    const charts = Linked.draw(model, { time: byId("chart-time"), height: byId("chart-height") });
    waiting.push(charts.ready);
    for (const axis of ["time", "height"]) pictures[axis] = { name: `${stem}-${axis}.svg`, svg: () => charts.svg(axis) };
    const mark = Zoom.controls(byId("zoom"), model.regions, model.stages, (region) => charts.show(region, region.label));
    charts.onZoom(mark);
    mark(charts.first);
    unitControls(charts);
    if (model.interfaces) {
      const chart = Interfaces.draw(model.interfaces, model.axes.height);
      pictures.interface = { name: `${stem}-interface.svg`, svg: chart.svg };
      waiting.push(chart.ready);
    }
  }
  if (observed) {
    const charts = Observed.draw(observed);
    waiting.push(...charts.waiting);
    Object.assign(pictures, charts.pictures);
  }
  for (const key of ["active", "whole"]) {
    const node = document.querySelector(".stack-" + key);
    if (node) pictures["layers-" + key] = { name: `${stem}-layers-${key}.svg`, svg: () => Charts.picture(node) };
  }
  Page.onCheck(byId("all-layers"), (all) => document.querySelector("table.layers").classList.toggle("few", !all));
  Downloads.connect(tables, pictures);
  Page.drawn(waiting);

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
      if (cell.dataset.rate !== "") cell.textContent = Texts.number(value, 4);
    }
  }
})();
