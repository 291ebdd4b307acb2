"""Runs recipes with the built library and extracts the layers from the result files."""
import ctypes
import dataclasses
import math
import os

BUFFER_SIZE = 2048
TIME, Z, RATE, X_IN, X_GA, X_AL = range(6)  # columns of the table
RHO_TD, RHO_VD = 6, 7


@dataclasses.dataclass
class Layer:
    """One active stage."""
    name: str
    thickness: float  # nm
    mean: tuple = (math.nan, math.nan, math.nan)  # fractions In, Ga, Al, weighted by thickness


@dataclasses.dataclass
class Run:
    """Layers and active rows of a result file."""
    layers: list
    rows: list


def library(path):
    """The function runSurfChem of the library at path, as run(recipe, result) that returns an error text or ''."""
    function = ctypes.CDLL(os.path.abspath(path)).runSurfChem
    function.restype = ctypes.c_int32
    function.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p]

    def run(recipe, result):
        text = ctypes.create_string_buffer(BUFFER_SIZE)
        if function(os.fsencode(recipe), os.fsencode(result), text) == 0:
            return ""
        return text.value.decode(errors="replace") or "no text"

    return run


def layer_block(path):
    """The layers of a result file, starting with the pre-stage: name, duration in s, thickness in nm."""
    layers = []
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line == "</LAYERS>\n":
                return layers
            if line.count('"') == 2 and line.count(" ") > 1 and "version" not in line:
                name, numbers = line[1:].rsplit('"', 1)
                duration, thickness = map(float, numbers.split())
                layers.append((name, duration, thickness))
    raise ValueError(f"{path} is not a result file")


def durations(path):
    """The durations of the pre-stage and of the active stages, s."""
    return [duration for _, duration, _ in layer_block(path)]


def read(path):
    """Reads a result file of a recipe with one pre-stage and no post-stage."""
    layers = [Layer(name, thickness) for name, _, thickness in layer_block(path)[1:]]
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.startswith("#time"):
                break
        rows = [list(map(float, line.split())) for line in file][2:]
    set_means(layers, durations(path), rows)
    return Run(layers, rows)


def set_means(layers, taus, rows):
    """Mean composition of each layer: the integral over depth along the rows. A step over a boundary is shared out."""
    sums = [[0.0] * 4 for _ in layers]  # of thickness, and of thickness times fraction
    begin = taus[0]
    k, end = 0, begin + taus[1]
    # The times of the rows have rounding errors.
    slack = 1e-9
    for a, b in zip(rows, rows[1:]):
        share_from = 0.0
        while True:
            last = k + 1 == len(layers)
            inside = last or b[TIME] <= end + slack
            share_to = 1.0 if inside else max((end - a[TIME]) / (b[TIME] - a[TIME]), share_from)
            share = share_to - share_from
            dz = (b[Z] - a[Z]) * share
            middle = 0.5 * (share_from + share_to)
            sums[k][0] += dz
            for i in range(3):
                sums[k][1 + i] += dz * (a[X_IN + i] + (b[X_IN + i] - a[X_IN + i]) * middle)
            if inside:
                break
            share_from = share_to
            k += 1
            end += taus[k + 1]
    for layer, (thickness, *x) in zip(layers, sums):
        if thickness != 0.0:
            layer.mean = tuple(value / thickness for value in x)


def fault_of(run, low, high):
    """What is wrong with the rows: numbers not finite, or fractions outside of [low, high]. Empty if nothing is."""
    least, most = math.inf, -math.inf
    for row in run.rows:
        if not all(map(math.isfinite, row)):
            return f"a number is not finite at {row[TIME]} s"
        least, most = min(least, *row[X_IN:X_AL + 1]), max(most, *row[X_IN:X_AL + 1])
    if not run.rows:
        return "no rows"
    for layer in run.layers:
        if not math.isfinite(layer.thickness):
            return f"thickness of {layer.name} is not finite"
    return "" if low <= least and most <= high else f"fractions from {least:.7g} to {most:.7g}"


# Agreement of the two schemes.
RELATIVE_THICKNESS = 1e-3
THICKNESS = 0.02  # nm, if that is more
COMPOSITION = 1e-3
LEAST_LAYER = 1.0  # nm; thinner layers have no composition to compare


@dataclasses.dataclass
class Difference:
    """One quantity of one layer in which two runs differ by more than the schemes may."""
    layer: int  # from 1
    name: str
    what: str  # "thickness" in nm, or "x_In", "x_Ga", "x_Al"
    continuous: float
    staged: float
    thickness: float  # nm, of the layer

    def __str__(self):
        return (f"layer {self.layer} ({self.name}): {self.what} {self.continuous:.6g} continuous, {self.staged:.6g} "
                f"staged, difference {self.staged - self.continuous:+.2e}")


def differences(continuous, staged):
    """Where the layers of two runs of one recipe differ by more than the bounds."""
    found = []
    for number, (c, s) in enumerate(zip(continuous.layers, staged.layers), 1):
        if not abs(s.thickness - c.thickness) <= max(THICKNESS, RELATIVE_THICKNESS * abs(c.thickness)):
            found.append(Difference(number, c.name, "thickness", c.thickness, s.thickness, s.thickness))
        if c.thickness > LEAST_LAYER and s.thickness > LEAST_LAYER:
            for what, a, b in zip(("x_In", "x_Ga", "x_Al"), c.mean, s.mean):
                if not abs(b - a) <= COMPOSITION:
                    found.append(Difference(number, c.name, what, a, b, s.thickness))
    return found
