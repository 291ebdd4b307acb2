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
"""

from __future__ import annotations

from collections.abc import Iterator, Mapping
from pathlib import Path
from typing import TYPE_CHECKING, Any

from . import _stages, _timeline, _values, _xml_bytes
from ._document import Document, Place
from ._files import PathLike, as_path, read_file, replace_file
from ._kinds import SCHEMES
from ._values import Value
from ._xml_bytes import RecipeError

if TYPE_CHECKING:
    import pandas as pd


class Recipe:
    """A recipe file in memory."""

    def __init__(self, source: str | bytes, path: PathLike | None = None) -> None:
        """Takes the XML itself; Recipe.load takes a path. path is used in messages and status files."""
        if not isinstance(source, (str, bytes, bytearray)):
            raise TypeError(f"source must be the XML of a recipe as text or bytes, got {type(source).__name__}")
        self.path = None if path is None else as_path(path, "path")
        name = "recipe" if self.path is None else str(self.path)
        if isinstance(source, str) and source and not _xml_bytes.is_xml(source):
            raise RecipeError(f"{name}: the text is not XML; Recipe.load(path) reads a file")
        self._document = Document.of(_xml_bytes.encode(source) if isinstance(source, str) else bytes(source), name)

    @classmethod
    def load(cls, path: PathLike) -> Recipe:
        """Reads a recipe file. Raises OSError if it can't be read, RecipeError if it is not a recipe."""
        place = as_path(path, "path")
        return cls(read_file(place), place)

    def save(self, path: PathLike) -> None:
        """Writes the recipe. An existing file is replaced when the new one is complete."""
        replace_file(path, self.to_bytes())

    def copy(self) -> Recipe:
        """An independent copy."""
        copy = Recipe.__new__(Recipe)
        copy.path, copy._document = self.path, self._document
        return copy

    def to_bytes(self) -> bytes:
        """The file's content."""
        return self._document.content

    def __str__(self) -> str:
        return self.to_bytes().decode("utf-8", "replace")

    def __repr__(self) -> str:
        return f"<Recipe {self._document.name}>"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Recipe) and self.to_bytes() == other.to_bytes()

    __hash__ = None  # type: ignore[assignment]

    # ---- values by path

    def __getitem__(self, path: str) -> Value:
        return _values.value_at(self._document, path)

    def __setitem__(self, path: str, value: object) -> None:
        """Sets a value. After an error nothing has changed.

        Raises KeyError for an unknown path. Raises ValueError or TypeError for a value that the library would misread:
        a text or a fraction where the library expects a number or an integer, an unknown keyword, NaN.
        """
        self._document = _values.with_value(self._document, path, value)

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
            self._document.find(path)  # type: ignore[arg-type]
        except (KeyError, TypeError):
            return False
        return True

    def paths(self) -> list[str]:
        """Paths of all elements with values, in file order."""
        return self._document.paths()

    def __iter__(self) -> Iterator[str]:
        return iter(self.paths())

    # ---- stages

    def stages(self, group: str = "process_stages") -> list[str]:
        """Paths of the stages of a group in order, up to the number that the group states.

        group  "pre_stages", "process_stages", "post_stages", or the path of a periodic stage for its sub-stages
        """
        return _stages.stages(self._document, group)

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
        self._document, path = _stages.added_stage(self._document, like, name, before, values)
        return path

    def remove_stage(self, path: str) -> None:
        """Removes a stage. The numbers of the following stages decrease by one."""
        self._document = _stages.without_stage(self._document, path)

    def make_periodic(self, first: str, last: str, periods: int) -> str:
        """Combines the stages first to last into one periodic stage and returns its path.

        The stages must be in numerical order in the file. Comments between them move into the periodic stage.
        """
        self._document, path = _stages.with_periods(self._document, first, last, periods)
        return path

    def timeline(self) -> pd.DataFrame:
        """All stages in the order of growth, with periods expanded: one row per layer of the result.

        Columns: name, kind (pre, active, post), stage (element name, as in messages), path, begin, end, duration [s];
        and for active stages T [K], P [Pa] and the seven flows [sccm], each at the start (T_begin) and end (T_end).
        attrs["units"] has the units. Values that the recipe does not state are NaN.
        """
        return _timeline.timeline(self._document)


def place_in(recipe: Recipe, path: str) -> Place:
    """The element or attribute of a recipe that a path means. Raises KeyError."""
    return recipe._document.find(path)
