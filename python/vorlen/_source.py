"""A recipe as functions take it: a path, the XML as text or bytes, or a Recipe."""

from __future__ import annotations

import os
from dataclasses import dataclass
from pathlib import Path

from . import _xml_bytes
from ._recipe import Recipe
from ._scheme import with_scheme

RecipeLike = str | bytes | os.PathLike[str] | Recipe


@dataclass(frozen=True)
class RecipeSource:
    """A recipe as it was given: a file, a text, or both if a Recipe was loaded from a file."""

    path: Path | None = None
    content: bytes | None = None  # None: no recipe, or it can't be read
    on_disk: bool = False  # path holds content

    @staticmethod
    def of(recipe: RecipeLike) -> RecipeSource:
        if isinstance(recipe, Recipe):
            return RecipeSource(recipe.path, recipe.to_bytes())
        if isinstance(recipe, bytes):
            return RecipeSource(None, recipe)
        if isinstance(recipe, str) and recipe.lstrip("\ufeff \t\r\n").startswith("<"):
            return RecipeSource(None, _xml_bytes.encode(recipe))
        path = Path(recipe)
        try:
            return RecipeSource(path, path.read_bytes(), on_disk=True)
        except OSError:
            return RecipeSource(path, None, on_disk=True)  # the library reports what is wrong with it

    def under(self, scheme: str | None) -> RecipeSource:
        """The recipe with this integration scheme; the same object if it has it already."""
        if scheme is None or self.content is None:
            return self
        content = with_scheme(self.content, scheme, str(self.path or "recipe"))
        return self if content == self.content else RecipeSource(self.path, content)

    def file_for_library(self, folder: Path) -> Path:
        """A file with the recipe, written to folder if there is none."""
        if self.on_disk and self.path is not None:
            return self.path
        path = folder / "recipe.xml"
        path.write_bytes(self.content or b"")
        return path
