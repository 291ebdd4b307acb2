"""A recipe as functions take it: a path, the XML as text or bytes, or a Recipe."""

from __future__ import annotations

import hashlib
import os
from dataclasses import dataclass
from pathlib import Path

from .._base.files import as_path, read_file
from .._base.types import PathLike
from . import xml_bytes
from .recipe import Recipe
from .scheme import with_scheme

RecipeLike = PathLike | bytes | Recipe


@dataclass(frozen=True)
class RecipeSource:
    """A recipe as it was given: the content of a file, a text, or both if a Recipe was loaded from a file."""

    path: Path | None = None
    content: bytes | None = None  # None: no recipe is known
    problem: str = ""  # why none is known, if there is a special reason

    @staticmethod
    def of(recipe: RecipeLike, argument: str = "recipe") -> RecipeSource:
        """Reads the recipe. Raises the OSError of opening its file, and TypeError for other types."""
        if isinstance(recipe, Recipe):
            return RecipeSource(recipe.path, recipe.to_bytes())
        if isinstance(recipe, bytes):
            return RecipeSource(None, recipe)
        if isinstance(recipe, str) and xml_bytes.is_xml(recipe):
            return RecipeSource(None, xml_bytes.encode(recipe))
        if not isinstance(recipe, (str, os.PathLike)):
            kind = type(recipe).__name__
            raise TypeError(f"{argument} must be a path, XML as text or bytes, or a Recipe, got {kind}")
        path = as_path(recipe, argument)
        return RecipeSource(path, read_file(recipe))

    @property
    def sha256(self) -> str | None:
        """SHA-256 hash of the recipe; None if it is not known."""
        return None if self.content is None else hashlib.sha256(self.content).hexdigest()

    @property
    def is_well_formed(self) -> bool:
        """True if it is well-formed XML, which need not be a recipe."""
        try:
            xml_bytes.index(self.content or b"", "recipe")
        except xml_bytes.RecipeError:
            return False
        return True

    def under(self, scheme: str | None) -> RecipeSource:
        """The recipe with this integration scheme; the same object if it has it already."""
        if scheme is None or self.content is None:
            return self
        content = with_scheme(self.content, scheme, str(self.path or "recipe"))
        return self if content == self.content else RecipeSource(self.path, content)
