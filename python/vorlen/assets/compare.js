// The controls of a comparison: how layers are aligned, zoom, which runs are shown, lines of the table; links to files.
"use strict";
(() => {
  const { byId, data: { charts: { panels, models }, tables } } = Page;
  const views = {};  // one pair of charts for each way to align, drawn when it is first shown
  const hidden = new Set();  // numbers of runs
  const pictures = {};
  let shown = null, mark = null;

  const visible = () => panels.map((panel) =>
    Object.assign({}, panel, { curves: panel.curves.filter((curve) => !hidden.has(curve.run)) }));

  function viewOf(mode) {
    if (views[mode]) return views[mode];
    const box = byId("pair").content.cloneNode(true).firstElementChild;
    byId("charts").append(box);
    const model = Object.assign(models[mode], { panels: visible() });
    const nodes = { time: box.querySelector(".chart.time"), height: box.querySelector(".chart.height") };
    const view = { box, model, label: "", charts: null };
    view.charts = Linked.draw(model, nodes);
    view.label = view.charts.first;
    view.charts.onZoom((label) => { view.label = label; mark(label); });
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
    mark = Zoom.controls(box, view.model.regions, [], (region) => view.charts.show(region, region.label));
    mark(view.label);
  }

  const align = byId("align");
  if (align) align.addEventListener("change", () => show(align.value));
  byId("runs").addEventListener("change", (event) => {
    hidden[event.target.checked ? "delete" : "add"](Number(event.target.value));
    redraw(views[shown]);
  });
  Page.onCheck(byId("only-different"), (only) => byId("layers").classList.toggle("only-different", only));

  const ready = show(align ? align.value : "none");
  for (const axis of ["time", "height"]) {
    pictures[axis] = { name: `comparison-${axis}.svg`, svg: () => views[shown].charts.svg(axis) };
  }
  Downloads.connect(tables, pictures);
  Page.drawn([ready]);
})();
