"""The names of stages and layers in texts, and where a run ended."""

from __future__ import annotations

import pytest

import vorlen
from support import result, row


@pytest.mark.parametrize(
    ("name", "shown"),
    [
        ("a\x01b\x1fc", "a b c"),  # the first and the last control character, which a result file may contain
        ("a\x7fb", "a b"),
        ("a~b", "a~b"),
        ("a!b", "a!b"),  # the first character after the blank
        ("a\x80b", "a\x80b"),
        ("\u00e9" * 50, "\u00e9" * 50),  # 100 bytes
    ],
)
def test_control_characters_of_names_are_blanks_in_texts(name: str, shown: str) -> None:
    run = vorlen.Run(result([(name, 10, 10)], [row(time=0, z=0, x_in=2), row(time=10, z=10)]).encode())
    assert f" in layer 1 ({shown}): " in run.unphysical


def test_a_name_of_more_than_100_bytes_is_left_out() -> None:
    name = "\u00e9" * 50 + "e"
    run = vorlen.Run(result([(name, 10, 10)], [row(time=0, z=0, x_in=2), row(time=10, z=10)]).encode())
    assert " in layer 1: " in run.unphysical
