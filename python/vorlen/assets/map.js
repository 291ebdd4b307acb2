// The page of a process map: its chart, and links to files.
"use strict";
(() => {
  const { map, tables } = Page.data;
  const build = (colour, width, limit) => MapFigure.build(map, colour, width, limit);
  const draw = Charts.chart(Page.byId("chart"), build);
  Downloads.connect(tables, { map: { name: "map.svg", svg: () => Charts.svg(build) } });
  Page.drawn([draw()]);
})();
