"""The integration scheme: changing it in recipes, and what runs, sweeps and fits pass to the library."""

from __future__ import annotations

import json
import os
from pathlib import Path

import pytest

import vorlen
from support import MQW, PLAIN_LAYER, result, row, scripted_library
from vorlen._sweep import plan as _plan
from vorlen.__main__ import main
from vorlen._recipe.scheme import scheme_of, with_scheme

T = "process_stages/stage_1/T"
STAGED = b'<integration><scheme val="staged"/></integration>'
UNKNOWN = "scheme must be \"continuous\", \"staged\" or None, got "

# The content of the root element, and its scheme.
CASES = [
    (b"", "continuous"),
    (b"<!-- " + STAGED + b" -->", "continuous"),
    (b"<integration/>", "continuous"),
    (b"<integration></integration>", "continuous"),
    (b'<integration>\n<tolerance val="1e-7"/></integration>', "continuous"),
    (b"<integration><scheme val='continuous' /></integration>", "continuous"),
    (STAGED, "staged"),
    (STAGED.replace(b"staged", b"Staged"), "staged"),
    # The first element counts.
    (STAGED + b'<integration><scheme val="continuous"/></integration>', "staged"),
    (b'<integration><scheme val="continuous"/><scheme val="staged"/></integration>' + STAGED, "continuous"),
    (b"<x>" + STAGED + b"</x>", "continuous"),
]


def framed(inside: bytes) -> bytes:
    return b"<?xml version='1.0'?>\r\n<NonstSurfChem>" + inside + b"</NonstSurfChem>\n<!-- end -->"


@pytest.mark.parametrize(("inside", "scheme"), CASES)
def test_a_recipe_changes_only_under_another_scheme(inside: bytes, scheme: str) -> None:
    content = framed(inside)
    other = {"continuous": "staged", "staged": "continuous"}[scheme]
    assert scheme_of(content) == scheme and with_scheme(content, scheme) == content
    changed = with_scheme(content, other)
    assert scheme_of(changed) == other and with_scheme(changed, other) == changed
    assert scheme_of(with_scheme(changed, scheme)) == scheme


@pytest.mark.parametrize("element", [b'<scheme val="odd"/>', b"<scheme/>"])
@pytest.mark.parametrize("scheme", ["continuous", "staged"])
def test_a_faulty_element_is_replaced(element: bytes, scheme: str) -> None:
    content = framed(b"<integration>" + element + b"</integration>")
    assert scheme_of(content) == "continuous"  # of a run that the library rejects
    assert with_scheme(content, scheme) == framed(STAGED.replace(b"staged", scheme.encode()))


def test_xml_that_is_not_well_formed() -> None:
    broken = b"<NonstSurfChem><integration></NonstSurfChem>"
    assert scheme_of(broken) == scheme_of(None) == "continuous"
    with pytest.raises(vorlen.RecipeError, match="r.xml, line 1: mismatched tag"):
        with_scheme(broken, "staged", "r.xml")
    assert with_scheme(b"<other/>", "staged") == b"<other/>"  # the library reports it


@pytest.fixture
def recipes(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """The file to which a library that always succeeds appends each recipe it gets."""
    rows = [row(False, time=time, z=time) for time in (0, 1)] + [row(time=time, z=time, x_ga=1) for time in (1, 2, 3)]
    (tmp_path / "rows").write_text(result([("ground", 1, 1), ("layer", 2, 2)], rows))
    monkeypatch.setenv("VORLEN_LIBRARY", str(scripted_library(tmp_path)))
    monkeypatch.setenv("TEST_ROWS", str(tmp_path / "rows"))
    monkeypatch.setenv("TEST_RECIPES", str(tmp_path / "recipes"))
    return tmp_path / "recipes"


@pytest.mark.parametrize(
    ("inside", "scheme", "used"),
    [
        (b"<a/>", None, "continuous"), (b"<a/>", "continuous", "continuous"), (b"<a/>", "staged", "staged"),
        (STAGED, None, "staged"), (STAGED, "continuous", "continuous"), (STAGED, "staged", "staged"),
    ],
)
def test_the_library_gets_the_scheme_and_the_status_names_it(
    inside: bytes, scheme: str | None, used: str, recipes: Path, tmp_path: Path
) -> None:
    content = framed(inside)
    (tmp_path / "r.xml").write_bytes(content)
    for recipe in (tmp_path / "r.xml", content.decode(), vorlen.Recipe(content)):
        recipes.unlink(missing_ok=True)
        run = vorlen.run(recipe, tmp_path / "r.txt", scheme=scheme)
        handed = recipes.read_bytes()
        assert scheme_of(handed) == used
        assert (handed == content) is (used == scheme_of(content))
        status = json.loads((tmp_path / "r.status.json").read_text())
        assert (run.scheme, status["scheme"], vorlen.read(tmp_path / "r.txt").scheme) == (used,) * 3
        assert status["recipe_sha256"] == _plan.sha256(content)  # of the user's recipe
    assert (tmp_path / "r.xml").read_bytes() == content
    assert list(status)[5:8] == ["recipe_sha256", "scheme", "result_file"]


def test_both_schemes_give_a_result_of_a_real_recipe(tmp_path: Path) -> None:
    for scheme in ("continuous", "staged"):
        run = vorlen.run(MQW, tmp_path / "r.txt", scheme=scheme)
        assert not run.failed and run.scheme == scheme and len(run.layers) == 15


def test_texts_name_the_user_s_file_and_not_a_copy(
    recipes: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("TEST_TEXT", "Error reading file %s")
    (tmp_path / "r.xml").write_bytes(framed(b"<a/>"))
    for recipe, name in ((tmp_path / "r.xml", str(tmp_path / "r.xml")), (framed(b"<a/>").decode(), "recipe.xml")):
        with pytest.raises(vorlen.SimulationError) as caught:
            vorlen.run(recipe, scheme="staged")
        assert caught.value.text == f"Error reading file {name}"


@pytest.mark.parametrize("scheme", ["quick", "Staged", "", 1])
def test_an_unknown_scheme_is_an_error_before_anything_runs(scheme: object, recipes: Path, tmp_path: Path) -> None:
    for call in (
        lambda: vorlen.run(MQW, tmp_path / "r.txt", scheme=scheme),
        lambda: vorlen.sweep(PLAIN_LAYER, {T: [1000]}, out=tmp_path / "s", scheme=scheme),
        lambda: vorlen.sensitivity(PLAIN_LAYER, [T], scheme=scheme),
        lambda: vorlen.fit(PLAIN_LAYER, {"chemistry/Kd_In/A": (1e12, 1e14)}, {"x_in_2": 0.2}, scheme=scheme),
        lambda: vorlen.write_plan(tmp_path / "plan.json", PLAIN_LAYER, {T: [1000]}, scheme=scheme),
    ):
        with pytest.raises(ValueError, match=UNKNOWN):
            call()
    assert not recipes.exists() and not (tmp_path / "s").exists() and not (tmp_path / "plan.json").exists()


def test_an_older_status_file_without_a_scheme_is_read(tmp_path: Path) -> None:
    vorlen.run(MQW, tmp_path / "r.txt")
    path = tmp_path / "r.status.json"
    status = json.loads(path.read_text())
    del status["scheme"]
    path.write_text(json.dumps(status))
    run = vorlen.read(tmp_path / "r.txt")
    assert run.scheme is None and not run.failed


def sweep(folder: Path, scheme: str | None = None, count: int = 2):
    return vorlen.sweep(
        PLAIN_LAYER, {T: [1000, 1010, 1020][:count]}, out=folder, workers=1, progress=False, scheme=scheme
    ).table


def changed_rows(folder: Path, before: dict[str, int]) -> list[str]:
    return [name for name, stamp in stamps(folder).items() if before.get(name) != stamp]


def stamps(folder: Path) -> dict[str, int]:
    return {path.name[:6]: path.stat().st_mtime_ns for path in sorted(folder.glob("rows/*.status.json"))}


def test_a_sweep_under_another_scheme_runs_all_rows_again(tmp_path: Path) -> None:
    folder = tmp_path / "s"
    all_rows = ["000000", "000001"]
    sweep(folder)
    for scheme, again in (("continuous", []), ("staged", all_rows), ("staged", []), (None, all_rows)):
        before = stamps(folder)
        table = sweep(folder, scheme)
        assert changed_rows(folder, before) == again, scheme
        for path in table.status_file:
            assert json.loads(Path(path).read_text())["scheme"] == (scheme or "continuous")
        assert {scheme_of(Path(path).read_bytes()) for path in table.recipe_file} == {scheme or "continuous"}
    before = stamps(folder)
    assert len(sweep(folder, "staged", 3)) == 3 and len(changed_rows(folder, before)) == 3
    with pytest.raises(ValueError, match="holds a sweep with a different recipe"):
        vorlen.sweep(PLAIN_LAYER, {T: [900]}, out=folder, scheme="continuous", progress=False)


def test_a_row_of_a_version_that_knew_no_scheme_is_run_again(tmp_path: Path) -> None:
    folder = tmp_path / "s"
    table = sweep(folder)
    path = Path(table.status_file[1])
    status = json.loads(path.read_text())
    del status["scheme"]
    path.write_text(json.dumps(status))
    before = stamps(folder)
    sweep(folder)
    assert changed_rows(folder, before) == ["000001"]


def test_the_scheme_of_a_sweep_on_the_command_line(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    plan = vorlen.write_plan(tmp_path / "plan.json", PLAIN_LAYER, {T: [1000, 1010]})
    part = ["sweep", str(plan), "--quiet", "--workers", "1"]
    for rows in ("0:1", "1:2"):
        assert main([*part, "--rows", rows, "--scheme", "staged"]) == 0
    assert main(["sweep", str(plan), "--merge", "--scheme", "staged"]) == 0
    assert main(["sweep", str(plan), "--merge"]) == 1
    assert "were run with another --scheme; give --merge the same" in capsys.readouterr().err
    status = json.loads((tmp_path / "plan" / "rows" / "000000.status.json").read_text())
    assert status["scheme"] == "staged"
    with pytest.raises(SystemExit) as ended:
        main(["sweep", str(plan), "--scheme", "quick"])
    assert ended.value.code == 2


def test_the_scheme_of_a_plan(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    plan = vorlen.write_plan(tmp_path / "written.json", PLAIN_LAYER, {T: [1000]}, scheme="staged")
    assert scheme_of((tmp_path / "written.recipe.xml").read_bytes()) == "staged"
    assert main(["sweep", str(plan), "--quiet"]) == 0
    (tmp_path / "plan.json").write_text(
        json.dumps({"recipe": os.path.relpath(PLAIN_LAYER, tmp_path), "parameters": {T: [1000]}, "scheme": "staged"})
    )
    assert main(["sweep", str(tmp_path / "plan.json"), "--quiet"]) == 0
    for folder in ("written", "plan"):
        assert json.loads((tmp_path / folder / "rows" / "000000.status.json").read_text())["scheme"] == "staged"
    (tmp_path / "wrong.json").write_text(
        json.dumps({"recipe": str(PLAIN_LAYER), "parameters": {T: [1000]}, "scheme": "quick"})
    )
    capsys.readouterr()
    assert main(["sweep", str(tmp_path / "wrong.json"), "--quiet"]) == 1
    assert UNKNOWN in capsys.readouterr().err


def test_sensitivities_and_fits_run_under_the_scheme(tmp_path: Path) -> None:
    vorlen.sensitivity(PLAIN_LAYER, [T], out=tmp_path / "s", workers=1, scheme="staged")
    assert {scheme_of(path.read_bytes()) for path in tmp_path.glob("s/rows/*.xml")} == {"staged"}
    fitted = vorlen.fit(
        PLAIN_LAYER, {"chemistry/Kd_In/A": (5e12, 2e13)}, {"x_in_2": 0.14}, out=tmp_path / "f", workers=1,
        scheme="staged",
    )
    rows = list(tmp_path.glob("f/*/rows/*.xml"))
    assert rows and {scheme_of(path.read_bytes()) for path in rows} == {"staged"}
    assert scheme_of(fitted.recipes["recipe"].to_bytes()) == "staged"


def test_a_row_whose_worker_crashed_names_its_scheme(
    recipes: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("TEST_CRASH", "1")
    table = sweep(tmp_path / "s", "staged", 1)
    assert list(table.status) == ["crashed"]
    assert json.loads(Path(table.status_file[0]).read_text())["scheme"] == "staged"


def test_a_recipe_without_a_file_is_called_recipe_in_texts() -> None:
    with pytest.raises(vorlen.RecipeError, match="^recipe, line 1: "):
        with_scheme(b"<NonstSurfChem>", "staged")
