// The small figures of the manual: live.html#embed=NAME shows one of them instead of the whole page. A figure is a recipe,
// one or two sliders for values of it, and a chart: of a quantity against the first slider ("sweep"), or of the layers over
// their depth ("profile"). docs/*.md name them in comments, <!-- live: NAME -->.
import ingan_layer from "../../../examples/notebooks/ingan_layer.xml";
import v_defects from "../../../examples/ingan_v_defects.xml";
import { length, number } from "./numbers.js";

const STAGE = "process_stages/stage_1";
const last = (outcome, column) => outcome.columns[column][outcome.columns.active.lastIndexOf(1)];
const indium = { title: "indium at the end", unit: "%", colour: "indium", of: (outcome) => 100 * last(outcome, "x_in"), digits: 3 };

// A slider. places: [path, attribute] of all values that it sets; stored: what is written for a number that is shown.
const constant = (tag) => [[`${STAGE}/${tag}`, "val"], [`${STAGE}/${tag}`, "end"]];
const temperature = (low, high) => ({ label: "Temperature", unit: "K", places: constant("T"), low, high, step: 1, value: 1030 });

export const FIGURES = {
  "indium-temperature": {
    title: "Indium against temperature", kind: "sweep", xml: ingan_layer, name: "ingan_layer.xml", quantity: indium,
    text: "InGaN, grown for 60 s. Move the temperature along the curve, and see what more TMIn does to it.",
    sliders: [temperature(960, 1100),
      { label: "TMIn", unit: "sccm", places: constant("gas_species/Q/TMIn"), low: 0.05, high: 0.6, step: 0.05, value: 0.2 }],
  },
  "indium-ceiling": {
    title: "The indium ceiling", kind: "sweep", xml: ingan_layer, name: "ingan_layer.xml", quantity: indium,
    text: "Slower desorption of indium, to the left, gives more of it, but only up to a ceiling. The ceiling follows from the temperature, the flows and the lattice, not from the constants.",
    sliders: [{ label: "Exponent n of Kd_In, A = 10ⁿ", unit: "", places: [["chemistry/Kd_In", "A"]], low: 11, high: 16.5, step: 0.1, value: 13,
      stored: (value) => (10 ** value).toPrecision(4) }, temperature(980, 1080)],
  },
  "growth-rate": {
    title: "The transport layer and the growth rate", kind: "sweep", xml: ingan_layer, name: "ingan_layer.xml",
    quantity: { title: "growth rate at the end", unit: "nm/s", colour: "ink", of: (outcome) => last(outcome, "rate"), digits: 3 },
    text: "The rate is nearly proportional to 1/delta and to the flow of the metals.",
    sliders: [{ label: "delta", unit: "mm", places: [[`${STAGE}/delta`, "val"]], low: 2, high: 16, step: 0.2, value: 8, stored: (value) => String(+(value / 1000).toPrecision(6)) },
      { label: "TEGa", unit: "sccm", places: constant("gas_species/Q/TEGa"), low: 0.2, high: 1, step: 0.05, value: 0.5 }],
  },
  "v-defects": {
    title: "How V-defects open", kind: "profile", xml: v_defects, name: "ingan_v_defects.xml", panels: ["composition", "strain", "densities"],
    text: "InGaN on GaN, under compression. A hotter layer has less indium and less strain, so it can grow thicker before V-defects open.",
    sliders: [temperature(1000, 1080), { label: "Duration", unit: "s", places: [[`${STAGE}/tau`, "val"]], low: 20, high: 240, step: 2, value: 124 }],
    answer: (outcome, current) => {
      const row = current.rows.rho_vd0_t.findIndex((value) => value > 0);
      if (row < 0) return `No V-defects within ${length(current.x.height.at(-1))}.`;
      return `V-defects open at ${length(current.x.height[row])}; at the end there are ${number(last(outcome, "rho_vd0_t") / 2, 2)} per cm².`;
    },
  },
};
