// Charts over time and over height that are linked: panels of curves, zoom, units. Linked.draw(model, nodes) draws a model of
// report_charts.py.
"use strict";
const Linked = (() => {
  const PANEL = 112, GAP = 10, KEY = 16;  // pixels; KEY: a line with names of curves above a panel

  // Charts over time and over height. nodes: {time, height}
  function draw(model, nodes) {
    const AXES = Object.keys(nodes), other = { time: "height", height: "time" };
    const state = { range: {}, unit: {}, hidden: new Set(model.panels.filter((panel) => panel.hidden).map((panel) => panel.key)) };
    const link = { time: model.points.rows.time, height: Axes.rising(model.points.rows.height) };
    const isLinked = !AXES.some((axis) => link[axis].includes(null));
    const listeners = [];
    const builders = {}, draws = {};
    let zooming = false, pointer = null;

    const shown = () => model.panels.filter((panel) => !state.hidden.has(panel.key));

    function build(axis, colour, width, limit) {
      const panels = shown(), layout = Charts.baseLayout(model.axes[axis], colour, width), data = [];
      const key = KEY * Math.max(...keys(layout, width, colour, panels).map((lines) => lines.length));
      layout.margin.t = Charts.TOP + key;
      const room = limit ? limit - Charts.TOP - key - Charts.BOTTOM : panels.length * PANEL + (panels.length - 1) * (GAP + key);
      layout.height = room + Charts.TOP + key + Charts.BOTTOM;
      const gap = (GAP + key) / room, share = (1 - gap * (panels.length - 1)) / panels.length;
      panels.forEach((panel, index) => {
        const suffix = index ? String(index + 1) : "", top = 1 - index * (share + gap);
        const [unit, factor, offset] = unitsOf(panel);
        const change = (value) => value === null ? null : value * factor + offset;
        const y = Charts.yAxis(colour);
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
          data.push(Object.assign(Charts.line(curve, colour), { x: model.points[curve.points][axis],
            y: factor === 1 && offset === 0 ? curve.y : curve.y.map(change), xaxis: "x", yaxis: "y" + suffix }));
        }
      });
      layout.xaxis.anchor = "y" + (panels.length > 1 ? panels.length : "");
      layout.xaxis.range = state.range[axis].slice();
      layout.xaxis.tick0 = 0;
      layout.xaxis.dtick = Axes.tickStep(state.range[axis], width - layout.margin.l - layout.margin.r);
      Object.assign(layout, marks(axis, colour, width, layout, panels));
      return { data, layout };
    }

    // The axis of a panel fits what is visible of its curves, the same in both charts; null: plotly chooses it.
    function rangeOf(panel) {
      if (panel.range || panel.log) return panel.range || null;
      const axis = isLinked ? "time" : AXES[0];
      let [low, high] = [Infinity, -Infinity];
      for (const curve of panel.curves) {
        const [least, most] = Axes.extent(model.points[curve.points][axis], curve.y, state.range[axis]);
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

    const unitsOf = (panel) => panel.units ? panel.units[state.unit[panel.key] || 0] : [panel.unit, 1, 0];
    const keys = (layout, width, colour, panels) => panels.map((panel) =>
      Charts.keyOf(panel.title, unitsOf(panel)[0], panel.curves, colour, width - layout.margin.l - 8));

    // Shading and names of the visible stages, and the names of curves above their panels.
    function marks(axis, colour, width, layout, panels) {
      const lines = keys(layout, width, colour, panels);
      const frame = { width, margin: layout.margin, shift: KEY * lines[0].length + 4 };
      const { shapes, annotations } = Stages.marks(model.stages, axis, state.range[axis], frame, colour);
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
        else if (isLinked) state.range[axis] = ranges[from].map((x) => Axes.convert(x, link[from], link[axis]));
      }
      pointer.leave();
      zooming = true;
      const changes = AXES.map((axis) => {
        const node = nodes[axis], layout = node._fullLayout, panels = shown();
        const change = marks(axis, Charts.colours(), node.clientWidth, layout, panels);
        const update = { "xaxis.range": state.range[axis].slice(),
          "xaxis.dtick": Axes.tickStep(state.range[axis], layout._size.w), shapes: change.shapes, annotations: change.annotations };
        panels.forEach((panel, index) => {
          const range = rangeOf(panel), [, factor, offset] = unitsOf(panel);
          if (range && !panel.log) update[`yaxis${index ? index + 1 : ""}.range`] = range.map((value) => value * factor + offset);
        });
        return Plotly.relayout(node, update);
      });
      for (const listener of listeners) listener(label || "");
      return Promise.all(changes).then(() => { zooming = false; });
    }

    // Dragging in one chart zooms both.
    function tie(axis) {
      nodes[axis].on("plotly_relayout", (event) => {
        if (zooming) return;
        if ("xaxis.range[0]" in event) show({ [axis]: [event["xaxis.range[0]"], event["xaxis.range[1]"]] });
        else if ("xaxis.range" in event) show({ [axis]: event["xaxis.range"] });
      });
      // A tap is two clicks, one of the finger and one of the mouse that browsers imitate.
      nodes[axis].on("plotly_doubleclick", () => { if (!pointer.isFinger()) show(model.regions[0], model.regions[0].label); });
    }

    const first = model.regions[model.first];
    for (const axis of AXES) {
      state.range[axis] = first[axis].slice();
      builders[axis] = (colour, width, limit) => build(axis, colour, width, limit);
      draws[axis] = Charts.chart(nodes[axis], builders[axis]);
    }
    const both = (axis, x) => Object.assign({ [axis]: x },
      isLinked ? { [other[axis]]: Axes.convert(x, link[axis], link[other[axis]]) } : {});
    const view = { nodes, points: model.points, stages: model.stages, range: state.range, shown, unitsOf, both };
    const again = () => Promise.all(AXES.map((axis) => draws[axis]()));
    return {
      ready: again().then(() => { pointer = Hover.follow(view); AXES.forEach(tie); }),
      first: first.label,
      show,
      onZoom: (listener) => listeners.push(listener),
      setUnit: (panel, index) => { state.unit[panel] = index; return again(); },
      setPanel: (panel, visible) => { state.hidden[visible ? "delete" : "add"](panel); return again(); },
      svg: (axis) => Charts.svg(builders[axis]),
    };
  }

  return { draw };
})();
