#!/usr/bin/env python3
"""Runs recipes through several builds of the library and compares the result files byte for byte.

    same_bytes.py LIBRARY LIBRARY... [--staged] -- RECIPE...

--staged: each recipe without the element integration is run under the staged scheme as well. Exit status 0 when all runs end normally and each recipe gives the same file from every library.
"""
import ctypes
import os
import subprocess
import sys
import tempfile

BUFFER_SIZE = 2048


def run_all(library, folder, recipes):
    """Runs in a separate process: with two libraries in one process, one might use the symbols of the other."""
    run = ctypes.CDLL(library).runSurfChem
    run.restype = ctypes.c_int32
    run.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p]
    for number, recipe in enumerate(recipes):
        text = ctypes.create_string_buffer(BUFFER_SIZE)
        if run(os.fsencode(recipe), os.fsencode(os.path.join(folder, str(number))), text) != 0:
            sys.exit(f"{library}: {recipe}: {text.value.decode(errors='replace')}")


def first_difference(a, b):
    lines_a, lines_b = a.split(b"\n"), b.split(b"\n")
    for number, (line_a, line_b) in enumerate(zip(lines_a, lines_b), 1):
        if line_a != line_b:
            return f"line {number}:\n  {line_a.decode(errors='replace')}\n  {line_b.decode(errors='replace')}"
    return f"{len(lines_a)} and {len(lines_b)} lines"


def staged_copies(recipes, folder):
    """Writes copies of the recipes without a scheme, with the staged one, to the folder. Returns their paths."""
    copies = []
    for recipe in recipes:
        with open(recipe, "rb") as file:
            text = file.read()
        if b"<integration" in text or b"</NonstSurfChem>" not in text:
            continue
        copies.append(os.path.join(folder, f"staged_{len(copies)}_{os.path.basename(recipe)}"))
        with open(copies[-1], "wb") as file:
            file.write(text.replace(b"</NonstSurfChem>",
                                    b'<integration><scheme val="staged"/></integration></NonstSurfChem>'))
    return copies


def main(arguments):
    if "--" not in arguments:
        sys.exit(__doc__)
    middle = arguments.index("--")
    libraries = [os.path.abspath(path) for path in arguments[:middle] if path != "--staged"]
    recipes = arguments[middle + 1:]
    if len(libraries) < 2 or not recipes:
        sys.exit(__doc__)

    with tempfile.TemporaryDirectory() as scratch:
        if "--staged" in arguments[:middle]:
            recipes += staged_copies(recipes, scratch)
        folders = []
        for number, library in enumerate(libraries):
            folders.append(os.path.join(scratch, str(number)))
            os.mkdir(folders[-1])
            command = [sys.executable, "-B", os.path.abspath(__file__), "--run", library, folders[-1], *recipes]
            if subprocess.run(command, check=False).returncode != 0:
                return 1
        status = 0
        for number, recipe in enumerate(recipes):
            contents = []
            for folder in folders:
                with open(os.path.join(folder, str(number)), "rb") as file:
                    contents.append(file.read())
            name = os.path.basename(recipe)
            for library, content in zip(libraries[1:], contents[1:]):
                if content != contents[0]:
                    status = 1
                    print(f"{name}: {libraries[0]} and {library} differ, {first_difference(contents[0], content)}")
            if all(content == contents[0] for content in contents):
                print(f"{name}: {len(contents[0])} bytes, the same from {len(libraries)} libraries")
    return status


if __name__ == "__main__":
    if sys.argv[1:2] == ["--run"]:
        run_all(sys.argv[2], sys.argv[3], sys.argv[4:])
    else:
        sys.exit(main(sys.argv[1:]))
