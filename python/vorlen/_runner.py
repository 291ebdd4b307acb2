"""What fits and sensitivities need to run recipes: the recipe, an executor and a folder, as the caller gives them."""

from __future__ import annotations

import contextlib
import os
import tempfile
from collections.abc import Iterator
from concurrent.futures import Executor
from pathlib import Path
from typing import Any

from ._pool import LocalPool, default_workers
from ._recipe import Recipe
from ._source import RecipeLike, RecipeSource


def given_recipe(recipe: RecipeLike, scheme: str | None) -> Recipe:
    """The recipe with this integration scheme; None: its own.

    Raises OSError if its file can't be read, RecipeError if it is not a recipe, TypeError for other types.
    """
    if not isinstance(recipe, (str, bytes, os.PathLike, Recipe)):
        kind = type(recipe).__name__
        raise TypeError(f"recipe must be a path, XML as text or bytes, or a Recipe, got {kind}")
    source = RecipeSource.of(recipe).under(scheme)
    if source.content is None:
        raise FileNotFoundError(f"recipe not found: {source.path}")
    return Recipe(source.content, source.path)


@contextlib.contextmanager
def pool_of(
    workers: int | None, executor: Executor | None, out: str | os.PathLike[str] | None
) -> Iterator[Executor]:
    """The executor, or worker processes on this machine."""
    check_workers(workers, executor)
    if executor is None:
        with LocalPool(workers or default_workers()) as pool:
            yield pool
        return
    if out is None:
        raise ValueError("an executor needs out, a folder that its processes have access to")
    if not callable(getattr(executor, "submit", None)):
        raise TypeError(f"executor must have submit() as executors of concurrent.futures do, got {executor!r}")
    yield executor


def check_workers(workers: Any, executor: object) -> None:
    """Raises TypeError or ValueError unless at most one of the two is given, and workers is a positive integer."""
    if workers is None:
        return
    if isinstance(workers, bool) or not isinstance(workers, int):
        raise TypeError(f"workers must be a positive integer or None, got {workers!r}")
    if executor is not None:
        raise ValueError("give either workers or executor, not both: an executor has its own workers")
    if workers < 1:
        raise ValueError(f"workers must be 1 or more, got {workers}")


@contextlib.contextmanager
def working_folder(out: str | os.PathLike[str] | None) -> Iterator[Path]:
    """The folder out, created if it is missing; None: a temporary one."""
    if out is not None:
        Path(out).mkdir(parents=True, exist_ok=True)
        yield Path(out)
        return
    with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
        yield Path(folder)
