// Elements of SVG, and saved pictures.
import { lightStyle } from "./palette.js";

const NAMESPACE = "http://www.w3.org/2000/svg";

export function svgElement(tag, attributes = {}, parent = null, text = "") {
  const made = document.createElementNS(NAMESPACE, tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  if (text) made.textContent = text;
  parent?.append(made);
  return made;
}

export function htmlElement(tag, attributes = {}, parent = null, text = "") {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  if (text) made.textContent = text;
  parent?.append(made);
  return made;
}

// Sets a text only if it changed: layout is what costs time while a slider moves.
export function setText(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

// The text of a file that shows the picture by itself: with its size, a white ground and light colours.
export function savedPicture(svg) {
  const copy = svg.cloneNode(true), [, , width, height] = svg.getAttribute("viewBox").split(" ");
  for (const part of copy.querySelectorAll("[data-live]")) part.remove(); // what follows the mouse
  for (const name of ["tabindex", "style"]) copy.removeAttribute(name);
  copy.setAttribute("xmlns", NAMESPACE);
  copy.setAttribute("width", width);
  copy.setAttribute("height", height);
  copy.prepend(svgElement("style", {}, null, lightStyle()), svgElement("rect", { width, height, fill: "#ffffff" }));
  return new XMLSerializer().serializeToString(copy) + "\n";
}
