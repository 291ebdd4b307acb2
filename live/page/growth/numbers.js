// Numbers as people read them: as in the reports of the Python package.

const RISE = "⁻⁰¹²³⁴⁵⁶⁷⁸⁹";
export const SPACE = "\u00a0"; // between a number and its unit
const DASH = "–"; // of an undefined value

export function isNumber(value) {
  return typeof value === "number" && Number.isFinite(value);
}

// A number with this many significant digits, true minus signs and powers of ten: −0.0166, 4.8×10¹¹.
export function number(value, digits = 4) {
  if (!isNumber(value)) return DASH;
  const size = Math.abs(value);
  if (size < 1e-9) return "0";
  if (size >= 10 ** Math.max(digits, 5) || size < 1e-4) {
    const [mantissa, exponent] = value.toExponential(digits - 1).split("e");
    return withMinus(`${Number(mantissa)}×10${raised(Number(exponent))}`);
  }
  return withMinus(String(Number(value.toPrecision(digits))));
}

export function withMinus(text) {
  return text.replace("-", "−");
}

export function raised(exponent) {
  return [...String(exponent)].map((sign) => RISE["-0123456789".indexOf(sign)]).join("");
}

// A difference with its sign: +0.012, −3. An empty string if it would be shown as zero.
export function difference(value, digits = 3, least = 0) {
  if (!isNumber(value) || Math.abs(value) <= least) return "";
  const text = number(value, digits);
  return value > 0 ? `+${text}` : text;
}

// A fraction with four decimals; 0 and 1 without.
export function fraction(value) {
  if (!isNumber(value)) return DASH;
  if (Math.abs(value - Math.round(value)) < 5e-5) return withMinus(String(Math.round(value) + 0));
  return withMinus(value.toFixed(4));
}

// A thickness with three digits: 3.00 nm, 12.0 nm, 1.67 µm.
export function length(value) {
  const large = Math.abs(value) >= 999.5;
  const size = large ? value / 1000 : value;
  const digits = Math.abs(size) >= 99.95 ? 0 : Math.abs(size) >= 9.995 ? 1 : Math.abs(size) >= 0.9995 ? 2 : 3;
  return withMinus(size.toFixed(digits)) + SPACE + (large ? "µm" : "nm");
}
