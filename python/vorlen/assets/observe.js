// A page with nothing but what can be measured.
"use strict";
(() => {
  const charts = Observed.draw(Page.data.observed);
  Downloads.connect(Page.data.tables, charts.pictures);
  Page.drawn(charts.waiting);
})();
