"""Hooks of mkdocs for the manual: KaTeX, which renders the formulas, the search in pages that are opened from disk, and
live figures.

A comment <!-- live: NAME --> in a page becomes a figure of the live page (live/page/growth/figures.js), which is copied
into the manual once. If it has not been built, the manual says how to get it.
"""
import json
import os
import pathlib
import re
import shutil

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIVE_FIGURE = re.compile(r"<!-- live: ([\w-]+) -->")
HEIGHTS = {"v-defects": 680}  # pixels of figures
HEIGHT = 500  # of others
NO_LIVE_PAGE = """> **Live figure.** Here the manual has a figure with sliders if the live page was built: run
> `scripts/setup.sh run`, build VorlenSolver, then the manual. `vorlen live` writes the whole page.
"""
KATEX = pathlib.Path("/usr/share/javascript/katex")
RENDER = """document.addEventListener("DOMContentLoaded", () => {
  renderMathInElement(document.body, {
    delimiters: [
      {left: "\\\\(", right: "\\\\)", display: false},
      {left: "\\\\[", right: "\\\\]", display: true},
    ],
  });
});
"""


def on_page_markdown(markdown, **_):
    """Puts the live figures into a page."""
    return LIVE_FIGURE.sub(lambda found: live_figure(found[1]), markdown)


def on_post_build(config, **_):
    """Makes the manual work offline."""
    site = pathlib.Path(config["site_dir"])
    copy_katex(site / "katex")
    write_search_script(site)
    page = live_page()
    if page:
        shutil.copy(page, site / "live_page.html")  # live.html is the page about it


def live_page():
    """The live page of a build, or the file that the environment variable VORLEN_LIVE_PAGE names; None if there is none."""
    builds = [ROOT / "build" / folder / "live" / "live.html" for folder in ("release/wasi", "run/wasi", "wasi")]
    named = os.environ.get("VORLEN_LIVE_PAGE")
    places = [pathlib.Path(named)] if named is not None else builds
    return next((place for place in places if place.is_file()), None)


def live_figure(name):
    """A figure as HTML, or a note without the live page."""
    if not live_page():
        return NO_LIVE_PAGE
    title = name.replace("-", " ").capitalize().replace("V defects", "V-defects")
    return (f'<iframe src="live_page.html#embed={name}" title="Live figure: {title}" loading="lazy" '
            f'style="width: 100%; height: {HEIGHTS.get(name, HEIGHT)}px; border: 1px solid #9aa7b3; border-radius: 8px;"></iframe>')


def copy_katex(target):
    """Copies script, style sheet and fonts from Debian's package."""
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    for name in ("katex.min.js", "katex.min.css", "contrib/auto-render.js"):
        shutil.copy(KATEX / name, target)
    shutil.copytree(KATEX / "fonts", target / "fonts")
    (target / "render.js").write_text(RENDER, encoding="utf-8")


def write_search_script(site):
    """Writes search/from_disk.js, which scripts/manual_theme/main.html loads.

    A page that is opened from disk may neither fetch the search index nor start a worker from a file. The theme takes
    both from the variable __search if it has them; a worker may be started from text.
    """
    (worker,) = (site / "assets" / "javascripts" / "workers").glob("search.*.min.js")
    code = json.dumps(worker.read_text(encoding="utf-8"))
    index = (site / "search" / "search_index.json").read_text(encoding="utf-8")
    script = (f"var __search = {{index: Promise.resolve({index}),\n"
              f'worker: URL.createObjectURL(new Blob([{code}], {{type: "text/javascript"}}))}};\n')
    (site / "search" / "from_disk.js").write_text(script, encoding="utf-8")
