"""Suggestions for misspelt options and values of the commands that are written in Python."""

from __future__ import annotations

import pytest

from vorlen.__main__ import main


@pytest.mark.parametrize(
    ("arguments", "error"),
    [
        (
            "sweep plan.json --wrokers 4",
            "vorlen sweep: error: unrecognized arguments: --wrokers 4\n--wrokers: did you mean --workers?",
        ),
        (
            "sweep --wrokers=4",
            "vorlen sweep: error: the following arguments are required: RECIPE|PLAN\n--wrokers: did you mean --workers?",
        ),
        (
            "report a.txt --recpie b.xml",
            "vorlen report: error: unrecognized arguments: --recpie b.xml\n--recpie: did you mean --recipe?",
        ),
        ("sweep plan.json --colour", "vorlen sweep: error: unrecognized arguments: --colour"),
        # An abbreviation is not a mistake.
        ("sweep plan.json --worker=none", "the number of workers must be a positive integer, got 'none'"),
        ("sweep plan.json --scheme stagged", "(choose from 'continuous', 'staged')\nstagged: did you mean staged?"),
        ("sweep plan.json --scheme quick", "(choose from 'continuous', 'staged')"),
        ("sweep plan.json -- --wrokers", "vorlen sweep: error: unrecognized arguments: --wrokers"),
        ("swep plan.json", "\nswep: did you mean sweep?"),
        ("--verison", "\n--verison: did you mean --version?"),
    ],
)
def test_a_misspelt_word_is_an_error_with_a_suggestion(arguments, error, capsys):
    with pytest.raises(SystemExit) as ended:
        main(arguments.split())
    assert ended.value.code == 2
    shown = capsys.readouterr()
    assert shown.out == ""
    assert shown.err.startswith("usage: vorlen ")
    assert shown.err.endswith(error + "\n")


def test_the_words_of_the_process_are_those_of_the_command_line(monkeypatch, capsys):
    monkeypatch.setattr("sys.argv", ["vorlen", "sweep", "plan.json", "--cuont"])
    with pytest.raises(SystemExit):
        main()
    assert capsys.readouterr().err.endswith("\n--cuont: did you mean --count?\n")
