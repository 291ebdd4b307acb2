"""Files of targets: YAML, with messages for the mistakes that a person makes in it."""

from __future__ import annotations

import re
from typing import Any

from .._base.files import as_path, read_file
from .._base.types import PathLike

# [0.02, 0.6] sccm, which is not YAML but easily understood
_NUMBER = r"\s*([-+]?[\d.]+(?:[eE][-+]?\d+)?)\s*"
_UNIT_AFTER_BRACKET = re.compile(rf"\[{_NUMBER},{_NUMBER}\]\s*(?=[A-Za-z%\u00b0\u00b5\u03bc])")
_QUOTED_OR_COMMENT = re.compile(r"""("[^"]*"|'[^']*'|(?:^|\s)#.*)""")

_KINDS: dict[type, str] = {list: "a list", str: "a text"}


def without_brackets(text: str) -> str:
    """The text with [0.02, 0.6] sccm written as 0.02 .. 0.6 sccm."""
    return _UNIT_AFTER_BRACKET.sub(r"\1 .. \2 ", text)


def read_targets_file(path: PathLike) -> Any:
    """The content of a file of targets.

    Raises ImportError without PyYAML, OSError if the file can't be read, ValueError with the place of a mistake.
    """
    try:
        import yaml
    except ImportError as error:
        raise ImportError("files of targets need PyYAML: install python3-yaml (Debian) or pyyaml (pip)") from error

    place = as_path(path, "targets")
    try:
        text = read_file(place).decode("utf-8-sig")
    except UnicodeDecodeError as error:
        raise ValueError(f"{place} is not UTF-8: {error}") from error
    try:
        content = yaml.load(_without_brackets(text), _loader())
    except yaml.YAMLError as error:
        mark = getattr(error, "problem_mark", None)
        where = f", line {mark.line + 1}, column {mark.column + 1}" if mark is not None else ""
        reason = getattr(error, "problem", None) or str(error)
        raise ValueError(f"{place}{where}: {reason}") from error
    except RecursionError as error:
        raise ValueError(f"{place} is nested too deeply") from error
    if content is None:
        raise ValueError(f"{place} is empty; it needs layers, a list of targets")
    if not isinstance(content, dict):
        raise ValueError(f"{place} must be a mapping with the key layers, not {_KINDS.get(type(content), 'a number')}")
    return content


def _without_brackets(text: str) -> str:
    """The same in a file, where texts in quotes and comments stay."""

    def unquoted(line: str) -> str:
        parts = _QUOTED_OR_COMMENT.split(line)
        parts[::2] = [without_brackets(part) for part in parts[::2]]
        return "".join(parts)

    return "\n".join(unquoted(line) for line in text.split("\n"))


def _loader() -> Any:
    """A safe loader that rejects keys given twice, of which YAML would keep the last, and aliases.

    The words no, off and n are texts, so that they can be names.
    """
    import yaml

    class Loader(yaml.SafeLoader):
        def compose_node(self, parent: Any, index: Any) -> Any:
            events: Any = self
            if events.check_event(yaml.events.AliasEvent):
                mark = events.peek_event().start_mark
                raise yaml.composer.ComposerError(None, None, "aliases are not supported", mark)
            return super().compose_node(parent, index)

    def mapping(loader: Any, node: Any) -> dict[Any, Any]:
        found: dict[Any, Any] = {}
        for key_node, value_node in node.value:
            key = loader.construct_object(key_node, deep=True)
            if not isinstance(key, (str, int, float)):
                raise yaml.constructor.ConstructorError(None, None, "a key must be a text", key_node.start_mark)
            if key in found:
                problem = f"the key {key!r} is given twice"
                raise yaml.constructor.ConstructorError(None, None, problem, key_node.start_mark)
            found[key] = loader.construct_object(value_node, deep=True)
        return found

    Loader.add_constructor(yaml.resolver.BaseResolver.DEFAULT_MAPPING_TAG, mapping)
    Loader.yaml_implicit_resolvers = {
        letter: [(tag, pattern) for tag, pattern in resolvers if tag == "tag:yaml.org,2002:null" or _is_number(tag)]
        for letter, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()
    }
    return Loader


def _is_number(tag: str) -> bool:
    return tag in ("tag:yaml.org,2002:int", "tag:yaml.org,2002:float")
