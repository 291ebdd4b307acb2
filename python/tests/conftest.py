"""Fixtures shared by the tests."""

from __future__ import annotations

import subprocess
from collections.abc import Iterator
from pathlib import Path
from typing import TYPE_CHECKING

import pytest

import vorlen
from vorlen._base import library as _library

if TYPE_CHECKING:
    from browser import Browser
    from live import Live

ROOT = Path(__file__).resolve().parents[2]


def pytest_configure(config: pytest.Config) -> None:
    """Many tests use odd recipes. Tests of clean ones make the warning an error."""
    config.addinivalue_line("filterwarnings", "ignore::vorlen.RecipeWarning")


@pytest.fixture(scope="session")
def examples() -> Path:
    """The folder of the example recipes."""
    return ROOT / "examples"


@pytest.fixture(scope="session")
def layer(examples: Path) -> Path:
    """A recipe of one InGaN layer that runs within milliseconds."""
    return examples / "notebooks" / "ingan_layer.xml"


@pytest.fixture(scope="session")
def browser() -> Iterator[Browser]:
    """One browser window for all tests of pages."""
    from browser import Browser

    browser = Browser()
    yield browser
    browser.close()


@pytest.fixture(scope="session")
def wells_page(browser: Browser, tmp_path_factory: pytest.TempPathFactory) -> Live:
    """One live page with the recipe of quantum wells for all tests of it."""
    from live import Live, write_page
    from support import MQW

    return Live(browser, write_page(tmp_path_factory.mktemp("live") / "wells.html", MQW))


@pytest.fixture
def live(wells_page: Live) -> Iterator[Live]:
    """The live page with the recipe of wells, its table, and the units of the recipe, in a window of 1440 pixels."""
    wells_page.make_ready()
    yield wells_page
    assert wells_page.browser.console() == []


@pytest.fixture
def whole_depth(live: Live) -> None:
    """The right half of the live page is over the whole depth, without kept variants."""
    from live_growth import over_depth

    over_depth(live)


@pytest.fixture(scope="session")
def wells() -> vorlen.Run:
    """The result of the recipe of the live page."""
    from support import MQW

    return vorlen.run(MQW)


@pytest.fixture(scope="session")
def defects() -> vorlen.Run:
    """A result with V-defects."""
    from support import V_DEFECTS

    return vorlen.run(V_DEFECTS)


@pytest.fixture
def faulty_library(tmp_path_factory: pytest.TempPathFactory, monkeypatch: pytest.MonkeyPatch) -> None:
    """Worker processes use a library that crashes, hangs or exits at certain pressures."""
    library = tmp_path_factory.mktemp("library") / "libFaulty.so"
    source = Path(__file__).with_name("faulty_library.c")
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source, "-ldl"], check=True)
    monkeypatch.setenv("TEST_REAL_LIBRARY", _library.find_library())
    monkeypatch.setenv("VORLEN_LIBRARY", str(library))
