"""The largest differences of two result files of one recipe, by quantity.

Two measures. `of_rows` compares rows that are the same instant of the process. Under the staged scheme both ends of each
stage are rows. Under the continuous scheme rows are at steps of the integrator, which depend on rounding: `of_layers`
compares what a reader of the result sees, values of layers.
"""
import dataclasses
import math

QUANTITIES = {
    "time": ("#time(sec)",),  # of switches; only that of an opening of V-defects is a result
    "height": ("z(nm)",),
    "growth rate": ("Vg",),
    "composition": ("xIn", "xGa", "xAl"),
    "strain": ("a_eff(t)", "eps_xx(t)", "eps_yy(t)", "eps_zz(t)", "eps_yz(t)", "a_eff(z)", "eps_xx(z)", "eps_yy(z)",
               "eps_zz(z)", "eps_yz(z)"),
    "dislocations": ("rho_TD(t)", "rho_TD(z)"),
    "V-defects": ("rho_VD0(t)",),
}
TIME, HEIGHT = "#time(sec)", "z(nm)"
# Scales of quantities that are smaller everywhere in the run. There is only rounding in the fraction of an absent metal.
LEAST_SCALE = {"composition": 1e-3}
SAME_TIME = 1e-14   # relative; processes after a switch take nanoseconds
LEAST_LAYER = 1.0   # nm; thinner layers have no mean to compare
LEAST_STRAIN = 1e-4
SLACK = 1e-3         # of fractions


@dataclasses.dataclass
class Result:
    """A result file: columns by name, and durations in s and thicknesses in nm of its layers."""
    columns: dict
    durations: list
    thicknesses: list


def read(path):
    with open(path, encoding="utf-8") as file:
        lines = file.read().splitlines()
    heading = next(k for k, line in enumerate(lines) if line.startswith(TIME))
    layers = [tuple(map(float, line.rsplit(" ", 2)[1:])) for line in lines[2:heading - 1] if line.startswith('"')]
    values = [list(map(float, column)) for column in zip(*map(str.split, lines[heading + 1:]))]
    names = lines[heading].split()
    assert len(values) == len(names), path
    return Result(dict(zip(names, values)), [layer[0] for layer in layers], [layer[1] for layer in layers])


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


def switches(times):
    """The indices of the rows before a switch of stages or an opening of V-defects. The row after it is a representable
    number later."""
    return [i for i in range(len(times) - 1) if times[i + 1] - times[i] <= 2.0 * math.ulp(times[i])]


def comparable_rows(a, b):
    """Pairs of indices of rows of the two lists of times that are the same instant of the process: both rows of each
    switch, which is found by counting, as V-defects open at times that differ; and rows between switches whose times
    agree."""
    at = list(zip(switches(a), switches(b)))
    if len(switches(a)) != len(switches(b)):
        raise ValueError(f"{len(switches(a))} and {len(switches(b))} switches of stages and openings of V-defects")
    i = j = 0
    for to_i, to_j in at:
        yield from ((i + k, j + n) for k, n in equal_times(a[i:to_i], b[j:to_j]))
        yield from ((to_i, to_j), (to_i + 1, to_j + 1))
        i, j = to_i + 2, to_j + 2
    yield from ((i + k, j + n) for k, n in equal_times(a[i:], b[j:]))


def at_times(times, x, y):
    """The line through the points (x, y) at times; all rise."""
    k = 0
    for t in times:
        while k + 2 < len(x) and x[k + 1] < t:
            k += 1
        share = min(max((t - x[k]) / (x[k + 1] - x[k]), 0.0), 1.0)
        yield y[k] + share * (y[k + 1] - y[k])


def largest(values):
    """The largest absolute value; NaN if there is one."""
    values = [abs(value) for value in values]
    return next((value for value in values if value != value), max(values, default=0.0))


def thickness(a, b):
    """The largest difference of a layer's thickness, as share of the thickest layer."""
    assert len(a.thicknesses) == len(b.thicknesses)
    return largest(x - y for x, y in zip(a.thicknesses, b.thicknesses)) / largest(a.thicknesses)


def of_rows(a, b):
    """The largest differences in comparable rows by quantity, as shares of the column's largest value, and of the height
    at any time. Between rows, other columns than the height are only followed to a thousandth of their range, which says
    nothing about the integration."""
    pairs = list(comparable_rows(a.columns[TIME], b.columns[TIME]))
    found = {"thickness": thickness(a, b)}
    for quantity, names in QUANTITIES.items():
        found[quantity] = 0.0
        for name in names:
            x, y = a.columns[name], b.columns[name]
            scale = max(largest(x), LEAST_SCALE.get(quantity, 0.0)) or 1.0
            found[quantity] = largest((found[quantity], largest(x[i] - y[j] for i, j in pairs) / scale))
    heights = at_times(a.columns[TIME], b.columns[TIME], b.columns[HEIGHT])
    found["height"] = largest((found["height"], largest(x - y for x, y in zip(a.columns[HEIGHT], heights))
                               / largest(a.columns[HEIGHT])))
    return found


def means(result, names):
    """For each layer the means of columns over its height, or None of a thin one. A step over a boundary of layers is
    divided by time."""
    times, heights = result.columns[TIME], result.columns[HEIGHT]
    columns = [result.columns[name] for name in names]
    ends, end = [], 0.0
    for duration in result.durations:
        end += duration
        ends.append(end)
    sums = [[0.0] * (1 + len(names)) for _ in ends]
    k = 0
    for i in range(len(times) - 1):
        step, done = times[i + 1] - times[i], 0.0
        while done < 1.0:
            last = k + 1 == len(ends) or times[i + 1] <= ends[k] * (1.0 + SAME_TIME)
            to = 1.0 if last else max((ends[k] - times[i]) / step, done)
            grown, middle = (heights[i + 1] - heights[i]) * (to - done), 0.5 * (done + to)
            sums[k][0] += grown
            for n, column in enumerate(columns, 1):
                sums[k][n] += grown * (column[i] + middle * (column[i + 1] - column[i]))
            done, k = to, k if last else k + 1
    return [[value / grown for value in rest] if abs(grown) > LEAST_LAYER else None for grown, *rest in sums]


def of_layers(a, b):
    """The largest differences of the values of layers by quantity: thickness relative to the layer's own; mean fractions,
    absolute; mean strain, as share of the largest; densities at the end of the run, relative. Of layers that are thicker
    than 1 nm in both."""
    pairs = [(x, y) for x, y in zip(a.thicknesses, b.thicknesses) if min(abs(x), abs(y)) > LEAST_LAYER]
    found = {"thickness": largest((x - y) / x for x, y in pairs)}
    strain = "eps_xx(t)"
    names = (*QUANTITIES["composition"], strain)
    of_means = [(x, y) for x, y in zip(means(a, names), means(b, names)) if x and y]
    found["composition"] = largest(x[n] - y[n] for x, y in of_means for n in range(3))
    scale = max(largest(a.columns[strain]), LEAST_STRAIN)
    found["strain"] = largest((x[3] - y[3]) / scale for x, y in of_means)
    for quantity, name in (("dislocations", "rho_TD(t)"), ("V-defects", "rho_VD0(t)")):
        x, y = a.columns[name][-1], b.columns[name][-1]
        found[quantity] = abs(x - y) / (max(abs(x), abs(y)) or 1.0)
    return found


def is_physical(result):
    """Whether all numbers are finite and all fractions are from 0 to 1, but for the slack of the continuous scheme."""
    fractions = [result.columns[name] for name in QUANTITIES["composition"]]
    return (all(math.isfinite(value) for column in result.columns.values() for value in column)
            and all(-SLACK <= value <= 1.0 + SLACK for column in fractions for value in column))


def same_text(a, b):
    """Whether two result files are the same but for the sign of NaN, which depends on the processor."""
    def content(path):
        with open(path, "rb") as file:
            return file.read().replace(b"-nan", b"nan")
    return content(a) == content(b)
