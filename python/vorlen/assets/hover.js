// The values of linked charts at the mouse or finger, in a box and as a line in both charts.
"use strict";
const Hover = (() => {
  const LINES = { dash: "dashed", dot: "dotted", solid: "solid" };  // of CSS
  const LEAST = 1e-5;  // of the largest value of a curve; smaller ones are shown as 0

  // Shows the values while the mouse is over the charts of a view: {nodes, points, stages, range: {time, height}, shown():
  // the panels, unitsOf(panel): [unit, factor, offset], both(axis, x): the place x of one chart in both}.
  // Returns leave(), which hides them, and isFinger(): whether the last press was one.
  function follow(view) {
    const { nodes, points, stages } = view, AXES = Object.keys(nodes);
    const sizes = new Map();
    let isFinger = false;

    // Rows of the read-out: the visible curves at x.
    function valuesAt(axis, x) {
      const colour = Charts.colours(), places = {}, rows = [];
      for (const panel of view.shown()) {
        const [unit, factor, offset] = view.unitsOf(panel);
        for (const curve of panel.curves) {
          if (!(curve.points in places)) places[curve.points] = Axes.positionOf(x, points[curve.points][axis]);
          const place = places[curve.points];
          if (!place) continue;
          const [from, to] = [curve.y[place[0]], curve.y[place[0] + 1]];
          if (from === null || to === null) continue;
          const value = (from + place[1] * (to - from)) * factor + offset, least = panel.log ? 0 : LEAST * largest(curve.y) * factor;
          rows.push({ name: curve.label || curve.name, value: Readout.text(value, least) + (unit ? "\u00a0" + unit : ""),
            colour: colour(curve.colour), dash: LINES[Charts.dashOf(curve)] });
        }
      }
      return rows;
    }

    function largest(y) {
      if (!sizes.has(y)) sizes.set(y, y.reduce((most, value) => Math.max(most, Math.abs(value)), 0));
      return sizes.get(y);
    }

    // A position with the digits that a pixel resolves.
    function positionText(axis, x) {
      const [low, high] = view.range[axis];
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
        const rows = valuesAt(axis, x);
        if (!rows.length) return leave();
        const at = view.both(axis, x);
        const head = [AXES.filter((which) => which in at).map((which) => positionText(which, at[which])).join(", ")];
        const here = stages.filter((stage) => stage[axis][0] <= x && x <= stage[axis][1]);
        if (here.length) head.push(here[here.length - 1].name);
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

    AXES.forEach(hover);
    return { leave, isFinger: () => isFinger };
  }

  return { follow };
})();
