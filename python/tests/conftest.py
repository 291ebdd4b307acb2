"""Fixtures shared by the tests."""

from __future__ import annotations

from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="session")
def examples() -> Path:
    """The folder of the example recipes."""
    return ROOT / "examples"
