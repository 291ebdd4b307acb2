"""Recipes: load, inspect, change, save.

A Recipe is the bytes of an XML file and an index of its elements. A change replaces only the bytes of the value, so
comments, order, indentation and line ends stay as they are. A path lists element names from the root's children down,
separated by slashes (or by colons, as in the library's messages):

    recipe["process_stages/stage_2/T"]               (1010.0, 1080.0), start and end of a ramp
    recipe["process_stages/stage_2/tau"] = 40        a single value
    recipe["process_stages/stage_2/T"] = 1020        start and end
    recipe["process_stages/stage_2/T/end"] = 1030    one attribute
    recipe["chemistry/Kd_In"]                        {"A": 1e13, "Ta": 23200.0, "Tn": 0.0}
    recipe["chemistry/Kd_In/A"] = 2e13               one attribute
    recipe["integration/scheme"] = "staged"          an optional element, added if it is missing

Of several elements with the same name the first counts, as in the library.

Contents: numbers and texts; Recipe: load and save, values by path, stages, timeline.
"""

from __future__ import annotations

import difflib
import math
import numbers
import os
import re
from collections.abc import Iterator, Mapping
from decimal import Decimal
from pathlib import Path
from typing import TYPE_CHECKING, Any

from . import _xml_bytes
from ._elements import ELEMENTS, ROOT
from ._files import replace_file
from ._xml_bytes import Edit, Element, RecipeError

if TYPE_CHECKING:
    import pandas as pd

Value = float | str | tuple[Any, Any] | dict[str, Any]

# Known elements by their paths, in which # is a number.
KNOWN = {element.path: element for element in ELEMENTS}
STAGE = "process_stages/stage_#"


def _children(parent: str, kind: str) -> list[str]:
    """The names of the known children of that kind."""
    paths = [path.rpartition("/") for path, known in KNOWN.items() if known.kind == kind]
    return [name for above, _, name in paths if above == parent]


# group: prefix of the element names of its stages, element with their number
GROUPS = {
    path.split("/")[0]: (path.split("/")[1].removesuffix("#"), _children(path.split("/")[0], "integer")[0])
    for path, known in KNOWN.items()
    if known.kind == "stages" and path.count("/") == 1
}
# optional elements outside of stages; setting their value adds them
OPTIONAL = tuple(path for path, known in KNOWN.items() if known.optional and known.attributes and "#" not in path)
SCHEMES = KNOWN["integration/scheme"].keywords
FLOWS = tuple(_children(f"{STAGE}/gas_species/Q", "range"))
# columns of the timeline: paths of their values in a stage
RAMPS = {"T": "T", "P": "P"} | {flow: f"gas_species/Q/{flow}" for flow in FLOWS}


def _parse_value(text: str) -> float | str:
    try:
        value = float(text)
    except ValueError:
        return text
    return value if "_" not in text else text


def _leading_number(value: object) -> float:
    """The number at the start of a text, as the library reads it; NaN if there is none."""
    match = re.match(r"\s*[-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?", str(value))
    return float(match[0]) if match else math.nan


def _format_value(value: object) -> str:
    """A value as written to the file: the shortest text that gives the same number."""
    if isinstance(value, str):
        return value
    if isinstance(value, bool) or not isinstance(value, numbers.Real):
        raise TypeError(f"a value in a recipe must be a number or a text, got {type(value).__name__}")
    if isinstance(value, numbers.Integral):
        return str(int(value))
    number = float(value)
    if not math.isfinite(number):
        raise ValueError(f"{number} is not finite, so it can't be a value in a recipe")
    if 1e-4 <= abs(number) < 1e6 or number == 0.0:
        return repr(number).removesuffix(".0")
    return f"{Decimal(repr(number)).normalize():e}".replace("e+", "e")


class Recipe:
    """A recipe file in memory."""

    def __init__(self, source: str | bytes, path: str | os.PathLike[str] | None = None) -> None:
        """Takes the XML itself; Recipe.load takes a path. path is used in messages and status files."""
        self.path = None if path is None else Path(path)
        self._content = _xml_bytes.encode(source) if isinstance(source, str) else bytes(source)
        self._root = self._index(self._content)

    @classmethod
    def load(cls, path: str | os.PathLike[str]) -> Recipe:
        """Reads a recipe file."""
        return cls(Path(path).read_bytes(), path)

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes the recipe. An existing file is replaced when the new one is complete."""
        replace_file(path, self._content)

    def copy(self) -> Recipe:
        """An independent copy."""
        return Recipe(self._content, self.path)

    def to_bytes(self) -> bytes:
        """The file's content."""
        return self._content

    def __str__(self) -> str:
        return self._content.decode("utf-8", "replace")

    def __repr__(self) -> str:
        return f"<Recipe {self._name}>"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Recipe) and self._content == other._content

    __hash__ = None  # type: ignore[assignment]

    @property
    def _name(self) -> str:
        return "recipe" if self.path is None else str(self.path)

    # ---- values by path

    def __getitem__(self, path: str) -> Value:
        element, attribute = self._find(path)
        if attribute is not None:
            return _parse_value(element.attributes[attribute])
        values = {name: _parse_value(text) for name, text in element.attributes.items()}
        if element.tag == "name":
            return element.attributes.get("val", "")
        if set(values) == {"val"}:
            return values["val"]
        if set(values) == {"val", "end"}:
            return values["val"], values["end"]
        return values

    def __setitem__(self, path: str, value: object) -> None:
        missing = self._missing_optional(path)
        if missing is not None:
            self._add_optional(missing, value)
            return
        element, attribute = self._find(path)
        known = element.attributes
        if attribute is not None:
            changes = {attribute: value}
        elif isinstance(value, Mapping):
            changes = dict(value)
        elif isinstance(value, (tuple, list)):
            if len(value) != 2 or not {"val", "end"} <= set(known):
                raise ValueError(f"{path} takes {self._form(element)}, got {value!r}")
            changes = dict(zip(("val", "end"), value))
        elif "val" in known:
            changes = {name: value for name in ("val", "end") if name in known}
        else:
            raise ValueError(f"{path} takes {self._form(element)}, got {value!r}")
        unknown = [name for name in changes if name not in known]
        if unknown:
            raise KeyError(f"{path} has no {', '.join(map(str, unknown))}; it has {', '.join(known)}")
        texts = {name: _format_value(new) for name, new in changes.items()}
        for name, new in changes.items():
            if not isinstance(new, str) and _parse_value(known[name]) == new:
                texts[name] = known[name]  # the same number, perhaps written differently
        self._replace(_xml_bytes.attribute_edits(self._content, element, texts))

    def get(self, path: str, default: Any = None) -> Any:
        """The value at path, or default if the path does not exist."""
        try:
            return self[path]
        except KeyError:
            return default

    def set(self, path: str, value: object) -> Recipe:
        """As recipe[path] = value, and returns the recipe, so that calls can be chained."""
        self[path] = value
        return self

    def with_scheme(self, scheme: str) -> Recipe:
        """A copy with this integration scheme, "staged" or "continuous".

        A missing `integration` element is added before the root's end tag; the rest of the text stays as it is.
        """
        if scheme not in SCHEMES:
            raise ValueError(f'the scheme must be "staged" or "continuous", got {scheme!r}')
        return self.copy().set("integration/scheme", scheme)

    def __contains__(self, path: object) -> bool:
        try:
            self._find(str(path))
        except KeyError:
            return False
        return True

    def paths(self) -> list[str]:
        """Paths of all elements with values, in file order."""
        return list(self._walk(self._root, ""))

    def __iter__(self) -> Iterator[str]:
        return iter(self.paths())

    def _walk(self, element: Element, prefix: str) -> Iterator[str]:
        seen = set()
        for child in element.children:
            if child.tag in seen:
                continue
            seen.add(child.tag)
            if child.attributes:
                yield prefix + child.tag
            yield from self._walk(child, f"{prefix}{child.tag}/")

    def _find(self, path: str) -> tuple[Element, str | None]:
        """The element at path, and the attribute if the path's last part is one."""
        parts = [part for part in re.split(r"[/:]", path) if part]
        if parts[:1] == [ROOT]:
            parts = parts[1:]
        element = self._root
        for position, part in enumerate(parts):
            below = element.child(part)
            if below is None and position == len(parts) - 1 and part.lstrip("@") in element.attributes:
                return element, part.lstrip("@")
            if below is None:
                raise KeyError(self._unknown(path))
            element = below
        if not parts or not element.attributes:
            raise KeyError(self._unknown(path) if not element.children else f"{path} is a group and has no value itself")
        return element, None

    def _missing_optional(self, path: str) -> str | None:
        """The entry of OPTIONAL that this path refers to, if the recipe has no value there."""
        parts = [part for part in re.split(r"[/:]", path) if part]
        if parts[:1] == [ROOT]:
            parts = parts[1:]
        if parts and parts[-1].lstrip("@") == "val":
            parts = parts[:-1]
        known = "/".join(parts)
        if known not in OPTIONAL:
            return None
        element: Element | None = self._root
        for part in parts:
            element = element.child(part) if element else None
        return known if element is None or "val" not in element.attributes else None

    def _add_optional(self, path: str, value: object) -> None:
        """Sets the value at a path of OPTIONAL, adding missing elements."""
        if isinstance(value, Mapping) and set(value) == {"val"}:
            value = value["val"]
        if isinstance(value, (Mapping, tuple, list)):
            raise ValueError(f"{path} takes a single value, got {value!r}")
        text = _format_value(value)
        element, tags = self._root, path.split("/")
        while tags and (below := element.child(tags[0])) is not None:
            element, tags = below, tags[1:]
        if tags:
            self._replace(_xml_bytes.added_child_edits(self._content, element, tags, text))
        else:
            self._replace(_xml_bytes.added_attribute_edits(self._content, element, "val", text))

    def _unknown(self, path: str) -> str:
        wanted = path.replace(":", "/").removeprefix(ROOT + "/")
        if wanted in OPTIONAL:
            return f"{self._name} has no {path}; it is optional, and setting a value adds it"
        paths = self.paths()
        last = wanted.rsplit("/", 1)[-1]
        near = [known for known in paths if known.endswith("/" + last)]
        near = difflib.get_close_matches(wanted, near, 3, 0.0) or difflib.get_close_matches(wanted, paths, 3, 0.6)
        hint = f"; similar paths: {', '.join(near)}" if near else ""
        return f"{self._name} has no {path}{hint}"

    @staticmethod
    def _form(element: Element) -> str:
        if set(element.attributes) == {"val"}:
            return "a single value"
        if set(element.attributes) == {"val", "end"}:
            return "one value, or two for start and end"
        return f"a mapping with {', '.join(element.attributes)}"

    # ---- stages

    def stages(self, group: str = "process_stages") -> list[str]:
        """Paths of the stages of a group in order, up to the number that the group states.

        group  "pre_stages", "process_stages", "post_stages", or the path of a periodic stage for its sub-stages
        """
        group = self._group(group)
        element = self._element(group)
        prefix = self._stage_prefix(group)
        return [f"{group}/{prefix}{i}" for i in range(1, self._count(group) + 1) if element.child(f"{prefix}{i}")]

    def add_stage(
        self,
        like: str,
        name: str | None = None,
        before: str | None = None,
        values: Mapping[str, object] | None = None,
    ) -> str:
        """Adds a copy of a stage to the group of that stage, and returns its path.

        like    path of the stage to copy, periodic ones included
        name    name of the new layer; None: the name of the copied one
        before  path of the stage to insert it before; None: the end of the group
        values  values to change, by paths relative to the stage: {"T": (1020, 1030), "gas_species/Q/TMIn": 0.3}
        The numbers of the following stages increase by one.
        """
        group, _ = self._split_stage(like)
        count, prefix = self._count(group), self._stage_prefix(group)
        number = count + 1
        if before is not None:
            before_group, number = self._split_stage(before)
            if before_group != group:
                raise ValueError(f"{before} is not in {group}")
        text = _xml_bytes.renamed_stage(self._content, self._element(like), f"{prefix}{number}")
        work = self.copy()
        work._renumber(group, number, +1)
        content = work._content
        next_stage = work._element(group).child(f"{prefix}{number + 1}")
        if next_stage is not None:
            place = next_stage.begin
            text += _xml_bytes.space_before(content, place)
        else:
            last = work._element(f"{group}/{prefix}{number - 1}")
            place = last.end
            text = _xml_bytes.space_before(content, last.begin) + text
        work._replace([(place, place, text)])
        work[f"{group}/{self._count_name(group)}"] = count + 1
        path = f"{group}/{prefix}{number}"
        if name is not None:
            work[f"{path}/name"] = name
        for key, value in (values or {}).items():
            work[f"{path}/{key}"] = value
        self._content, self._root = work._content, work._root
        return path

    def remove_stage(self, path: str) -> None:
        """Removes a stage. The numbers of the following stages decrease by one."""
        group, number = self._split_stage(path)
        count = self._count(group)
        if count == 1 and not group.endswith(("pre_stages", "post_stages")):
            raise ValueError(f"{path} is the only stage of {group} and can't be removed")
        work = self.copy()
        element = work._element(path)
        blank = len(_xml_bytes.space_before(work._content, element.begin))
        work._replace([(element.begin - blank, element.end, b"")])
        work._renumber(group, number + 1, -1)
        work[f"{group}/{self._count_name(group)}"] = count - 1
        self._content, self._root = work._content, work._root

    def make_periodic(self, first: str, last: str, periods: int) -> str:
        """Combines the stages first to last into one periodic stage and returns its path.

        The stages must be in numerical order in the file. Comments between them move into the periodic stage.
        """
        group, begin = self._split_stage(first)
        last_group, end = self._split_stage(last)
        if group != "process_stages" or last_group != group or end < begin:
            raise ValueError("first and last must be stages of process_stages, in order")
        if isinstance(periods, bool) or not isinstance(periods, numbers.Integral) or periods < 1:
            raise ValueError(f"periods must be a positive integer, got {periods!r}")
        paths = [f"{group}/stage_{number}" for number in range(begin, end + 1)]
        if any(self._is_periodic(path) for path in paths):
            raise ValueError("a periodic stage can't contain another periodic stage")
        elements = [self._element(path) for path in paths]
        if any(a.end > b.begin for a, b in zip(elements, elements[1:])):
            raise ValueError("the stages are not in numerical order in the file")
        work = self.copy()
        edits = []
        for number, element in enumerate(elements, 1):
            edits += _xml_bytes.tag_edits(element, f"stage_{begin}_{number}")
        work._replace(edits)
        block = [work._element(group).child(f"stage_{begin}_{i}") for i in range(1, len(paths) + 1)]
        outer = _xml_bytes.space_before(work._content, block[0].begin)
        step = b"  " if b"\t" not in outer else b"\t"
        inner = outer + step
        new_line = b"\r\n" if b"\r\n" in outer else b"\n"
        body = work._content[block[0].begin : block[-1].end].replace(new_line, new_line + step)
        head = [
            f"<stage_{begin}>",
            '<type val="periodic"/>',
            f'<n_periods val="{periods}"/>',
            f'<n_stages val="{len(paths)}"/>',
        ]
        text = inner.join(part.encode() for part in head) + inner + body + outer + f"</stage_{begin}>".encode()
        work._replace([(block[0].begin, block[-1].end, text)])
        work._renumber(group, end + 1, begin - end)
        work[f"{group}/n_stages"] = self._count(group) - len(paths) + 1
        self._content, self._root = work._content, work._root
        return f"{group}/stage_{begin}"

    def timeline(self) -> pd.DataFrame:
        """All stages in the order of growth, with periods expanded: one row per layer of the result.

        Columns: name, kind (pre, active, post), stage (element name, as in messages), path, begin, end, duration [s];
        and for active stages T [K], P [Pa] and the seven flows [sccm], each at the start (T_begin) and end (T_end).
        attrs["units"] has the units. Values that the recipe does not state are NaN.
        """
        import pandas as pd

        rows: list[dict[str, Any]] = []
        clock = _leading_number(self.get("pre_stages/t0"))
        for group, kind in (("pre_stages", "pre"), ("process_stages", "active"), ("post_stages", "post")):
            for path in self._expanded(group) if group in self._groups() else []:
                duration = _leading_number(self.get(f"{path}/tau"))
                name = str(self._raw(path, "name") or "") or f"Layer{len(rows) + 1}"
                row = {"name": name, "kind": kind, "stage": path.rsplit("/", 1)[-1], "path": path}
                row.update(begin=clock, end=clock + duration, duration=duration)
                clock += duration
                for column, below in RAMPS.items():
                    for when, attribute in (("begin", "val"), ("end", "end")):
                        value = self._raw(path, below, attribute) if kind == "active" else None
                        row[f"{column}_{when}"] = _leading_number(value)
                rows.append(row)
        units = {"begin": "s", "end": "s", "duration": "s"}
        for column, below in RAMPS.items():
            unit = KNOWN[f"{STAGE}/{below}"].unit
            units |= {f"{column}_begin": unit, f"{column}_end": unit}
        columns = ["name", "kind", "stage", "path", *units]
        table = pd.DataFrame(rows, columns=columns, index=pd.RangeIndex(1, len(rows) + 1, name="layer"))
        table.attrs["units"] = units
        return table

    def _expanded(self, group: str) -> Iterator[str]:
        """Paths of the single stages of a group in the order of growth."""
        for path in self.stages(group):
            if group == "process_stages" and self._is_periodic(path):
                inner = self.stages(path)
                for _ in range(int(_leading_number(self.get(f"{path}/n_periods")))):
                    yield from inner
            else:
                yield path

    def _raw(self, path: str, below: str, attribute: str = "val") -> str | None:
        element: Element | None = self._element(path)
        for part in below.split("/"):
            element = element.child(part) if element else None
        return element.attributes.get(attribute) if element else None

    def _element(self, path: str) -> Element:
        element = self._root
        for part in path.split("/"):
            below = element.child(part)
            if below is None:
                raise KeyError(self._unknown(path))
            element = below
        return element

    def _groups(self) -> list[str]:
        return [child.tag for child in self._root.children]

    def _is_periodic(self, path: str) -> bool:
        return str(self.get(f"{path}/type", "single")).lower() == "periodic"

    def _group(self, path: str) -> str:
        path = "/".join(part for part in re.split(r"[/:]", path) if part)
        self._element(path)
        if path not in GROUPS and not (re.fullmatch(r"process_stages/stage_\d+", path) and self._is_periodic(path)):
            raise ValueError(f"{path} is not a group of stages")
        return path

    @staticmethod
    def _stage_prefix(group: str) -> str:
        """The prefix of the element names in a group: stage_, stage_3_, pre_stage_."""
        return GROUPS[group][0] if group in GROUPS else group.rsplit("/", 1)[-1] + "_"

    @staticmethod
    def _count_name(group: str) -> str:
        return GROUPS[group][1] if group in GROUPS else "n_stages"

    def _count(self, group: str) -> int:
        count = _leading_number(self[f"{group}/{self._count_name(group)}"])
        return int(count) if count > 0 else 0

    def _split_stage(self, path: str) -> tuple[str, int]:
        """Group and number of a stage."""
        path = "/".join(part for part in re.split(r"[/:]", path) if part)
        group, _, tag = path.rpartition("/")
        if not group:
            raise KeyError(self._unknown(path))
        group = self._group(group)
        match = re.fullmatch(re.escape(self._stage_prefix(group)) + r"(\d+)", tag)
        self._element(path)
        if match is None or not 1 <= int(match[1]) <= self._count(group):
            raise KeyError(f"{path} is not a stage, or its number exceeds the number of stages that the group states")
        return group, int(match[1])

    # ---- edits of the bytes

    def _renumber(self, group: str, first: int, shift: int) -> None:
        """Renumbers the stages of a group from number first, including those beyond the stated number."""
        prefix = self._stage_prefix(group)
        edits: list[Edit] = []
        for child in self._element(group).children:
            match = re.fullmatch(re.escape(prefix) + r"(\d+)", child.tag)
            if match and int(match[1]) >= first:
                edits += _xml_bytes.stage_edits(child, f"{prefix}{int(match[1]) + shift}")
        self._replace(edits)

    def _replace(self, edits: list[Edit]) -> None:
        """Applies edits that don't overlap. After an error nothing has changed."""
        content = _xml_bytes.apply(self._content, edits)
        self._root = self._index(content)
        self._content = content

    def _index(self, content: bytes) -> Element:
        root = _xml_bytes.index(content, self._name)
        if root.tag != ROOT:
            raise RecipeError(f"{self._name}: the root element is {root.tag}, not {ROOT}")
        return root
