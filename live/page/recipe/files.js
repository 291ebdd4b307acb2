// Recipes as files: decoding the bytes of one, saving one.

const FILE_SIZE_MAX = 16e6; // bytes

// {xml, note} of the bytes of a recipe, or {fault}. The page and the files it saves are UTF-8; note says what was changed.
export function decodedRecipe(bytes) {
  if (bytes.length > FILE_SIZE_MAX) {
    return {fault: `the file has ${(bytes.length / 1e6).toFixed(0)} MB, and this page takes up to ${FILE_SIZE_MAX / 1e6} MB; run it with “vorlen run”`};
  }
  if ((bytes[0] === 0xff && bytes[1] === 0xfe) || (bytes[0] === 0xfe && bytes[1] === 0xff)) {
    return {fault: "the encoding UTF-16 is not supported; save the recipe as UTF-8"};
  }
  const head = new TextDecoder("latin1").decode(bytes.subarray(0, 200));
  const declared = /^\s*(?:\xef\xbb\xbf)?<\?xml[^>]*\sencoding\s*=\s*["']([^"']+)["']/.exec(head)?.[1];
  if (!declared || /^utf-?8$/i.test(declared)) {
    try {
      return {xml: new TextDecoder("utf-8", {fatal: true}).decode(bytes), note: ""};
    } catch {
      if (declared) return {fault: "the file is not the UTF-8 that it declares"};
    }
  }
  try {
    const xml = new TextDecoder(declared ?? "latin1", {fatal: true}).decode(bytes);
    const note = `The file was in ${declared ?? "ISO 8859-1"}; here it is UTF-8.`;
    return {xml: declared ? xml.replace(declared, "UTF-8") : xml, note};
  } catch {
    return {fault: `the encoding ${declared.slice(0, 40)} is not supported`};
  }
}

export function saveFile(name, content, type) {
  const url = URL.createObjectURL(new Blob([content], {type}));
  const link = document.createElement("a");
  link.href = url;
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(url), 10000);
}

// A name for a file from the name of a recipe.
export function fileName(name) {
  const base = name.replace(/\.xml$/i, "").replace(/[^\p{L}\p{N} ._-]/gu, "_").slice(0, 80).trim();
  return `${base || "recipe"}.xml`;
}
