"""The recipes that all platforms run: the examples, the reference recipes and random ones, under one scheme."""
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(SOURCE, "tests", "plausible"))

import plausible  # noqa: E402

SCHEMES = ("staged", "continuous")
SEED = "live"
COUNT = 25  # random recipes of each family and stress model: 200
END = "</NonstSurfChem>"


def with_scheme(text, scheme, tolerance=None):
    """The text of a recipe with another scheme and tolerance."""
    text, count = re.subn(r"<integration>.*?</integration>\s*", "", text, flags=re.DOTALL)
    assert count <= 1 and text.count(END) == 1
    of_tolerance = f'<tolerance val="{tolerance:g}"/>' if tolerance else ""
    return text.replace(END, f'<integration><scheme val="{scheme}"/>{of_tolerance}</integration>{END}')


def stored():
    """Paths of the examples and the reference recipes, by the name of their copies."""
    paths = {}
    for prefix, folder in (("example", "examples"), ("reference", "tests/data/recipes")):
        folder = os.path.join(SOURCE, folder)
        for file in sorted(os.listdir(folder)):
            if file.endswith(".xml"):
                paths[f"{prefix}_{file[:-len('.xml')]}"] = os.path.join(folder, file)
    return paths


def texts(scheme, count=COUNT):
    """The texts of all recipes by name. count: random ones of each family and stress model."""
    recipes = {}
    for name, path in stored().items():
        with open(path, encoding="utf-8") as file:
            recipes[name] = with_scheme(file.read(), scheme)
    for family in plausible.FAMILIES:
        for stress in (False, True):
            for number in range(count):
                recipes[f"{family}_{int(stress)}_{number:04d}"] = plausible.recipe(family, stress, number, SEED, scheme)
    return recipes


def write(folder, recipes):
    """Writes the recipes, a dictionary of texts by name, to a folder. Returns their paths."""
    os.makedirs(folder, exist_ok=True)
    paths = []
    for name, text in recipes.items():
        paths.append(os.path.join(folder, name + ".xml"))
        with open(paths[-1], "w", encoding="utf-8") as file:
            file.write(text)
    return paths
