"""The folder of a search that runs a recipe again and again, such as a design or a fit: its own, and locked."""

from __future__ import annotations

import contextlib
from collections.abc import Iterable, Iterator
from pathlib import Path

from .._base.files import BusyError, lock_file
from .._base.types import PathLike
from .run_rows import working_folder


@contextlib.contextmanager
def own_folder(out: PathLike | None, search: str, names: Iterable[str]) -> Iterator[Path]:
    """The folder out, or a temporary one, locked by the file .SEARCH.lock, which stays.

    search   "design" or "fit", also for the texts of errors
    names    of the files and folders that it writes
    Raises BusyError if another search of this kind is running there, FileExistsError if the folder holds one of the
    names and is not of such a search.
    """
    with working_folder(out) as folder, contextlib.ExitStack() as held:
        mark = folder / f".{search}.lock"
        if not mark.exists():
            for place in (folder / name for name in names):
                if place.exists():
                    text = f"{place} is not of a {search} and would be overwritten; choose another folder"
                    raise FileExistsError(text)
        try:
            held.enter_context(lock_file(mark, exclusive=True))
        except BlockingIOError:
            raise BusyError(f"another {search} is running in {folder}") from None
        yield folder
