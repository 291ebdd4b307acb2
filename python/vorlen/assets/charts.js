// Charts in the colours of the page, which change with the system and for paper; their SVG. Charts.chart(node, build) draws one.
"use strict";
const Charts = (() => {
  const touch = window.matchMedia("(pointer: coarse)").matches;
  // Without the tool bar of plotly, which would cover names of stages; the page has its own controls.
  const config = { responsive: true, displaylogo: false, displayModeBar: false, doubleClick: false };
  const TOP = 68, BOTTOM = 48;  // pixels
  const PAPER = { width: 670, height: 880 };  // pixels: A4 without margins, heading and caption
  const SVG_WIDTH = 900;
  const drawn = [];  // functions that draw a chart again, after a change of colours or width
  let paper = null;  // PAPER while the page is printed

  // The colours of the page, by the names of variables in page.css.
  function colours() {
    const style = getComputedStyle(document.documentElement);
    return (name) => style.getPropertyValue("--" + name).trim();
  }

  // What action() returns with the colours of light mode.
  function light(action) {
    const root = document.documentElement, was = root.classList.contains("paper");
    root.classList.add("paper");
    try { return action(); } finally { if (!was) root.classList.remove("paper"); }
  }

  function baseLayout(title, colour, width) {
    const narrow = width < 480;
    return {
      font: { family: Texts.FONT, size: narrow ? 12 : 13, color: colour("ink") },
      margin: { l: narrow ? 48 : 56, r: narrow ? 40 : 48, t: TOP, b: BOTTOM },
      paper_bgcolor: "rgba(0,0,0,0)", plot_bgcolor: "rgba(0,0,0,0)",
      hovermode: false,
      separators: ".",  // no thousands separators
      showlegend: false, dragmode: touch ? false : "zoom", shapes: [], annotations: [],
      xaxis: { title: { text: title, standoff: 6 }, showgrid: false, zeroline: false, showline: true, linecolor: colour("axis"),
        tickcolor: colour("axis"), ticks: "outside", exponentformat: "none",
        tickangle: 0 },
    };
  }

  function yAxis(colour) {
    return { gridcolor: colour("grid"), zeroline: false, showline: true, linecolor: colour("axis"), tickcolor: colour("axis"),
      ticks: "outside", exponentformat: "power", minexponent: 5, fixedrange: true, automargin: false, nticks: 5 };
  }

  function line(curve, colour) {
    return { type: "scatter", mode: "lines", name: curve.name,
      // Not simplified: lines of constant values would be drawn slightly tilted.
      line: { color: colour(curve.colour), width: curve.width || 2, dash: dashOf(curve), simplify: false } };
  }

  const SAMPLES = { dash: "╌", dot: "┈", solid: "—" };
  const dashOf = (curve) => curve.dashed ? "dash" : curve.dotted ? "dot" : "solid";

  // What is shown above a panel, in lines of at most that many pixels: its title and unit, and samples and names of its curves.
  function keyOf(title, unit, curves, colour, pixels) {
    const sample = (curve) => `<span style="color:${colour(curve.colour)}"><b>${SAMPLES[dashOf(curve)]}</b></span> `;
    const head = unit ? `${title} (${unit})` : title;
    if (curves.length === 1 && curves[0].name === title) return [sample(curves[0]) + head];
    const items = [[head, Texts.width(head.replace(/<[^>]*>/g, ""), 12)], ...curves.map((curve) =>
      [sample(curve) + Texts.plain(curve.name), Texts.width("— " + curve.name, 12) + 4])];
    const lines = [];
    let left = 0;
    for (const [text, width] of items) {
      if (lines.length && width + 16 <= left) lines[lines.length - 1] += "   " + text;
      else { lines.push(text); left = pixels; }
      left -= width + 16;
    }
    return lines;
  }

  // Redraws everything when the colours of the system change, or for paper.
  const redraw = () => Promise.all(drawn.map((draw) => draw()));
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
  function print(on) {
    paper = on ? PAPER : null;
    document.documentElement.classList.toggle("paper", on);
    redraw();
  }
  window.addEventListener("beforeprint", () => print(true));
  window.addEventListener("afterprint", () => print(false));

  // One chart. build(colour, width, height) gives data and layout; height is that of paper, or null.
  function chart(node, build) {
    const draw = () => {
      const figure = build(colours(), paper ? paper.width : node.clientWidth, paper ? paper.height : null);
      if (paper) Object.assign(figure.layout, { width: paper.width, autosize: false });
      else Object.assign(figure.layout, { autosize: true });
      return Plotly.react(node, figure.data, figure.layout, config);
    };
    drawn.push(draw);
    return draw;
  }

  // The chart as SVG for files: light, on white.
  function svg(build) {
    const figure = light(() => build(colours(), SVG_WIDTH, null));
    Object.assign(figure.layout, { width: SVG_WIDTH, paper_bgcolor: "#ffffff", plot_bgcolor: "#ffffff", autosize: false });
    const size = { format: "svg", width: SVG_WIDTH, height: figure.layout.height };
    return Plotly.toImage({ data: figure.data, layout: figure.layout }, size)
      .then((url) => decodeURIComponent(url.slice(url.indexOf(",") + 1)));
  }

  // An SVG element of the page as text for a file: with the styles it has in light mode, on white.
  function picture(node) {
    const copy = node.cloneNode(true), PROPERTIES = ["fill", "stroke", "stroke-width", "font-size", "font-family", "font-weight"];
    light(() => {
      const parts = [...node.querySelectorAll("rect, path, text, tspan")];
      [...copy.querySelectorAll("rect, path, text, tspan")].forEach((part, index) => {
        const style = getComputedStyle(parts[index]);
        for (const name of PROPERTIES) part.setAttribute(name, style.getPropertyValue(name));
        part.removeAttribute("class");
      });
    });
    const [, , width, height] = copy.getAttribute("viewBox").split(" ");
    const ground = document.createElementNS("http://www.w3.org/2000/svg", "rect");
    for (const [name, value] of Object.entries({ width, height, fill: "#ffffff" })) ground.setAttribute(name, value);
    copy.prepend(ground);
    for (const [name, value] of Object.entries({ width, height, xmlns: "http://www.w3.org/2000/svg" })) copy.setAttribute(name, value);
    return new XMLSerializer().serializeToString(copy);
  }

  return { TOP, BOTTOM, colours, baseLayout, yAxis, line, dashOf, keyOf, chart, svg, picture };
})();
