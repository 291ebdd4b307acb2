#!/usr/bin/env python3
"""Makes the chart library of the reports: python/chart_library.py OUTPUT

The source is plotly.js from Debian's package python3-plotly, one file with all kinds of charts. The reports draw
lines only, so the modules that lines do not need are left out, and esbuild makes the rest small: 0.9 MB instead of 9.
The licences come first in the output, because every report carries a copy of it.

Needs the Debian packages python3-plotly and esbuild, and no network.
"""

from __future__ import annotations

import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

SOURCE = Path("/usr/share/python3-plotly/plotly.js")
LICENCES = Path("/usr/share/doc/python3-plotly/copyright")

# The file is a browserify bundle: "{1:[function(_dereq_,module,exports){", code, "},{NAMES}],2:[function(...", and
# "},{NAMES}]},{},[ENTRY])(ENTRY)" at the end. NAMES maps what a module requires to module numbers.
MODULE = re.compile(r"(?:^\},(\{.*\})\],|\{)(\d+):\[function\(_dereq_,module,exports\)\{$", re.MULTILINE)
END = re.compile(r"^\},(\{.*\})\]\},\{\},\[(\d+)\]\)\(\d+\)$", re.MULTILINE)


class ChartLibraryError(Exception):
    """The chart library can't be made. The text says what is missing."""


def lines_only(bundle: str) -> str:
    """The bundle with its core, which draws lines, and the modules that the core requires."""
    modules: dict[int, tuple[str, dict[str, int]]] = {}  # number: code, names of the modules it requires
    starts = []
    for match in MODULE.finditer(bundle):
        if int(match[2]) == len(starts) + 1:  # other numbers belong to a bundle inside a module
            starts.append(match)
    ends = [match for match in END.finditer(bundle)]
    if not starts or not ends:
        raise ChartLibraryError(f"{SOURCE} is not a bundle of modules; this version of plotly.js is not supported")
    for start, end in zip(starts, [*starts[1:], ends[-1]]):
        modules[int(start[2])] = (bundle[start.end() : end.start()], json.loads(end[1]))

    _, entry_names = modules[int(ends[-1][2])]
    if "./core" not in entry_names:
        raise ChartLibraryError(f"{SOURCE} has no module ./core; this version of plotly.js is not supported")
    core = entry_names["./core"]
    needed = {core}
    unvisited = [core]
    while unvisited:
        for number in modules[unvisited.pop()][1].values():
            if number not in needed:
                needed.add(number)
                unvisited.append(number)
    parts = [
        f"{number}:[function(_dereq_,module,exports){{{code}}},{json.dumps(names)}]"
        for number, (code, names) in modules.items()
        if number in needed
    ]
    head = bundle[: starts[0].start()]
    return f"{head}{{{','.join(parts)}}},{{}},[{core}])({core}){bundle[ends[-1].end() :]}"


def make(output: Path) -> None:
    """Writes the chart library to output. Raises ChartLibraryError if a package is missing."""
    esbuild = shutil.which("esbuild")
    missing = [] if SOURCE.is_file() and LICENCES.is_file() else ["python3-plotly"]
    if esbuild is None:
        missing.append("esbuild")
    if missing:
        raise ChartLibraryError(f"missing packages, run: apt-get install {' '.join(missing)}")
    command = [esbuild, "--minify", "--legal-comments=eof", "--log-level=error"]
    bundle = SOURCE.read_text("utf-8")
    done = subprocess.run(command, input=lines_only(bundle), capture_output=True, encoding="utf-8", check=False)
    if done.returncode != 0:
        raise ChartLibraryError(f"esbuild failed:\n{done.stderr}")
    title = bundle[: bundle.index("*/") + 2]  # name, version and copyright
    text = f"{title}\n/*\n{LICENCES.read_text('utf-8').replace('*/', '* /')}*/\n{done.stdout}"
    if "</script" in text.lower() or "<!--" in text:
        raise ChartLibraryError("the chart library can't be part of a page: it contains </script or <!--")
    output.parent.mkdir(parents=True, exist_ok=True)
    part = output.with_name(f".{output.name}.part")
    part.write_text(text, "utf-8")
    part.replace(output)


def main() -> int:
    if len(sys.argv) != 2:
        print("usage: python/chart_library.py OUTPUT", file=sys.stderr)
        return 2
    try:
        make(Path(sys.argv[1]))
    except ChartLibraryError as error:
        print(f"chart_library: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
