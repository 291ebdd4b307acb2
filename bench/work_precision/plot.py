#!/usr/bin/env python3
"""Plots work_precision.csv and prints the ratios at equal error: plot.py TABLE.csv PLOT.svg

The plot has one panel for each problem, error over processor time. The printed tables are Markdown: IDA over Radau, time
and evaluations of f at equal error, and the runs that failed. "never": the second solver did not get there with any
tolerance; "only": the first did not.
"""
import csv
import math
import sys

import matplotlib
import matplotlib.ticker

matplotlib.use("Agg")
matplotlib.rcParams["svg.fonttype"] = "none"
matplotlib.rcParams["svg.hashsalt"] = "work_precision"  # the same table gives the same file
import matplotlib.pyplot as plt  # noqa: E402

STYLE = {
    "radau": ("o-", "tab:blue", "Radau IIA"),
    "radau_index_1": ("o:", "tab:cyan", "Radau IIA, all components index 1"),
    "ida": ("s-", "tab:red", "IDA"),
    "ida_suppress": ("s:", "tab:orange", "IDA, algebraic components not tested"),
}
LEVELS = [1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9]
FLOOR = 1e-12  # errors below are those of the references
PER_ROW = 4


def read(path):
    """Rows by problem and solver, in order of the file."""
    table = {}
    with open(path, newline="", encoding="utf-8") as file:
        for row in csv.DictReader(file):
            table.setdefault(row["problem"], {}).setdefault(row["solver"], []).append(row)
    return table


def front(rows, cost):
    """The runs that no other run of the solver beats in both error and cost, by decreasing error."""
    points = sorted((float(r[cost]), max(float(r["error"]), FLOOR)) for r in rows if r["status"] == "ok")
    best = []
    for value, error in points:
        if not best or error < best[-1][1]:
            best.append((value, error))
    return best


def cost_at(points, level):
    """Cost of an error of at most level, and whether the cost is only an upper bound.

    Between two runs the cost is interpolated, straight in logarithms. Where even the cheapest run is more exact than
    asked for, its cost is the bound. None where no run is exact enough.
    """
    if not points or points[-1][1] > level:
        return None, False
    if points[0][1] < level:
        return points[0][0], True
    for (cost_a, error_a), (cost_b, error_b) in zip(points, points[1:]):
        if error_a >= level >= error_b:
            part = math.log(error_a / level) / math.log(error_a / error_b)
            return math.exp(math.log(cost_a) + part * math.log(cost_b / cost_a)), False
    return points[0][0], False


def ratio_cell(base, other, level):
    """other / base; ">" and "<" mark the side of the true ratio when one cost is a bound."""
    a, a_bound = cost_at(base, level)
    b, b_bound = cost_at(other, level)
    if a is None and b is None:
        return ""
    if b is None:
        return "never"
    if a is None:
        return "only"
    if a_bound and b_bound:
        return ""
    return (">" if a_bound else "<" if b_bound else "") + f"{b / a:.1f}"


def ratios(table, cost, base, other):
    print(f"\n{other} over {base}, {cost} at equal error\n")
    print("| problem | " + " | ".join(f"{level:.0e}" for level in LEVELS) + " |")
    print("|---" * (len(LEVELS) + 1) + "|")
    for problem, solvers in table.items():
        if other in solvers:
            fronts = [front(solvers[name], cost) for name in (base, other)]
            print(f"| {problem} | " + " | ".join(ratio_cell(*fronts, level) for level in LEVELS) + " |")


def failures(table):
    print("\nfailed runs\n\n| problem | solver | tolerances | how |\n|---|---|---|---|")
    for problem, solvers in table.items():
        for solver, rows in solvers.items():
            ways = {}
            for row in rows:
                if row["status"] != "ok":
                    ways.setdefault(row["status"], []).append(float(row["tolerance"]))
            for way, tolerances in ways.items():
                print(f"| {problem} | {solver} | {len(tolerances)} of {len(rows)}, {max(tolerances):.0e} to "
                      f"{min(tolerances):.0e} | {way} |")


def plot(table, path):
    rows = math.ceil(len(table) / PER_ROW)
    figure, axes = plt.subplots(rows, PER_ROW, figsize=(4 * PER_ROW, 3.2 * rows), squeeze=False)
    for axis in axes.flat[len(table):]:
        axis.axis("off")
    for axis, (problem, solvers) in zip(axes.flat, table.items()):
        for solver, runs in solvers.items():
            good = [r for r in runs if r["status"] == "ok"]
            marker, colour, _ = STYLE[solver]
            axis.loglog([float(r["seconds"]) for r in good], [max(float(r["error"]), FLOOR) for r in good], marker,
                        color=colour, markersize=3, linewidth=1)
        axis.set_title(problem, fontsize=10)
        axis.grid(True, which="major", linewidth=0.3)
        axis.xaxis.set_minor_locator(matplotlib.ticker.LogLocator(subs=(2, 5)))
        axis.xaxis.set_minor_formatter(matplotlib.ticker.NullFormatter())
        axis.yaxis.set_minor_locator(matplotlib.ticker.NullLocator())
        axis.yaxis.set_major_locator(matplotlib.ticker.LogLocator(numticks=7))
        axis.set_xlabel("processor time, s", fontsize=8)
        axis.set_ylabel("error at the end", fontsize=8)
        axis.tick_params(labelsize=7)
    handles = [plt.Line2D([], [], color=colour, linestyle=marker[1:], marker=marker[0], markersize=4, label=label)
               for marker, colour, label in STYLE.values()]
    figure.legend(handles=handles, loc="upper center", ncol=len(handles), fontsize=9)
    figure.tight_layout(rect=(0, 0, 1, 0.97))
    figure.savefig(path, metadata={"Date": None})


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    table = read(sys.argv[1])
    plot(table, sys.argv[2])
    for other in ("ida", "ida_suppress", "radau_index_1"):
        for cost in ("seconds", "rhs_calls"):
            ratios(table, cost, "radau", other)
    failures(table)


if __name__ == "__main__":
    main()
