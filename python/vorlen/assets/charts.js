// Charts over time and over height that are linked: panels, colours of the mode, zoom, units, names of stages, SVG.
// Charts.linked(model, nodes) draws a model of report_charts.py; Charts.chart(node, build) draws any other figure.
"use strict";
const Charts = (() => {
  const touch = window.matchMedia("(pointer: coarse)").matches;
  // Without the tool bar of plotly, which would cover names of stages; the page has its own controls.
  const config = { responsive: true, displaylogo: false, displayModeBar: false, doubleClick: false };
  const FONT = "system-ui, Segoe UI, Roboto, Helvetica, Arial, sans-serif";
  const PANEL = 112, GAP = 10, KEY = 16, TOP = 68, BOTTOM = 48;  // pixels; KEY: a line with names of curves above a panel
  const SLOPE = 28 * Math.PI / 180;  // of the names of stages
  const NAME_DISTANCE = 28, RAMP_DISTANCE = 50, NAME_MIN = 34;  // pixels between names, also of ramps; of the shortest name
  const SLIVER = 0.003;  // share of the visible range; thinner stages are not shaded
  const SHADED_MAX = 300;  // visible stages; more are not shaded
  const PAPER = { width: 670, height: 880 };  // pixels: A4 without margins, heading and caption
  const SVG_WIDTH = 900;
  const LEAST = 1e-5;  // of the largest value of a curve; smaller ones are shown as 0
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

  const plain = (text) => text.replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/>/g, "&gt;");

  const pen = document.createElement("canvas").getContext("2d");
  function textWidth(text, size) {
    pen.font = size + "px " + FONT;
    return pen.measureText(text).width;
  }

  // The text, shortened to that many pixels; empty if too little would be left.
  function shortened(text, size, pixels) {
    if (textWidth(text, size) <= pixels) return text;
    if (pixels < NAME_MIN) return "";
    let length = text.length;
    while (length > 1 && textWidth(text.slice(0, length) + "…", size) > pixels) length -= 1;
    return text.slice(0, length).trimEnd() + "…";
  }

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

  function baseLayout(title, colour, width) {
    const narrow = width < 480;
    return {
      font: { family: FONT, size: narrow ? 12 : 13, color: colour("ink") },
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

  // Distance of the numbers of an axis: 1, 2 or 5 times a power of ten; at least three numbers unless these would touch.
  function tickStep([low, high], pixels) {
    const span = high - low, largest = Math.max(Math.abs(low), Math.abs(high));
    const steps = [];
    for (let power = Math.floor(Math.log10(span)) + 1; steps.length < 12; power--) steps.push(...[5, 2, 1].map((n) => n * 10 ** power));
    const count = (step) => Math.floor(high / step) - Math.ceil(low / step) + 1;
    const needed = (step, room) => textWidth(Number((Math.round(largest / step) * step).toPrecision(12)).toString(), 13) + room;
    const fits = (step, room) => step * pixels / span >= needed(step, room);
    const chosen = steps.filter((step) => fits(step, 40)).pop() || steps[0];
    if (count(chosen) >= 3) return chosen;
    return steps.find((step) => count(step) >= 3 && fits(step, 4)) || chosen;
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
    const items = [[head, textWidth(head.replace(/<[^>]*>/g, ""), 12)], ...curves.map((curve) =>
      [sample(curve) + plain(curve.name), textWidth("— " + curve.name, 12) + 4])];
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

  // Charts over time and over height. nodes: {time, height}
  function linked(model, nodes) {
    const AXES = Object.keys(nodes), other = { time: "height", height: "time" };
    const state = { range: {}, unit: {}, hidden: new Set(model.panels.filter((panel) => panel.hidden).map((panel) => panel.key)) };
    const link = { time: model.points.rows.time, height: rising(model.points.rows.height) };
    const isLinked = !AXES.some((axis) => link[axis].includes(null));
    const listeners = [];
    const builders = {}, draws = {};
    let zooming = false, isFinger = false;

    function rising(values) {
      let highest = -Infinity;
      return values.map((value) => value === null ? null : (highest = Math.max(highest, value)));
    }

    const shown = () => model.panels.filter((panel) => !state.hidden.has(panel.key));

    function build(axis, colour, width, limit) {
      const panels = shown(), layout = baseLayout(model.axes[axis], colour, width), data = [];
      const key = KEY * Math.max(...keys(layout, width, colour, panels).map((lines) => lines.length));
      layout.margin.t = TOP + key;
      const room = limit ? limit - TOP - key - BOTTOM : panels.length * PANEL + (panels.length - 1) * (GAP + key);
      layout.height = room + TOP + key + BOTTOM;
      const gap = (GAP + key) / room, share = (1 - gap * (panels.length - 1)) / panels.length;
      panels.forEach((panel, index) => {
        const suffix = index ? String(index + 1) : "", top = 1 - index * (share + gap);
        const [unit, factor, offset] = unitsOf(panel);
        const change = (value) => value === null ? null : value * factor + offset;
        const y = yAxis(colour);
        y.domain = [Math.max(top - share, 0), top];
        if (panel.log) y.type = "log";
        if (panel.log && panel.range) {
          delete y.nticks;
          y.dtick = Math.max(1, Math.ceil((panel.range[1] - panel.range[0]) / 4));  // decades
        }
        const range = rangeOf(panel);
        if (range) y.range = panel.log ? range.slice() : range.map(change);
        layout["yaxis" + suffix] = y;
        for (const curve of panel.curves) {
          data.push(Object.assign(line(curve, colour), { x: model.points[curve.points][axis],
            y: factor === 1 && offset === 0 ? curve.y : curve.y.map(change), xaxis: "x", yaxis: "y" + suffix }));
        }
      });
      layout.xaxis.anchor = "y" + (panels.length > 1 ? panels.length : "");
      layout.xaxis.range = state.range[axis].slice();
      layout.xaxis.tick0 = 0;
      layout.xaxis.dtick = tickStep(state.range[axis], width - layout.margin.l - layout.margin.r);
      Object.assign(layout, marks(axis, colour, width, layout, panels));
      return { data, layout };
    }

    // The axis of a panel fits what is visible of its curves, the same in both charts; null: plotly chooses it.
    function rangeOf(panel) {
      if (panel.range || panel.log) return panel.range || null;
      const axis = isLinked ? "time" : AXES[0];
      let [low, high] = [Infinity, -Infinity];
      for (const curve of panel.curves) {
        const [least, most] = extent(model.points[curve.points][axis], curve.y, state.range[axis]);
        low = Math.min(low, least);
        high = Math.max(high, most);
      }
      if (panel.zero) { low = Math.min(low, 0); high = Math.max(high, 0); }
      if (!(low <= high)) return null;
      const missing = (panel.least || (high > low ? 0 : 1)) - (high - low);
      if (missing > 0) { high += panel.zero ? missing : missing / 2; low -= panel.zero ? 0 : missing / 2; }
      const room = 0.06 * (high - low);
      return [panel.zero && low === 0 ? 0 : low - room, high + room];
    }

    // The smallest and the largest y of a curve within a range of x, without its outermost 0.2 %, where other stages end.
    function extent(x, y, range) {
      const edge = 0.002 * (range[1] - range[0]), from = range[0] + edge, to = range[1] - edge;
      let [low, high] = [Infinity, -Infinity];
      const see = (value) => { low = Math.min(low, value); high = Math.max(high, value); };
      for (let i = 0; i < x.length; i++) {
        if (x[i] === null || y[i] === null) continue;
        if (x[i] >= from && x[i] <= to) see(y[i]);
        if (i === 0 || x[i - 1] === null || y[i - 1] === null) continue;
        for (const border of [from, to]) {  // between two points
          const share = (border - x[i - 1]) / (x[i] - x[i - 1]);
          if (share > 0 && share < 1) see(y[i - 1] + share * (y[i] - y[i - 1]));
        }
      }
      return [low, high];
    }

    const unitsOf = (panel) => panel.units ? panel.units[state.unit[panel.key] || 0] : [panel.unit, 1, 0];
    const keys = (layout, width, colour, panels) => panels.map((panel) =>
      keyOf(panel.title, unitsOf(panel)[0], panel.curves, colour, width - layout.margin.l - 8));

    // Shading and names of the visible stages, and the names of curves above their panels.
    function marks(axis, colour, width, layout, panels) {
      const [low, high] = state.range[axis], margin = layout.margin;
      const inner = width - margin.l - margin.r, pixels = inner / (high - low);
      const visible = model.stages.filter((stage) => stage[axis][1] > low && stage[axis][0] < high);
      const shapes = [], annotations = [];
      // Alternate layers, without slivers such as pauses: these would give two neighbouring layers the same shade.
      const bands = visible.filter((stage) => stage[axis][1] - stage[axis][0] > SLIVER * (high - low));
      if (bands.length <= SHADED_MAX) {
        for (const stage of bands.filter((_, index) => index % 2)) {
          shapes.push({ type: "rect", xref: "x", yref: "paper", x0: stage[axis][0], x1: stage[axis][1], y0: 0, y1: 1,
            fillcolor: colour("shade"), line: { width: 0 }, layer: "below" });
        }
      }
      const lines = keys(layout, width, colour, panels), shift = KEY * lines[0].length + 4;
      const room = (margin.t - shift - 12) / Math.sin(SLOPE), named = [];
      const ends = (stage) => [Math.max(stage[axis][0], low), Math.min(stage[axis][1], high)];
      const size = (stage) => ends(stage)[1] - ends(stage)[0];
      const ranked = visible.slice().sort((a, b) => b.rank - a.rank || size(b) - size(a) || a.number - b.number);
      for (const stage of ranked) {
        if (named.length > inner / NAME_DISTANCE) break;
        const middle = 0.5 * (ends(stage)[0] + ends(stage)[1]), place = (middle - low) * pixels;
        const distance = stage.rank ? NAME_DISTANCE : RAMP_DISTANCE;
        if (size(stage) * pixels < (stage.rank ? 1 : 6) || named.some((at) => Math.abs(at - place) < distance)) continue;
        const right = (width - margin.l - place - 10) / Math.cos(SLOPE);
        const text = shortened(stage.name, 11, Math.min(room, right));
        if (!text) continue;
        named.push(place);
        annotations.push({ x: middle, xref: "x", y: 1, yref: "paper", yshift: shift, yanchor: "bottom", xanchor: "left", textangle: -28,
          showarrow: false, font: { size: 11, color: colour("ink") }, text: plain(text), name: "stage" });
      }
      panels.forEach((panel, index) => {
        const axisOf = layout["yaxis" + (index ? index + 1 : "")];
        annotations.push({ x: 0, xref: "paper", y: axisOf.domain[1], yref: "paper", xanchor: "left", yanchor: "bottom",
          showarrow: false, align: "left", font: { size: 12 }, text: lines[index].join("<br>"), name: "key" });
      });
      return { shapes, annotations };
    }

    // Shows ranges {time, height}; without one of them that of the other chart is converted.
    function show(ranges, label) {
      for (const axis of AXES) {
        const given = ranges[axis], from = other[axis];
        if (given) state.range[axis] = given.slice();
        else if (isLinked) state.range[axis] = ranges[from].map((x) => convert(x, link[from], link[axis]));
      }
      leave();
      zooming = true;
      const changes = AXES.map((axis) => {
        const node = nodes[axis], layout = node._fullLayout, panels = shown();
        const change = marks(axis, colours(), node.clientWidth, layout, panels);
        const update = { "xaxis.range": state.range[axis].slice(),
          "xaxis.dtick": tickStep(state.range[axis], layout._size.w), shapes: change.shapes, annotations: change.annotations };
        panels.forEach((panel, index) => {
          const range = rangeOf(panel), [, factor, offset] = unitsOf(panel);
          if (range && !panel.log) update[`yaxis${index ? index + 1 : ""}.range`] = range.map((value) => value * factor + offset);
        });
        return Plotly.relayout(node, update);
      });
      for (const listener of listeners) listener(label || "");
      return Promise.all(changes).then(() => { zooming = false; });
    }

    // The position of x among rising values, as an index and the share of the way to the next; null if it is outside. Where
    // values fall because material evaporated, the last position counts.
    function positionOf(x, values) {
      for (let i = values.length - 1; i > 0; i--) {
        const from = values[i - 1], to = values[i];
        if (from !== null && to !== null && from <= x && x <= to && from < to) return [i - 1, (x - from) / (to - from)];
      }
      return null;
    }

    // Rows of the read-out: the visible curves at x.
    function valuesAt(axis, x) {
      const colour = colours(), places = {}, rows = [];
      for (const panel of shown()) {
        const [unit, factor, offset] = unitsOf(panel);
        for (const curve of panel.curves) {
          if (!(curve.points in places)) places[curve.points] = positionOf(x, model.points[curve.points][axis]);
          const place = places[curve.points];
          if (!place) continue;
          const [from, to] = [curve.y[place[0]], curve.y[place[0] + 1]];
          if (from === null || to === null) continue;
          const value = (from + place[1] * (to - from)) * factor + offset, least = panel.log ? 0 : LEAST * largest(curve.y) * factor;
          rows.push({ name: curve.label || curve.name, value: Readout.text(value, least) + (unit ? "\u00a0" + unit : ""),
            colour: colour(curve.colour), dash: curve.dashed ? "dashed" : curve.dotted ? "dotted" : "solid" });
        }
      }
      return rows;
    }

    const sizes = new Map();
    function largest(y) {
      if (!sizes.has(y)) sizes.set(y, y.reduce((most, value) => Math.max(most, Math.abs(value)), 0));
      return sizes.get(y);
    }

    // A position with the digits that a pixel resolves.
    function positionText(axis, x) {
      const [low, high] = state.range[axis];
      const digits = Math.min(6, Math.max(0, Math.ceil(Math.log10(nodes[axis].clientWidth / (high - low)))));
      return `${axis} ${Number(x.toFixed(digits))} ${axis === "time" ? "s" : "nm"}`.replace("-", "−");
    }

    // A vertical line in a chart; null hides it.
    function drawLine(axis, x) {
      const node = nodes[axis], { xaxis, _size: size } = node._fullLayout;
      let line = node.querySelector(".readout-place");
      if (!line) {
        line = document.createElement("div");
        line.className = "readout-place no-print";
        line.setAttribute("aria-hidden", "true");
        node.append(line);
      }
      const place = x === null ? -1 : xaxis.l2p(x);
      line.hidden = !(place >= 0 && place <= size.w);
      Object.assign(line.style, { left: `${size.l + place}px`, top: `${size.t}px`, height: `${size.h}px` });
    }

    function leave() {
      Readout.hide();
      AXES.forEach((axis) => drawLine(axis, null));
    }

    // Shows the values of all panels at the mouse or finger, and the same place in both charts.
    function hover(axis) {
      const node = nodes[axis];
      const isPanel = (event) => event.target.classList.contains("nsewdrag");
      function showAt(event) {
        const x = node._fullLayout.xaxis.p2d(event.clientX - event.target.getBoundingClientRect().left);
        const rows = valuesAt(axis, x), at = { [axis]: x };
        if (!rows.length) return leave();
        if (isLinked) at[other[axis]] = convert(x, link[axis], link[other[axis]]);
        const head = [AXES.filter((which) => which in at).map((which) => positionText(which, at[which])).join(", ")];
        const stages = model.stages.filter((stage) => stage[axis][0] <= x && x <= stage[axis][1]);
        if (stages.length) head.push(stages[stages.length - 1].name);
        AXES.forEach((which) => drawLine(which, which in at ? at[which] : null));
        return Readout.show({ x: event.clientX, y: event.clientY }, head, rows);
      }
      const isTouch = (event) => event.pointerType === "touch";
      node.addEventListener("pointermove", (event) => {
        if (isTouch(event)) return;
        if (isPanel(event) && !event.buttons) showAt(event);
        else leave();
      }, true);
      node.addEventListener("pointerleave", (event) => { if (!isTouch(event)) leave(); });
      node.addEventListener("pointercancel", leave);  // the page is scrolled
      document.addEventListener("pointerdown", (event) => {
        if (!node.clientWidth) return;  // another pair of charts is shown
        isFinger = isTouch(event);
        if (isTouch(event) && node.contains(event.target) && isPanel(event)) showAt(event);
        else if (!AXES.some((which) => nodes[which].contains(event.target)) || !isTouch(event)) leave();
      }, true);
    }

    // Dragging in one chart zooms both.
    function tie(axis) {
      nodes[axis].on("plotly_relayout", (event) => {
        if (zooming) return;
        if ("xaxis.range[0]" in event) show({ [axis]: [event["xaxis.range[0]"], event["xaxis.range[1]"]] });
        else if ("xaxis.range" in event) show({ [axis]: event["xaxis.range"] });
      });
      // A tap is two clicks, one of the finger and one of the mouse that browsers imitate.
      nodes[axis].on("plotly_doubleclick", () => { if (!isFinger) show(model.regions[0], model.regions[0].label); });
    }

    const first = model.regions[model.first];
    for (const axis of AXES) {
      state.range[axis] = first[axis].slice();
      builders[axis] = (colour, width, limit) => build(axis, colour, width, limit);
      draws[axis] = chart(nodes[axis], builders[axis]);
    }
    const again = () => Promise.all(AXES.map((axis) => draws[axis]()));
    return {
      ready: again().then(() => AXES.forEach((axis) => { hover(axis); tie(axis); })),
      first: first.label,
      show,
      onZoom: (listener) => listeners.push(listener),
      setUnit: (panel, index) => { state.unit[panel] = index; return again(); },
      setPanel: (panel, visible) => { state.hidden[visible ? "delete" : "add"](panel); return again(); },
      svg: (axis) => svg(builders[axis]),
    };
  }

  return { linked, chart, svg, picture, baseLayout, yAxis, line, keyOf, colours, plain };
})();
