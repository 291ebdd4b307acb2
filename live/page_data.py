#!/usr/bin/env python3
"""Writes what the live page carries besides its scripts: live/page_data.py VERSION OUTPUT

The output is JSON: the version, the table of the elements of a recipe, the example recipes with the first sentence of
their comment, and the licences of what is bundled, from the packages of Debian.
"""

from __future__ import annotations

import importlib.util
import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
EXAMPLES_FIRST = ("blue_led", "ingan_gan_mqw", "algan_gan_hemt")  # the others follow by name
# package of Debian: what it is called, and what for
BUNDLED = {
    "libjs-codemirror": ("CodeMirror", "editor of the XML"),
    "node-d3-axis": ("d3-axis", "charts"),
    "node-d3-scale": ("d3-scale", "charts"),
    "node-d3-selection": ("d3-selection", "charts"),
    "node-d3-array": ("d3-array", "charts, used by d3-scale"),
    "node-d3-collection": ("d3-collection", "charts, used by d3-scale"),
    "node-d3-color": ("d3-color", "charts, used by d3-scale"),
    "node-d3-format": ("d3-format", "charts, used by d3-scale"),
    "node-d3-interpolate": ("d3-interpolate", "charts, used by d3-scale"),
    "node-d3-time": ("d3-time", "charts, used by d3-scale"),
    "node-d3-time-format": ("d3-time-format", "charts, used by d3-scale"),
    "libtinyxml-dev": ("TinyXML", "reads recipes, in the module"),
    "libfmt-dev": ("{fmt}", "texts of numbers, in the module"),
    "nlohmann-json3-dev": ("JSON for Modern C++", "answers of the module"),
    "libfast-float-dev": ("fast_float", "reads numbers, in the module"),
    "wasi-libc": ("wasi-libc", "standard library of C, in the module"),
    "libc++-19-dev-wasm32": ("libc++", "standard library of C++, in the module"),
}


def elements() -> list[dict[str, object]]:
    path = ROOT / "python" / "vorlen" / "_recipe" / "elements.py"
    spec = importlib.util.spec_from_file_location("elements", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return [element._asdict() for element in module.ELEMENTS]


def first_sentence(recipe: str) -> str:
    """That of the comment at the start of a recipe, as in `vorlen new`, without the period."""
    comment = re.search(r"<!--(.*?)-->", recipe, re.DOTALL)
    words = " ".join(comment[1].split()) if comment else ""
    return re.split(r"(?<=\.) |\.$", words)[0].rstrip(".")


def examples() -> list[dict[str, str]]:
    paths = {path.stem: path for path in sorted((ROOT / "examples").glob("*.xml"))}
    names = [*EXAMPLES_FIRST, *(name for name in paths if name not in EXAMPLES_FIRST)]
    texts = {name: paths[name].read_text("utf-8") for name in names}
    return [{"name": name, "title": first_sentence(text), "xml": text} for name, text in texts.items()]


def licences() -> list[dict[str, str]]:
    return [
        {"name": name, "use": use, "text": (Path("/usr/share/doc") / package / "copyright").read_text("utf-8")}
        for package, (name, use) in BUNDLED.items()
    ]


def main() -> int:
    if len(sys.argv) != 3:
        print("usage: live/page_data.py VERSION OUTPUT", file=sys.stderr)
        return 2
    data = {"version": sys.argv[1], "elements": elements(), "examples": examples(), "licences": licences()}
    # "<" would end the script element that contains the text, or start a comment in it.
    text = json.dumps(data, ensure_ascii=False, separators=(",", ":")).replace("<", "\\u003c")
    Path(sys.argv[2]).write_text(text, "utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
