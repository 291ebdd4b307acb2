// What the mouse, a finger or the arrow keys do on the charts: a vertical line through all panels with the values beside the
// names, and zoom by dragging, back by a double click.
import { fraction, number, SPACE } from "./numbers.js";
import { colour } from "./palette.js";
import { nearestRow } from "./panels.js";
import { setText, svgElement } from "./svg.js";

const DRAG = 6; // pixels; a shorter drag is a click
const STEP = 0.01; // of the visible range, by an arrow key

// shown(): {view, current, others, head} as they were drawn; head(row) is the text above the panels. onZoom(range or null).
export function connectCursor(charts, shown, onZoom) {
  const { svg } = charts;
  let place = null; // on the axis; null without a cursor
  let resting = null; // where the line is without a mouse
  let dragFrom = null; // pixel

  const pixelOf = (event) => {
    const box = svg.getBoundingClientRect();
    return ((event.clientX - box.left) * svg.viewBox.baseVal.width) / box.width;
  };
  const inside = (pixel) => Math.min(Math.max(pixel, charts.area().left), charts.area().right);

  function update() {
    const parts = charts.readout(), { view, current, others, head } = shown() ?? {}, at = place ?? resting;
    if (!parts.head) return;
    if (at === null || !current) {
      setText(parts.head, "");
      parts.cursor.setAttribute("d", "");
      for (const { values } of parts.frames) {
        values.forEach((node) => setText(node, ""));
        values[0]?.parentNode.removeAttribute("textLength");
      }
      return;
    }
    const { x } = current, row = nearestRow(x[view.axis], at);
    setText(parts.head, head ? head(row) : headOf(current, row));
    const { top, bottom, left, right } = charts.area();
    const pixel = Math.min(Math.max(charts.pixel(x[view.axis][row]), left), right);
    parts.cursor.setAttribute("d", `M${pixel.toFixed(1)} ${top}V${bottom}`);
    current.panels.forEach((panel, index) => {
      panel.curves.forEach((curve, item) => {
        const node = parts.frames[index].values[item];
        node.replaceChildren(textOf(curve, view.axis, at));
        for (const other of others) {
          const same = other.panels.find(({ key }) => key === panel.key)?.curves.find(({ name }) => name === curve.name);
          if (same) svgElement("tspan", { dx: 5, style: `fill: ${colour(other.colour)}` }, node, textOf(same, view.axis, at));
        }
      });
      fit(parts.frames[index], charts.area().legend);
    });
  }

  function headOf({ x, stages }, row) {
    const stage = stages.find(({ time }) => x.time[row] >= time[0] && x.time[row] <= time[1]);
    return `${number(x.height[row], 5)}${SPACE}nm, ${number(x.time[row], 6)}${SPACE}s${stage ? `, ${stage.name}` : ""}`;
  }

  // Values of other runs are left out where they don't fit beside the names; then letters get narrower.
  function fit(frame, width) {
    const legend = frame.values[0]?.parentNode;
    if (!legend) return;
    for (const name of ["textLength", "lengthAdjust"]) legend.removeAttribute(name);
    if (legend.getComputedTextLength() > width) {
      for (const node of frame.values) node.querySelectorAll("tspan").forEach((part) => part.remove());
    }
    if (legend.getComputedTextLength() > width) {
      legend.setAttribute("textLength", width);
      legend.setAttribute("lengthAdjust", "spacingAndGlyphs");
    }
  }

  function textOf(curve, axis, where) {
    const value = curve.y[nearestRow(curve.x[axis], where)];
    return curve.digits === "fraction" ? fraction(value) : number(value, 4);
  }

  svg.addEventListener("pointermove", (event) => {
    const pixel = pixelOf(event);
    if (dragFrom !== null) {
      const [low, high] = [dragFrom, inside(pixel)].sort((a, b) => a - b);
      const { selection } = charts.readout();
      selection.setAttribute("x", low);
      selection.setAttribute("width", high - low);
    }
    place = charts.area().place(inside(pixel));
    update();
  });
  svg.addEventListener("pointerdown", (event) => {
    if (event.button !== 0) return;
    dragFrom = inside(pixelOf(event));
    svg.setPointerCapture(event.pointerId);
    place = charts.area().place(dragFrom);
    update();
  });
  const end = (event) => {
    if (dragFrom === null) return;
    const range = [dragFrom, inside(pixelOf(event))].sort((a, b) => a - b);
    dragFrom = null;
    charts.readout().selection.setAttribute("width", 0);
    if (event.type === "pointerup" && range[1] - range[0] > DRAG) onZoom(range.map(charts.area().place));
  };
  svg.addEventListener("pointerup", end);
  svg.addEventListener("pointercancel", end);
  const leave = () => { place = null; update(); };
  svg.addEventListener("pointerleave", (event) => { if (event.pointerType === "mouse") leave(); });
  svg.addEventListener("blur", leave);
  svg.addEventListener("dblclick", () => onZoom(null));
  svg.addEventListener("keydown", (event) => {
    const { view } = shown() ?? {};
    if (!view) return;
    const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (event.key === "Escape") onZoom(null);
    if (!step) return;
    event.preventDefault();
    const [low, high] = view.range;
    place = Math.min(Math.max((place ?? (low + high) / 2) + step * STEP * (high - low), low), high);
    update();
  });
  return { update, rest(where) { resting = where; update(); } };
}
