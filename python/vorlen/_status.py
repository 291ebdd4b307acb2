"""The status file of a result: what was run, how it ended, and the hashes of recipe and result."""

from __future__ import annotations

import datetime
import hashlib
import json
import os
import socket
from pathlib import Path
from typing import Any

from ._files import replace_file
from ._source import RecipeSource
from ._version import __version__


def _sibling(result: str | os.PathLike[str], ending: str) -> Path:
    path = Path(result)
    name = path.name
    for suffix in (".result.txt", ".failed.txt", ".txt"):
        if name.endswith(suffix):
            name = name.removesuffix(suffix)
            break
    return path.with_name(name + ending)


def status_path(result: str | os.PathLike[str]) -> Path:
    """The status file of a result file: NAME.result.txt, NAME.failed.txt or NAME.txt has NAME.status.json."""
    return _sibling(result, ".status.json")


def failed_path(result: str | os.PathLike[str]) -> Path:
    """Path of the file with the rows of a failed run."""
    return _sibling(result, ".failed.txt")


def read_status(result: str | os.PathLike[str]) -> dict[str, Any]:
    """The content of the status file of a result; empty if it is missing or can't be read."""
    try:
        status = json.loads(status_path(result).read_text("utf-8"))
    except (OSError, ValueError):
        return {}
    return status if isinstance(status, dict) else {}


def write_status(
    target: Path,
    kept: Path,
    status: int,
    text: str,
    wall_time: float,
    source: RecipeSource,
    content: bytes,
    scheme: str,
) -> None:
    """Writes the status file of target. kept is the file with the rows, content its content."""
    record = {
        "result": status,
        "text": text,
        "wall_time_s": wall_time,
        "version": __version__,
        "recipe": None if source.path is None else str(source.path),
        "recipe_sha256": None if source.content is None else hashlib.sha256(source.content).hexdigest(),
        "scheme": scheme,
        "result_file": str(kept),
        "result_sha256": hashlib.sha256(content).hexdigest() if content else None,
        "host": socket.gethostname(),
        "finished": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
    }
    path = status_path(target)
    replace_file(path, (json.dumps(record, indent=2, ensure_ascii=False) + "\n").encode("utf-8", "surrogateescape"))
