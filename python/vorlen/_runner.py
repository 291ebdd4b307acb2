"""What fits and sensitivities need to run recipes: the recipe, an executor and a folder, as the caller gives them."""

from __future__ import annotations

import contextlib
import os
import tempfile
from collections.abc import Iterator
from concurrent.futures import Executor
from pathlib import Path

from ._files import BusyError, lock_file
from ._pool import LocalPool, default_workers
from ._recipe import Recipe
from ._run_rows import as_executor, check_workers
from ._source import RecipeLike, RecipeSource

LOCK_NAME = ".fit.lock"  # in the folder of a fit


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


def given_executor(
    workers: int | None, executor: Executor | None, out: str | os.PathLike[str] | None
) -> Executor | None:
    """The executor, or that of a Dask client; None: worker processes of this machine."""
    check_workers(workers, executor)
    executor = as_executor(executor)
    if executor is not None and out is None:
        raise ValueError("an executor needs out, a folder that its processes have access to")
    return executor


@contextlib.contextmanager
def pool_of(workers: int | None, executor: Executor | None) -> Iterator[Executor]:
    """The executor, or worker processes on this machine."""
    if executor is not None:
        yield executor
        return
    with LocalPool(workers or default_workers()) as pool:
        yield pool


@contextlib.contextmanager
def working_folder(out: str | os.PathLike[str] | None) -> Iterator[Path]:
    """The folder out, created if it is missing; None: a temporary one."""
    if out is None:
        with tempfile.TemporaryDirectory(prefix="vorlen-") as folder:
            yield Path(folder)
        return
    if not isinstance(out, (str, os.PathLike)) or not os.fspath(out):
        raise TypeError(f"out must be the path of a folder, got {out!r}")
    Path(out).mkdir(parents=True, exist_ok=True)
    yield Path(out)


@contextlib.contextmanager
def fit_folder(out: str | os.PathLike[str] | None, recipes: int) -> Iterator[Path]:
    """The folder of a fit with so many recipes, locked.

    Raises BusyError if another fit is running there, FileExistsError if it holds other files with the same names.
    """
    with working_folder(out) as folder, contextlib.ExitStack() as held:
        mark = folder / LOCK_NAME
        present = [] if mark.exists() else [folder / recipe_folder(number) for number in range(recipes)]
        for place in present:
            if place.exists():
                raise FileExistsError(f"{place} is not of a fit and would be overwritten; choose another folder")
        try:
            held.enter_context(lock_file(mark, exclusive=True))
        except BlockingIOError:
            raise BusyError(f"another fit is running in {folder}") from None
        yield folder


def recipe_folder(number: int) -> str:
    """The folder of the runs of a recipe, counted from 0, in that of the fit."""
    return f"recipe_{number + 1}"
