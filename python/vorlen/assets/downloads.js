// Links that save a table as CSV or a chart as SVG. They need no network: the file is made in the page.
"use strict";
const Downloads = (() => {
  function save(name, type, text) {
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob([text], { type: type + ";charset=utf-8" }));
    link.download = name;
    document.body.append(link);
    link.click();
    link.remove();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);  // ms
  }

  // Makes every link with data-csv or data-svg work, also those that are made later. tables: {key: {name, text}};
  // pictures: {key: {name, svg()}}
  function connect(tables, pictures) {
    document.addEventListener("click", (event) => {
      const link = event.target.closest("a[data-csv], a[data-svg]");
      if (!link) return;
      event.preventDefault();
      const table = tables[link.dataset.csv], picture = pictures[link.dataset.svg];
      if (table) save(table.name, "text/csv", table.text);
      else Promise.resolve(picture.svg()).then((text) => save(picture.name, "image/svg+xml", text));
    });
  }
  return { connect };
})();
