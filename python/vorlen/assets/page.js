// What every page with scripts does: it reads its data, filters the rows of a table, and says when its charts are drawn.
"use strict";
const Page = (() => {
  const byId = (id) => document.getElementById(id);
  const data = JSON.parse(byId("data").textContent);

  // Lets a check box call set(checked), now and at each change. A page may lack the box.
  function onCheck(box, set) {
    if (!box) return;
    box.addEventListener("change", () => set(box.checked));
    set(box.checked);
  }

  // After these promises. Each chart is one picture with a description; a screen reader skips its parts.
  function drawn(waiting) {
    Promise.all(waiting).then(() => {
      for (const part of document.querySelectorAll(".chart > *, #js-plotly-tester")) part.setAttribute("aria-hidden", "true");
      document.documentElement.dataset.drawn = "yes";
    });
  }

  return { byId, data, onCheck, drawn };
})();
