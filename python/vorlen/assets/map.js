// The page of a process map: its chart, and links to files.
"use strict";
(() => {
  const { map, tables } = JSON.parse(document.getElementById("data").textContent);
  const build = (colour, width, limit) => MapFigure.build(map, colour, width, limit);
  const draw = Charts.chart(document.getElementById("chart"), build);
  Downloads.connect(tables, { map: { name: "map.svg", svg: () => Charts.svg(build) } });
  draw().then(() => {
    // The chart is one picture with a description; a screen reader skips its parts.
    for (const part of document.querySelectorAll(".chart > *, #js-plotly-tester")) part.setAttribute("aria-hidden", "true");
    document.documentElement.dataset.drawn = "yes";
  });
})();
