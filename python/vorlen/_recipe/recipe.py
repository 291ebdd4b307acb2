"""Recipes: load, inspect, change, save. building.py has the methods that build one.

A Recipe is the bytes of an XML file and an index of its elements. A change replaces only the bytes of the value, so
comments, order, indentation and line ends stay as they are. A path lists element names from the root's children down,
separated by slashes (or by colons, as in the library's messages):

    recipe["process_stages/stage_2/T"]               (1010.0, 1080.0), start and end of a ramp
    recipe["process_stages/stage_2/tau"] = 40        a single value
    recipe["process_stages/stage_2/T"] = 1020        start and end
    recipe["process_stages/stage_2/T"] = "757 degC"  with a unit
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

from .._base.files import as_path, read_file, replace_file
from .._base.types import PathLike
from . import stages as _stages, values as _values, xml_bytes
from .building import Block, Building
from .document import Document, Place
from .kinds import SCHEMES
from .values import Value
from .xml_bytes import RecipeError

if TYPE_CHECKING:
    import pandas as pd


class Recipe(Building):
    """A recipe file in memory: its bytes, and its values by path.

    `recipe[path]` reads a value: a number, a text, a pair (start, end) for a ramp, or a dictionary for an element with
    several attributes. `recipe[path] = value` sets it and changes no other byte; see set(). `path in recipe` says
    whether it exists, and iteration gives all paths. Two recipes are equal if their bytes are.

    Parameters
    ----------
    source : str or bytes
        The XML. Recipe.load reads a file, Recipe.new starts without one.
    path : path, optional
        Path of its file, for messages and status files. None: it has none.

    Raises
    ------
    RecipeError
        If the XML is not well-formed or not a recipe.
    TypeError
        If source or path has another type.
    ValueError
        If path can't be a path.
    """

    def __init__(self, source: str | bytes, path: PathLike | None = None) -> None:
        if not isinstance(source, (str, bytes, bytearray)):
            raise TypeError(f"source must be the XML of a recipe as text or bytes, got {type(source).__name__}")
        self.path = None if path is None else as_path(path, "path")
        name = "recipe" if self.path is None else str(self.path)
        if isinstance(source, str) and source and not xml_bytes.is_xml(source):
            raise RecipeError(f"{name}: the text is not XML; Recipe.load(path) reads a file")
        self._document = Document.of(xml_bytes.encode(source) if isinstance(source, str) else bytes(source), name)
        self._initial: dict[str, object] = {}
        self._block: Block | None = None

    @classmethod
    def load(cls, path: PathLike) -> Recipe:
        """Reads a recipe file.

        Parameters
        ----------
        path : path
            A regular file.

        Returns
        -------
        Recipe
            The recipe, with this path.

        Raises
        ------
        OSError
            If the file can't be read.
        RecipeError
            If the XML is not well-formed or not a recipe.
        TypeError
            If path is not a path.
        ValueError
            If path is not a regular file.
        """
        place = as_path(path, "path")
        return cls(read_file(place), place)

    def save(self, path: PathLike) -> None:
        """Writes the recipe. An existing file is replaced when the new one is complete.

        Parameters
        ----------
        path : path
            The file to write.

        Raises
        ------
        OSError
            If the file can't be written.
        TypeError
            If path is not a path.
        ValueError
            If path is a device or another place that is not a regular file.
        """
        replace_file(path, self.to_bytes())

    def copy(self) -> Recipe:
        """Copies the recipe.

        Returns
        -------
        Recipe
            An independent copy with the same path.
        """
        copy = Recipe.__new__(Recipe)
        copy.path, copy._document = self.path, self._document
        copy._initial, copy._block = self._initial, None
        return copy

    def to_bytes(self) -> bytes:
        """The content of the file.

        Returns
        -------
        bytes
            The XML, in its encoding.
        """
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
        self._document = _values.with_value(self._document, path, value)

    def get(self, path: str, default: Any = None) -> Any:
        """Reads a value that may be missing.

        Parameters
        ----------
        path : str
            Path of the element or attribute.
        default : object, optional
            What to return if the path does not exist.

        Returns
        -------
        float, str, tuple, dict or the default
            As recipe[path].

        Raises
        ------
        TypeError
            If path is not a text.
        """
        try:
            return self[path]
        except KeyError:
            return default

    def set(self, path: str, value: object) -> Recipe:
        """Sets a value, as `recipe[path] = value`. After an error nothing has changed.

        Parameters
        ----------
        path : str
            Path of the element or attribute. A missing optional element outside of stages is added.
        value : float, str, pair or dict
            One value, which for a ramp is its start and end; a pair (start, end) for a ramp; or a dictionary of
            attributes. Numbers are in the units of the recipe. A text such as "757 degC", or a Quantity of pint, may
            have another unit.

        Returns
        -------
        Recipe
            The same recipe, so that calls can be chained.

        Raises
        ------
        ImportError
            If the value has a unit and pint is missing.
        KeyError
            If the path, or an attribute, does not exist.
        TypeError
            If path is not a text, or value is neither a number nor a text.
        ValueError
            If the unit does not fit; if the library would misread the value: a text or a fraction where it expects a
            number or an integer, an unknown keyword, NaN, infinity; if the element has another number of values; if XML
            can't contain the text.
        """
        self[path] = value
        return self

    def with_scheme(self, scheme: str) -> Recipe:
        """Copies the recipe with another integration scheme.

        A missing `integration` element is added before the root's end tag; the rest of the text stays as it is.

        Parameters
        ----------
        scheme : str
            "staged" or "continuous".

        Returns
        -------
        Recipe
            The copy.

        Raises
        ------
        ValueError
            If the scheme is unknown.
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
        """Paths of all elements with values.

        Returns
        -------
        list of str
            The paths in file order; of several elements with one path, the first.
        """
        return self._document.paths()

    def __iter__(self) -> Iterator[str]:
        return iter(self.paths())

    # ---- stages

    def stages(self, group: str = "process_stages") -> list[str]:
        """Paths of the stages of a group.

        Parameters
        ----------
        group : str, optional
            "pre_stages", "process_stages", "post_stages", or the path of a periodic stage for its sub-stages.

        Returns
        -------
        list of str
            Paths in the order of growth, up to the number of stages that the group states.

        Raises
        ------
        KeyError
            If the group does not exist.
        RecipeError
            If the group does not state the number of its stages.
        TypeError
            If group is not a text.
        ValueError
            If the element is not a group of stages.
        """
        return _stages.stages(self._document, group)

    def add_stage(
        self,
        like: str,
        name: str | None = None,
        before: str | None = None,
        values: Mapping[str, object] | None = None,
        into: str | None = None,
    ) -> str:
        """Adds a copy of a stage to its group or another one. The numbers of the following stages increase by one.

        Parameters
        ----------
        like : str
            Path of the stage to copy, which may be periodic.
        name : str, optional
            Name of the new layer; None: the name of the copied one.
        before : str, optional
            Path of the stage to insert it before; None: at the end of the group.
        values : mapping, optional
            Values to change, by paths relative to the stage: {"T": (1020, 1030), "gas_species/Q/TMIn": 0.3}.
        into : str, optional
            Group that the copy is added to: "process_stages" or the path of a periodic stage for a simulated stage,
            "pre_stages" or "post_stages" for a given one. None: the group of the copied stage.

        Returns
        -------
        str
            Path of the new stage.

        Raises
        ------
        KeyError
            If a stage or a path in values does not exist.
        RecipeError
            If the group does not state the number of its stages.
        TypeError
            If an argument has another type.
        ValueError
            If before is not in the group that the copy is added to; if into is not a group, or one that can't hold
            such a stage; or if a value is rejected as by set().
        """
        self._document, path = _stages.added_stage(self._document, like, name, before, values, into)
        return path

    def remove_stage(self, path: str) -> None:
        """Removes a stage. The numbers of the following stages decrease by one.

        Parameters
        ----------
        path : str
            Path of the stage.

        Raises
        ------
        KeyError
            If it is not a stage of the recipe.
        RecipeError
            If the group does not state the number of its stages.
        TypeError
            If path is not a text.
        ValueError
            If it is the only stage of process_stages or of a periodic stage.
        """
        self._document = _stages.without_stage(self._document, path)

    def make_periodic(self, first: str, last: str, periods: int) -> str:
        """Combines stages into one periodic stage. Comments between them move into it.

        Parameters
        ----------
        first, last : str
            Paths of the first and the last stage in process_stages; those between them are included. They must be in
            numerical order in the file, and not periodic.
        periods : int
            How often the sequence is grown, at least 1.

        Returns
        -------
        str
            Path of the periodic stage.

        Raises
        ------
        KeyError
            If a stage does not exist.
        RecipeError
            If process_stages does not state the number of its stages.
        TypeError
            If first or last is not a text.
        ValueError
            If the stages can't be combined, or periods is not a positive integer.
        """
        self._document, path = _stages.with_periods(self._document, first, last, periods)
        return path

    def timeline(self) -> pd.DataFrame:
        """All stages in the order of growth, with periods expanded.

        Returns
        -------
        pandas.DataFrame
            One row per layer of the result, numbered from 1. Columns: name, kind (pre, active, post), stage (element
            name, as in messages), path, begin, end, duration [s]; and for active stages T [K], P [Pa] and the seven
            flows [sccm], each at the start (T_begin) and end (T_end). attrs["units"] has the units. Values that the
            recipe does not state are NaN.

        Raises
        ------
        RecipeError
            If a group does not state the number of its stages, or there are more than 1000000 active stages, the
            limit of the library.
        """
        return _stages.timeline(self._document)


def place_in(recipe: Recipe, path: str) -> Place:
    """The element or attribute of a recipe that a path means. Raises KeyError."""
    return recipe._document.find(path)
