"""Measuring half of compare.sh: runs the programs of two builds alternately and prints what differs.

  compare.py BASE PRESENT ROOT FILTER

BASE and PRESENT are folders with vorlen_bench and vorlen_bench_run, ROOT is the source tree with the recipes.
"""

import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

ROUNDS = int(os.environ.get("ROUNDS", "0"))
MIN_TIME = os.environ.get("MIN_TIME", "0.1")
ROUNDS_SHORT = 7
ROUNDS_LONG = 3
LONG = 3.0  # s of processor time; longer pairs are repeated ROUNDS_LONG times
SECONDS = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
RECIPE_FOLDERS = ("tests/data/recipes", "tests/data/bad", "examples")
RUN_TIMEOUT = 600  # s


def run_recipe(program, recipe, folder):
    """Exit code, text and result file of one run; None if the file is missing."""
    out = pathlib.Path(folder) / "out.txt"
    out.unlink(missing_ok=True)
    done = subprocess.run([program, recipe, "out.txt"], cwd=folder, capture_output=True, timeout=RUN_TIMEOUT)
    # The sign of NaN depends on the order of operands and has no meaning.
    data = out.read_bytes().replace(b"-nan", b"nan") if out.exists() else None
    return done.returncode, done.stderr, data


def first_difference(a, b):
    if a[0] != b[0]:
        return f"result {a[0]} and {b[0]}"
    if a[1] != b[1]:
        return f"texts {a[1]!r} and {b[1]!r}"
    if a[2] is None or b[2] is None:
        return "one of them wrote no file"
    lines = zip(a[2].splitlines(), b[2].splitlines())
    for number, (x, y) in enumerate(lines, 1):
        if x != y:
            return f"line {number}:\n    base    {x[:160].decode()}\n    present {y[:160].decode()}"
    return f"lengths {len(a[2])} and {len(b[2])}"


def without_integration(recipe, folder):
    """A copy of the recipe without its element integration, or the recipe itself if it has none."""
    text = recipe.read_bytes()
    plain = re.sub(rb"<integration>.*?</integration>", b"", text, flags=re.DOTALL)
    if plain == text:
        return recipe
    copy = pathlib.Path(folder) / f"continuous_{recipe.name}"
    copy.write_bytes(plain)
    return copy


def knows_schemes(base, recipe, plain, folder):
    """Whether the base reads the element integration."""
    program = base / "vorlen_bench_run"
    return run_recipe(program, recipe, folder) != run_recipe(program, plain, folder)


def compare_bytes(base, present, root):
    """Number of recipes whose outcome differs. A base without the staged scheme is compared under the other one."""
    with tempfile.TemporaryDirectory() as temp:
        folders = {}
        for name in ("recipes", "base", "present"):
            folders[name] = os.path.join(temp, name)
            os.mkdir(folders[name])
        subprocess.run([base / "vorlen_bench_run", "--recipes", folders["recipes"]], check=True)
        recipes = sorted(pathlib.Path(folders["recipes"]).glob("*.xml"))
        for folder in RECIPE_FOLDERS:
            for recipe in sorted((root / folder).glob("*.xml")):
                plain = without_integration(recipe, folders["recipes"])
                recipes.append(plain)
                if plain is not recipe and knows_schemes(base, recipe, plain, folders["base"]):
                    recipes.append(recipe)
        differing = 0
        written = 0
        for recipe in recipes:
            a = run_recipe(base / "vorlen_bench_run", recipe, folders["base"])
            b = run_recipe(present / "vorlen_bench_run", recipe, folders["present"])
            written += len(a[2] or b"")
            if a != b:
                differing += 1
                print(f"DIFFERENT: {recipe.name}: {first_difference(a, b)}")
    print(f"bytes: {len(recipes) - differing} of {len(recipes)} recipes give the same result ({written / 1e6:.1f} MB)\n")
    return differing


def list_benchmarks(program, wanted):
    done = subprocess.run(
        [program, "--benchmark_list_tests=true", f"--benchmark_filter={wanted}"], capture_output=True, text=True
    )
    return [line for line in done.stdout.splitlines() if line and not line.startswith("Failed")]


def measure(program, name):
    """One run of one benchmark: its record."""
    done = subprocess.run(
        [
            program,
            f"--benchmark_filter=^{re.escape(name).replace('/', '[/]')}$",
            f"--benchmark_min_time={MIN_TIME}",
            "--benchmark_format=json",
        ],
        capture_output=True,
        text=True,
    )
    if done.returncode != 0:
        raise RuntimeError(f"{name}: {done.stderr.strip()}")
    record = json.loads(done.stdout)["benchmarks"][0]
    if record.get("error_occurred"):
        raise RuntimeError(f"{name}: {record['error_message']}")
    return record


def seconds(record):
    """Processor time of an iteration; real time where the benchmark is about that."""
    key = "real_time" if record["name"].endswith("real_time") else "cpu_time"
    return record[key] * SECONDS[record["time_unit"]]


def show(time):
    for unit in ("s", "ms", "us", "ns"):
        if time >= SECONDS[unit]:
            break
    return f"{time / SECONDS[unit]:.4g} {unit}"


def short(name):
    return re.sub(r"/(iterations:\d+|process_time|real_time)", "", name)


def measure_all(base, present, names):
    """Medians by short name, and the records of the last pair. Prints the table."""
    medians = {}
    rows = []
    records = {}
    for name in names:
        pairs = []
        rounds = ROUNDS or ROUNDS_SHORT
        while len(pairs) < rounds:
            # The builds take turns at being first.
            order = [base, present] if len(pairs) % 2 == 0 else [present, base]
            found = {build: measure(build / "vorlen_bench", name) for build in order}
            pairs.append((found[base], found[present]))
            spent = sum(seconds(r) * r["iterations"] for r in pairs[0])
            if not ROUNDS and spent > LONG:
                rounds = ROUNDS_LONG
        times = [(seconds(a), seconds(b)) for a, b in pairs]
        ratios = sorted(a / b for a, b in times)
        medians[short(name)] = (statistics.median(a for a, _ in times), statistics.median(b for _, b in times))
        records[short(name)] = pairs[-1]
        a, b = medians[short(name)]
        rows.append(
            f"| {short(name)} | {show(a)} | {show(b)} | {statistics.median(ratios):.2f} |"
            f" {ratios[0]:.2f} .. {ratios[-1]:.2f} |"
        )
        print(rows[-1], flush=True)
    return medians, records


def quotients(medians):
    """Ratios of two benchmarks: (text, numerator, denominator)."""
    found = []
    for name in medians:
        match = re.fullmatch(r"(.*)/(\d+)", name)
        if match is None:
            continue
        double = f"{match[1]}/{2 * int(match[2])}"
        if double in medians:
            what = "real time of two runs on two threads" if name.startswith("threads/") else "twice the size"
            found.append((f"{what}: {double} over {match[2]}", double, name))
        load = f"tinyxml_load/{match[2]}"
        if match[1] == "read_recipe" and load in medians:
            found.append((f"reading over TinyXML alone: {match[2]} stages", name, load))
    for stress in ("stress_off", "V_dislocation"):
        pair = (f"residual/constant_{stress}", f"residual_baseline/{stress}")
        if all(name in medians for name in pair):
            found.append((f"residual over its unavoidable part: {stress}", *pair))
    return found


def main():
    base, present, root = (pathlib.Path(a).resolve() for a in sys.argv[1:4])
    differing = compare_bytes(base, present, root)
    names = [] if sys.argv[4] == "none" else list_benchmarks(present / "vorlen_bench", sys.argv[4])
    if sys.argv[4] != "none" and not names:
        print(f"no benchmark matches {sys.argv[4]}", file=sys.stderr)
        return 2
    if names:
        print("| benchmark | base | present | base / present | from .. to |\n|---|---|---|---|---|")
        try:
            medians, records = measure_all(base, present, names)
        except RuntimeError as error:
            print(f"compare.py: {error}", file=sys.stderr)
            return 2
        derived = quotients(medians)
        if derived:
            print("\n| quotient | base | present |\n|---|---|---|")
            for text, top, bottom in derived:
                values = [medians[top][i] / medians[bottom][i] for i in (0, 1)]
                print(f"| {text} | {values[0]:.2f} | {values[1]:.2f} |")
        for counter, heading in (("bytes_per_point", "bytes per recorded point"), ("bytes_per_second", "MB/s")):
            scale = 1e-6 if counter == "bytes_per_second" else 1.0
            rows = {name: pair for name, pair in records.items() if counter in pair[0]}
            if rows:
                print(f"\n| {heading} | base | present |\n|---|---|---|")
            for name, pair in rows.items():
                print(f"| {name} | {pair[0][counter] * scale:.4g} | {pair[1][counter] * scale:.4g} |")
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
