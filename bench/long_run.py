#!/usr/bin/env python3
"""Time, memory and file size of runs that use all 1000000 steps of the integrator.

    bench/long_run.py [LIBRARY]     (default: build/release/src/api/libVorlenSolver.so)

Runs examples under the continuous scheme with a first active stage of 2e7 s. With steps of at most 10 s that is longer
than 1000000 steps. Each run has its own process. Prints one line for each: result and text, time in s, peak resident
memory in MB, size of the result file in MB, number of lines.
"""
from __future__ import annotations

import ctypes
import os
import re
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent
DURATION = "2e7"  # s
ERROR_BUFFER_SIZE = 2048  # bytes
# Title, example
RUNS = [
    ("no relaxation", "algan_gan_hemt"),
    ("relaxation, V-defects", "ingan_v_defects"),
    ("relaxation, tension", "algan_tension"),
]


def write_recipe(path: Path, example: str) -> None:
    """Writes the example with a first active stage of DURATION [s]."""
    text = (SOURCE / "examples" / f"{example}.xml").read_text(encoding="utf-8")
    text = re.sub(r"\s*<integration>.*?</integration>", "", text, flags=re.DOTALL)
    head, stages = text.split("<process_stages>")
    path.write_text(head + "<process_stages>" + re.sub(r'<tau val="[^"]*"', f'<tau val="{DURATION}"', stages, count=1),
                    encoding="utf-8")


def run(library: str, recipe: str, output: str) -> None:
    """Runs the recipe in this process. Prints result, text, time [s] and memory [MB]."""
    text = ctypes.create_string_buffer(ERROR_BUFFER_SIZE)
    call = ctypes.CDLL(library).runSurfChem
    begin = time.perf_counter()
    result = call(recipe.encode(), output.encode(), text)
    duration = time.perf_counter() - begin
    memory = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    print(f"{result} {text.value.decode() or 'complete'}: {duration:.1f} s, {memory:.0f} MB of memory", end="")


def main() -> int:
    """Runs the examples one at a time."""
    if len(sys.argv) == 4:
        run(*sys.argv[1:])
        return 0
    library = sys.argv[1] if len(sys.argv) == 2 else str(SOURCE / "build/release/src/api/libVorlenSolver.so")
    for title, example in RUNS:
        with tempfile.TemporaryDirectory() as folder:
            recipe, output = Path(folder) / "recipe.xml", Path(folder) / "result.txt"
            write_recipe(recipe, example)
            report = subprocess.run([sys.executable, __file__, library, str(recipe), str(output)], check=True,
                                    capture_output=True, encoding="utf-8").stdout
            with output.open("rb") as file:
                rows = sum(1 for _ in file)
            print(f"{title} ({example}): {report}, file {os.path.getsize(output) / 1e6:.0f} MB, {rows} lines", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
