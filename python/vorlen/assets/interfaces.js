// The chart of one interface, which a list chooses: the composition around it, and where 10 % and 90 % of the step are.
"use strict";
const Interfaces = (() => {
  const { byId } = Page;

  // data: of report_charts.py. title: of the axis. Returns ready, a promise, and svg().
  function draw(data, title) {
    const choice = byId("interface-choice");
    choice.value = String(data.first);
    const place = () => data.places[Number(choice.value)];
    function build(colour, width) {
      const shown = place(), layout = Charts.baseLayout(title, colour, width), step = shown.y[1] - shown.y[0];
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
    const redraw = Charts.chart(byId("chart-interface"), build);
    function zoom() {
      const shown = place();
      byId("interface-caption").textContent = shown.label +
        (shown.width === null ? ": the step is not complete between the middles of the two layers."
          : ": 10–90 % width " + shown.width + " nm.");
      return redraw();
    }
    choice.addEventListener("change", zoom);
    return { ready: zoom(), svg: () => Charts.svg(build) };
  }

  return { draw };
})();
