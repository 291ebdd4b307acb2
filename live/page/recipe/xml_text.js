// The elements of an XML text with their places, and edits that change only the characters concerned.
//
// An element is {tag, attributes, begin, tagEnd, endTag, end, children, parent}: offsets of the start tag, past it, of
// the end tag (tagEnd if there is none) and past the element. attributes maps a name to {text, begin, end}: the decoded
// text, and the place of the value with its quotes. An edit is {begin, end, text}.

const DEPTH_MAX = 100; // of nested elements, as in the library
const NAME = /[^\s\/>"'<=!?]+/y;
const ATTRIBUTE = /\s+([^\s=<>"'\/]+)\s*=\s*("[^"<]*"|'[^'<]*')/y;
const TAG_END = /\s*(\/?)>/y;
const ENTITY = /&(?:#(\d+)|#x([\da-f]+)|(amp|lt|gt|quot|apos));/gi;
const ENTITIES = {amp: "&", lt: "<", gt: ">", quot: '"', apos: "'"};

// {root} of a well-formed text, or {error: {message, line, column}}. Takes time proportional to the length, and no
// recursion, so that any text is safe.
export function parseXml(text) {
  const fault = (message, place) => ({error: {message, ...placeAt(text, place)}});
  const top = {tag: "", children: [], parent: null};
  let open = top, depth = 0, place = text.startsWith("\ufeff") ? 1 : 0;
  while (place < text.length) {
    const next = text.indexOf("<", place);
    const between = text.slice(place, next < 0 ? text.length : next);
    if (open === top && between.trim()) return fault("text outside of the root element", place + between.search(/\S/));
    if (next < 0) break;
    const special = skipped(text, next);
    if (special) {
      if (special.end < 0) return fault(`${special.what} without an end`, next);
      place = special.end;
    } else if (text.startsWith("</", next)) {
      const end = text.indexOf(">", next);
      const tag = end < 0 ? "" : text.slice(next + 2, end).trim();
      if (open === top) return fault(`</${tag}> without a start tag`, next);
      if (tag !== open.tag) return fault(`</${tag}> where </${open.tag}> is expected`, next);
      open.endTag = next;
      open.end = place = end + 1;
      open = open.parent;
      --depth;
    } else {
      if (open === top && top.children.length) return fault("a second root element", next);
      const element = startTag(text, next, open);
      if (element.fault) return fault(element.fault, element.place);
      open.children.push(element);
      place = element.tagEnd;
      if (element.endTag === undefined) {
        if (++depth > DEPTH_MAX) return fault(`elements are nested more than ${DEPTH_MAX} deep`, next);
        open = element;
      }
    }
  }
  if (open !== top) return fault(`<${open.tag}> has no end tag`, open.begin);
  if (!top.children.length) return fault("the text has no elements", 0);
  top.children[0].parent = null;
  return {root: top.children[0]};
}

// The end of a comment, CDATA section, declaration or document type at a place, -1 if it has none; null for a tag.
function skipped(text, place) {
  const past = (what, mark, from) => {
    const end = text.indexOf(mark, from);
    return {what, end: end < 0 ? -1 : end + mark.length};
  };
  if (text.startsWith("<!--", place)) return past("a comment", "-->", place + 4);
  if (text.startsWith("<![CDATA[", place)) return past("a CDATA section", "]]>", place + 9);
  if (text.startsWith("<?", place)) return past("a declaration", "?>", place + 2);
  if (!text.startsWith("<!", place)) return null;
  const subset = text.slice(place, place + 300).match(/^<![^>\[]*\[/);
  return subset ? past("a document type", "]>", place + subset[0].length) : past("a document type", ">", place);
}

function startTag(text, begin, parent) {
  NAME.lastIndex = begin + 1;
  const name = NAME.exec(text);
  if (!name) return {fault: "< without the name of an element", place: begin};
  const element = {tag: name[0], attributes: {}, begin, children: [], parent};
  let place = NAME.lastIndex;
  for (;;) {
    ATTRIBUTE.lastIndex = place;
    const match = ATTRIBUTE.exec(text);
    if (!match) break;
    place = ATTRIBUTE.lastIndex;
    if (Object.hasOwn(element.attributes, match[1])) return {fault: `<${name[0]}> has two attributes ${match[1]}`, place: begin};
    const value = match[2];
    element.attributes[match[1]] = {text: decoded(value.slice(1, -1)), begin: place - value.length, end: place};
  }
  TAG_END.lastIndex = place;
  const end = TAG_END.exec(text);
  if (!end) return {fault: `<${name[0]}> is not complete`, place: begin};
  element.tagEnd = TAG_END.lastIndex;
  if (end[1]) element.endTag = element.end = element.tagEnd;
  return element;
}

function decoded(text) {
  return text.includes("&") ? text.replace(ENTITY, (whole, decimal, hexadecimal, name) => {
    if (name) return ENTITIES[name.toLowerCase()];
    const code = decimal ? parseInt(decimal, 10) : parseInt(hexadecimal, 16);
    return code <= 0x10ffff ? String.fromCodePoint(code) : whole;
  }) : text;
}

export function escaped(text, quote = '"') {
  const safe = text.replaceAll("&", "&amp;").replaceAll("<", "&lt;").replace(/[\t\n\r]/g, c => `&#${c.charCodeAt(0)};`);
  return quote === '"' ? safe.replaceAll('"', "&quot;") : safe.replaceAll("'", "&apos;");
}

// ---- Elements by path: names below the root, joined by /. Of several elements of one name the first is read.

export function childOf(element, tag) {
  return element.children.find(child => child.tag === tag) ?? null;
}

export function elementAt(root, path) {
  let element = root;
  for (const tag of path ? path.split("/") : []) element = element && childOf(element, tag);
  return element;
}

export function attributeAt(root, path, name = "val") {
  return elementAt(root, path)?.attributes[name]?.text ?? null;
}

export function pathOf(element) {
  const tags = [];
  for (; element.parent; element = element.parent) tags.unshift(element.tag);
  return tags.join("/");
}

// The innermost element at an offset; null outside of the root.
export function elementAround(root, offset) {
  if (offset < root.begin || offset >= root.end) return null;
  let element = root;
  for (;;) {
    const inner = element.children.find(child => offset >= child.begin && offset < child.end);
    if (!inner) return element;
    element = inner;
  }
}

// ---- Lines and columns, from 1; columns are characters

export function placeAt(text, offset) {
  let line = 1, begin = 0;
  for (const match of text.slice(0, offset).matchAll(/\r\n|\r|\n/g)) {
    ++line;
    begin = match.index + match[0].length;
  }
  return {line, column: [...text.slice(begin, offset)].length + 1};
}

export function offsetOf(text, line, column) {
  let begin = 0;
  const lineEnd = /\r\n|\r|\n/g;
  for (let k = 1; k < line; ++k) {
    if (!lineEnd.exec(text)) return text.length;
    begin = lineEnd.lastIndex;
  }
  for (let k = 1; k < column && begin < text.length; ++k) begin += text.codePointAt(begin) > 0xffff ? 2 : 1;
  return begin;
}

// ---- Edits

export function applied(text, edits) {
  let place = 0, out = "";
  for (const edit of [...edits].sort((a, b) => a.begin - b.begin)) {
    out += text.slice(place, edit.begin) + edit.text;
    place = edit.end;
  }
  return out + text.slice(place);
}

// The edits that give an attribute a text; none if it has this text or the element lacks the attribute.
export function attributeEdits(source, element, name, text) {
  const attribute = element?.attributes[name];
  if (!attribute || attribute.text === text) return [];
  const quote = source[attribute.begin];
  return [{begin: attribute.begin + 1, end: attribute.end - 1, text: escaped(text, quote)}];
}

// The edits that give an element another name.
export function tagEdits(element, tag) {
  const edits = [{begin: element.begin + 1, end: element.begin + 1 + element.tag.length, text: tag}];
  if (element.end > element.endTag) edits.push({begin: element.endTag + 2, end: element.endTag + 2 + element.tag.length, text: tag});
  return edits;
}

// The blanks and line ends before a place.
export function spaceBefore(text, place) {
  let begin = place;
  while (begin > 0 && " \t\r\n".includes(text[begin - 1])) --begin;
  return text.slice(begin, place);
}

// The line end and the indentation before a place; empty if something else precedes it on the line.
export function lineStart(text, place) {
  return spaceBefore(text, place).match(/\r?\n[ \t]*$/)?.[0] ?? "";
}

export function deeper(start) {
  return start && start + (start.includes("\t") ? "\t" : "  ");
}

// XML whose lines start with other blanks, also in comments but not within tags and CDATA sections.
export function reindented(text, old, fresh) {
  const parts = /(<[^\s!?>"'](?:[^"'>]+|"[^"]*"|'[^']*')*>|<!\[CDATA\[[^]*?\]\]>|<\?[^]*?\?>)|<!--[^]*?-->|\n[ \t]*/g;
  return text.replace(parts, (whole, kept) => kept ?? whole.replaceAll("\n" + old, "\n" + fresh));
}
