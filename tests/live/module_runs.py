"""Runs recipes with vorlen.wasm and with the shared library, and compares the result files."""
import json
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
# Without them, glibc computes exp, log and pow as the C library of the module does: by the same algorithm without fused
# multiply-adds, which round differently.
WITHOUT_FMA = {"GLIBC_TUNABLES": "glibc.cpu.hwcaps=-FMA,-FMA4,-AVX2"}


def lines_of(*command, **environment):
    done = subprocess.run(command, env={**os.environ, **environment}, capture_output=True, encoding="utf-8", check=False)
    assert done.returncode == 0, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()]


def run_module(module, folder, recipes):
    """Runs the recipes with the module. A list of {name, status, message, milliseconds}; folder receives NAME.txt."""
    return lines_of("node", os.path.join(HERE, "run_module.mjs"), module, folder, *recipes)


def run_native(library, folder, recipes, **environment):
    """The same with the library, without the status."""
    return lines_of(sys.executable, "-B", os.path.join(HERE, "run_native.py"), library, folder, *recipes, **environment)


def table(path):
    """The columns of a result file, as lists, and the thicknesses of its layers in nm."""
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    heading = next(k for k, line in enumerate(lines) if line.startswith("#time"))
    thicknesses = [float(line.rsplit(" ", 1)[1]) for line in lines[2:heading - 1] if line.startswith('"')]
    return [list(map(float, column)) for column in zip(*map(str.split, lines[heading + 1:]))], thicknesses


TIME, Z = 0, 1
FRACTIONS = range(3, 6)
LEAST_FRACTION = 1e-3  # the scale of a fraction that is smaller everywhere: of an absent metal there is only rounding
SAME_TIME = 1e-12      # relative


def equal_times(a, b):
    """Pairs of indices of rows whose times agree. Both lists rise."""
    i = j = 0
    while i < len(a) and j < len(b):
        if abs(a[i] - b[j]) <= SAME_TIME * abs(a[i]):
            yield i, j
            i, j = i + 1, j + 1
        elif a[i] < b[j]:
            i += 1
        else:
            j += 1


def at_times(times, x, y):
    """The line through the points (x, y) at times; all rise."""
    k = 0
    for t in times:
        while k + 2 < len(x) and x[k + 1] < t:
            k += 1
        share = min(max((t - x[k]) / (x[k + 1] - x[k]), 0.0), 1.0)
        yield y[k] + share * (y[k + 1] - y[k])


def differences(native, module):
    """The largest differences of two result files, as shares of the largest value: of the thicknesses of layers, of the
    depth at any time, of all columns in rows of equal times; and the share of rows that have a row of equal time.

    Rows are at steps of the integrator, which depend on rounding: times differ. Between rows, other columns than the
    depth are only followed to a thousandth of their range, which says nothing about the integration.
    """
    (rows, layers), (other_rows, other_layers) = table(native), table(module)
    assert len(layers) == len(other_layers) and len(rows) == len(other_rows)
    of_layers = max(abs(a - b) for a, b in zip(layers, other_layers)) / max(layers)
    depth = at_times(rows[TIME], other_rows[TIME], other_rows[Z])
    of_depth = max(abs(a - b) for a, b in zip(rows[Z], depth)) / max(rows[Z])
    pairs = list(equal_times(rows[TIME], other_rows[TIME]))
    of_rows = 0.0
    for k, (a, b) in enumerate(zip(rows, other_rows)):
        scale = max(max(map(abs, a)), LEAST_FRACTION if k in FRACTIONS else 0.0) or 1.0
        of_rows = max(of_rows, max(abs(a[i] - b[j]) for i, j in pairs) / scale)
    return of_layers, of_depth, of_rows, len(pairs) / len(rows[TIME])
