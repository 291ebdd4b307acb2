#!/usr/bin/env python3
"""Compares the cost of the two integration schemes by the program vorlen_bench_schemes.

    schemes.py tables PROGRAM FOLDER [--examples examples] [--repeat 5]
    schemes.py precision PROGRAM TABLE.csv PLOT.svg [--examples examples]

tables: runs the recipes of FOLDER, named FAMILY_STRESS_NUMBER.xml as tests/plausible/plausible.py writes them (STRESS
0: none, 1: V_dislocation), and the examples under both schemes. Prints Markdown tables: which recipes are right, and
evaluations and time of the staged scheme relative to the continuous one.

precision: runs the quantum-well and the V-defect example with several tolerances and maximum steps. Writes error over
number of evaluations, as a table and a plot. The reference is the staged scheme at its smallest tolerance. The exchange
layer makes the two schemes differ, so the continuous scheme is also compared with itself at a smaller maximum step.
"""
import argparse
import collections
import csv
import json
import os
import statistics
import subprocess
import tempfile

LIMIT = 120.0  # s, for all runs of a recipe
REFERENCE = 1e-10
TOLERANCES = [1e-3, 1e-4, 1e-5, 1e-6, 1e-7, 1e-8, 1e-9]
MAX_STEPS = [10, 3, 1, 0.3, 0.1]  # s, of the continuous scheme
REFERENCE_STEP = 0.03  # s
LEAST_THICKNESS = 1.0  # nm; the error of a thinner layer is relative to this
FLOOR = 1e-12  # smaller errors come from the digits of the result file


def run(program, recipe, folder, *options):
    """Records that the program prints for a recipe, by scheme; empty if it takes too long or crashes."""
    command = [program, "--out", folder, *map(str, options), recipe]
    try:
        text = subprocess.run(command, check=True, timeout=LIMIT, stdout=subprocess.PIPE, text=True).stdout
    except (subprocess.TimeoutExpired, subprocess.CalledProcessError):
        return {}
    return {record["scheme"]: record for record in map(json.loads, text.splitlines())}


def read_result(path):
    """Thicknesses [nm] of the layers, and the rows as lists of words."""
    layers, rows, in_rows = [], [], False
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.startswith('"') and not line.startswith('"VORLEN'):
                layers.append(float(line.split()[-1]))
            elif line.startswith("#time"):
                in_rows = True
            elif in_rows and line.strip():
                rows.append(line.split())
    return layers, rows


def is_right(record):
    """Whether a run returned 0, finite numbers and fractions from 0 to 1."""
    if not record or record["status"] != 0:
        return False
    for row in read_result(record["file"])[1]:
        if any("n" in word for word in row) or any(not -1e-6 <= float(word) <= 1 + 1e-6 for word in row[3:6]):
            return False
    return True


def end_density(record):
    """Density of V-defects in the last row, cm^-2; 0 for a run that failed."""
    if not record or record["status"] != 0:
        return 0.0
    return float(read_result(record["file"])[1][-1][7])


Compared = collections.namedtuple("Compared", "name group records right")


def compare(program, recipe, repeat):
    """Runs a recipe under both schemes. Groups it by family and by what its strain does."""
    with tempfile.TemporaryDirectory() as folder:
        # The first run of each scheme is not timed: failing runs may take long.
        records = {}
        for scheme in ("continuous", "staged"):
            records.update(run(program, recipe, folder, "--scheme", scheme))
        right = {scheme: is_right(records.get(scheme)) for scheme in ("continuous", "staged")}
        opened = end_density(records.get("staged")) > 0.0
        if all(records.get(scheme, {}).get("status") == 0 for scheme in right):
            records = run(program, recipe, folder, "--repeat", repeat) or records
    name = os.path.basename(recipe)[:-4]
    family, _, stress = name.rpartition("_")[0].rpartition("_")
    if stress == "1":
        stress = "V-defects open" if opened else "V_dislocation, closed"
    else:
        stress = "no stress"
    return Compared(name, (family, stress), records, right)


def quantity_ratios(runs, quantity):
    return sorted(c.records["staged"][quantity] / c.records["continuous"][quantity] for c in runs)


def ratio_cells(runs):
    """Evaluations: ratio of sums, median, minimum and maximum; the same for time."""
    cells = []
    for quantity in ("evaluations", "seconds"):
        ratios = quantity_ratios(runs, quantity)
        total = [sum(c.records[scheme][quantity] for c in runs) for scheme in ("staged", "continuous")]
        median = statistics.median(ratios)
        cells.append(f"{total[0] / total[1]:.3f} | {median:.3f} ({ratios[0]:.3f} .. {ratios[-1]:.3f})")
    return cells


def row_of(cells):
    print("| " + " | ".join(map(str, cells)) + " |")


def tables(program, folder, examples, repeat):
    recipes = sorted(os.path.join(folder, f) for f in os.listdir(folder) if f.endswith(".xml"))
    runs = [compare(program, recipe, repeat) for recipe in recipes]
    groups = collections.defaultdict(list)
    for c in runs:
        groups[c.group].append(c)
    for c in runs:
        groups["all", c.group[1]].append(c)
    groups["all", ""] = runs

    print("\nrecipes that are right\n\n| family | stress | recipes | continuous | staged |\n|---|---|---|---|---|")
    for (family, stress), members in groups.items():
        share = [f"{100 * sum(c.right[s] for c in members) / len(members):.0f} %" for s in ("continuous", "staged")]
        row_of([family, stress, len(members), *share])
    for c in runs:
        if not c.right["staged"]:
            text = c.records.get("staged", {}).get("text", "killed or crashed")
            print(f"\nnot right under the staged scheme: {c.name}, {text}")

    print("\nstaged over continuous, recipes with which the continuous scheme returns 0; median, range in brackets\n")
    print("| family | stress | recipes | evaluations, sum | median | time, sum | median |")
    print("|---|---|---|---|---|---|---|")
    for (family, stress), members in groups.items():
        ended = [c for c in members if len(c.records) == 2 and all(r["status"] == 0 for r in c.records.values())]
        if ended and stress:
            row_of([family, stress, len(ended), *ratio_cells(ended)])

    print("\nexamples\n\n| example | stages | evaluations, continuous | staged | ratio | time, ms | staged | ratio |")
    print("|---|---|---|---|---|---|---|---|")
    for recipe in sorted(f for f in os.listdir(examples) if f.endswith(".xml")):
        records = compare(program, os.path.join(examples, recipe), repeat).records
        a, b = records["continuous"], records["staged"]
        row_of([recipe[:-4], a["stages"], a["evaluations"], b["evaluations"],
                f"{b['evaluations'] / a['evaluations']:.3f}", f"{1e3 * a['seconds']:.2f}", f"{1e3 * b['seconds']:.2f}",
                f"{b['seconds'] / a['seconds']:.2f}"])


def errors_of(record, reference):
    """Largest relative difference of a layer thickness, and that of the final V-defect density (or None)."""
    layers = read_result(record["file"])[0]
    of_layers = max(abs(a - b) / max(abs(b), LEAST_THICKNESS) for a, b in zip(layers, reference[0]))
    of_density = abs(end_density(record) / reference[1] - 1) if reference[1] > 0.0 else None
    return of_layers, of_density


def precision(program, table, svg, examples):
    rows = []
    for name in ("ingan_gan_mqw", "ingan_v_defects"):
        recipe = os.path.join(examples, name + ".xml")
        with tempfile.TemporaryDirectory() as folder:
            def one(scheme, value):
                option = "--tolerance" if scheme == "staged" else "--max-step"
                return run(program, recipe, folder, "--scheme", scheme, option, value).get(scheme)

            references = {}
            for scheme, value in (("staged", REFERENCE), ("continuous", REFERENCE_STEP)):
                record = one(scheme, value)
                if record and record["status"] == 0:
                    references[scheme] = read_result(record["file"])[0], end_density(record)
            for scheme, against, values in (("staged", "staged", TOLERANCES), ("continuous", "staged", MAX_STEPS),
                                            ("continuous", "continuous", MAX_STEPS)):
                for value in values if against in references else []:
                    record = one(scheme, value)
                    if not record or record["status"] != 0:
                        rows.append([name, scheme, against, value, "failed", "", "", ""])
                        continue
                    of_layers, of_density = errors_of(record, references[against])
                    rows.append([name, scheme, against, value, record["status"], record["evaluations"],
                                 f"{of_layers:.4e}", "" if of_density is None else f"{of_density:.4e}"])
    with open(table, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["recipe", "scheme", "reference", "tolerance_or_max_step", "status", "evaluations",
                         "thickness_error", "density_error"])
        writer.writerows(rows)
    plot(table, svg)


def plot(table, svg):
    import matplotlib
    matplotlib.use("Agg")
    matplotlib.rcParams["svg.fonttype"] = "none"
    matplotlib.rcParams["svg.hashsalt"] = "schemes"  # the same table gives the same file
    import matplotlib.pyplot as plt

    with open(table, newline="", encoding="utf-8") as file:
        rows = [r for r in csv.DictReader(file) if r["status"] == "0"]
    panels = [("ingan_gan_mqw", "thickness_error", "quantum wells, thickness of a layer"),
              ("ingan_v_defects", "thickness_error", "V-defects, thickness of a layer"),
              ("ingan_v_defects", "density_error", "V-defects, density")]
    style = {("staged", "staged"): ("o-", "tab:blue", "staged, tolerance 1e-3 to 1e-9"),
             ("continuous", "staged"): ("s-", "tab:red", "continuous, maximum step 10 s to 0.1 s"),
             ("continuous", "continuous"): ("s:", "tab:orange", f"continuous, against itself at {REFERENCE_STEP} s")}
    figure, axes = plt.subplots(1, len(panels), figsize=(12, 3.6), squeeze=False)
    for axis, (recipe, column, title) in zip(axes.flat, panels):
        for key, (marker, colour, label) in style.items():
            points = [(float(r["evaluations"]), max(float(r[column]), FLOOR)) for r in rows
                      if r["recipe"] == recipe and (r["scheme"], r["reference"]) == key]
            axis.loglog([p[0] for p in points], [p[1] for p in points], marker, color=colour, markersize=3,
                        linewidth=1, label=label)
        axis.set_title(title, fontsize=10)
        axis.grid(True, which="major", linewidth=0.3)
        axis.xaxis.set_minor_formatter(matplotlib.ticker.NullFormatter())
        axis.set_xlabel("evaluations", fontsize=8)
        axis.set_ylabel("relative error", fontsize=8)
        axis.tick_params(labelsize=7)
    handles, labels = axes[0][0].get_legend_handles_labels()
    figure.legend(handles, labels, loc="upper center", ncol=3, fontsize=9)
    figure.tight_layout(rect=(0, 0, 1, 0.93))
    figure.savefig(svg, metadata={"Date": None})


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    commands = parser.add_subparsers(dest="command", required=True)
    for name, paths in (("tables", ["program", "folder"]), ("precision", ["program", "table", "svg"])):
        command = commands.add_parser(name)
        for path in paths:
            command.add_argument(path)
        command.add_argument("--examples", default="examples")
        if name == "tables":
            command.add_argument("--repeat", type=int, default=5)
    a = parser.parse_args()
    if a.command == "tables":
        tables(os.path.abspath(a.program), a.folder, a.examples, a.repeat)
    else:
        precision(os.path.abspath(a.program), a.table, a.svg, a.examples)


if __name__ == "__main__":
    main()
