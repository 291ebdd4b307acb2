// Controls that zoom to a region or a stage. The one that is shown is marked.
"use strict";
const Zoom = (() => {
  const FEW = 6, LABEL_MAX = 32;  // stages with a button each; characters

  // Puts into a box a button for each region and for each of few stages, or a list of more stages; they call show(region).
  // Returns mark(label), which marks the one with this label.
  function controls(box, regions, stages, show) {
    const buttons = [], titled = stages.map(titledStage);
    const list = titled.length > FEW ? document.createElement("select") : null;
    for (const region of list ? regions : [...regions, ...titled]) {
      const button = document.createElement("button");
      button.type = "button";
      button.textContent = region.label.length > LABEL_MAX ? region.label.slice(0, LABEL_MAX - 1) + "…" : region.label;
      button.addEventListener("click", () => show(region));
      button.dataset.label = region.label;
      buttons.push(button);
    }
    box.append(...buttons);
    if (list) {
      const label = document.createElement("label");
      label.textContent = "Stage";
      list.id = "stage-choice";
      label.htmlFor = list.id;
      list.add(new Option("choose …", ""));
      titled.forEach((stage, index) => list.add(new Option(stage.label, String(index))));
      list.addEventListener("change", () => { if (list.value !== "") show(titled[Number(list.value)]); });
      box.append(label, list);
    }
    return (label) => {
      for (const button of buttons) button.setAttribute("aria-pressed", String(button.dataset.label === label));
      if (list && (list.value === "" || titled[Number(list.value)].label !== label)) list.value = "";
    };
  }

  const titledStage = (stage) => ({ label: `${stage.number}. ${stage.name}`, time: wide(stage.time), height: wide(stage.height) });

  // A stage with a little of its neighbours.
  function wide([low, high]) {
    const room = high - low > 1e-6 ? 0.08 * (high - low) : 1;
    return [low - room, high + room];
  }

  return { controls };
})();
