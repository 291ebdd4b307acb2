// What the page reports about a run besides its pictures: that it failed and what to do, and that it is under way.
import { htmlElement, setText } from "./svg.js";

const PATIENCE = 150; // ms; a shorter run is not announced
const HEADS = { failed: "The run failed", rejected: "The recipe can’t be simulated", cancelled: "The run was cancelled",
  crashed: "The solver has stopped" };

// The box of a failure. Gives {show(outcome, has_rows, has_picture), hide()}.
export function createFailure(node) {
  const box = htmlElement("div", { class: "growth-failure", role: "alert" }, node);
  box.hidden = true;
  const head = htmlElement("h3", {}, box), parts = ["message", "stage", "remedy", "pictured"].map((name) => htmlElement("p", { class: name }, box));

  function show(outcome, has_rows, has_picture) {
    const picture = has_rows ? "The curves show the rows up to the failure; do not use their values." + (has_picture ? " Grey: the last run that succeeded." : "")
      : has_picture ? "The pictures below show the last run that succeeded." : "Nothing has been simulated yet.";
    const repeated = outcome.unphysical && !outcome.message.includes(outcome.unphysical) ? outcome.unphysical : "";
    setText(head, HEADS[outcome.status] ?? outcome.status);
    const texts = [[outcome.message === "Cancelled" ? "" : outcome.message, repeated].filter(Boolean).join("\n"), outcome.stage, outcome.remedy, picture];
    parts.forEach((part, k) => {
      setText(part, texts[k] ?? "");
      part.hidden = !texts[k];
    });
    box.hidden = false;
  }

  return { show, hide: () => { box.hidden = true; } };
}

// The box of a run that takes longer, with its seconds. Gives busy(flag).
export function createBusy(node) {
  const box = htmlElement("div", { class: "growth-busy", role: "status" }, node);
  box.hidden = true;
  htmlElement("span", { class: "spinner", "aria-hidden": "true" }, box);
  const text = htmlElement("span", {}, box, "Simulating");
  const seconds = htmlElement("span", { class: "seconds", "aria-hidden": "true" }, box);
  let start = null, timer = null;

  function tick() {
    setText(text, "Simulating");
    setText(seconds, `${((performance.now() - start) / 1000).toFixed(1)} s`);
    box.hidden = false;
    timer = setTimeout(tick, 100);
  }

  return function busy(flag) {
    if (flag && start === null) {
      start = performance.now();
      timer = setTimeout(tick, PATIENCE);
    } else if (!flag) {
      clearTimeout(timer);
      start = null;
      box.hidden = true;
    }
  };
}
