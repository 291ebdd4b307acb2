"""The modules of the package: each can be imported alone, and no import leads back to its module."""

from __future__ import annotations

import ast
import os
import subprocess
import sys
from pathlib import Path

import vorlen

PACKAGE = Path(vorlen.__file__).parent
MODULES = sorted(path.stem for path in PACKAGE.glob("*.py") if path.stem not in ("__init__", "__main__"))


def imports_of(path: Path) -> set[str]:
    """Modules of this package that a module imports, also within functions and for type checking."""
    found = set()
    for node in ast.walk(ast.parse(path.read_text("utf-8"))):
        if isinstance(node, ast.ImportFrom) and node.level == 1:
            found |= {alias.name for alias in node.names} if node.module is None else {node.module.split(".")[0]}
    return found & set(MODULES)


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
    graph = {name: imports_of(PACKAGE / f"{name}.py") for name in MODULES}
    assert sum(map(len, graph.values())) > 50 and "_xml_bytes" in graph["_recipe"]
    assert cycle_in(graph) == []


def test_a_cycle_is_found() -> None:
    assert cycle_in({"a": {"b"}, "b": {"c"}, "c": {"b"}}) == ["b", "c"]
    assert cycle_in({"a": {"b", "c"}, "b": {"c"}, "c": set()}) == []


def test_each_module_can_be_imported_alone() -> None:
    # Without vorlen/__init__.py, which imports all of them.
    program = """
import importlib, os, sys, types
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
    command = [sys.executable, "-c", program, str(PACKAGE), *MODULES]
    done = subprocess.run(command, env=os.environ, capture_output=True, text=True, check=False, timeout=300)
    assert done.returncode == 0, done.stderr
