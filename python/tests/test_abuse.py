"""Wrong arguments of every public function: the error names what is wrong, and no file is created, changed or removed.

A row of a table is a call, the exception that it raises and a pattern in its text. The rules: a value of the wrong type
is a TypeError, a wrong value a ValueError, and both name the argument; faults of the file system are OSError; XML that
is not well-formed is a RecipeError, a faulty result file a ResultFileError, a faulty plan a PlanError. An output must
be a regular file and none of the inputs.
"""

from __future__ import annotations

import functools
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
from collections.abc import Callable, Iterator
from pathlib import Path
from types import FrameType

import matplotlib

matplotlib.use("Agg")

import matplotlib.pyplot as plt
import numpy as np
import pandas as pd
import pytest

import vorlen
from support import ROOT
from vorlen.__main__ import main
from vorlen import PlanError

LAYER = ROOT / "examples" / "notebooks" / "ingan_layer.xml"
STAGE = "process_stages/stage_1"
T, TAU = f"{STAGE}/T", f"{STAGE}/tau"
KD = "chemistry/Kd_In/A"  # 1e13 in the recipe
BOUNDS = {KD: (1e12, 1e14)}
MEASURED = {"x_in_2": (0.2, 0.01)}
LONG_NAME = "n" * 300  # bytes; a file system allows 255
TIME_LIMIT = 20  # s, for a call that should end at once

NOT_AN_INTEGER = (TypeError, ValueError)  # 2.5 has a wrong type and a wrong value
NOT_A_CHOICE = (TypeError, ValueError)  # not one of the words that are listed

# what was called, the call, the exception, a pattern found in its text
Row = tuple[str, Callable[[], object], type[Exception] | tuple[type[Exception], ...], str]


def recipe() -> vorlen.Recipe:
    return vorlen.Recipe.load("recipe.xml")


def result() -> vorlen.Run:
    return vorlen.read("result.txt", recipe="recipe.xml")


@functools.cache
def effects() -> pd.DataFrame:
    """The table of a sensitivity."""
    return vorlen.sensitivity(LAYER, [TAU], workers=1)


def change(path: object, value: object) -> object:
    return recipe().set(path, value)


def sweep(parameters: object = None, **options: object) -> object:
    options = {"recipe": "recipe.xml", "out": "swept", "progress": False} | options
    return vorlen.sweep(parameters={T: [1000]} if parameters is None else parameters, **options)


def write_plan(path: object, **options: object) -> object:
    return vorlen.write_plan(path, **({"recipe": "recipe.xml", "parameters": {T: [1000]}} | options))


def fit(parameters: object = BOUNDS, measurements: object = MEASURED, **options: object) -> object:
    return vorlen.fit(parameters=parameters, measurements=measurements, **({"recipe": "recipe.xml"} | options))


def sensitivity(parameters: object = (T,), **options: object) -> object:
    return vorlen.sensitivity(parameters=parameters, **({"recipe": "recipe.xml", "workers": 1} | options))


def take_a_recipe(name: str, call: Callable[[object], object]) -> list[Row]:
    """Rows for an argument that takes a recipe."""
    return [
        (f"{name}, recipe None", lambda: call(None), TypeError, r"^recipe must be .*None"),
        (f"{name}, recipe a number", lambda: call(5), TypeError, r"^recipe must be .*\b(5|int)\b"),
        (f"{name}, recipe a list", lambda: call(["recipe.xml"]), TypeError, r"^recipe must be .*(recipe\.xml|list)"),
        (f"{name}, recipe empty text", lambda: call(""), (ValueError, FileNotFoundError), r"recipe.*empty|''"),
        (f"{name}, recipe empty bytes", lambda: call(b""), vorlen.RecipeError, r"\brecipe\b"),
        (f"{name}, recipe a folder", lambda: call("folder"), IsADirectoryError, r"\bfolder\b"),
        (f"{name}, recipe a pipe", lambda: call("pipe"), ValueError, r"pipe is not a regular file"),
        (f"{name}, recipe missing", lambda: call("missing.xml"), FileNotFoundError, r"missing\.xml"),
        (f"{name}, recipe path with a missing folder", lambda: call("no/r.xml"), FileNotFoundError, r"no/r\.xml"),
        (f"{name}, recipe path through a file", lambda: call("page.html/r.xml"), OSError, r"page\.html/r\.xml"),
        (f"{name}, recipe a loop of links", lambda: call("loop"), OSError, r"\bloop\b"),
        (f"{name}, recipe name too long", lambda: call(LONG_NAME), OSError, r"nnn"),
        (f"{name}, recipe path with a null byte", lambda: call("a\0b"), ValueError, r"recipe.*null (byte|character)"),
        (f"{name}, recipe path not Unicode", lambda: call("a\ud800b"), ValueError, r"recipe.*\\ud800"),
        (f"{name}, recipe random bytes", lambda: call("binary.xml"), vorlen.RecipeError, r"binary\.xml"),
        (f"{name}, recipe truncated", lambda: call("cut.xml"), vorlen.RecipeError, r"cut\.xml"),
        (f"{name}, recipe empty file", lambda: call("empty"), vorlen.RecipeError, r"\bempty\b"),
        (f"{name}, recipe text not XML", lambda: call("<a>"), vorlen.RecipeError, r"\brecipe\b"),
        # The library reads 8-bit encodings only, and says so itself.
        (
            f"{name}, recipe UTF-16", lambda: call("utf16.xml"),
            (vorlen.RecipeError, vorlen.SimulationError), r"utf16\.xml",
        ),
    ]


def write_a_file(
    name: str, call: Callable[[object], object], argument: str = "path", inputs: tuple[str, ...] = ()
) -> list[Row]:
    """Rows for an argument that is the path of an output. inputs are files that the call reads."""
    rows: list[Row] = [
        (f"{name}, number", lambda: call(5), TypeError, rf"^{argument} must be .*\b(5|int)\b"),
        (f"{name}, bytes", lambda: call(b"out.svg"), TypeError, rf"^{argument} must be .*(out\.svg|bytes)"),
        (f"{name}, empty text", lambda: call(""), ValueError, rf"{argument}.*empty"),
        (f"{name}, folder", lambda: call("folder"), IsADirectoryError, r"\bfolder\b"),
        (f"{name}, device", lambda: call("device"), ValueError, r"device is not a regular file"),
        (f"{name}, pipe", lambda: call("pipe"), ValueError, r"pipe is not a regular file"),
        (f"{name}, loop of links", lambda: call("loop"), OSError, r"\bloop\b"),
        (f"{name}, missing folder", lambda: call("no/out.svg"), FileNotFoundError, r"folder not found: no\b"),
        (f"{name}, file as folder", lambda: call("page.html/out.svg"), OSError, r"page\.html"),
        (f"{name}, name too long", lambda: call(f"{LONG_NAME}.svg"), OSError, r"nnn"),
        (f"{name}, null byte", lambda: call("a\0b.svg"), ValueError, rf"{argument}.*null (byte|character)"),
        (f"{name}, not Unicode", lambda: call("a\ud800.svg"), ValueError, rf"{argument}.*\\ud800"),
    ]
    for one in inputs:
        rows.append((f"{name}, onto {one}", lambda one=one: call(one), ValueError, r"would overwrite"))
    return rows


RUN: list[Row] = [
    *take_a_recipe("run", lambda recipe: vorlen.run(recipe)),
    *write_a_file(
        "run, result", lambda path: vorlen.run("recipe.xml", path), "result", ("recipe.xml", "hard.xml", "link.xml")
    ),
    ("run, result over Recipe's file", lambda: vorlen.run(recipe(), "recipe.xml"), ValueError, r"would overwrite"),
    ("run, status over the recipe", lambda: vorlen.run("r.status.json", "r.txt"), ValueError, r"would overwrite"),
    ("run, result of a failed run", lambda: vorlen.run("recipe.xml", "a.failed.txt"), ValueError, r"a\.failed\.txt"),
    (
        "run, scheme in capitals", lambda: vorlen.run("recipe.xml", scheme="Staged"),
        ValueError, r"scheme must be .*'Staged'",
    ),
    ("run, scheme a number", lambda: vorlen.run("recipe.xml", scheme=1), NOT_A_CHOICE, r"scheme must be .*\b(1|int)\b"),
    (
        "run, scheme a list", lambda: vorlen.run("recipe.xml", scheme=["staged"]),
        NOT_A_CHOICE, r"scheme must be .*(staged|list)",
    ),
    (
        "run, 65 MiB",
        lambda: vorlen.run(f"<NonstSurfChem><!--{' ' * (65 << 20)}--></NonstSurfChem>"),
        vorlen.SimulationError, r"File is larger than 64 MiB",  # docs/messages.md
    ),
    (
        "run, another root element",
        lambda: vorlen.run("<Recipe/>"),
        (vorlen.RecipeError, vorlen.SimulationError), r"NonstSurfChem",
    ),
]

READ: list[Row] = [
    ("read None", lambda: vorlen.read(None), TypeError, r"^path must be .*None"),
    ("read a number", lambda: vorlen.read(5), TypeError, r"^path must be .*\b(5|int)\b"),
    ("read bytes", lambda: vorlen.read(b"result.txt"), TypeError, r"^path must be .*(result\.txt|bytes)"),
    ("read a Run", lambda: vorlen.read(result()), TypeError, r"^path must be .*Run"),
    ("read empty text", lambda: vorlen.read(""), (ValueError, FileNotFoundError), r"path.*empty|''"),
    ("read a missing file", lambda: vorlen.read("missing.txt"), FileNotFoundError, r"missing\.txt"),
    ("read a folder", lambda: vorlen.read("folder"), IsADirectoryError, r"\bfolder\b"),
    ("read a pipe", lambda: vorlen.read("pipe"), ValueError, r"pipe is not a regular file"),
    ("read a loop of links", lambda: vorlen.read("loop"), OSError, r"\bloop\b"),
    ("read a name with a null byte", lambda: vorlen.read("a\0b"), ValueError, r"path.*null (byte|character)"),
    ("read an empty file", lambda: vorlen.read("empty"), vorlen.ResultFileError, r"^empty is empty"),
    (
        "read random bytes", lambda: vorlen.read("binary.xml"),
        vorlen.ResultFileError, r"^binary\.xml is not a result file",
    ),
    ("read HTML", lambda: vorlen.read("page.html"), vorlen.ResultFileError, r"^page\.html is not a result file"),
    ("read a recipe", lambda: vorlen.read("recipe.xml"), vorlen.ResultFileError, r"^recipe\.xml is not a result file"),
    (
        "read a truncated row", lambda: vorlen.read("cut.txt"),
        vorlen.ResultFileError, r"^cut\.txt, line \d+: .*truncated",
    ),
    (
        "read a truncated head", lambda: vorlen.read("head.txt"),
        vorlen.ResultFileError, r"^head\.txt, line 2: .*not closed",
    ),
    (
        "read a row with a word", lambda: vorlen.read("word.txt"),
        vorlen.ResultFileError, r"^word\.txt, line \d+: not a row",
    ),
    ("read, recipe a number", lambda: vorlen.read("result.txt", recipe=5), TypeError, r"^recipe must be .*\b(5|int)\b"),
    ("read, recipe missing", lambda: vorlen.read("result.txt", recipe="no.xml"), FileNotFoundError, r"no\.xml"),
    ("read, recipe a folder", lambda: vorlen.read("result.txt", recipe="folder"), IsADirectoryError, r"\bfolder\b"),
    (
        "read, recipe a pipe", lambda: vorlen.read("result.txt", recipe="pipe"),
        ValueError, r"pipe is not a regular file",
    ),
]

FIGURES: list[Row] = [
    ("plot, kind", lambda: result().plot("spiral"), ValueError, r"kind must be .*'spiral'"),
    ("plot, kind a number", lambda: result().plot(5), NOT_A_CHOICE, r"kind must be .*\b(5|int)\b"),
    ("plot, kind a list", lambda: result().plot(["time"]), NOT_A_CHOICE, r"kind must be .*(time|list)"),
    ("plot, span", lambda: result().plot(span="none"), ValueError, r"span must be .*'none'"),
    ("plot, span None", lambda: result().plot(span=None), NOT_A_CHOICE, r"span must be .*None"),
    ("plot, unknown panel", lambda: result().plot(panels=["colour"]), ValueError, r"panels must be .*colour"),
    ("plot, no panels", lambda: result().plot(panels=[]), ValueError, r"panels must be"),
    ("plot, panel a number", lambda: result().plot(panels=[1]), TypeError, r"panels must be .*\b(1|int)\b"),
    ("plot, panels a text", lambda: result().plot(panels="rate"), TypeError, r"panels must be .*(rate|str)"),
    ("plot, panels a number", lambda: result().plot(panels=5), TypeError, r"panels must be .*\b(5|int)\b"),
    ("plot, unknown option", lambda: result().plot(colour="red"), TypeError, r"colour"),
    ("plot, unknown format", lambda: result().plot(path="r.xyz"), ValueError, r"(path|r\.xyz).*"),
    ("plot, no format", lambda: result().plot(path="figure"), ValueError, r"(path|figure).*ending"),
    *write_a_file("plot, path", lambda path: result().plot(path=path)),
    ("tornado, quantity", lambda: vorlen.tornado(effects(), "x"), ValueError, r"quantity x\b.*\bz"),
    ("tornado, quantity a number", lambda: vorlen.tornado(effects(), 5), TypeError, r"quantity must be .*\b(5|int)\b"),
    ("tornado, table None", lambda: vorlen.tornado(None, "z"), TypeError, r"^table must be"),
    (
        "tornado, another table",
        lambda: vorlen.tornado(pd.DataFrame({"a": [1]}), "z"),
        (TypeError, ValueError), r"\btable\b",
    ),
    ("tornado, most 0", lambda: vorlen.tornado(effects(), "z", most=0), ValueError, r"most must be .*\b0\b"),
    ("tornado, most -1", lambda: vorlen.tornado(effects(), "z", most=-1), ValueError, r"most must be .*-1"),
    (
        "tornado, most 1.5", lambda: vorlen.tornado(effects(), "z", most=1.5),
        NOT_AN_INTEGER, r"most must be .*(1\.5|float)",
    ),
    *write_a_file("tornado, path", lambda path: vorlen.tornado(effects(), "z", path=path)),
]

EXPORTS: list[Row] = [
    ("to_csv, what", lambda: result().to_csv("o.csv", what="rows"), ValueError, r"what must be .*'rows'"),
    ("to_csv, what None", lambda: result().to_csv("o.csv", what=None), NOT_A_CHOICE, r"what must be .*None"),
    ("to_csv, path None", lambda: result().to_csv(None), TypeError, r"path must be .*None"),
    *write_a_file("to_csv", lambda path: result().to_csv(path), inputs=("result.txt", "recipe.xml", "hard.xml")),
    ("to_netcdf, path None", lambda: result().to_netcdf(None), TypeError, r"path must be .*None"),
    *write_a_file("to_netcdf", lambda path: result().to_netcdf(path), inputs=("result.txt", "recipe.xml", "hard.xml")),
    ("report of None", lambda: vorlen.report(None, "o.html"), TypeError, r"run must be .*None"),
    ("report of a path", lambda: vorlen.report("result.txt", "o.html"), TypeError, r"run must be .*(result\.txt|str)"),
    ("report of a list", lambda: vorlen.report([result()], "o.html"), TypeError, r"run must be .*(Run|list)"),
    ("report to None", lambda: vorlen.report(result(), None), TypeError, r"path must be .*None"),
    *write_a_file(
        "report", lambda path: vorlen.report(result(), path), inputs=("result.txt", "recipe.xml", "hard.xml")
    ),
    ("compare None", lambda: vorlen.compare(None, "o.html"), TypeError, r"runs must be .*None"),
    ("compare one run", lambda: vorlen.compare(result(), "o.html"), TypeError, r"runs must be .*Run"),
    ("compare a list of one", lambda: vorlen.compare([result()], "o.html"), ValueError, r"at least two runs, got 1"),
    ("compare with a path", lambda: vorlen.compare([result(), "b.txt"], "o.html"), TypeError, r"of type Run, got str"),
    ("compare to None", lambda: vorlen.compare([result()] * 2, None), TypeError, r"path must be .*None"),
    *write_a_file(
        "compare", lambda path: vorlen.compare([result()] * 2, path), inputs=("result.txt", "recipe.xml", "hard.xml")
    ),
]

RECIPE: list[Row] = [
    ("Recipe(None)", lambda: vorlen.Recipe(None), TypeError, r"source must be .*None"),
    ("Recipe(5)", lambda: vorlen.Recipe(5), TypeError, r"source must be .*\b(5|int)\b"),
    ("Recipe of a list", lambda: vorlen.Recipe([60, 97]), TypeError, r"source must be .*(60|list)"),
    ("Recipe of a Path", lambda: vorlen.Recipe(Path("recipe.xml")), TypeError, r"source must be .*Path"),
    ("Recipe of a path as text", lambda: vorlen.Recipe("recipe.xml"), vorlen.RecipeError, r"Recipe\.load"),
    ("Recipe of an empty text", lambda: vorlen.Recipe(""), vorlen.RecipeError, r"^recipe\b"),
    ("Recipe of a page", lambda: vorlen.Recipe("<html/>"), vorlen.RecipeError, r"root element is html"),
    ("load None", lambda: vorlen.Recipe.load(None), TypeError, r"path must be .*None"),
    ("load a number", lambda: vorlen.Recipe.load(5), TypeError, r"path must be .*\b(5|int)\b"),
    ("load a folder", lambda: vorlen.Recipe.load("folder"), IsADirectoryError, r"\bfolder\b"),
    ("load a missing file", lambda: vorlen.Recipe.load("no.xml"), FileNotFoundError, r"no\.xml"),
    ("load a pipe", lambda: vorlen.Recipe.load("pipe"), ValueError, r"pipe is not a regular file"),
    ("load random bytes", lambda: vorlen.Recipe.load("binary.xml"), vorlen.RecipeError, r"binary\.xml, line 1: "),
    ("load UTF-16", lambda: vorlen.Recipe.load("utf16.xml"), vorlen.RecipeError, r"utf16\.xml.*UTF-16"),
    (
        "load an unknown encoding", lambda: vorlen.Recipe.load("klingon.xml"),
        vorlen.RecipeError, r"klingon\.xml.*encoding",
    ),
    ("save to None", lambda: recipe().save(None), TypeError, r"path must be .*None"),
    *write_a_file("save", lambda path: recipe().save(path)),
    ("unknown path", lambda: recipe()["no/such"], KeyError, r"recipe\.xml has no no/such"),
    ("empty path", lambda: recipe()[""], KeyError, r"path|has no"),
    ("group", lambda: recipe()["chemistry"], KeyError, r"chemistry is a group"),
    ("number as a path", lambda: recipe()[5], TypeError, r"path.* must be .*\b(5|int)\b"),
    ("number as a path of set", lambda: change(5, 1), TypeError, r"path.* must be .*\b(5|int)\b"),
    ("number as a path of get", lambda: recipe().get(5), TypeError, r"path.* must be .*\b(5|int)\b"),
    ("set NaN", lambda: change(TAU, float("nan")), ValueError, r"nan is not finite"),
    ("set infinity", lambda: change(T, np.inf), ValueError, r"inf is not finite"),
    ("set None", lambda: change(TAU, None), TypeError, r"value.*None"),
    ("set True", lambda: change(TAU, True), TypeError, r"value.*(True|bool)"),
    ("set a complex number", lambda: change(TAU, 1j), TypeError, r"value.*(1j|complex)"),
    ("set bytes", lambda: change(TAU, b"5"), TypeError, r"value.*(b'5'|bytes)"),
    (
        "set a pair for a single value", lambda: change(TAU, (1, 2)),
        ValueError, rf"{TAU} takes a single value, got \(1, 2\)",
    ),
    (
        "set three values for a ramp", lambda: change(T, [1, 2, 3]),
        ValueError, rf"{T} takes one value, or two .*\[1, 2, 3\]",
    ),
    ("set a nested pair", lambda: change(T, ((1, 2), 3)), TypeError, r"value.*(\(1, 2\)|tuple)"),
    ("set an unknown attribute", lambda: change(T, {"middle": 1}), KeyError, rf"{T} has no middle; it has val, end"),
    (
        "set a number for a mapping", lambda: change("chemistry/Kd_In", 1),
        ValueError, r"chemistry/Kd_In takes a mapping",
    ),
    ("set a text with a null byte", lambda: change(f"{STAGE}/name", "a\0b"), ValueError, r"a\\x00b"),
    ("set a text with a control character", lambda: change(f"{STAGE}/name", "a\x01b"), ValueError, r"a\\x01b"),
    ("set a text that is not Unicode", lambda: change(f"{STAGE}/name", "\udc80"), ValueError, r"\\udc80"),
    ("with_scheme in capitals", lambda: recipe().with_scheme("Staged"), ValueError, r"scheme must be .*'Staged'"),
    ("with_scheme None", lambda: recipe().with_scheme(None), NOT_A_CHOICE, r"scheme must be .*None"),
    ("stages of no group", lambda: recipe().stages("chemistry"), ValueError, r"chemistry is not a group"),
    ("stages of a number", lambda: recipe().stages(5), TypeError, r"(group|path).* must be .*\b(5|int)\b"),
    ("stages of a missing group", lambda: recipe().stages("no_stages"), KeyError, r"no_stages"),
    ("add_stage like none", lambda: recipe().add_stage(f"{STAGE}9"), KeyError, r"stage_19"),
    ("add_stage like None", lambda: recipe().add_stage(None), TypeError, r"(like|path).* must be .*None"),
    ("add_stage like a value", lambda: recipe().add_stage(T), (KeyError, ValueError), r"not a (stage|group)"),
    ("add_stage before none", lambda: recipe().add_stage(STAGE, before="process_stages/stage_7"), KeyError, r"stage_7"),
    (
        "add_stage before a stage of another group",
        lambda: recipe().add_stage(STAGE, before="pre_stages/pre_stage_1"),
        ValueError, r"pre_stages/pre_stage_1 is not in process_stages",
    ),
    ("add_stage, name a number", lambda: recipe().add_stage(STAGE, name=5), TypeError, r"name must be .*\b(5|int)\b"),
    (
        "add_stage, values a list", lambda: recipe().add_stage(STAGE, values=[1]),
        TypeError, r"values must be .*(1|list)",
    ),
    ("add_stage, unknown value", lambda: recipe().add_stage(STAGE, values={"no": 1}), KeyError, r"stage_2/no"),
    ("remove_stage, the only one", lambda: recipe().remove_stage(STAGE), ValueError, r"the only stage"),
    ("remove_stage out of range", lambda: recipe().remove_stage("process_stages/stage_0"), KeyError, r"stage_0"),
    ("remove_stage None", lambda: recipe().remove_stage(None), TypeError, r"path.* must be .*None"),
    (
        "make_periodic, 0 periods", lambda: recipe().make_periodic(STAGE, STAGE, 0),
        ValueError, r"periods must be .*\b0\b",
    ),
    (
        "make_periodic, -1 periods", lambda: recipe().make_periodic(STAGE, STAGE, -1),
        ValueError, r"periods must be .*-1",
    ),
    (
        "make_periodic, 2.5 periods", lambda: recipe().make_periodic(STAGE, STAGE, 2.5),
        NOT_AN_INTEGER, r"periods must be .*(2\.5|float)",
    ),
    (
        "make_periodic, True periods", lambda: recipe().make_periodic(STAGE, STAGE, True),
        NOT_AN_INTEGER, r"periods must be .*(True|bool)",
    ),
    ("make_periodic, out of range", lambda: recipe().make_periodic(STAGE, f"{STAGE}0", 2), KeyError, r"stage_10"),
    (
        "make_periodic of pre-stages",
        lambda: recipe().make_periodic("pre_stages/pre_stage_1", "pre_stages/pre_stage_1", 2),
        ValueError, r"stages of process_stages",
    ),
    (
        "make_periodic, periodic already",
        lambda: vorlen.Recipe.load("periodic.xml").make_periodic(STAGE, STAGE, 2),
        ValueError, r"can't contain another periodic stage",
    ),
    (
        "make_periodic of a sub-stage",
        lambda: vorlen.Recipe.load("periodic.xml").make_periodic(f"{STAGE}/stage_1_1", f"{STAGE}/stage_1_1", 2),
        ValueError, r"stages of process_stages",
    ),
    (
        "timeline of 1e9 periods",
        lambda: vorlen.Recipe.load("periodic.xml").set(f"{STAGE}/n_periods", 1e9).timeline(),
        ValueError, r"n_periods|1000000000|stages",
    ),
]

SWEEP: list[Row] = [
    *take_a_recipe("sweep", lambda recipe: sweep(recipe=recipe)),
    ("sweep, parameters a text", lambda: sweep(T), TypeError, rf"parameters must be .*({T}|str)"),
    ("sweep, parameters a list", lambda: sweep([T]), TypeError, rf"parameters must be .*({T}|list)"),
    ("sweep, parameters a number", lambda: sweep(5), TypeError, r"parameters must be .*\b(5|int)\b"),
    ("sweep, no parameters", lambda: sweep({}), PlanError, r"at least one parameter"),
    ("sweep, no values", lambda: sweep({T: []}), PlanError, r"at least one value"),
    ("sweep, no rows", lambda: sweep(pd.DataFrame({T: []})), PlanError, r"at least one value"),
    ("sweep, unknown path", lambda: sweep({"no/such": [1]}), PlanError, r"no/such"),
    ("sweep, path a number", lambda: sweep({5: [1]}), PlanError, r"path.*\b5\b|\b5\b.*path"),
    ("sweep, one value", lambda: sweep({T: 1000}), PlanError, rf"{T}.* list of values.*1000"),
    ("sweep, values a text", lambda: sweep({T: "1000"}), PlanError, rf"{T}.* list of values.*'1000'"),
    ("sweep, values a mapping", lambda: sweep({T: {"a": 1}}), PlanError, rf"{T}.* list of values.*'a'"),
    ("sweep, values a set", lambda: sweep({T: {1000, 1010}}), PlanError, rf"{T}.* list of values.*10[01]0"),
    ("sweep, a triple", lambda: sweep({T: [(1, 2, 3)]}), PlanError, rf"{T}.* pair.*1, 2, 3"),
    ("sweep, a nested pair", lambda: sweep({T: [(1, (2, 3))]}), PlanError, rf"{T}.*(number|pair)"),
    ("sweep, a pair for a single value", lambda: sweep({TAU: [(1, 2)]}), PlanError, rf"{TAU} .*single value"),
    ("sweep, NaN", lambda: sweep({T: [1000, np.nan]}), PlanError, rf"{T}: nan is not finite"),
    ("sweep, NaN in a table", lambda: sweep(pd.DataFrame({T: [1000, np.nan]})), PlanError, rf"{T}: nan is not finite"),
    ("sweep, None", lambda: sweep({T: [None]}), PlanError, rf"{T}: .*None"),
    ("sweep, True", lambda: sweep({T: [True]}), PlanError, rf"{T}\b.*(True|bool)"),
    ("sweep, an integer of 400 digits", lambda: sweep({T: [10**400]}), PlanError, rf"{T}\b"),
    ("sweep, a broken pair as text", lambda: sweep({T: ["[1, 2"]}), PlanError, rf"{T}\b.*\[1, 2"),
    (
        "sweep, one path twice", lambda: sweep({T: [1], T.replace("/", ":"): [2]}),
        PlanError, rf"{T}.*twice|more than once|the same",
    ),
    (
        "sweep, an element after its attribute", lambda: sweep({f"{T}/end": [2], T: [1]}),
        PlanError, rf"{T}.*the same value as {T}/end",
    ),
    (
        "sweep, one column twice",
        lambda: sweep(pd.DataFrame([[1, 2]], columns=[T, T])),
        PlanError, rf"{T}.*(twice|more than once|the same)",
    ),
    (
        "sweep, unequal lists",
        lambda: sweep({T: [1, 2], TAU: [1]}, mode="zip"),
        PlanError, rf"same number of values.*{T}: 2.*{TAU}: 1",
    ),
    ("sweep, mode", lambda: sweep(mode="x"), PlanError, r"mode must be .*'x'"),
    ("sweep, mode None", lambda: sweep(mode=None), NOT_A_CHOICE, r"mode must be .*None"),
    ("sweep, scheme", lambda: sweep(scheme="Staged"), ValueError, r"scheme must be .*'Staged'"),
    ("sweep, scheme a number", lambda: sweep(scheme=1), NOT_A_CHOICE, r"scheme must be .*\b(1|int)\b"),
    ("sweep, timeout NaN", lambda: sweep(timeout=np.nan), ValueError, r"timeout must be .*nan"),
    ("sweep, timeout infinite", lambda: sweep(timeout=np.inf), ValueError, r"timeout must be .*inf"),
    ("sweep, timeout -1", lambda: sweep(timeout=-1), ValueError, r"timeout must be .*-1"),
    ("sweep, timeout 0", lambda: sweep(timeout=0), ValueError, r"timeout must be .*\b0\b"),
    ("sweep, timeout a text", lambda: sweep(timeout="5"), TypeError, r"timeout must be .*('5'|str)"),
    ("sweep, timeout True", lambda: sweep(timeout=True), NOT_AN_INTEGER, r"timeout must be .*(True|bool)"),
    ("sweep, 0 workers", lambda: sweep(workers=0), ValueError, r"workers must be .*\b0\b"),
    ("sweep, -1 workers", lambda: sweep(workers=-1), ValueError, r"workers must be .*-1"),
    ("sweep, 2.5 workers", lambda: sweep(workers=2.5), NOT_AN_INTEGER, r"workers must be .*(2\.5|float)"),
    ("sweep, True workers", lambda: sweep(workers=True), NOT_AN_INTEGER, r"workers must be .*(True|bool)"),
    ("sweep, workers a text", lambda: sweep(workers="2"), TypeError, r"workers must be .*('2'|str)"),
    ("sweep, executor an object", lambda: sweep(executor=object()), TypeError, r"executor must .*object"),
    ("sweep, executor a number", lambda: sweep(executor=4), TypeError, r"executor must .*\b(4|int)\b"),
    ("sweep, out a number", lambda: sweep(out=5), TypeError, r"out must be .*\b(5|int)\b"),
    ("sweep, out empty", lambda: sweep(out=""), ValueError, r"out.*empty"),
    ("sweep, out a file", lambda: sweep(out="page.html"), OSError, r"page\.html"),
    ("sweep, out in a file", lambda: sweep(out="page.html/s"), OSError, r"page\.html"),
    ("sweep, out a device", lambda: sweep(out="device"), OSError, r"\bdevice\b"),
    ("sweep, out a pipe", lambda: sweep(out="pipe"), OSError, r"\bpipe\b"),
    ("sweep, out a loop of links", lambda: sweep(out="loop"), OSError, r"\bloop\b"),
    ("sweep, out name too long", lambda: sweep(out=LONG_NAME), OSError, r"nnn"),
    ("sweep, out null byte", lambda: sweep(out="a\0b"), ValueError, r"out.*null (byte|character)"),
    *write_a_file("write_plan", write_plan, inputs=("recipe.xml", "hard.xml")),
    ("write_plan None", lambda: write_plan(None), TypeError, r"path must be .*None"),
    (
        "write_plan, its copy over the recipe",
        lambda: write_plan("p.json", recipe="p.recipe.xml", scheme="continuous"),
        ValueError, r"would overwrite",
    ),
    ("write_plan, out a number", lambda: write_plan("p.json", out=5), TypeError, r"out must be .*\b(5|int)\b"),
    ("write_plan, mode", lambda: write_plan("p.json", mode="x"), PlanError, r"mode must be .*'x'"),
    ("write_plan, timeout NaN", lambda: write_plan("p.json", timeout=np.nan), ValueError, r"timeout must be .*nan"),
    ("write_plan, unknown path", lambda: write_plan("p.json", parameters={"no/such": [1]}), PlanError, r"no/such"),
    ("write_plan, recipe missing", lambda: write_plan("p.json", recipe="no.xml"), FileNotFoundError, r"no\.xml"),
]

FIT: list[Row] = [
    *take_a_recipe("fit", lambda recipe: fit(recipe=recipe)),
    ("fit, no recipes", lambda: fit(recipe={}), ValueError, r"recipe"),
    ("fit, one of the recipes None", lambda: fit(recipe={"a": None}), TypeError, r"recipe.*\ba\b.*None"),
    ("fit, parameters None", lambda: fit(None), TypeError, r"parameters must be .*None"),
    ("fit, parameters a list", lambda: fit([KD]), TypeError, rf"parameters must be .*({KD}|list)"),
    ("fit, no parameters", lambda: fit({}), ValueError, r"parameter"),
    ("fit, unknown path", lambda: fit({"chemistry/Kd_X/A": (1, 2)}), ValueError, r"chemistry/Kd_X/A"),
    (
        "fit, path of a mapping", lambda: fit({"chemistry/Kd_In": (1, 2)}),
        ValueError, r"chemistry/Kd_In .*not a single number",
    ),
    (
        "fit, path of a ramp", lambda: fit({T: (900, 1100)}, recipe=recipe().set(T, (1000, 1030))),
        ValueError, rf"{T} of recipe is a ramp from 1000.* to 1030",
    ),
    ("fit, bounds without a constant temperature", lambda: fit({T: (1, 2)}), ValueError, rf"{T}: bounds must .*1030"),
    ("fit, path of a text", lambda: fit({"material": (1, 2)}), ValueError, r"material .*not a single number"),
    ("fit, bounds None", lambda: fit({KD: None}), (TypeError, ValueError), rf"{KD}.*None"),
    ("fit, bounds a number", lambda: fit({KD: 1e13}), (TypeError, ValueError), rf"{KD}.*10{{13}}"),
    ("fit, one bound", lambda: fit({KD: (1e13,)}), ValueError, rf"{KD}.*1e\+?13|{KD}.*10{{13}}"),
    ("fit, four bounds", lambda: fit({KD: (1, 2, 3, 4)}), ValueError, rf"{KD}.*1, 2, 3, 4"),
    ("fit, bounds a text", lambda: fit({KD: "12"}), (TypeError, ValueError), rf"{KD}.*'12'"),
    ("fit, bounds of texts", lambda: fit({KD: ("1", "2")}), (TypeError, ValueError), rf"{KD}.*'1'"),
    ("fit, bounds reversed", lambda: fit({KD: (1e14, 1e12)}), ValueError, rf"{KD}: bounds must .*1e\+14, .*1e\+12"),
    ("fit, bounds equal", lambda: fit({KD: (1e13, 1e13)}), ValueError, rf"{KD}: bounds must .*1e\+13"),
    ("fit, bound 0", lambda: fit({KD: (0, 1e14)}), ValueError, rf"{KD}: bounds must .*\b0, "),
    ("fit, bound negative", lambda: fit({KD: (-1, 1e14)}), ValueError, rf"{KD}: bounds must .*-1, "),
    ("fit, bound NaN", lambda: fit({KD: (np.nan, 1e14)}), ValueError, rf"{KD}: .*nan"),
    ("fit, upper bound NaN", lambda: fit({KD: (1e12, np.nan)}), ValueError, rf"{KD}: .*nan"),
    ("fit, bound infinite", lambda: fit({KD: (1e12, np.inf)}), ValueError, rf"{KD}: .*inf"),
    ("fit, start outside", lambda: fit({KD: (1e12, 1e15, 1e14)}), ValueError, rf"{KD}: bounds must .*1e\+15"),
    ("fit, start NaN", lambda: fit({KD: (1e12, np.nan, 1e14)}), ValueError, rf"{KD}: .*nan"),
    (
        "fit, one path twice",
        lambda: fit({KD: (1e12, 1e14), KD.replace("/", ":"): (1e12, 1e14)}, {"x_in_2": 0.2, "z": 3}),
        ValueError, r"twice|more than once|the same",
    ),
    ("fit, measurements None", lambda: fit(measurements=None), TypeError, r"measurements must be .*None"),
    ("fit, measurements a list", lambda: fit(measurements=[1]), TypeError, r"measurements must be .*(1|list)"),
    ("fit, no measurements", lambda: fit(measurements={}), ValueError, r"measurement"),
    (
        "fit, measurements without value", lambda: fit(measurements=pd.DataFrame({"quantity": ["z"]})),
        ValueError, r"no column value",
    ),
    (
        "fit, unknown quantity", lambda: fit(measurements={"x_in_9": (0.2, 0.1)}, workers=1),
        ValueError, r"unknown quantity x_in_9",
    ),
    (
        "fit, quantity a number", lambda: fit(measurements={5: (0.2, 0.1)}, workers=1),
        (TypeError, ValueError), r"quantity.*\b5\b",
    ),
    ("fit, unknown recipe", lambda: fit(measurements={"b": MEASURED}), ValueError, r"\bb\b.* not one of the recipes"),
    ("fit, sigma 0", lambda: fit(measurements={"x_in_2": (0.2, 0)}), ValueError, r"standard deviation.* positive"),
    (
        "fit, sigma negative", lambda: fit(measurements={"x_in_2": (0.2, -1)}),
        ValueError, r"standard deviation.* positive",
    ),
    ("fit, sigma infinite", lambda: fit(measurements={"x_in_2": (0.2, np.inf)}), ValueError, r"standard deviation"),
    (
        "fit, sigma of some", lambda: fit(measurements={"x_in_2": (0.2, 1), "z": 3}),
        ValueError, r"for all measurements or for none",
    ),
    ("fit, measured NaN", lambda: fit(measurements={"x_in_2": (np.nan, 1)}), ValueError, r"finite number"),
    ("fit, measured None", lambda: fit(measurements={"x_in_2": None}), (TypeError, ValueError), r"x_in_2.*None"),
    ("fit, measured a text", lambda: fit(measurements={"x_in_2": "a"}), (TypeError, ValueError), r"x_in_2.*'a'"),
    ("fit, measured three numbers", lambda: fit(measurements={"x_in_2": (1, 2, 3)}), ValueError, r"x_in_2.*1, 2, 3"),
    ("fit, level in per cent", lambda: fit(level=95), ValueError, r"level must be .*95"),
    ("fit, level 0", lambda: fit(level=0), ValueError, r"level must be .*\b0\b"),
    ("fit, level 1", lambda: fit(level=1.0), ValueError, r"level must be .*\b1"),
    ("fit, level NaN", lambda: fit(level=np.nan), ValueError, r"level must be .*nan"),
    ("fit, level a text", lambda: fit(level="0.95"), TypeError, r"level must be .*('0\.95'|str)"),
    ("fit, 0 workers", lambda: fit(workers=0), ValueError, r"workers must be .*\b0\b"),
    ("fit, 2.5 workers", lambda: fit(workers=2.5), NOT_AN_INTEGER, r"workers must be .*(2\.5|float)"),
    ("fit, timeout NaN", lambda: fit(timeout=np.nan), ValueError, r"timeout must be .*nan"),
    ("fit, timeout a text", lambda: fit(timeout="5"), TypeError, r"timeout must be .*('5'|str)"),
    ("fit, executor an object", lambda: fit(executor=object(), out="fitted"), TypeError, r"executor must .*object"),
    ("fit, scheme", lambda: fit(scheme="Staged"), ValueError, r"scheme must be .*'Staged'"),
    ("fit, out a file", lambda: fit(out="page.html"), OSError, r"page\.html"),
    ("fit, out a number", lambda: fit(out=5), TypeError, r"out must be .*\b(5|int)\b"),
]

SENSITIVITY: list[Row] = [
    *take_a_recipe("sensitivity", lambda recipe: sensitivity(recipe=recipe)),
    ("sensitivity, parameters None", lambda: sensitivity(None), TypeError, r"parameters must be .*None"),
    ("sensitivity, parameters a text", lambda: sensitivity(T), TypeError, rf"parameters must be .*({T}|str)"),
    ("sensitivity, no parameters", lambda: sensitivity([]), ValueError, r"at least one parameter"),
    ("sensitivity, unknown path", lambda: sensitivity(["no/such"]), ValueError, r"no/such"),
    ("sensitivity, path a number", lambda: sensitivity([5]), (TypeError, ValueError), r"\b5\b"),
    ("sensitivity to a text", lambda: sensitivity(["material"]), ValueError, r"material .*only numbers can be varied"),
    (
        "sensitivity to a mapping", lambda: sensitivity(["chemistry/Kd_In"]),
        ValueError, r"chemistry/Kd_In .*only numbers",
    ),
    (
        "sensitivity, one path twice",
        lambda: sensitivity([T, T.replace("/", ":")]),
        ValueError, r"twice|more than once|the same",
    ),
    ("sensitivity, change 0", lambda: sensitivity({T: 0}), ValueError, rf"{T}.* 0\b"),
    ("sensitivity, change NaN", lambda: sensitivity({T: np.nan}), ValueError, rf"{T}.*nan"),
    ("sensitivity, change a text", lambda: sensitivity({T: "5"}), TypeError, rf"{T}.*('5'|str)"),
    ("sensitivity, change None", lambda: sensitivity({T: None}), TypeError, rf"{T}.*None"),
    ("sensitivity, step 0", lambda: sensitivity(step=0), ValueError, r"step must be .*\b0\b"),
    ("sensitivity, step negative", lambda: sensitivity(step=-0.01), ValueError, r"step must be .*-0\.01"),
    ("sensitivity, step NaN", lambda: sensitivity(step=np.nan), ValueError, r"step must be .*nan"),
    ("sensitivity, step a text", lambda: sensitivity(step="0.01"), TypeError, r"step must be .*('0\.01'|str)"),
    ("sensitivity, 0 workers", lambda: sensitivity(workers=0), ValueError, r"workers must be .*\b0\b"),
    ("sensitivity, timeout -1", lambda: sensitivity(timeout=-1), ValueError, r"timeout must be .*-1"),
    (
        "sensitivity, executor an object", lambda: sensitivity(workers=None, executor=object(), out="moved"),
        TypeError, r"executor must .*object",
    ),
    ("sensitivity, scheme", lambda: sensitivity(scheme="Staged"), ValueError, r"scheme must be .*'Staged'"),
    ("sensitivity, out a file", lambda: sensitivity(out="page.html"), OSError, r"page\.html"),
    ("sensitivity, out a number", lambda: sensitivity(out=5), TypeError, r"out must be .*\b(5|int)\b"),
]

ROWS = RUN + READ + FIGURES + EXPORTS + RECIPE + SWEEP + FIT + SENSITIVITY

PLAN = '{"recipe": "recipe.xml", "parameters": {"%s": [1000]}}' % T  # a valid one
# what is wrong with a plan, its text, a pattern found in the message
PLANS: list[tuple[str, str | bytes, str]] = [
    ("empty", "", r"plan\.json is not valid JSON"),
    ("not JSON", "recipe = 1", r"plan\.json is not valid JSON"),
    ("random bytes", bytes(range(256)), r"plan\.json.*(not valid JSON|UTF-8)"),
    ("UTF-16", PLAN.encode("utf-16"), r"plan\.json.*(not valid JSON|UTF-8)"),
    ("nested 100000 times", "[" * 100000, r"plan\.json"),
    ("a list", "[]", r"plan\.json: .* must be a JSON object"),
    ("a number", "5", r"plan\.json: .* must be a JSON object"),
    ("an empty object", "{}", r'plan\.json: .* needs "recipe"'),
    ("unknown key", PLAN[:-1] + ', "workers": 2}', r"plan\.json: unknown key 'workers'"),
    ("recipe a number", PLAN.replace('"recipe.xml"', "5"), r'plan\.json: .*"recipe".*\b(5|text|path)\b'),
    ("recipe missing", PLAN.replace("recipe.xml", "no.xml"), r"no\.xml"),
    ("recipe a folder", PLAN.replace("recipe.xml", "folder"), r"\bfolder\b"),
    ("recipe random bytes", PLAN.replace("recipe.xml", "binary.xml"), r"binary\.xml, line 1: "),
    ("recipe the plan itself", PLAN.replace("recipe.xml", "plan.json"), r"plan\.json, line 1: "),
    (
        "parameters a list",
        PLAN.replace('{"process', '[{"process').replace("]}}", "]}]}"), r'plan\.json: "parameters" must be an object',
    ),
    ("one value", PLAN.replace("[1000]", "1000"), r"list of values.*1000"),
    ("values an object", PLAN.replace("[1000]", '{"a": 1}'), r"list of values.*'a'"),
    ("a value NaN", PLAN.replace("[1000]", "[NaN]"), r"nan is not finite|NaN"),
    ("a value infinite", PLAN.replace("[1000]", "[1e999]"), r"inf is not finite"),
    ("a value null", PLAN.replace("[1000]", "[null]"), r"None|null"),
    ("a value true", PLAN.replace("[1000]", "[true]"), r"True|true|bool"),
    ("unknown path", PLAN.replace("stage_1/T", "stage_7/T"), r"stage_7/T"),
    ("parameters and table", PLAN[:-1] + ', "table": "t.csv"}', r'either "parameters" or "table"'),
    ("neither parameters nor table", '{"recipe": "recipe.xml"}', r'either "parameters" or "table"'),
    ("table missing", '{"recipe": "recipe.xml", "table": "no.csv"}', r"no\.csv"),
    ("table a number", '{"recipe": "recipe.xml", "table": 5}', r'plan\.json: .*"table".*\b5\b'),
    ("table empty", '{"recipe": "recipe.xml", "table": "empty"}', r"\bempty\b"),
    ("table random bytes", '{"recipe": "recipe.xml", "table": "binary.xml"}', r"binary\.xml"),
    ("table ragged", '{"recipe": "recipe.xml", "table": "ragged.csv"}', r"ragged\.csv"),
    (
        "table with one column twice",
        '{"recipe": "recipe.xml", "table": "twice.csv"}', r"twice\.csv.*(more than once|twice|the same)",
    ),
    ("table with an empty cell", '{"recipe": "recipe.xml", "table": "hole.csv"}', rf"{T}: nan|{T}.*empty"),
    ("mode", PLAN[:-1] + ', "mode": "x"}', r"mode must be .*'x'"),
    ("mode a number", PLAN[:-1] + ', "mode": 1}', r"mode must be .*1"),
    ("timeout a text", PLAN[:-1] + ', "timeout": "5"}', r"timeout must be .*'5'"),
    ("timeout NaN", PLAN[:-1] + ', "timeout": NaN}', r"timeout must be .*nan|NaN"),
    ("timeout true", PLAN[:-1] + ', "timeout": true}', r"timeout must be .*True"),
    ("timeout negative", PLAN[:-1] + ', "timeout": -1}', r"timeout must be .*-1"),
    ("out a number", PLAN[:-1] + ', "out": 5}', r'\bout"? must be .*5'),
    ("scheme", PLAN[:-1] + ', "scheme": "Staged"}', r"scheme must be .*'Staged'"),
    ("scheme a number", PLAN[:-1] + ', "scheme": 1}', r"scheme must be .*1"),
]


@pytest.fixture(scope="module")
def rows() -> bytes:
    """A valid result file."""
    return vorlen.run(LAYER).content


@pytest.fixture
def folder(rows: bytes, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Iterator[Path]:
    """The current folder of a call: inputs, valid and damaged, and places that are not files."""
    content = LAYER.read_bytes()
    files = {
        "recipe.xml": content,
        "r.status.json": content,
        "p.recipe.xml": content,
        "cut.xml": content[:-100],
        "binary.xml": bytes(range(256)) * 20,
        "klingon.xml": content.replace(b'encoding="UTF-8"', b'encoding="klingon"'),
        "utf16.xml": content.decode().replace('encoding="UTF-8"', 'encoding="UTF-16"').encode("utf-16"),
        "empty": b"",
        "page.html": b"<!DOCTYPE html><html><body>Not found</body></html>\n",
        "result.txt": rows,
        "cut.txt": rows[:-30],
        "head.txt": rows[: rows.index(b"</LAYERS>")].rpartition(b'"GaN')[0],
        "word.txt": rows.replace(b"e+00", b"e+0O", 1),
        "ragged.csv": f"{T}\n1000\n1000,1,2\n".encode(),
        "twice.csv": f"{T},{T}\n1000,1010\n".encode(),
        "hole.csv": f"{T},{TAU}\n1000,60\n,60\n".encode(),
        "folder/kept.txt": b"kept\n",
    }
    home = tmp_path / "home"
    (home / "folder").mkdir(parents=True)
    for name, data in files.items():
        (home / name).write_bytes(data)
    periodic = vorlen.Recipe(content)
    periodic.make_periodic(STAGE, STAGE, 2)
    (home / "periodic.xml").write_bytes(periodic.to_bytes())
    os.link(home / "recipe.xml", home / "hard.xml")
    (home / "link.xml").symlink_to("recipe.xml")
    (home / "loop").symlink_to("loop")
    os.mkfifo(home / "pipe")
    leader, terminal = os.openpty()  # a device of this process, in a folder where nothing can be created or renamed
    (home / "device").symlink_to(os.ttyname(terminal))
    monkeypatch.chdir(home)
    yield home
    plt.close("all")
    os.close(leader)
    os.close(terminal)


def content_of(folder: Path) -> dict[str, tuple[int, object]]:
    """Mode, and content or target, of everything in a folder; and the mode of the device."""
    found: dict[str, tuple[int, object]] = {"": (folder.stat().st_mode, None)}
    for path in sorted(folder.rglob("*")):
        mode = path.lstat().st_mode
        inside = os.readlink(path) if stat.S_ISLNK(mode) else path.read_bytes() if stat.S_ISREG(mode) else None
        found[str(path.relative_to(folder))] = (mode, inside)
    device = folder / "device"
    found["the device"] = (stat.S_IFMT(device.stat().st_mode), os.readlink(device))
    return found


@pytest.fixture
def time_limit() -> Iterator[None]:
    """Ends a test that waits, for example for the other side of a pipe."""

    def end(number: int, frame: FrameType | None) -> None:
        pytest.fail(f"not finished after {TIME_LIMIT} s")

    previous = signal.signal(signal.SIGALRM, end)
    signal.alarm(TIME_LIMIT)
    yield
    signal.alarm(0)
    signal.signal(signal.SIGALRM, previous)


@pytest.mark.usefixtures("time_limit")
@pytest.mark.parametrize(("call", "kind", "text"), [row[1:] for row in ROWS], ids=[row[0] for row in ROWS])
def test_a_wrong_argument_is_rejected_and_changes_nothing(
    call: Callable[[], object], kind: type[Exception] | tuple[type[Exception], ...], text: str, folder: Path
) -> None:
    before = content_of(folder)
    with pytest.raises(Exception) as caught:
        call()
    error = caught.value
    message = error.args[0] if isinstance(error, KeyError) else str(error)
    assert isinstance(error, kind) and not isinstance(error, UnicodeError), f"{type(error).__name__}: {message}"
    assert re.search(text, message), f"{type(error).__name__}: {message}"
    assert "\n" not in message or message.startswith("Error reading file")  # which is a text of the library
    assert content_of(folder) == before


@pytest.mark.usefixtures("time_limit")
@pytest.mark.parametrize(("plan", "text"), [row[1:] for row in PLANS], ids=[row[0] for row in PLANS])
def test_a_faulty_plan_is_reported_with_its_name_and_runs_nothing(
    plan: str | bytes, text: str, folder: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    (folder / "plan.json").write_bytes(plan if isinstance(plan, bytes) else plan.encode())
    before = content_of(folder)
    assert main(["sweep", "plan.json", "--quiet"]) == 1
    printed = capsys.readouterr()
    assert printed.out == "" and printed.err.startswith("vorlen: ") and printed.err.count("\n") == 1
    assert re.search(text, printed.err), printed.err
    assert content_of(folder) == before


@pytest.mark.parametrize(
    ("place", "reason"),
    [("missing.json", "No such file|not found"), ("folder", "folder|directory"), ("pipe", "not a regular file")],
)
@pytest.mark.usefixtures("time_limit")
def test_a_plan_that_is_not_a_file_is_reported(
    place: str, reason: str, folder: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    before = content_of(folder)
    assert main(["sweep", place, "--count"]) == 1
    message = capsys.readouterr().err
    assert place in message and re.search(reason, message), message
    assert content_of(folder) == before


def test_a_valid_plan_is_accepted(folder: Path, capsys: pytest.CaptureFixture[str]) -> None:
    """So the plans above fail because of their faults."""
    (folder / "plan.json").write_text(PLAN)
    assert main(["sweep", "plan.json", "--count"]) == 0
    assert capsys.readouterr().out == "1\n"


UNWRITABLE: list[tuple[str, str]] = [  # calls, what is named
    ("vorlen.run('recipe.xml', 'result.txt')", "result.txt is not writable"),
    ("vorlen.run('recipe.xml', 'folder/result.txt')", "folder.* is not writable"),
    ("vorlen.Recipe.load('recipe.xml').save('folder/r.xml')", "folder.* is not writable"),
    ("vorlen.report(vorlen.read('result.txt'), 'folder/r.html')", "folder.* is not writable"),
    ("vorlen.read('result.txt').to_csv('folder/r.csv')", "folder.* is not writable"),
    ("vorlen.read('result.txt').plot(path='folder/r.svg')", "folder.* is not writable"),
    (f"vorlen.sweep('recipe.xml', {{{T!r}: [1000]}}, out='folder/s')", "folder"),
    ("vorlen.run('secret.xml')", "secret.xml"),
    ("vorlen.Recipe.load('secret.xml')", "secret.xml"),
    ("vorlen.read('secret.xml')", "secret.xml"),
]


@pytest.mark.parametrize(("call", "text"), UNWRITABLE, ids=[call for call, _ in UNWRITABLE])
def test_what_may_not_be_read_or_written_is_a_permission_error(call: str, text: str, folder: Path) -> None:
    (folder / "secret.xml").write_bytes(LAYER.read_bytes())
    before = content_of(folder)
    modes = {"secret.xml": 0o000, "result.txt": 0o444, "folder": 0o555}
    for name, mode in modes.items():
        (folder / name).chmod(mode)
    program = f"import vorlen\ntry:\n    {call}\nexcept PermissionError as error:\n    print(error)\n"
    command = [sys.executable, "-B", "-c", program]
    if os.geteuid() == 0:  # root ignores permissions, unless without these capabilities
        assert shutil.which("setpriv"), "the package util-linux is missing"
        command = ["setpriv", "--bounding-set=-dac_override,-dac_read_search", *command]
    search_path = {"PYTHONPATH": str(Path(vorlen.__file__).parents[1])}
    environment = os.environ | search_path
    done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=60, check=False)
    for name in modes:
        (folder / name).chmod(stat.S_IMODE(before[name][0]))
    assert re.search(text, done.stdout), done.stdout + done.stderr
    assert content_of(folder) == before
