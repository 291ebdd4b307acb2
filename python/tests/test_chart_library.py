"""The chart library of the reports: its contents, and the messages if it can't be made or is missing."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import vorlen
from support import ROOT, V_DEFECTS

SCRIPT = ROOT / "python" / "chart_library.py"
sys.path.insert(0, str(SCRIPT.parent))

import chart_library  # noqa: E402

# Entry 4 requires core and pie; core requires lib, which contains another bundle.
BUNDLE = """/** title */
(function(f){g.Plotly = f()})(function(){return (load)({1:[function(_dereq_,module,exports){
the core
},{"../lib":3}],2:[function(_dereq_,module,exports){
the pie
},{"../lib":3}],3:[function(_dereq_,module,exports){
inner({1:[function(_dereq_,module,exports){
inner module
},{}],2:[function(_dereq_,module,exports){
another inner module
},{}]},{},[1])(1)
},{}],4:[function(_dereq_,module,exports){
the entry
},{"./core":1,"./pie":2}]},{},[4])(4)
});
"""


def make(output: Path, **variables: str) -> subprocess.CompletedProcess[str]:
    command = [sys.executable, "-B", str(SCRIPT), str(output)]
    return subprocess.run(command, env=os.environ | variables, capture_output=True, text=True, check=False)


@pytest.fixture(scope="module")
def library(tmp_path_factory: pytest.TempPathFactory) -> str:
    output = tmp_path_factory.mktemp("charts") / "new folder" / "plotly.min.js"
    done = make(output)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert list(output.parent.iterdir()) == [output]
    return output.read_text("utf-8")


def test_only_the_core_and_the_modules_it_requires_are_kept() -> None:
    text = chart_library.lines_only(BUNDLE)
    assert "the core" in text and "inner module" in text and "another inner module" in text
    assert "the pie" not in text and "the entry" not in text
    assert text.startswith("/** title */\n(function(f)") and text.endswith("},{},[1])(1)\n});\n")


@pytest.mark.parametrize("bundle", ["", "var Plotly = 1;", BUNDLE.replace("./core", "./heart"), BUNDLE[:-40]])
def test_another_bundle_is_rejected(bundle: str) -> None:
    with pytest.raises(chart_library.ChartLibraryError, match="this version of plotly.js is not supported"):
        chart_library.lines_only(bundle)


def test_it_carries_its_licences_and_is_small_enough_to_mail(library: str) -> None:
    head = library[:9000]
    assert re.match(r"/\*\*\n\* plotly\.js v[\d.]+\n\* Copyright", head)
    for words in ("Permission is hereby granted, free of charge", "Redistributions in binary form", "Apache"):
        assert words in head
    assert "</script" not in library.lower() and "<!--" not in library
    assert len(library) < 1_000_000


def test_the_same_packages_give_the_same_library(library: str, tmp_path: Path) -> None:
    make(tmp_path / "again.js")
    assert (tmp_path / "again.js").read_text("utf-8") == library


def test_a_missing_package_is_named(tmp_path: Path) -> None:
    done = make(tmp_path / "a.js", PATH=str(tmp_path))
    assert done.returncode == 1 and "apt-get install esbuild\n" in done.stderr
    assert list(tmp_path.iterdir()) == []


def test_a_wrong_command_line_is_2(tmp_path: Path) -> None:
    done = subprocess.run([sys.executable, "-B", str(SCRIPT)], capture_output=True, text=True, check=False)
    assert done.returncode == 2 and "usage" in done.stderr


def test_a_report_without_its_chart_library_says_what_to_install(tmp_path: Path) -> None:
    shutil.copytree(ROOT / "python" / "vorlen", tmp_path / "vorlen", ignore=shutil.ignore_patterns("__pycache__"))
    vorlen.run(V_DEFECTS, tmp_path / "r.txt")
    done = subprocess.run(
        [sys.executable, "-B", "-m", "vorlen", "report", "r.txt"],
        cwd=tmp_path, capture_output=True, text=True, check=False, env=os.environ | {"PYTHONPATH": str(tmp_path)},
    )
    assert done.returncode == 1 and "Traceback" not in done.stderr
    assert "apt-get install python3-plotly esbuild" in done.stderr and "assets/plotly.min.js" in done.stderr
    assert not (tmp_path / "r.html").exists()
