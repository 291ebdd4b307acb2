// Starts the page: the whole of it, or with "#embed=NAME" a small figure for the manual.
if (location.hash.startsWith("#embed=")) import("./growth/figure_page.js").then(({ showFigure }) => showFigure(location.hash));
else import("./main.js");
