"""The parser of command lines: a message about a misspelt option or value suggests the right one."""

from __future__ import annotations

import argparse
import difflib
import sys
from collections.abc import Sequence
from itertools import takewhile
from typing import Any, NoReturn


def _suggestion(word: str, candidates: Sequence[str], dashes: str = "") -> str:
    """A line that suggests the candidate nearest to the word; empty if none is close. dashes: shown before both."""
    nearest = difflib.get_close_matches(word, candidates, n=1)
    return f"\n{dashes}{word}: did you mean {dashes}{nearest[0]}?" if nearest else ""


class Parser(argparse.ArgumentParser):
    """Subcommands that are added to a parser of this class have this class too."""

    _words: Sequence[str] = ()

    # Also called for the command line of a subcommand, which would leave unknown options to the parser above.
    def parse_known_args(self, args: Any = None, namespace: Any = None) -> Any:
        self._words = sys.argv[1:] if args is None else list(args)
        options, others = super().parse_known_args(self._words, namespace)
        if others:
            self.error("unrecognized arguments: " + " ".join(others))
        return options, others

    def _check_value(self, action: argparse.Action, value: Any) -> None:
        try:
            super()._check_value(action, value)
        except argparse.ArgumentError as error:
            error.message += _suggestion(str(value), [str(choice) for choice in action.choices or ()])
            raise

    def error(self, message: str) -> NoReturn:
        """Prints the usage and the message, with suggestions for unknown options, and ends with status 2."""
        names = [name[2:] for name in self._option_string_actions if name.startswith("--")]
        for word in takewhile(lambda word: word != "--", self._words):
            name = word[2:].partition("=")[0]
            if word.startswith("--") and not any(known.startswith(name) for known in names):
                message += _suggestion(name, names, dashes="--")
        for word, before in zip(self._words[1:], self._words):
            if "targets" in names and word.endswith((".yaml", ".yml")) and not before.startswith("-"):
                message += f"\n{word}: a file of targets belongs after --targets"
        super().error(message)
