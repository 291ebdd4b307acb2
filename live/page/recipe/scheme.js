// The choice of the integration scheme in a recipe that names none.
import {applied, attributeEdits, elementAt, lineStart, parseXml, spaceBefore} from "./xml_text.js";

const PATH = "integration/scheme";

// An element without a value counts too: it has a field.
export function namesScheme(root) {
  return elementAt(root, PATH) !== null;
}

// The text of a recipe with the scheme; elements that are missing are added at the end of the one that they belong to.
export function withScheme(text, scheme) {
  const {root} = parseXml(text), known = elementAt(root, PATH), outer = elementAt(root, "integration");
  if (known) return applied(text, attributeEdits(text, known, "val", scheme));
  const inner = `<scheme val="${scheme}"/>`;
  return outer ? withChild(text, outer, inner) : withChild(text, root, `<integration>${inner}</integration>`);
}

function withChild(text, element, child) {
  if (element.end === element.endTag) { // <integration/>
    const start = text.slice(element.begin, element.tagEnd - 2).trimEnd();
    return applied(text, [{begin: element.begin, end: element.end, text: `${start}>${child}</${element.tag}>`}]);
  }
  const last = element.children.at(-1), place = element.endTag - spaceBefore(text, element.endTag).length;
  return applied(text, [{begin: place, end: place, text: (last ? lineStart(text, last.begin) : "") + child}]);
}
