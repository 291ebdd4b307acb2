// A recipe in the fragment of an address: "#recipe=" and base64url of the deflated JSON {name, xml, growth}:
// growth is the state of the growth half, if there is one to keep.

const MARK = "#recipe=";
const SIZE_MAX = 8e6; // bytes of the JSON, so that a small link can't fill the memory

async function through(stream, bytes, limit = Infinity) {
  const reader = new Blob([bytes]).stream().pipeThrough(stream).getReader(), parts = [];
  let size = 0;
  for (;;) {
    const {done, value} = await reader.read();
    if (done) break;
    size += value.length;
    if (size > limit) {
      reader.cancel();
      throw new Error("too large");
    }
    parts.push(value);
  }
  return new Uint8Array(await new Blob(parts).arrayBuffer());
}

export async function fragmentOf(xml, name, growth = null) {
  const bytes = await through(new CompressionStream("deflate-raw"), new TextEncoder().encode(JSON.stringify({name, xml, growth: growth ?? undefined})));
  let text = "";
  for (let k = 0; k < bytes.length; k += 8192) text += String.fromCharCode(...bytes.subarray(k, k + 8192));
  return MARK + btoa(text).replaceAll("+", "-").replaceAll("/", "_").replace(/=+$/, "");
}

// {xml, name, growth} of a fragment; null if it is not one of a recipe. Throws if it is broken.
export async function recipeOf(fragment) {
  if (!fragment.startsWith(MARK)) return null;
  const text = atob(fragment.slice(MARK.length).trim().replaceAll("-", "+").replaceAll("_", "/"));
  const bytes = Uint8Array.from(text, character => character.charCodeAt(0));
  const json = new TextDecoder("utf-8", {fatal: true}).decode(await through(new DecompressionStream("deflate-raw"), bytes, SIZE_MAX));
  const {name, xml, growth} = JSON.parse(json);
  if (typeof xml !== "string" || typeof name !== "string") throw new Error("not a recipe");
  return {xml, name: name.slice(0, 200), growth};
}
