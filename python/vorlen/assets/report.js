// Draws the charts of a report and links them: hovering or zooming in one chart does the same in the other.
"use strict";
(function () {
  const figures = JSON.parse(document.getElementById("data").textContent);
  const touch = window.matchMedia("(pointer: coarse)").matches;
  const config = { responsive: true, displaylogo: false, displayModeBar: touch ? false : "hover",
    modeBarButtonsToRemove: ["select2d", "lasso2d", "autoScale2d"] };
  const PAPER = { width: 670, height: 800 };  // pixels: A4 without margins, heading and caption
  const NAME_DISTANCE = 24;  // pixels between stage names
  const node = (name) => document.getElementById("chart-" + name);

  // Value of `to` where `from` has `value`, by linear interpolation. Both rise.
  function convert(value, from, to) {
    let low = 0, high = from.length - 1;
    if (!(value > from[low])) return to[low];
    if (!(value < from[high])) return to[high];
    while (high - low > 1) {
      const middle = (low + high) >> 1;
      if (from[middle] <= value) low = middle; else high = middle;
    }
    const span = from[high] - from[low];
    return span > 0 ? to[low] + (to[high] - to[low]) * (value - from[low]) / span : to[low];
  }

  // Narrow screens have narrow margins and room for fewer stage names.
  function fit(name) {
    const width = node(name).clientWidth, narrow = width < 480;
    const layout = figures[name].layout;
    layout.margin.r = narrow ? 34 : 46;
    layout.font.size = narrow ? 11 : 13;
    layout.dragmode = touch ? false : "zoom";
    if (narrow) layout.legend.font = { size: 11 };
    if (name === "interface") return;
    layout.margin.b = narrow ? 175 : 140;
    layout.legend.y = -52 / (layout.height - layout.margin.t - layout.margin.b);
    const range = layout.xaxis.range;
    const pixels = (width - layout.margin.l - layout.margin.r) / (range[1] - range[0]);
    let last = -Infinity;
    layout.annotations = layout.annotations.filter((mark) => {
      if ((mark.x - last) * pixels < NAME_DISTANCE) return false;
      last = mark.x;
      return true;
    });
  }

  const names = ["time", "depth"].filter((name) => figures[name]);
  const drawn = names.map((name) => {
    fit(name);
    return Plotly.newPlot(node(name), figures[name].data, figures[name].layout, config);
  });

  const linked = names.length === 2 && !names.some((name) => figures.link[name].includes(null));
  const other = { time: "depth", depth: "time" };
  const each = (name, action) => [name, ...(linked ? [other[name]] : [])].forEach(action);

  // Shows the values of all panels at the mouse, in both charts. plotly alone shows those of one panel in one chart.
  function hover(name) {
    const chart = node(name), panels = Object.keys(chart._fullLayout._plots), link = figures.link;
    chart.addEventListener("mousemove", (event) => {
      if (!event.target.classList.contains("nsewdrag") || event.buttons) return;
      event.stopPropagation();
      const x = chart._fullLayout.xaxis.p2d(event.clientX - event.target.getBoundingClientRect().left);
      each(name, (which) => Plotly.Fx.hover(
        node(which), { xval: which === name ? x : convert(x, link[name], link[which]) }, panels));
    }, true);
    chart.addEventListener("mouseout", (event) => {
      if (event.target.classList.contains("nsewdrag")) each(name, (which) => Plotly.Fx.unhover(node(which)));
    });
  }

  // Zooming one chart zooms the other.
  function tie(from, to) {
    const here = node(from), there = node(to), link = figures.link;
    here.on("plotly_relayout", (event) => {
      if (tie.zooming) return;
      let range = null;
      if ("xaxis.range[0]" in event) range = [event["xaxis.range[0]"], event["xaxis.range[1]"]];
      else if ("xaxis.range" in event) range = event["xaxis.range"];
      else if (!("xaxis.autorange" in event)) return;
      const change = range ? { "xaxis.range": range.map((x) => convert(x, link[from], link[to])) } : { "xaxis.autorange": true };
      tie.zooming = true;
      Plotly.relayout(there, change).then(() => { tie.zooming = false; });
    });
  }

  Promise.all(drawn).then(() => {
    names.forEach(hover);
    if (linked) { tie("time", "depth"); tie("depth", "time"); }
    if (figures.interface) drawInterfaces();
    // Each chart is one picture with a description; a screen reader skips its parts.
    for (const part of document.querySelectorAll(".chart > *, #js-plotly-tester")) part.setAttribute("aria-hidden", "true");
    document.documentElement.dataset.drawn = "yes";
  });

  function drawInterfaces() {
    const places = figures.interface.places;
    const choice = document.getElementById("interface-choice");
    fit("interface");
    function zoom() {
      const place = places[Number(choice.value)];
      const layout = figures.interface.layout;
      const step = place.y[1] - place.y[0];
      layout.xaxis.range = place.range;
      layout.yaxis.range = [place.y[0] - 0.12 * step, place.y[1] + 0.12 * step];
      layout.shapes = place.marks.filter((x) => x !== null).map((x) => (
        { type: "line", xref: "x", yref: "paper", x0: x, x1: x, y0: 0, y1: 1, line: { color: "#44525f", width: 1, dash: "dot" } }));
      layout.annotations = place.marks.map((x, i) => (
        { x: x, xref: "x", y: 1, yref: "paper", yanchor: "bottom", showarrow: false, font: { size: 11 },
          xanchor: i ? "left" : "right", text: i ? "90 %" : "10 %" })).filter((mark) => mark.x !== null);
      Plotly.react(node("interface"), figures.interface.data, layout, config);
      document.getElementById("interface-caption").textContent = place.label +
        (place.width === null ? ": the step is not complete between the middles of the two layers."
          : ": 10–90 % width " + place.width + " nm.");
    }
    choice.addEventListener("change", zoom);
    zoom();
  }

  // Paper and screen differ in width.
  function fitTo(paper) {
    for (const name of ["time", "depth", "interface"]) {
      if (!figures[name]) continue;
      const height = figures[name].layout.height;
      Plotly.relayout(node(name), paper ? { width: paper.width, height: Math.min(height, paper.height), autosize: false }
        : { width: null, height: height, autosize: true });
    }
  }
  window.addEventListener("beforeprint", () => fitTo(PAPER));
  window.addEventListener("afterprint", () => fitTo(null));
})();
