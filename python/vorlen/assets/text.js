// Texts as charts and tables show them: shortened to a width, escaped, numbers.
"use strict";
const Texts = (() => {
  const FONT = "system-ui, Segoe UI, Roboto, Helvetica, Arial, sans-serif";
  const LEAST_WIDTH = 34;  // pixels of a shortened text
  const RISE = "⁻⁰¹²³⁴⁵⁶⁷⁸⁹";

  // Of a chart, where plain text is HTML.
  const plain = (text) => text.replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/>/g, "&gt;");

  const pen = document.createElement("canvas").getContext("2d");
  function width(text, size) {
    pen.font = size + "px " + FONT;
    return pen.measureText(text).width;
  }

  // The text, shortened to that many pixels; empty if too little would be left.
  function shortened(text, size, pixels) {
    if (width(text, size) <= pixels) return text;
    if (pixels < LEAST_WIDTH) return "";
    let length = text.length;
    while (length > 1 && width(text.slice(0, length) + "…", size) > pixels) length -= 1;
    return text.slice(0, length).trimEnd() + "…";
  }

  // A number with that many digits, without an exponent unless it is very large or small.
  function number(value, digits) {
    const size = Math.abs(value);
    if (size === 0) return "0";
    let shown = String(Number(value.toPrecision(digits)));
    if (size >= 1e7 || size < 1e-4) {
      const [mantissa, exponent] = value.toExponential(digits - 1).split("e");
      shown = Number(mantissa) + "×10" + [...exponent.replace("+", "")].map((sign) => RISE["-0123456789".indexOf(sign)]).join("");
    }
    return shown.replace("-", "−");
  }

  return { FONT, plain, width, shortened, number };
})();
