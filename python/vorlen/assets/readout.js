// A box beside the mouse with the values there: one for all charts of a page, inside of the window wherever the mouse is.
// Readout.show(place, head, rows) shows it, Readout.hide() hides it; Readout.text(value) formats a number.
"use strict";
const Readout = (() => {
  const NARROW = 600, EDGE = 8, DISTANCE = 18;  // pixels; in a narrower window the box is at its lower or upper edge
  let box = null;

  function element(tag, name, text, parent) {
    const made = document.createElement(tag);
    made.className = name;
    if (text) made.textContent = text;
    if (parent) parent.append(made);
    return made;
  }

  function made() {
    if (!box) {
      box = element("div", "readout no-print", "", document.body);
      box.setAttribute("aria-hidden", "true");
      box.hidden = true;
    }
    return box;
  }

  // A number with four digits, six from 1000 on. least: smaller ones are 0.
  function text(value, least) {
    const size = Math.abs(value);
    return size < least ? "0" : Texts.number(value, size >= 1000 && size < 1e7 ? 6 : 4);
  }

  // rows: {name, value, colour, dash}. place: {x, y} in the window.
  function show(place, head, rows) {
    const node = made(), table = document.createElement("table");
    node.replaceChildren();
    for (const line of head) element("div", "readout-head", line, node);
    for (const { name, value, colour, dash } of rows) {
      const row = table.insertRow();
      const sample = element("span", "readout-line", "", row.insertCell());
      sample.style.borderTop = `3px ${dash} ${colour}`;
      row.insertCell().textContent = name;
      row.insertCell().textContent = value;
    }
    node.append(table);
    node.hidden = false;
    const width = document.documentElement.clientWidth, height = window.innerHeight;
    node.classList.toggle("wide", width < NARROW);
    const own = node.getBoundingClientRect();
    let left = EDGE, top = place.y > height / 2 ? EDGE : height - own.height - EDGE;
    if (width >= NARROW) {
      left = place.x + DISTANCE + own.width + EDGE <= width ? place.x + DISTANCE : place.x - DISTANCE - own.width;
      top = place.y - own.height / 2;
    }
    node.style.left = Math.max(EDGE, Math.min(left, width - own.width - EDGE)) + "px";
    node.style.top = Math.max(EDGE, Math.min(top, height - own.height - EDGE)) + "px";
  }

  function hide() {
    if (box) box.hidden = true;
  }

  return { show, hide, text };
})();
