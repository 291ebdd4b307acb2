"""Stages of a recipe: listing, adding and removing them, combining them into periods, and their timeline.

A group is pre_stages, process_stages, post_stages, or a periodic stage with its sub-stages. It states the number of its
stages; those with larger numbers are not grown. Each change gives a new document.
"""

from __future__ import annotations

import numbers
import re
from collections import Counter
from collections.abc import Mapping
from typing import Any

import pandas as pd

from . import xml_bytes
from .document import Document, split_path
from .kinds import KNOWN, children_of_kind, leading_integer, leading_number
from .values import with_value
from .xml_bytes import Edit, RecipeError

# group: prefix of the element names of its stages, element with their number
GROUPS = {
    path.split("/")[0]: (path.split("/")[1].removesuffix("#"), children_of_kind(path.split("/")[0], "integer")[0])
    for path, known in KNOWN.items()
    if known.kind == "stages" and path.count("/") == 1
}
PROCESS = "process_stages"
GIVEN = ("pre_stages", "post_stages")  # groups of layers that are not simulated
STAGE = "process_stages/stage_#"
# columns of the timeline: paths of their values in a stage
RAMPS = {"T": "T", "P": "P"} | {
    flow: f"gas_species/Q/{flow}" for flow in children_of_kind(f"{STAGE}/gas_species/Q", "range")
}
ACTIVE_STAGE_COUNT_MAX = 1000000  # that of the library
UNITS = {"begin": "s", "end": "s", "duration": "s"} | {
    f"{column}_{when}": KNOWN[f"{STAGE}/{below}"].unit for column, below in RAMPS.items() for when in ("begin", "end")
}


def stages(document: Document, group: str) -> list[str]:
    """Paths of the stages of a group in order, up to the number that the group states."""
    group = _group(document, group)
    prefix, count = _prefix(group), count_of_stages(document, group)
    tags = {child.tag: _number(child.tag, prefix) for child in document.element(group).children}
    found = {number: tag for tag, number in tags.items() if number is not None and 1 <= number <= count}
    return [f"{group}/{found[number]}" for number in sorted(found)]


def is_periodic(document: Document, path: str) -> bool:
    return (document.attribute(f"{path}/type") or "").lower() == "periodic"


def added_stage(
    document: Document,
    like: str,
    name: str | None,
    before: str | None,
    values: Mapping[str, object] | None,
    into: str | None,
) -> tuple[Document, str]:
    """The document with a copy of a stage, and the path of the copy. See Recipe.add_stage."""
    if values is not None and not isinstance(values, Mapping):
        raise TypeError(f"values must be a mapping of paths to values, got {type(values).__name__}")
    if name is not None and not isinstance(name, str):
        raise TypeError(f"name must be a text, got {type(name).__name__}")
    source, _ = _split_stage(document, like)
    group = source if into is None else _group(document, into)
    if (source in GIVEN) != (group in GIVEN):
        raise ValueError(f"{like} can't be copied to {group}: one is simulated and the other is given")
    if group not in GROUPS and is_periodic(document, like):
        raise ValueError(f"{like} can't be copied to {group}: a periodic stage can't contain another periodic stage")
    number = count_of_stages(document, group) + 1
    if before is not None:
        before_group, number = _split_stage(document, before)
        if before_group != group:
            raise ValueError(f"{before} is not in {group}")
    element, tag = document.element(like), tag_of_stage(group, number)
    text = xml_bytes.renamed_stage(document.content, element, tag)
    if group != source:
        old = xml_bytes.line_start(document.content, element.begin)
        text = _with_indentation(text, old, line_start_of_stages(document, group))
    document = inserted(document, group, number, text)
    path = f"{group}/{tag}"
    if name is not None:
        document = with_value(document, f"{path}/name", name)
    for key, value in (values or {}).items():
        document = with_value(document, f"{path}/{key}", value)
    return document, path


def _with_indentation(text: bytes, old: bytes, new: bytes) -> bytes:
    """The text of a stage whose lines start with new instead of old. The line ends stay."""
    return xml_bytes.reindented(text, old.lstrip(b"\r\n"), new.lstrip(b"\r\n")) if old and new else text


def inserted(document: Document, group: str, number: int, text: bytes) -> Document:
    """The document with the text of a stage in a group, whose following stages are renumbered.

    text  of the stage with that number, indented as line_start_of_stages() says
    """
    count = count_of_stages(document, group)
    document = _renumbered(document, group, number, +1)
    content, element = document.content, document.element(group)
    following = element.child(tag_of_stage(group, number + 1))
    last = element.child(tag_of_stage(group, number - 1))
    if following is not None:
        place = following.begin
        text += xml_bytes.space_before(content, place)
    elif last is not None:
        place = last.end
        text = xml_bytes.space_before(content, last.begin) + text
    else:
        place = xml_bytes.end_of_content(content, element)
        text = line_start_of_stages(document, group) + text
    return _with_count(document.edited([(place, place, text)]), group, count + 1)


def line_start_of_stages(document: Document, group: str) -> bytes:
    """The line end and the indentation of the stages of a group; empty if they are not on lines of their own."""
    paths = stages(document, group)
    if paths:
        return xml_bytes.line_start(document.content, document.element(paths[0]).begin)
    return xml_bytes.line_start_inside(document.content, document.element(group))


def tag_of_stage(group: str, number: int) -> str:
    """The element name of a stage."""
    return f"{_prefix(group)}{number}"


def without_stage(document: Document, path: str) -> Document:
    """The document without a stage."""
    group, number = _split_stage(document, path)
    count = count_of_stages(document, group)
    if count == 1 and group not in GIVEN:
        raise ValueError(f"{path} is the only stage of {group} and can't be removed")
    _check_single(document, group, number, number)
    element = document.element(path)
    blank = len(xml_bytes.space_before(document.content, element.begin))
    document = document.edited([(element.begin - blank, element.end, b"")])
    return _with_count(_renumbered(document, group, number + 1, -1), group, count - 1)


def with_periods(document: Document, first: str, last: str, periods: int) -> tuple[Document, str]:
    """The document with stages combined into a periodic one, and its path. See Recipe.make_periodic."""
    group, begin = _split_stage(document, first)
    last_group, end = _split_stage(document, last)
    if group != PROCESS or last_group != group or end < begin:
        raise ValueError("first and last must be stages of process_stages, in order")
    if isinstance(periods, bool) or not isinstance(periods, numbers.Integral) or periods < 1:
        raise ValueError(f"periods must be a positive integer, got {periods!r}")
    paths = [f"{group}/stage_{number}" for number in range(begin, end + 1)]
    if any(is_periodic(document, path) for path in paths):
        raise ValueError("a periodic stage can't contain another periodic stage")
    _check_single(document, group, begin, end)
    elements = [document.element(path) for path in paths]
    if any(a.end > b.begin for a, b in zip(elements, elements[1:])):
        raise ValueError("the stages are not in numerical order in the file")
    places = [element.begin for element in elements]
    for child in document.element(group).children:
        if places[0] < child.begin < places[-1] and child.begin not in places:
            raise ValueError(
                f"{group}/{child.tag} is between {paths[0]} and {paths[-1]} in the file; move it before or after them"
            )
    count = count_of_stages(document, group)
    edits = []
    for number, element in enumerate(elements, 1):
        edits += xml_bytes.tag_edits(element, f"stage_{begin}_{number}")
    document = document.edited(edits)
    inside = [document.element(f"{group}/stage_{begin}_{number}") for number in range(1, len(paths) + 1)]
    text = _period_text(document.content, inside[0].begin, inside[-1].end, begin, periods, len(paths))
    document = document.edited([(inside[0].begin, inside[-1].end, text)])
    document = _renumbered(document, group, end + 1, begin - end)
    return _with_count(document, group, count - len(paths) + 1), f"{group}/stage_{begin}"


def _period_text(content: bytes, begin: int, end: int, number: int, periods: int, count: int) -> bytes:
    """The periodic stage with that number around the sub-stages in content[begin:end]."""
    outer = xml_bytes.space_before(content, begin)
    step = b"\t" if b"\t" in outer else b"  "
    new_line = b"\r\n" if b"\r\n" in outer else b"\n"
    head = (
        f"<stage_{number}>", '<type val="periodic"/>', f'<n_periods val="{periods}"/>', f'<n_stages val="{count}"/>',
    )
    body = xml_bytes.indented(content[begin:end], step)
    return (outer + step).join([*(part.encode() for part in head), body]) + outer + f"</stage_{number}>".encode()


def timeline(document: Document) -> pd.DataFrame:
    """The table that Recipe.timeline describes."""
    rows: list[dict[str, Any]] = []
    clock = leading_number(document.attribute("pre_stages/t0"))
    for group, kind in (("pre_stages", "pre"), (PROCESS, "active"), ("post_stages", "post")):
        paths = _layers(document, group)
        values = {path: _stage_values(document, path, kind) for path in dict.fromkeys(paths)}
        for path in paths:
            row = values[path].copy()
            row["name"] = row["name"] or f"Layer{len(rows) + 1}"
            row["begin"] = clock
            row["end"] = clock = clock + row["duration"]
            rows.append(row)
    columns = ["name", "kind", "stage", "path", *UNITS]
    table = pd.DataFrame(rows, columns=columns, index=pd.RangeIndex(1, len(rows) + 1, name="layer"))
    table.attrs["units"] = dict(UNITS)
    return table


def _stage_values(document: Document, path: str, kind: str) -> dict[str, Any]:
    """The columns of a stage that do not depend on its place."""
    stage = document.element(path)
    values = {"name": stage.attribute("name"), "kind": kind, "stage": path.rsplit("/", 1)[-1], "path": path}
    numbers = {"duration": leading_number(stage.attribute("tau"))}
    for column, below in RAMPS.items() if kind == "active" else ():
        for when, attribute in (("begin", "val"), ("end", "end")):
            numbers[f"{column}_{when}"] = leading_number(stage.attribute(below, attribute))
    return values | numbers


def _layers(document: Document, group: str) -> list[str]:
    """Paths of the single stages of a group in the order of growth; none if the recipe has no such group."""
    paths: list[str] = []
    for path in stages(document, group) if document.root.child(group) is not None else ():
        inner, periods = [path], 1
        if group == PROCESS and is_periodic(document, path):
            inner, periods = stages(document, path), leading_integer(document.attribute(f"{path}/n_periods")) or 0
        if len(paths) + len(inner) * periods > ACTIVE_STAGE_COUNT_MAX:
            raise RecipeError(f"{document.name}: {path} gives more than {ACTIVE_STAGE_COUNT_MAX} stages")
        paths += inner * periods
    return paths


def _group(document: Document, path: str) -> str:
    """The usual spelling of the path of a group."""
    path = "/".join(split_path(path))
    document.element(path)
    if path not in GROUPS and not (re.fullmatch(PROCESS + r"/stage_\d+", path) and is_periodic(document, path)):
        raise ValueError(f"{path or 'the root'} is not a group of stages")
    return path


def _split_stage(document: Document, path: str) -> tuple[str, int]:
    """Group and number of a stage."""
    path = "/".join(split_path(path))
    group, _, tag = path.rpartition("/")
    if not group:
        raise KeyError(document.unknown(path))
    group = _group(document, group)
    number = _number(tag, _prefix(group))
    document.element(path)
    if number is None or not 1 <= number <= count_of_stages(document, group):
        raise KeyError(f"{path} is not a stage, or its number exceeds the number of stages that the group states")
    return group, number


def _prefix(group: str) -> str:
    """The prefix of the element names in a group: stage_, stage_3_, pre_stage_."""
    return GROUPS[group][0] if group in GROUPS else group.rsplit("/", 1)[-1] + "_"


def _number(tag: str, prefix: str) -> int | None:
    """The number in the element name of a stage; None for other elements. The library knows no leading zeros."""
    match = re.fullmatch(re.escape(prefix) + r"(0|[1-9]\d*)", tag, re.ASCII)
    return int(match[1]) if match else None


def _check_single(document: Document, group: str, first: int, last: int) -> None:
    """Raises ValueError if several stages have the same number from first to last.

    The library reads only the first one; removing or renaming it would make another one count.
    """
    prefix = _prefix(group)
    found = Counter(_number(child.tag, prefix) for child in document.element(group).children)
    for number in range(first, last + 1):
        if found[number] > 1:
            raise ValueError(
                f"{group}/{prefix}{number} occurs {found[number]} times in the file, and only the first one counts; "
                "remove the others from the file"
            )


def _count_path(group: str) -> str:
    return f"{group}/{GROUPS[group][1] if group in GROUPS else 'n_stages'}"


def count_of_stages(document: Document, group: str) -> int:
    """The number of stages that a group states."""
    path = _count_path(group)
    text = document.attribute(path)
    if text is None:
        raise RecipeError(f"{document.name} has no {path}, the number of stages")
    return max(0, leading_integer(text) or 0)


def _with_count(document: Document, group: str, count: int) -> Document:
    return with_value(document, _count_path(group), count)


def _renumbered(document: Document, group: str, first: int, shift: int) -> Document:
    """The stages of a group renumbered from number first, including those beyond the stated number."""
    prefix = _prefix(group)
    edits: list[Edit] = []
    for child in document.element(group).children:
        number = _number(child.tag, prefix)
        if number is not None and number >= first:
            edits += xml_bytes.stage_edits(child, f"{prefix}{number + shift}")
    return document.edited(edits)
