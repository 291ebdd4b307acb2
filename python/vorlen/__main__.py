"""python3 -m vorlen: the subcommands of `vorlen` that are written in Python."""

from __future__ import annotations

import sys

from . import __version__
from ._base.command_line import Parser
from ._base.interrupts import run_command
from ._design.command import add_command as add_design
from ._design.map_command import add_command as add_map
from ._design.window_command import add_command as add_window
from ._pages.compare_command import add_command as add_compare
from ._pages.observe_command import add_command as add_observe
from ._pages.report_command import add_command as add_report
from ._sweep.command import add_command as add_sweep


def main(arguments: list[str] | None = None) -> int:
    """Runs a subcommand and returns its exit status: 0; 1 for a failure, described on stderr; 2 for a usage error."""
    parser = Parser(prog="vorlen", description="Reports and comparisons of results; designs, process windows, maps and sweeps of recipes.")
    parser.add_argument("--version", action="version", version=f"vorlen {__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")
    add_design(commands)
    add_window(commands)
    add_map(commands)
    add_report(commands)
    add_compare(commands)
    add_observe(commands)
    add_sweep(commands)
    options = parser.parse_args(arguments)
    try:
        return int(options.function(options))
    except (FileNotFoundError, IsADirectoryError) as error:
        raw = error.errno is not None and error.filename is not None
        text = f"{error.filename} can't be read: {error.strerror}" if raw else str(error)
        print(f"vorlen: {text}", file=sys.stderr)
        return 1
    except (OSError, ValueError, RuntimeError, ImportError) as error:
        print(f"vorlen: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    run_command(main)
