"""The command `vorlen` of an installation by pip: starts the tool that the package contains, or a command in Python.

It is not part of the package because importing that takes a second, which commands of the tool do not need.
"""

from __future__ import annotations

import os
import signal
import subprocess
import sys
from pathlib import Path
from typing import NoReturn

# The subcommands of `python3 -m vorlen`.
PYTHON_COMMANDS = ("compare", "design", "map", "observe", "report", "sweep", "window")


def find_program() -> str:
    """The tool in the package; of a package without it, as in a source tree, the one that the package finds."""
    place = Path(__file__).resolve().parent / "vorlen" / "_native" / "bin" / f"vorlen{'.exe' * (os.name == 'nt')}"
    if place.is_file():
        return str(place)
    from vorlen._base.tool import MISSING_TOOL, find_tool

    tool = find_tool()
    if tool is None:
        sys.exit(f"vorlen: {MISSING_TOOL}")
    return tool


def main() -> NoReturn:
    """Replaces this process by the tool, or by this interpreter with the package, with the same arguments."""
    arguments = sys.argv[1:]
    if arguments[:1] and arguments[0] in PYTHON_COMMANDS:
        start([sys.executable, "-P", "-m", "vorlen", *arguments], [signal.SIGINT])
    start([find_program(), *arguments], [])


def start(command: list[str], blocked: list[signal.Signals]) -> NoReturn:
    """Replaces this process. blocked: signals that wait until the package handles them, without a traceback."""
    if sys.platform == "win32":  # where a process can't be replaced; both get Ctrl-C, and this one waits
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        os.environ.setdefault("PYTHONUTF8", "1")  # the tool writes UTF-8 to files and pipes as well
        sys.exit(subprocess.run(command, check=False).returncode)
    signal.pthread_sigmask(signal.SIG_BLOCK, blocked)
    for name in ("SIGPIPE", "SIGXFSZ"):  # ignored by every Python
        if hasattr(signal, name):
            signal.signal(getattr(signal, name), signal.SIG_DFL)
    try:
        os.execv(command[0], command)
    except OSError as error:
        sys.exit(f"vorlen: {command[0]}: {error.strerror}")
