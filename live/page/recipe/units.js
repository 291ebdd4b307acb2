// Units in which numbers are shown, and the texts of numbers. The recipe keeps its own units: K, Pa, sccm.

const MOLAR_VOLUME = 22414; // of an ideal gas at 0 °C and 1 atm, cm³/mol; flows are amounts of gas
const MICROMOLE_PER_SCCM = 1e6 / MOLAR_VOLUME;
const DIGITS = 12; // of a converted number, so that 0.8 slm is 800 and not 800.0000000000001

// The unit of the recipe first. A number in a unit is factor * (number of the recipe) + offset.
export const UNITS = {
  temperature: [{name: "K", factor: 1, offset: 0}, {name: "°C", factor: 1, offset: -273.15}],
  pressure: [{name: "Pa", factor: 1, offset: 0}, {name: "mbar", factor: 0.01, offset: 0}],
  metal: flowUnits(),
  gas: flowUnits(),
};

function flowUnits() {
  return [
    {name: "sccm", factor: 1, offset: 0},
    {name: "slm", factor: 0.001, offset: 0},
    {name: "µmol/min", factor: MICROMOLE_PER_SCCM, offset: 0},
  ];
}

export const QUANTITY_NAMES = {temperature: "Temperature", pressure: "Pressure", metal: "Metals", gas: "Gases"};
const METALS = ["TMIn", "TMGa", "TEGa", "TMAl"];

// The switchable quantity of a value, by the last name of its path and its unit; null for others.
export function quantityOf(tag, unit) {
  if (unit === "K" && (tag === "T" || tag === "T_ref")) return "temperature";
  if (unit === "Pa") return "pressure";
  if (unit === "sccm") return METALS.includes(tag) ? "metal" : "gas";
  return null;
}

export function unitNamed(quantity, name) {
  return UNITS[quantity].find(unit => unit.name === name) ?? UNITS[quantity][0];
}

// ---- Numbers

const NUMBER = /^[-+]?(\d+\.?\d*|\.\d+)(e[-+]?\d+)?$/i;

// {number} of a complete number, or {fault} that says what is wrong with the text.
export function parsed(text) {
  const word = text.trim();
  if (!word) return {fault: "a number is missing"};
  if (NUMBER.test(word)) {
    return Number.isFinite(Number(word)) ? {number: Number(word)} : {fault: "the number is too large"};
  }
  if (/^[-+]?\d+,\d+$/.test(word)) return {fault: "the decimal separator is the point"};
  if (/^[-+]?(\d+\.?\d*|\.\d+)e[-+]?$/i.test(word)) return {fault: "the exponent is not complete"};
  return {fault: `“${word.slice(0, 20)}” is not a number`};
}

// The number at the start of a text of the recipe, as the library reads it; NaN if there is none.
export function leadingNumber(text) {
  const match = /^\s*[-+]?(\d+\.?\d*|\.\d+)(e[-+]?\d+)?/i.exec(text ?? "");
  return match ? Number(match[0]) : NaN;
}

// The integer at the start of a text; 0 if there is none.
export function leadingInteger(text) {
  return Number(/^\s*([-+]?\d+)/.exec(text ?? "")?.[1] ?? 0);
}

// A number in at most 12 digits, in the usual spelling of recipes.
export function numberText(number) {
  const rounded = Number(number.toPrecision(DIGITS));
  const size = Math.abs(rounded);
  if (rounded === 0) return "0";
  if (size >= 1e-4 && size < 1e6) return String(rounded);
  return rounded.toExponential().replace("e+", "e");
}

// ---- Between the recipe and the screen. unit null: the unit of the recipe.

// What is shown for a text of the recipe. Texts that are not numbers stay, so that they can be seen and corrected.
export function shownText(text, unit) {
  if (!unit || (unit.factor === 1 && unit.offset === 0)) return text ?? "";
  const result = parsed(text ?? "");
  return result.fault ? text ?? "" : numberText(result.number * unit.factor + unit.offset);
}

// The text of the recipe for a number that was entered: as it was typed if no unit has to be converted.
export function storedText(text, unit) {
  if (!unit || (unit.factor === 1 && unit.offset === 0)) return text.trim();
  return numberText((Number(text) - unit.offset) / unit.factor);
}

// The unit in which the numbers of a recipe need the fewest characters: 1050 °C rather than 1323.15 K.
export function shortestUnit(quantity, texts) {
  const length = unit => texts.reduce((sum, text) => sum + shownText(text, unit).length, 0);
  const units = UNITS[quantity].map(unit => ({unit, length: length(unit)}));
  return units.reduce((best, each) => (each.length < best.length ? each : best)).unit.name;
}
