"""The modules of the package: each can be imported alone, and no import leads back to its module."""

from __future__ import annotations

import ast
import os
import subprocess
import sys
from pathlib import Path

import vorlen

PACKAGE = Path(vorlen.__file__).parent
FILES = {
    ".".join(path.relative_to(PACKAGE).with_suffix("").parts): path
    for path in sorted(PACKAGE.rglob("*.py"))
    if path.stem not in ("__init__", "__main__")
}


def imports_of(name: str) -> set[str]:
    """Modules of this package that a module imports, also within functions and for type checking."""
    found = set()
    for node in ast.walk(ast.parse(FILES[name].read_text("utf-8"))):
        if isinstance(node, ast.ImportFrom) and node.level > 0:
            above = [*name.split(".")[: -node.level], *(node.module.split(".") if node.module else [])]
            found |= {".".join(above), *(".".join([*above, alias.name]) for alias in node.names)}
    return found & set(FILES)


def rooms_of(graph: dict[str, set[str]]) -> dict[str, set[str]]:
    """The same between the folders of the package."""
    rooms: dict[str, set[str]] = {}
    for name, others in graph.items():
        room = name.split(".")[0]
        rooms.setdefault(room, set()).update(other.split(".")[0] for other in others)
    return {room: others - {room} for room, others in rooms.items()}


def cycle_in(graph: dict[str, set[str]]) -> list[str]:
    """The modules of a cycle; empty if there is none."""
    done: set[str] = set()

    def follow(module: str, path: list[str]) -> list[str]:
        if module in path:
            return path[path.index(module) :]
        if module in done:
            return []
        for other in sorted(graph[module]):
            if cycle := follow(other, [*path, module]):
                return cycle
        done.add(module)
        return []

    return next((cycle for module in graph if (cycle := follow(module, []))), [])


def test_no_import_leads_back_to_its_module() -> None:
    graph = {name: imports_of(name) for name in FILES}
    assert sum(map(len, graph.values())) > 50 and {"_recipe.xml_bytes", "_base.files"} <= graph["_recipe.recipe"]
    assert cycle_in(graph) == []


def test_no_import_leads_back_to_its_folder() -> None:
    rooms = rooms_of({name: imports_of(name) for name in FILES})
    assert rooms["_base"] == set() and rooms["_recipe"] == {"_base"}
    assert rooms["_observe"] <= {"_base", "_recipe"}
    assert cycle_in(rooms) == []


def test_a_cycle_is_found() -> None:
    assert cycle_in({"a": {"b"}, "b": {"c"}, "c": {"b"}}) == ["b", "c"]
    assert cycle_in({"a": {"b", "c"}, "b": {"c"}, "c": set()}) == []


def test_each_module_can_be_imported_alone() -> None:
    # Without vorlen/__init__.py, which imports all of them.
    program = """
import importlib, os, sys, types
import numpy, pandas, scipy.optimize  # once for all: these take most of the time
package = types.ModuleType("vorlen")
package.__path__ = [sys.argv[1]]
sys.modules["vorlen"] = package
for name in sys.argv[2:]:
    if os.fork() == 0:
        importlib.import_module(f"vorlen.{name}")
        os._exit(0)
    if os.wait()[1] != 0:
        sys.exit(f"vorlen.{name} can't be imported alone")
"""
    command = [sys.executable, "-c", program, str(PACKAGE), *FILES]
    done = subprocess.run(command, env=os.environ, capture_output=True, text=True, check=False, timeout=300)
    assert done.returncode == 0, done.stderr
