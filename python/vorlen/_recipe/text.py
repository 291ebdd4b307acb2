"""The text of a recipe and of its stages: elements in the order of the table, indented, with units in comments."""

from __future__ import annotations

import re
import textwrap
from collections.abc import Iterator, Mapping
from dataclasses import dataclass

from .elements import ELEMENTS, ROOT, Element
from .xml_bytes import escape

Texts = Mapping[str, tuple[str, ...]]  # texts of attributes by the path of their element below a stage or the root

COMMENT_COLUMN = 44  # of comments after an element of a stage, from the indentation of the stage
WIDTH = 118
# Comments on elements. Elements without one have their unit as comment.
COMMENTS = {
    "stress/cut_angle": "of the substrate, degrees",
    "stress/V_angle_05": "inclination of dislocations, degrees",
    "stress/X_ref": "indium fraction of the shear modulus",
    "pre_stages/t0": "start of the process, s",
    "process_stages/stage_#/delta": "diffusion layer, m",
    "integration/scheme": "stage by stage, as in every new recipe",
}
CHEMISTRY = (
    "<!-- Each constant is A * exp(-Ta/T) * T^Tn with T in K. A in 1/s for Kd_In, Kd_Ga and Kd_Al (desorption of",
    "     metals), in m^2/(kmol s) for Kd_N2 and Kd_H2 (desorption of gases) and K_..._plus (incorporation); Ta in K."
    " -->",
)
_ASCII = str.maketrans({"⁻": "^-", "²": "2", "³": "3", "µ": "u"})


@dataclass(frozen=True)
class Line:
    """One line of a text, without its indentation."""

    depth: int
    text: str
    comment: str = ""


def recipe_text(values: Texts, description: str) -> str:
    """The text of a recipe with these values and without stages. description: its first comment, in paragraphs."""
    lines = ['<?xml version="1.0" encoding="UTF-8"?>']
    if description.strip():
        paragraphs = re.split(r"\n\s*\n", description.strip())
        wrapped = [textwrap.fill(part, WIDTH - 2, break_on_hyphens=False) for part in paragraphs]
        lines += ["<!--", textwrap.indent("\n\n".join(wrapped), "  "), "-->"]
    lines += [f"<{ROOT}>", *layout(list(_lines("", "", values, {})), "  ", "  ", COMMENT_COLUMN + 2), f"</{ROOT}>", ""]
    return "\n".join(lines)


def stage_lines(pattern: str, tag: str, values: Texts, comments: Mapping[str, str]) -> list[Line]:
    """The lines of a stage.

    pattern   path of its element in the table, such as process_stages/stage_#
    values    texts by paths below the stage; only these elements are written
    comments  on elements, by paths below the stage
    """
    inside = [Line(line.depth + 1, line.text, line.comment) for line in _lines(pattern + "/", "", values, comments)]
    return [Line(0, f"<{tag}>"), *inside, Line(0, f"</{tag}>")]


def layout(lines: list[Line], indentation: str, step: str, column: int = COMMENT_COLUMN) -> list[str]:
    """The lines as they are in a file.

    indentation  of the first line
    step         of indentation, two blanks or a tab
    column       of comments, from the first indentation
    """
    texts = []
    for line in lines:
        text = step * line.depth + line.text
        comment = f" <!-- {line.comment} -->" if line.comment else ""
        texts.append(indentation + (f"{text:<{column - 1}}{comment}" if comment else text))
    return texts


def _lines(stage: str, parent: str, values: Texts, comments: Mapping[str, str]) -> Iterator[Line]:
    """The lines of the children of an element.

    stage   what precedes the paths of values in the table: "", or the path of a stage and a slash
    parent  what precedes the names of the children in values: "", or a path and a slash
    """
    depth, unit_before = parent.count("/"), _unit_of_all(_children(stage + parent))
    for known in _children(stage + parent):
        path = known.path[len(stage) :]
        tag = path.rsplit("/", 1)[-1]
        if path in values:
            pairs = zip(known.attributes, values[path], strict=True)
            text = "".join(f' {name}="{escape(value, chr(34))}"' for name, value in pairs)
            unit = _unit(known)
            comment = comments.get(path) or COMMENTS.get(known.path) or (unit if unit != unit_before else "")
            unit_before = unit
            yield Line(depth, f"<{tag}{text}/>", comment)
        elif any(other.startswith(path + "/") for other in values):
            if path == "chemistry":
                yield from (Line(depth, text) for text in CHEMISTRY)
            yield Line(depth, f"<{tag}>", _unit_of_all(_children(known.path + "/")))
            yield from _lines(stage, path + "/", values, comments)
            yield Line(depth, f"</{tag}>")


def _children(above: str) -> list[Element]:
    """The elements of the table right below a path, which is empty or ends in a slash."""
    return [known for known in ELEMENTS if known.path.startswith(above) and "/" not in known.path[len(above) :]]


def _unit(known: Element) -> str:
    """The unit of an element in ASCII; empty for the constants, whose units one comment explains."""
    return "" if known.kind == "arrhenius" else known.unit.translate(_ASCII)


def _unit_of_all(elements: list[Element]) -> str:
    """The unit that all of several elements have; empty if there is none."""
    units = {_unit(known) for known in elements}
    return units.pop() if len(units) == 1 and len(elements) > 1 else ""
