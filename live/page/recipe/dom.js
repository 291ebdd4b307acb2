// Making elements of the page.

let count = 0;

// el("input", {type: "text", class: "x", onclick: f, "aria-label": "y"}, child, "text", ...). Attributes that are null,
// undefined or false are left out; children that are null too.
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith("on")) node.addEventListener(name.slice(2), value);
    else node.setAttribute(name, value === true ? "" : value);
  }
  node.append(...children.flat(Infinity).filter(child => child !== null && child !== undefined));
  return node;
}

export function freshId(word) {
  return `${word}-${++count}`;
}

export function button(text, onclick, attributes = {}) {
  return el("button", {type: "button", onclick, ...attributes}, text);
}

export function debounced(action, milliseconds) {
  let timer = 0;
  const later = (...values) => {
    clearTimeout(timer);
    timer = setTimeout(() => action(...values), milliseconds);
  };
  later.cancel = () => clearTimeout(timer);
  return later;
}
