// The controls of a comparison: how layers are aligned, zoom, which runs are shown, lines of the table; links to files.
"use strict";
(() => {
  const { charts: { panels, models }, tables } = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);
  const views = {};  // one pair of charts for each way to align, drawn when it is first shown
  const hidden = new Set();  // numbers of runs
  const pictures = {};
  let shown = null;

  const visible = () => panels.map((panel) =>
    Object.assign({}, panel, { curves: panel.curves.filter((curve) => !hidden.has(curve.run)) }));

  function viewOf(mode) {
    if (views[mode]) return views[mode];
    const box = byId("pair").content.cloneNode(true).firstElementChild;
    byId("charts").append(box);
    const model = Object.assign(models[mode], { panels: visible() });
    const nodes = { time: box.querySelector(".chart.time"), height: box.querySelector(".chart.height") };
    const view = { box, model, label: "", charts: null };
    view.charts = Charts.linked(model, nodes);
    view.label = view.charts.first;
    view.charts.onZoom((label) => { view.label = label; mark(); });
    views[mode] = view;
    return view;
  }

  function show(mode) {
    for (const [name, view] of Object.entries(views)) view.box.hidden = name !== mode;
    const known = mode in views, view = viewOf(mode);
    shown = mode;
    zoomButtons(view);
    return known ? redraw(view) : view.charts.ready;
  }

  // Draws again with the runs that are shown; also after the size of the window changed while the charts were hidden.
  function redraw(view) {
    view.model.panels.splice(0, Infinity, ...visible());
    return view.charts.setPanel("", true);
  }

  function zoomButtons(view) {
    const box = byId("zoom");
    for (const old of box.querySelectorAll("button")) old.remove();
    for (const region of view.model.regions) {
      const button = document.createElement("button");
      button.type = "button";
      button.textContent = region.label;
      button.addEventListener("click", () => view.charts.show(region, region.label));
      box.append(button);
    }
    mark();
  }

  function mark() {
    for (const button of byId("zoom").querySelectorAll("button")) {
      button.setAttribute("aria-pressed", String(button.textContent === views[shown].label));
    }
  }

  const align = byId("align");
  if (align) align.addEventListener("change", () => show(align.value));
  byId("runs").addEventListener("change", (event) => {
    hidden[event.target.checked ? "delete" : "add"](Number(event.target.value));
    redraw(views[shown]);
  });
  const only = byId("only-different"), table = byId("layers");
  if (only) {
    const filter = () => table.classList.toggle("only-different", only.checked);
    only.addEventListener("change", filter);
    filter();
  }

  const ready = show(align ? align.value : "none");
  for (const axis of ["time", "height"]) {
    pictures[axis] = { name: `comparison-${axis}.svg`, svg: () => views[shown].charts.svg(axis) };
  }
  Downloads.connect(tables, {});
  // The links of the charts belong to views that are made later.
  document.addEventListener("click", (event) => {
    const link = event.target.closest("a[data-picture]");
    if (!link) return;
    event.preventDefault();
    const picture = pictures[link.dataset.picture];
    picture.svg().then((text) => Downloads.save(picture.name, "image/svg+xml", text));
  });
  ready.then(() => {
    // Each chart is one picture with a description; a screen reader skips its parts.
    for (const part of document.querySelectorAll(".chart > *, #js-plotly-tester")) part.setAttribute("aria-hidden", "true");
    document.documentElement.dataset.drawn = "yes";
  });
})();
