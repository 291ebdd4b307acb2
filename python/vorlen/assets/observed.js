// Charts of curves that can be measured: measured points, the simulated curve, and below them the difference.
"use strict";
const Observed = (() => {
  const HEIGHT = 330, BELOW = 110;  // pixels: of the curves, and of the difference below them
  const LABELS = 0.25;  // room above the curve for the names of peaks, as a share of its range
  const GAP = 0.06;  // between the two, as a share of both
  const SUPERSCRIPTS = "⁰¹²³⁴⁵⁶⁷⁸⁹";

  // Marks of a logarithmic axis: whole decades, at most about eight of them.
  function decades(range) {
    const step = Math.max(1, Math.ceil((range[1] - range[0]) / 8)), values = [], texts = [];
    for (let power = Math.ceil(range[0] / step) * step; power <= range[1]; power += step) {
      values.push(10 ** power);
      texts.push("10" + [...String(power)].map((sign) => sign === "-" ? "⁻" : SUPERSCRIPTS[Number(sign)]).join(""));
    }
    return { tickmode: "array", tickvals: values, ticktext: texts };
  }

  function logRange(curves) {
    let low = Infinity, high = -Infinity;
    for (const curve of curves) {
      for (const value of curve.y) {
        if (value > 0) { low = Math.min(low, value); high = Math.max(high, value); }
      }
    }
    if (!(high > 0)) return [0, 1];
    return [Math.log10(low) - 0.1, Math.log10(high) + 0.2];
  }

  function trace(curve, colour, axis) {
    const made = Charts.line(curve, colour);
    Object.assign(made, { x: curve.x, y: curve.y, yaxis: axis, hovertemplate: "%{x:.6~g}, %{y:.4~g}<extra></extra>" });
    if (curve.marks) Object.assign(made, { mode: "markers", marker: { color: colour(curve.colour), size: 4 } });
    else made.line.width = 1.6;
    return made;
  }

  function build(chart, zoomed, colour, width) {
    const layout = Charts.baseLayout(chart.x, colour, width);
    const narrow = width < 480, height = HEIGHT + (chart.difference ? BELOW : 0);
    const lowest = chart.difference ? BELOW / height : 0;
    Object.assign(layout, { height, showlegend: chart.curves.length > 1 || chart.lines.length > 0, hovermode: "closest",
      legend: { orientation: "h", x: 0, y: 1.02, yanchor: "bottom", font: { size: 12 } } });
    layout.margin.t = layout.showlegend ? 40 : 12;
    layout.margin.l = narrow ? 60 : 72;
    layout.margin.r = narrow ? 12 : 24;
    layout.xaxis.range = zoomed.range || chart.range;
    layout.xaxis.nticks = narrow ? 5 : 9;
    layout.yaxis = Object.assign(Charts.yAxis(colour), { domain: [chart.difference ? lowest + GAP : 0, 1],
      title: { text: chart.y, standoff: 4 } });
    if (chart.log) {
      const range = logRange(chart.curves);
      if (chart.peaks.length && !narrow) range[1] += LABELS * (range[1] - range[0]);
      Object.assign(layout.yaxis, { type: "log", range }, decades(range));
    }
    const data = chart.curves.map((curve) => trace(curve, colour, "y"));
    if (chart.difference) {
      layout.yaxis2 = Object.assign(Charts.yAxis(colour), { domain: [0, lowest], nticks: 3, zeroline: true, zerolinecolor: colour("axis"),
        title: { text: chart.difference.title.replace(" (", "<br>("), standoff: 4, font: { size: 11 } } });
      layout.xaxis.anchor = "y2";
      data.push(Object.assign(trace(chart.difference, colour, "y2"), { showlegend: false }));
    }
    chart.lines.forEach((place, number) => {
      layout.shapes.push({ type: "line", xref: "x", yref: "y domain", x0: place, x1: place, y0: 0, y1: 1,
        line: { color: colour("indium"), width: 1.5 } });
      if (number === 0) {
        data.push({ type: "scatter", mode: "lines", name: chart.lines_name, x: [null], y: [null], line: { color: colour("indium"), width: 1.5 } });
      }
    });
    markPeaks(layout, chart.peaks, colour, narrow);
    return { data, layout };
  }

  // Thin lines with the names of peaks; without names on narrow screens.
  function markPeaks(layout, peaks, colour, narrow) {
    for (const [place, name] of peaks) {
      layout.shapes.push({ type: "line", xref: "x", yref: "y domain", x0: place, x1: place, y0: 0, y1: 1, layer: "below",
        line: { color: colour("grid"), width: 1 } });
      if (narrow) continue;
      layout.annotations.push({ xref: "x", yref: "y domain", x: place, y: 1, text: Texts.plain(name), textangle: -90, showarrow: false,
        xanchor: "right", yanchor: "top", font: { size: 10, color: colour("axis") } });
    }
  }

  // Draws all charts. Returns promises of the drawing, and pictures for downloads.
  function draw(charts) {
    const waiting = [], pictures = {};
    for (const chart of charts) {
      const node = Page.byId(chart.key), zoomed = {};
      const figure = (colour, width) => build(chart, zoomed, colour, width);
      const redraw = Charts.chart(node, figure);
      pictures[chart.key] = { name: chart.file + ".svg", svg: () => Charts.svg(figure) };
      waiting.push(redraw().then(() => {
        node.on("plotly_relayout", (change) => {
          if ("xaxis.range[0]" in change) zoomed.range = [change["xaxis.range[0]"], change["xaxis.range[1]"]];
        });
        node.on("plotly_doubleclick", () => { delete zoomed.range; redraw(); });
      }));
    }
    return { waiting, pictures };
  }

  return { draw };
})();
