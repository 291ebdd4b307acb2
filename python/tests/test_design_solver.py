"""The search of designs on made-up reactors: runs that fail, layers that depend on each other, several minima."""

from __future__ import annotations

import math

import numpy as np
import pytest

import vorlen
from support import ROOT
from vorlen._design.model import DesignModel, LimitReached, Outcome
from vorlen._design.solver import first_point, solve
from vorlen._design.targets import read_spec

LED = ROOT / "examples" / "blue_led.xml"
LAYERS = ("n-GaN", "InGaN well", "p-AlGaN blocking layer")


class MadeUp(DesignModel):
    """A design whose runs are a function: values of all targets from the variables; None for a run that fails."""

    def __init__(self, targets, values_at, max_runs=300):
        self.recipe = vorlen.Recipe.load(LED)
        self.spec = read_spec(self.recipe, targets)
        self.values_at, self.max_runs = values_at, max_runs
        self.known, self.kinds = {}, []

    def at(self, points, kind):
        keys = [tuple(float(value) for value in point) for point in points]
        for key in keys:
            if key in self.known:
                continue
            if len(self.known) >= self.max_runs:
                raise LimitReached("no more runs")
            values = self.values_at(np.array(key)[: self.spec.hints.start])
            if values is None:
                nothing = np.full(len(self.spec.targets), np.nan)
                self.known[key] = Outcome(nothing, nothing.copy(), "failed")
            else:
                pairs = zip(self.spec.targets, values)
                places = np.array([target.coordinate(value) for target, value in pairs])
                self.known[key] = Outcome(np.array(values, dtype=float), places)
            self.kinds.append(kind)
        return [self.known[key] for key in keys]

    def solved(self):
        x, outcome = first_point(self, np.zeros(len(self.spec.knobs)))
        return solve(self, outcome, x)


def thicknesses(*wanted):
    return {"layers": [{"layer": name, "thickness": value, "by": "tau"} for name, value in zip(LAYERS, wanted)]}


def test_independent_layers_take_one_difference_for_all():
    model = MadeUp(thicknesses(200, 300, 50), lambda x: 100.0 * np.exp(x))
    search = model.solved()
    assert np.allclose(search.x[:3], np.log([2.0, 3.0, 0.5]), atol=1e-3) and search.close.all()
    assert model.kinds.count("derivative") == 1 and len(model.known) <= 4


def test_layers_that_depend_on_each_other_are_solved_too():
    """Each thickness depends more on the duration of the next layer than on its own."""
    coupling = np.array([[1.0, 1.4, 0.2], [0.1, 1.0, 1.3], [1.2, 0.3, 1.0]])
    wanted = np.array([200.0, 150.0, 70.0])
    model = MadeUp(thicknesses(*wanted), lambda x: 100.0 * np.exp(coupling @ x))
    search = model.solved()
    assert search.close.all()
    assert np.allclose(search.x[:3], np.linalg.solve(coupling, np.log(wanted / 100.0)), atol=2e-3)


def test_steps_into_a_region_where_runs_fail_are_shortened():
    """Runs fail beyond 1.3 times the duration that is needed, where the first steps would lead."""
    values = lambda x: None if x[0] > math.log(2.6) else [10.0 * (1.0 + x[0] / 2.0 + 2.0 * x[0] ** 3), 30.0, 5.0]
    wanted = values([math.log(2.0)])[0]
    search = MadeUp(thicknesses(wanted, 30, 5), values).solved()
    assert search.close.all() and math.isclose(search.x[0], math.log(2.0), rel_tol=1e-3)


def test_a_design_whose_runs_all_fail_but_the_first_returns_it():
    model = MadeUp(thicknesses(20, 30, 5), lambda x: None if x.any() else [10.0, 30.0, 5.0])
    search = model.solved()
    assert not search.x.any() and list(search.close) == [False, True, True]


def test_a_target_across_a_minimum_is_found_from_other_starts():
    """The indium fraction falls with temperature near the start and rises beyond 60 K more: only there it is 0.3."""
    targets = {"layers": [{"layer": "InGaN well", "In": 0.3, "by": "T"}]}
    values = lambda x: [0.1 + 0.08 * max(x[0] - 1.0, -0.9) ** 2 * (4.0 if x[0] > 1.0 else 1.0)]
    model = MadeUp(targets, values)
    search = model.solved()
    assert search.close.all() and search.x[0] > 1.0
    assert "exploration" in model.kinds


def test_a_recipe_that_fails_is_left_for_the_best_point_around_it():
    model = MadeUp(thicknesses(20, 30, 5), lambda x: None if x[0] > -0.5 else [200.0 * np.exp(x[0]), 30.0, 5.0])
    search = model.solved()
    assert model.known[tuple(np.zeros(len(search.x)))].text  # the start
    assert search.close.all() and math.isclose(search.x[0], math.log(0.1), rel_tol=1e-3)
    assert not search.x[model.spec.hints.start :].any()


def test_if_all_points_around_a_recipe_fail_so_does_the_start():
    model = MadeUp(thicknesses(20, 30, 5), lambda x: None)
    x, outcome = first_point(model, np.zeros(len(model.spec.knobs)))
    assert outcome.text == "failed" and len(model.known) == 9


@pytest.mark.parametrize("width", [1e-2, 1e-4, 1e-6])
def test_a_target_on_a_step_is_found_between_two_points(width):
    targets = {"layers": [{"layer": "InGaN well", "In": 0.23, "by": "TMIn"}], "limits": {"TMIn": [0.02, 1.0]}}
    model = MadeUp(targets, lambda x: [0.1 + 0.1 * (1.0 + math.tanh((x[0] - 0.7) / width))])
    search = model.solved()
    assert search.close.all() and abs(search.x[0] - 0.7) < width
    assert len(model.known) < 80


def test_a_target_within_a_jump_is_out_of_reach():
    targets = {"layers": [{"layer": "InGaN well", "In": 0.23, "by": "TMIn"}], "limits": {"TMIn": [0.02, 1.0]}}
    model = MadeUp(targets, lambda x: [0.1 if x[0] < 0.7 else 0.3])
    search = model.solved()
    assert not search.close.any() and len(model.known) < 120


def test_a_target_out_of_reach_leaves_the_others_exact():
    targets = {
        "layers": [{"layer": "InGaN well", "thickness": 5, "In": 0.5, "by": ["tau", "TMIn"]}],
        "limits": {"TMIn": [0.065, 0.26]},
    }
    model = MadeUp(targets, lambda x: [3.0 * np.exp(x[0]) * (1.0 + 0.2 * np.tanh(x[1])), 0.15 + 0.1 * np.tanh(x[1])])
    search = model.solved()
    tau, flow = search.x[:2]
    start = model.recipe["process_stages/stage_4/stage_4_3/gas_species/Q/TMIn"][0]
    assert math.isclose(flow, math.log(0.26 / start), rel_tol=1e-9)
    assert math.isclose(3.0 * math.exp(tau) * (1.0 + 0.2 * math.tanh(flow)), 5.0, rel_tol=1e-3)


def test_a_bound_is_kept_while_other_targets_are_reached():
    targets = {
        "layers": [{"layer": "InGaN well", "thickness": 6, "In": "at most 0.12", "by": ["tau", "TMIn"]}],
    }
    model = MadeUp(targets, lambda x: [3.0 * np.exp(x[0] + 0.3 * x[1]), 0.15 * np.exp(0.5 * x[1])])
    search = model.solved()
    thickness, indium = model.known[tuple(search.x)].values
    assert math.isclose(thickness, 6.0, rel_tol=1e-3) and indium <= 0.121


@pytest.mark.parametrize("limit", range(1, 12))
def test_the_limit_of_runs_holds_wherever_it_strikes(limit):
    model = MadeUp(thicknesses(200, 300, 50), lambda x: 100.0 * np.exp(x + 0.3 * np.sin(3.0 * x[::-1])), max_runs=limit)
    try:
        assert model.solved().close.all()
    except LimitReached:
        assert len(model.known) <= limit
    assert model.best() in model.known
