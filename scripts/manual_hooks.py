"""Hooks of mkdocs for the manual: KaTeX, which renders the formulas, and the search in pages that are opened from disk."""
import json
import pathlib
import shutil

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


def on_post_build(config, **_):
    """Makes the manual work offline."""
    site = pathlib.Path(config["site_dir"])
    copy_katex(site / "katex")
    write_search_script(site)


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
