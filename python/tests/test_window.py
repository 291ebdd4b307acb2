"""Process windows: yields and effects of made-up reactors with known answers, spreads, tolerances, and one real run."""

from __future__ import annotations

import math
from pathlib import Path

import numpy as np
import pytest
import scipy.stats

import vorlen
from support import ROOT
from vorlen._design import window as _window
from vorlen._design.targets import read_goals
from vorlen._design.measured import Measured
from vorlen._sweep.pool import LocalPool
from vorlen._design.window_answer import wilson
from vorlen._design.window_spread import read_spread

LED = ROOT / "examples" / "blue_led.xml"
LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"  # one layer, InGaN, that runs within milliseconds
STAGE = "process_stages/stage_1"
FLOW = f"{STAGE}/gas_species/Q/TMIn"
WELL = "process_stages/stage_4/stage_4_3"
WANTED = {"layers": [{"layer": 2, "thickness": "3 +- 0.06 nm", "In": "20 % +- 0.5 %"}]}


@pytest.fixture
def reactor(monkeypatch):
    """vorlen.window() on a made-up reactor: values(T in K, TMIn in sccm) gives those of the targets, or a failure."""

    def run(values, targets, spread, **options):
        def run_points(bench, base, goals, rows):
            found, texts = [], []
            for row in rows:
                recipe = base.copy()
                for path, value in row.items():
                    recipe[path] = value
                answer = values(recipe[f"{STAGE}/T"][0], recipe[FLOW][0])
                failed = isinstance(answer, str)
                found.append([math.nan] * len(goals) if failed else answer)
                texts.append(answer if failed else "")
            statuses = ["failed" if text else "ok" for text in texts]
            return Measured(np.array(found, dtype=float), statuses, texts)

        monkeypatch.setattr(_window, "_run_points", run_points)
        return vorlen.window(LAYER, targets, spread, **{"grid": 0} | options)

    return run


def start() -> tuple[float, float]:
    recipe = vorlen.Recipe.load(LAYER)
    return recipe[f"{STAGE}/T"][0], recipe[FLOW][0]


def linear(heat: float, flow: float) -> list[float]:
    """10 K cost 1.6 points of indium, and 1 % of the flow adds 0.1 points; the thickness is 3 nm at any of them."""
    base_heat, base_flow = start()
    return [3.0, 0.2 - 0.0016 * (heat - base_heat) + 0.1 * (flow / base_flow - 1.0)]


# ---- yields and effects that are known


def test_the_yield_of_a_linear_reactor_is_that_of_the_normal_distribution(reactor):
    # Both deviations are normal, so that indium has the standard deviation sqrt(0.0032^2 + 0.002^2).
    made = reactor(linear, WANTED, {"T": "2 K", "TMIn": "2 %"}, samples=5000)
    sigma = math.hypot(0.0016 * 2.0, 0.1 * 0.02)
    expected = math.erf(0.005 / sigma / math.sqrt(2.0))
    assert abs(made.yield_ - expected) < 4.0 * math.sqrt(expected * (1.0 - expected) / 5000)
    assert made.interval[0] < expected < made.interval[1] and made.interval[0] < made.yield_ < made.interval[1]
    assert made.targets["std"][1] == pytest.approx(sigma, rel=0.04) and made.targets["held"][0] == 1.0
    assert made.table.holds.mean() == made.yield_ and len(made.table) == 5000 and made.warnings == []
    assert made.table["T"].std() == pytest.approx(2.0, rel=0.05) and abs(made.table["T"].mean()) < 0.12
    assert abs(np.corrcoef(made.table["T"], made.table["TMIn"])[0, 1]) < 0.06


def test_the_sentences_state_the_effects_of_one_standard_deviation(reactor):
    made = reactor(linear, WANTED, {"T": "2.5 K", "TMIn": "0.1 %"}, samples=50)
    name = read_goals(vorlen.Recipe.load(LAYER), WANTED)[0].layer
    low, high = (100 * end for end in made.interval)
    good = int(made.table.holds.sum())
    assert made.sentences == [
        f"All targets hold in {good} of 50 runs: yield {2 * good:.1f} % (95 % confidence: {low:.1f} to {high:.1f} %).",
        f"In of {name} is missed most often: it holds in {2 * good:.1f} % of the runs.",
        f"+2.5 K of T lowers In of {name} by 0.4 points, 80 % of its tolerance.",
        "TMIn: one standard deviation changes no target by 10 % of its tolerance.",
    ]
    assert str(made) == "\n".join(made.sentences) and f"yield {2 * good:.1f} %" in repr(made)
    row = made.sensitivities.set_index(["knob", "quantity"]).loc[("T", "In")]
    assert row.change == pytest.approx(-0.004) and row.derivative == pytest.approx(-0.0016)
    assert made.sensitivities.set_index(["knob", "quantity"]).loc[("T", "thickness")].change == 0.0


def test_the_seed_repeats_the_runs_and_more_samples_continue_them(reactor):
    first, same, more = (reactor(linear, WANTED, {"T": "2 K"}, samples=count) for count in (20, 20, 30))
    assert first.table.equals(same.table) and first.table.equals(more.table.iloc[:20])
    assert not first.table.equals(reactor(linear, WANTED, {"T": "2 K"}, samples=20, seed=1).table)


def test_bounds_hold_on_one_side(reactor):
    targets = {"layers": [{"layer": 2, "thickness": "at least 2.5 nm", "In": "at most 0.2"}]}
    made = reactor(linear, targets, {"T": "2 K"}, samples=2000)
    assert abs(made.yield_ - 0.5) < 4.0 * math.sqrt(0.25 / 2000) and made.targets.held[0] == 1.0
    assert ["+2 K of T lowers In" in text for text in made.sentences].count(True) == 1


def test_runs_that_fail_are_misses(reactor):
    base, _ = start()
    made = reactor(lambda heat, flow: "too hot" if heat > base + 3.0 else [3.0, 0.2], WANTED, {"T": "2 K"}, samples=400)
    failed = int((made.table.status == "failed").sum())
    assert failed == int((made.table["T"] > 3.0).sum()) > 5 and made.yield_ == 1.0 - failed / 400
    first, second, third = made.table.index[made.table.status == "failed"][:3]
    text = f"{failed} of 400 runs failed and count as misses: runs {first}, {second}, {third}, "
    assert len(made.warnings) == 1 and made.warnings[0].startswith(text)
    assert made.warnings[0].endswith(", ...; the first: too hot")
    with pytest.raises(vorlen.SimulationError, match="never"):
        reactor(lambda heat, flow: "never", WANTED, {"T": "2 K"}, samples=4)


def test_a_failed_run_leaves_its_effect_unknown(reactor):
    base, _ = start()
    made = reactor(lambda heat, flow: "too hot" if heat > base + 1.0 else [3.0, 0.2], WANTED, {"T": "2 K"}, samples=40)
    assert made.sensitivities.change.isna().all() and not any("lowers" in text for text in made.sentences)


def test_a_recipe_that_misses_its_target_without_deviations_is_a_warning(reactor):
    made = reactor(lambda heat, flow: [3.0, 0.22], WANTED, {"T": "2 K"}, samples=10)
    assert made.yield_ == 0.0 and made.interval[0] == 0.0 < made.interval[1]
    assert len(made.warnings) == 1 and "is 0.22 without deviations and misses its target 0.2" in made.warnings[0]


@pytest.mark.parametrize(
    ("good", "count", "low", "high"),
    # also computed by scipy, in the test
    [(81, 263, 0.2553, 0.3662), (15, 148, 0.0624, 0.1605), (0, 20, 0.0, 0.1611), (1, 29, 0.0061, 0.1718)],
)
def test_the_interval_is_that_of_wilson(good, count, low, high):
    independent = scipy.stats.binomtest(good, count).proportion_ci(0.95, method="wilson")
    assert tuple(independent) == pytest.approx((low, high), abs=5e-5)
    assert wilson(good, count) == pytest.approx((low, high), abs=5e-5)
    assert wilson(count - good, count) == pytest.approx((1.0 - high, 1.0 - low), abs=5e-5)


# ---- spreads


def test_a_spread_moves_all_stages_together_and_a_path_only_its_stage():
    recipe = vorlen.Recipe.load(LED)
    stages = list(dict.fromkeys(recipe.timeline().query("kind == 'active'").path))
    drifts = read_spread(recipe, {"T": "2 K", "TMIn": "3 %", "stage_4/stage_4_3/T": 1.5})
    heat, flow, well = drifts
    moved = heat.values(2.0)
    assert set(moved) == {f"{stage}/T" for stage in stages} - {f"{WELL}/T"}
    for path, value in moved.items():
        assert value == pytest.approx([end + 4.0 for end in recipe[path]], rel=1e-6)
    assert well.values(-1.0) == {f"{WELL}/T": pytest.approx(tuple(end - 1.5 for end in recipe[f"{WELL}/T"]), rel=1e-6)}
    # Flows that are off are off.
    assert set(flow.values(1.0)) == {path for stage in stages if any(recipe[path := f"{stage}/gas_species/Q/TMIn"])}
    for path, value in flow.values(1.0).items():
        assert value == pytest.approx([1.03 * end for end in recipe[path]], rel=1e-6)
        assert flow.values(0.0)[path] == recipe[path]
    assert min(flow.values(-100.0)[f"{WELL}/gas_species/Q/TMIn"]) > 0.0
    assert (heat.text, flow.text) == ("2 K", "3 %")


@pytest.mark.parametrize(
    ("spread", "error"),
    [
        ({}, "spread is empty"),
        ([("T", 2)], "spread must be a mapping"),
        ({"X": "2 K"}, "unknown name 'X'; known are tau, T"),
        ({"TMIm": "2 %"}, "did you mean TMIn"),
        ({"temp": "2 K"}, "did you mean T\\?"),
        ({"periods": 1}, "unknown name 'periods'"),
        ({"stage_77/T": 1}, "has no process_stages/stage_77/T; similar paths: process_stages/stage_1/T"),
        ({"stage_1/TMI": 1}, "has no process_stages/stage_1/TMI"),
        ({"InGaN/T": 1}, "InGaN is process_stages/stage_1; the path is process_stages/stage_1/T"),
        ({"process_stages/stage_1/name": 1}, "not a real number"),
        ({"T": "2 degF"}, "is a difference of temperatures, in K or degC, got '2 degF'"),
        ({"T": "2 sccm"}, "is a difference of temperatures, in K or degC, got '2 sccm'"),
        ({"chemistry/Kd_In/A": 0}, "must be above 0"),
        ({"T": 0}, "must be above 0"),
        ({"T": "-1 %"}, "must be above 0"),
        ({"T": True}, "takes a number"),
        ({"TMIn": "26 %"}, "can be at most 25 %, a quarter of the smallest value"),
        ({"T": "400 K"}, "can be at most"),
        ({"TMAl": "2 %"}, "TMAl is 0 in all stages"),
        ({"temperature": 1, "T": 2}, "the spread of T is given twice"),
        ({3: 1}, "expected the name of a knob or a path"),
    ],
)
def test_mistakes_in_spreads_are_messages(spread, error):
    with pytest.raises((TypeError, ValueError), match=error):
        read_spread(vorlen.Recipe.load(LAYER), spread)


# ---- tolerances


@pytest.mark.parametrize(
    ("quantity", "given", "value", "allowed"),
    [
        ("thickness", "3.0 +- 0.1 nm", 3.0, 0.1),
        ("thickness", "2 um ± 0.05", 2000.0, 50.0),
        ("thickness", "2 um +/- 30 nm", 2000.0, 30.0),
        ("thickness", "3 +-0.1", 3.0, 0.1),
        ("thickness", "3 nm +- 5 %", 3.0, 0.15),
        ("thickness", 3, 3.0, 0.06),
        ("thickness", "at most 3 nm", 3.0, 0.0),
        ("In", "18 % +- 0.5", 0.18, 0.005),
        ("In", "0.18 +- 1 %", 0.18, 0.01),
        ("In", 0.18, 0.18, 0.005),
        ("strain", "-0.01 +- 1e-4", -0.01, 1e-4),
        ("dislocations", "5e8 +- 1e8 cm^-2", 5e8, 1e8),
    ],
)
def test_tolerances_of_targets(quantity, given, value, allowed):
    (target,) = read_goals(vorlen.Recipe.load(LAYER), {"layers": [{"layer": 2, quantity: given}]})
    assert target.value == pytest.approx(value) and target.allowed == pytest.approx(allowed, rel=1e-9)
    assert target.holds(value) and target.holds(value + allowed) and not target.holds(value + 1.01 * allowed + 1e-6)
    assert target.holds(value - 2.0 * allowed - 1e-6) == bool(target.bound) and not target.holds(math.nan)


@pytest.mark.parametrize(
    ("given", "error"),
    [
        ("3 +- 0 nm", "the tolerance of thickness of .* must be above 0"),
        ("3 +- nm", "takes a number with or without a unit"),
        ("3 nm +-", "expected a value and a tolerance, such as 3.0 \\+- 0.1 nm"),
        ("at most 3 +- 1 nm", "is a bound, which has no tolerance"),
        ("3 nm +- 2 K", "has the unit K"),
    ],
)
def test_mistakes_in_tolerances_are_messages(given, error):
    with pytest.raises(ValueError, match=error):
        read_goals(vorlen.Recipe.load(LAYER), {"layers": [{"layer": 2, "thickness": given}]})


def test_a_design_aims_at_the_value_itself():
    targets = {"layers": [{"layer": 2, "thickness": "4 +- 0.5 nm", "by": "tau"}]}
    made = vorlen.design(LAYER, targets, workers=1, check=False)
    assert made.success and made.table.reached[0] == pytest.approx(4.0, rel=1e-3)


# ---- real runs


@pytest.mark.parametrize(
    ("options", "error"),
    [({"samples": 0}, "samples must be 1 or more"), ({"samples": 2.5}, "samples must be an integer"),
     ({"samples": 10**6}, "samples can be at most"), ({"seed": -1}, "seed must be 0 or more")],
)
def test_wrong_numbers_of_runs_are_messages(options, error):
    with pytest.raises((TypeError, ValueError), match=error):
        vorlen.window(LAYER, WANTED, {"T": 1}, **options)


def test_a_real_window_agrees_with_single_runs_and_continues_in_its_folder(tmp_path: Path):
    nominal = vorlen.run(vorlen.Recipe.load(LAYER).with_scheme("staged")).layers.loc[2]
    targets = {"layers": [{"layer": 2, "In": float(nominal.x_in), "thickness": float(nominal.thickness)}]}
    spread = {"T": "3 K", FLOW: "2 %"}
    with LocalPool(2) as pool:
        options = {"samples": 12, "out": tmp_path / "runs", "executor": pool, "check": False}
        made = vorlen.window(LAYER, targets, spread, **options)
        stamps = {path: path.stat().st_mtime_ns for path in (tmp_path / "runs" / "rows").glob("*.result.txt")}
        again = vorlen.window(LAYER, targets, spread, **options)
        more = vorlen.window(LAYER, targets, spread, **options | {"samples": 14})
    assert made.table.equals(more.table.iloc[:12]) and len(more.table) == 14
    # the random runs, one without deviations, two for each value, and the map, which has five of these
    assert len(stamps) == 12 + 1 + 2 * 2 + 7 * 7 - 5
    assert all(path.stat().st_mtime_ns == stamp for path, stamp in stamps.items())  # not run again
    assert made.table.equals(again.table) and (made.table.status == "ok").all()
    recipe = vorlen.Recipe.load(LAYER).with_scheme("staged")
    label_in, label_thickness = made.table.columns[2:4]
    recipe[f"{STAGE}/T"] = tuple(float(f"{end + made.table['T'][5]:.7g}") for end in recipe[f"{STAGE}/T"])
    recipe[FLOW] = tuple(float(f"{end * (1.0 + made.table[FLOW][5] / 100.0):.7g}") for end in recipe[FLOW])
    layer = vorlen.run(recipe).layers.loc[2]
    assert made.table[label_in][5] == layer.x_in and made.table[label_thickness][5] == layer.thickness
    effects = made.sensitivities.set_index(["knob", "quantity"])
    assert effects.loc[("T", "In")].change < 0.0 < effects.loc[(FLOW, "In")].change  # indium desorbs from hot surfaces
    figure = made.plot(path=tmp_path / "window.svg")
    assert len(figure.axes) == 4 and (tmp_path / "window.svg").stat().st_size > 1000
    for axes in figure.axes[::2]:  # the distributions
        low, high = axes.get_xlim()
        shown = [label for label in axes.get_xticklabels() if low <= label.get_position()[0] <= high]
        boxes = [label.get_window_extent() for label in shown]
        assert len(boxes) > 1 and all(box.x1 < other.x0 for box, other in zip(boxes, boxes[1:]))


# ---- edge cases of yields


def test_yields_of_0_and_1_have_one_sided_intervals(reactor):
    for answer, expected in (([3.0, 0.2], 1.0), ([2.0, 0.2], 0.0)):
        made = reactor(lambda heat, flow: answer, WANTED, {"T": "2 K"}, samples=20)  # noqa: B023
        assert made.yield_ == expected and expected in made.interval
        text = f"All targets hold in {20 * expected:.0f} of 20 runs: yield {100 * expected:.1f} %"
        assert made.sentences[0].startswith(text)
        assert made.sensitivities.change.tolist() == [0.0, 0.0]
        assert made.sentences[-1] == "T: one standard deviation changes no target by 10 % of its tolerance."
    assert made.targets.held.tolist() == [0.0, 1.0] and "is missed most often: it holds in 0.0 %" in made.sentences[1]


def test_runs_without_a_value_are_misses_that_are_counted_and_named(reactor):
    base, _ = start()
    made = reactor(
        lambda heat, flow: [math.nan if heat > base + 3.0 else 3.0, 0.2], WANTED, {"T": "2 K"}, samples=60
    )
    empty = made.table.index[made.table["T"] > 3.0]
    assert made.yield_ == 1.0 - len(empty) / 60 and set(made.table.status) == {"ok"} and len(empty) > 2
    name = made.targets.layer[0]
    text = f"{len(empty)} of 60 runs have no value of thickness of {name} and count as misses: runs {empty[0]}, "
    assert len(made.warnings) == 1 and made.warnings[0].startswith(text)
    assert made.targets["mean"][0] == 3.0 and made.targets.held[0] == made.yield_


def test_a_failure_of_all_random_runs_is_a_yield_of_0(reactor):
    base, _ = start()
    made = reactor(lambda heat, flow: [3.0, 0.2] if heat == base else "never", WANTED, {"T": "2 K"}, samples=3)
    assert made.yield_ == 0.0 and made.warnings == [
        "3 of 3 runs failed and count as misses: runs 0, 1 and 2; the first: never"
    ]
    assert made.targets["mean"].isna().all() and made.sensitivities.change.isna().all()


# ---- how values move


@pytest.mark.parametrize(
    ("size", "kelvin", "text"),
    [("2 K", 2.0, "2 K"), (2, 2.0, "2 K"), ("2", 2.0, "2 K"), ("2 degC", 2.0, "2 K"), ("2 \u00b0C", 2.0, "2 K"),
     ("1.5 delta_degC", 1.5, "1.5 K"), ("500 mK", 0.5, "0.5 K"), ("0.1 %", None, "0.1 %")],
)
def test_spreads_of_temperatures_are_differences_in_kelvin_or_degrees_celsius_or_shares(size, kelvin, text):
    recipe = vorlen.Recipe.load(LAYER)
    (drift,) = read_spread(recipe, {"T": size})
    assert drift.text == text
    start_heat = recipe[f"{STAGE}/T"][0]
    expected = start_heat + kelvin if kelvin is not None else 1.001 * start_heat
    assert drift.values(1.0)[f"{STAGE}/T"] == pytest.approx((expected, expected), rel=1e-7)


def test_quantities_of_pint_are_spreads():
    import pint

    units = pint.UnitRegistry()
    for size, text in ((units.Quantity(2, "delta_degC"), "2 K"), (units.Quantity(2, "K"), "2 K")):
        assert read_spread(vorlen.Recipe.load(LAYER), {"T": size})[0].text == text


def test_absolute_and_relative_spreads_of_a_flow_and_ramps_that_move_as_a_whole():
    recipe = vorlen.Recipe.load(LAYER)
    recipe[f"{STAGE}/T"] = (1000.0, 1040.0)
    recipe[FLOW] = (0.1, 0.3)
    heat, share = read_spread(recipe, {"T": "3 K", "TMIn": "10 %"})
    assert heat.values(-2.0)[f"{STAGE}/T"] == (994.0, 1034.0)  # shifted
    assert share.values(2.0)[FLOW] == pytest.approx((0.12, 0.36))  # multiplied
    (amount,) = read_spread(recipe, {"TMIn": "0.01 sccm"})
    assert amount.values(2.0)[FLOW] == pytest.approx((0.12, 0.32)) and amount.text == "0.01 sccm"
    (amount,) = read_spread(recipe, {"TMIn": "1e-5 slm"})
    assert amount.values(1.0)[FLOW] == pytest.approx((0.11, 0.31))
    (one_end,) = read_spread(recipe, {"stage_1/T/end": "3 K"})
    assert one_end.values(1.0) == {f"{STAGE}/T/end": 1043.0}


def test_a_drift_of_the_reactor_moves_stages_together_and_separate_paths_do_not():
    """Of two stages whose effects on the sum add up, a common drift spreads the sum by 2, separate ones by sqrt 2."""
    recipe = vorlen.Recipe.load(LED)
    well, barrier = (f"process_stages/stage_4/stage_4_{number}/T" for number in (3, 4))
    points = _window.points_of(2, 4000, 7)[5:]
    common = read_spread(recipe, {"T": "2 K"})
    apart = read_spread(recipe, {well: "2 K", barrier: "2 K"})

    def sums(drifts):
        rows = [_window._values_at(drifts, point) for point in points]
        return np.array([row[well][0] - recipe[well][0] + row[barrier][0] - recipe[barrier][0] for row in rows])

    assert sums(common).std() == pytest.approx(4.0, rel=0.04)
    assert sums(apart).std() == pytest.approx(2.0 * math.sqrt(2.0), rel=0.04)
