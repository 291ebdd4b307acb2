"""Hooks of mkdocs for the manual: copies KaTeX, which renders the formulas, from Debian's package to the site."""
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
    """Copies script, style sheet and fonts, so that the manual works offline."""
    target = pathlib.Path(config["site_dir"]) / "katex"
    shutil.rmtree(target, ignore_errors=True)
    target.mkdir(parents=True)
    for name in ("katex.min.js", "katex.min.css", "contrib/auto-render.js"):
        shutil.copy(KATEX / name, target)
    shutil.copytree(KATEX / "fonts", target / "fonts")
    (target / "render.js").write_text(RENDER, encoding="utf-8")
