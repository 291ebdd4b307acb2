// The list of everything that is wrong with the recipe: the XML, fields with nonsense, the findings of the check.
import {button, el} from "./dom.js";
import {summary} from "./findings.js";

const SHOWN_MAX = 100;

// {node, show()}
export function problemList(p) {
  const head = el("summary", {}), list = el("ul");
  const node = el("details", {class: "problems"}, head, list);
  let shown = "";

  return {node, show() {
    const faults = [...p.faults].map(([key, text]) => ({severity: "error", text, key, stage: p.wordsFor(key)}));
    const problems = [...faults, ...p.findings.filter(finding => !finding.repeated)];
    const words = p.findings.length || faults.length ? summary(problems) : p.checkState;
    const state = JSON.stringify([words, problems.map(each => [each.severity, each.text, each.stage, each.target])]);
    if (state === shown) return;
    shown = state;
    const errors = problems.some(problem => problem.severity === "error");
    node.className = `problems ${problems.length ? (errors ? "bad" : "caution") : "good"}`;
    head.textContent = words;
    if (!problems.length) node.open = false;
    list.replaceChildren(...problems.slice(0, SHOWN_MAX).map(problem => el("li", {class: problem.severity},
      button([problem.stage_name || problem.stage, problem.text].filter(Boolean).join(": "), () => p.goTo(problem), {class: "find"}),
      problem.hint ? el("span", {class: "hint"}, problem.hint) : null)));
    if (problems.length > SHOWN_MAX) list.append(el("li", {}, `and ${problems.length - SHOWN_MAX} more`));
  }};
}
