"""Files put in place whole: other processes see the old content or the new one, never a part.

Only regular files are replaced, never a device or an input of the same command. A symbolic link stays and its target is
replaced. A file that is replaced keeps its mode and, where that is allowed, its owner.
"""

from __future__ import annotations

import contextlib
import errno
import os
import re
import stat
import uuid
from collections.abc import Iterable, Iterator
from pathlib import Path
from typing import Any

from . import system
from .types import PathLike

NAME_SIZE_MAX = 200  # bytes; with a longer name, that of the temporary would exceed the 255 of a file system


class BusyError(RuntimeError):
    """Another process, or thread, is writing the same file or folder."""


def as_path(value: Any, name: str) -> Path:
    """The path given as an argument; name is that of the argument, for the texts of TypeError and ValueError."""
    if not isinstance(value, (str, os.PathLike)):
        raise TypeError(f"{name} must be a path, got {type(value).__name__}")
    text = os.fsdecode(value)
    if not text:
        raise ValueError(f"{name} must be a path, got an empty text")
    if "\0" in text:
        raise ValueError(f"{name} contains a null character: {text!r}")
    try:
        os.fsencode(text)
    except UnicodeEncodeError:
        raise ValueError(f"{name} is not a valid path: {text!r}") from None
    return Path(text)


def valid_text(text: str) -> str:
    """The text with U+FFFD for each byte of a name that is not UTF-8."""
    return re.sub("[\ud800-\udfff]", "\ufffd", text)


def page_bytes(text: str) -> bytes:
    """The content of a page: valid_text() in UTF-8.

    It has none of the invisible characters that set the direction of the text after them: in the name of a layer, they
    would reverse the digits of the thickness beside it.
    """
    return re.sub("[\u202a-\u202e\u2066-\u2069]", "", valid_text(text)).encode()


def read_file(path: PathLike) -> bytes:
    """The content of a regular file. Raises the OSError of opening it; ValueError for a pipe or a device."""
    with open(path, "rb", opener=system.open_at_once) as file:
        if not stat.S_ISREG(os.fstat(file.fileno()).st_mode):
            raise ValueError(f"{path} is not a regular file")
        return file.read()


def check_place(path: PathLike, inputs: Iterable[PathLike | None] = ()) -> Path:
    """The file that writing to path would create or replace, with links followed.

    inputs  files that must stay, such as the recipe of a report; None and missing files are skipped
    Raises OSError for a folder, a missing folder or missing rights; ValueError for what is not a regular file, and for
    an input.
    """
    path = as_path(path, "path")
    try:
        place = path.resolve()
    except RuntimeError:
        raise OSError(errno.ELOOP, os.strerror(errno.ELOOP), str(path)) from None
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
    path: PathLike, content: bytes, *, inputs: Iterable[PathLike | None] = ()
) -> Path:
    """Writes content to path and returns path. Raises as check_place; after any error the old file is still there."""
    with replacement(path, inputs=inputs) as part:
        part.write_bytes(content)
    return Path(path)


@contextlib.contextmanager
def replacement(
    path: PathLike, *, inputs: Iterable[PathLike | None] = ()
) -> Iterator[Path]:
    """An empty temporary beside path; the caller writes it, and it replaces path at the end of the block.

    Raises as check_place; after any error the old file is still there. An OSError names path, not the temporary.
    """
    place = check_place(path, inputs)
    part = part_of(place, uuid.uuid4().hex)
    mode = 0o600 if place.exists() else 0o666  # not readable by more users than the old file
    try:
        system.create_new(part, mode)
        yield part
        put_in_place(part, place)
    except OSError as error:
        if error.errno is None:
            raise OSError(f"{path} can't be written: {error}") from error
        raise OSError(error.errno, error.strerror, str(path)) from error
    finally:
        part.unlink(missing_ok=True)


def put_in_place(part: Path, place: Path) -> None:
    """Renames part to place, with the mode and owner of the file that is there. Both must be in one folder."""
    with contextlib.suppress(FileNotFoundError):
        system.copy_access(place.stat(), part)
    system.rename(part, place)


@contextlib.contextmanager
def locked_part(place: Path) -> Iterator[Path]:
    """The temporary .NAME.part of a run that writes to place, empty and locked against other runs with this output.

    The command-line tool locks it in the same way. Raises BusyError if another run holds it. One that a killed run has
    left is used again.
    """
    part = part_of(place)
    while True:
        try:
            file = system.open_to_lock(part, follow=False, create=True)
        except OSError as error:
            raise OSError(error.errno, f"{error.strerror} ({part.name})", str(place)) from error
        try:
            system.lock(file, exclusive=True, wait=False)
            if _is_open_as(file, part):
                break
        except BlockingIOError:
            os.close(file)
            raise BusyError(f"another run is writing {place}") from None
        os.close(file)  # the run that held it has renamed it meanwhile
    try:
        if not system.is_plain(os.fstat(file)):
            raise ValueError(f"{place} can't be written: {part} is in the way")
        try:
            os.ftruncate(file, 0)
            yield part
        finally:
            if _is_open_as(file, part):  # otherwise it was put in place, and the name may be another run's by now
                part.unlink()
    finally:
        os.close(file)


def is_part_locked(place: Path) -> bool:
    """True if a run that writes to place holds its temporary."""
    return is_locked(part_of(place))


def is_locked(path: Path) -> bool:
    """True if the file exists and an exclusive lock on it is held."""
    try:
        file = system.open_to_lock(path, follow=False, create=False)
    except OSError:
        return False
    try:
        system.lock(file, exclusive=False, wait=False)
    except BlockingIOError:
        return True
    finally:
        os.close(file)
    return False


@contextlib.contextmanager
def lock_file(path: Path, *, exclusive: bool, wait: bool = False) -> Iterator[None]:
    """Holds a lock on the file path, which is created and stays. Raises BlockingIOError if it is held and not wait."""
    file = system.open_to_lock(path, follow=True, create=True)
    try:
        system.lock(file, exclusive=exclusive, wait=wait)
        yield
    finally:
        with contextlib.suppress(OSError):
            system.unlock(file)  # closing is not enough if a process was forked meanwhile
        os.close(file)


def _is_open_as(file: int, path: Path) -> bool:
    try:
        return os.path.samestat(os.fstat(file), path.lstat())
    except FileNotFoundError:
        return False


def part_of(place: Path, word: str = "") -> Path:
    """The name of a temporary beside place."""
    name = place.name if len(os.fsencode(place.name)) <= NAME_SIZE_MAX else "vorlen"
    return place.with_name(f".{name}.{word}.part" if word else f".{name}.part")
