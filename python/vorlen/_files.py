"""Files put in place whole: other processes see the old content or the new one, never a part.

Only regular files are replaced, never a device or an input of the same command. A symbolic link stays and its target is
replaced. A file that is replaced keeps its mode and, where that is allowed, its owner.
"""

from __future__ import annotations

import contextlib
import fcntl
import os
import stat
import uuid
from collections.abc import Iterable, Iterator
from pathlib import Path

NAME_SIZE_MAX = 200  # bytes; with a longer name, that of the temporary would exceed the 255 of a file system


class BusyError(RuntimeError):
    """Another process, or thread, is writing the same file or folder."""


def check_place(path: str | os.PathLike[str], inputs: Iterable[str | os.PathLike[str] | None] = ()) -> Path:
    """The file that writing to path would create or replace, with links followed.

    inputs  files that must stay, such as the recipe of a report; None and missing files are skipped
    Raises OSError for a folder, a missing folder or missing rights; ValueError for what is not a regular file, and for
    an input.
    """
    path = Path(path)
    place = path.resolve()
    if not place.parent.is_dir():
        raise FileNotFoundError(f"folder not found: {path.parent}, for the file {path.name}")
    if place.is_dir():
        raise IsADirectoryError(f"{path} is a folder; give the path of a file")
    if place.exists():
        if not place.is_file():
            raise ValueError(f"{path} is not a regular file")
        for one in inputs:
            if one is not None and os.path.exists(one) and place.samefile(one):
                raise ValueError(f"{path} would overwrite {one}, which is an input")
        if not os.access(place, os.W_OK):
            raise PermissionError(f"{path} is not writable")
    if not os.access(place.parent, os.W_OK | os.X_OK):
        raise PermissionError(f"the folder of {path} is not writable")
    return place


def replace_file(
    path: str | os.PathLike[str], content: bytes, *, inputs: Iterable[str | os.PathLike[str] | None] = ()
) -> Path:
    """Writes content to path and returns path. Raises as check_place; after any error the old file is still there."""
    place = check_place(path, inputs)
    part = _part_of(place, uuid.uuid4().hex)
    try:
        with open(os.open(part, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o666), "wb") as file:
            file.write(content)
        put_in_place(part, place)
    except OSError as error:
        raise OSError(error.errno, error.strerror, str(path)) from error  # not the name of the temporary
    finally:
        part.unlink(missing_ok=True)
    return Path(path)


def put_in_place(part: Path, place: Path) -> None:
    """Renames part to place, with the mode and owner of the file that is there. Both must be in one folder."""
    with contextlib.suppress(FileNotFoundError):
        old = place.stat()
        part.chmod(stat.S_IMODE(old.st_mode))
        with contextlib.suppress(PermissionError):
            os.chown(part, old.st_uid, old.st_gid)
    os.replace(part, place)


def remove_litter(folder: Path) -> None:
    """Removes the temporaries that killed processes have left in a folder to which nobody writes now."""
    for part in folder.glob(".*.part"):
        part.unlink(missing_ok=True)


@contextlib.contextmanager
def locked_part(place: Path) -> Iterator[Path]:
    """The temporary .NAME.part of a run that writes to place, empty and locked against other runs with this output.

    The command-line tool locks it in the same way. Raises BusyError if another run holds it. One that a killed run has
    left is used again.
    """
    part = _part_of(place)
    while True:
        file = os.open(part, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
        try:
            _lock(file, exclusive=True, wait=False)
            if _is_open_as(file, part):
                break
            os.close(file)  # the run that held it has renamed it meanwhile
        except BlockingIOError:
            os.close(file)
            raise BusyError(f"another run is writing {place}") from None
    try:
        os.ftruncate(file, 0)
        yield part
    finally:
        if _is_open_as(file, part):  # otherwise it was put in place, and the name may be another run's by now
            part.unlink()
        os.close(file)


@contextlib.contextmanager
def lock_file(path: Path, *, exclusive: bool, wait: bool = False) -> Iterator[None]:
    """Holds a lock on the file path, which is created and stays. Raises BlockingIOError if it is held and not wait."""
    file = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
    try:
        _lock(file, exclusive=exclusive, wait=wait)
        yield
    finally:
        os.close(file)


def _lock(file: int, *, exclusive: bool, wait: bool) -> None:
    fcntl.flock(file, (fcntl.LOCK_EX if exclusive else fcntl.LOCK_SH) | (0 if wait else fcntl.LOCK_NB))


def _is_open_as(file: int, path: Path) -> bool:
    return path.exists() and os.path.samestat(os.fstat(file), path.stat())


def _part_of(place: Path, word: str = "") -> Path:
    name = place.name if len(os.fsencode(place.name)) <= NAME_SIZE_MAX else "vorlen"
    return place.with_name(f".{name}.{word}.part" if word else f".{name}.part")
