"""vorlen.wasm agrees with the library, and survives hostile recipes."""
import os
import platform
import sys
import tempfile
import unittest

SOURCE = os.environ["VORLEN_SOURCE"]
LIBRARY = os.environ["VORLEN_LIBRARY"]
MODULE = os.environ["VORLEN_WASM"]
sys.path.insert(0, os.path.join(SOURCE, "tests", "plausible"))

import module_runs  # noqa: E402
import plausible  # noqa: E402

COUNT = 25  # random recipes of each family and stress model: 200
# The staged scheme integrates to a relative tolerance of 1e-6, and the functions of the two mathematics libraries differ
# in the last bit. What the two programs compute may then differ by about that tolerance.
BOUND = 1e-6
LEAST_SHARE = 0.05  # of rows with equal times; each stage has some


def example_recipes():
    folder = os.path.join(SOURCE, "examples")
    return sorted(os.path.join(folder, name) for name in os.listdir(folder) if name.endswith(".xml"))


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        for name in ("native", "module"):
            os.mkdir(os.path.join(self.folder, name))

    def write(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def results(self, run):
        return [os.path.join(self.folder, place, run["name"] + ".txt") for place in ("native", "module")]

    def run_both(self, recipes, **environment):
        native = module_runs.run_native(LIBRARY, os.path.join(self.folder, "native"), recipes, **environment)
        module = module_runs.run_module(MODULE, os.path.join(self.folder, "module"), recipes)
        self.assertEqual([run["name"] for run in native], [run["name"] for run in module])
        return list(zip(native, module))


class Agreement(InAFolder):
    def random_recipes(self, stresses):
        return [self.write(f"{family}_{int(stress)}_{number}.xml",
                           plausible.recipe(family, stress, number, "live", "staged"))
                for family in plausible.FAMILIES for stress in stresses for number in range(COUNT)]

    def test_examples_and_random_recipes_agree(self):
        largest = {}
        for native, module in self.run_both(example_recipes() + self.random_recipes((False, True))):
            with self.subTest(native["name"]):
                self.assertEqual((native["message"], module["message"], module["status"]), ("", "", "ok"))
                layers, depth, rows, share = module_runs.differences(*self.results(native))
                for what, value in (("layers", layers), ("depth", depth), ("rows", rows)):
                    largest[what] = max(largest.get(what, (0.0, "")), (float(value), native["name"]))
                    self.assertLessEqual(value, BOUND, what)
                self.assertGreater(share, LEAST_SHARE)
        print("largest differences:", largest)

    @unittest.skipUnless(platform.machine() == "x86_64" and platform.libc_ver()[0] == "glibc", "another C library")
    def test_without_relaxation_the_bytes_are_the_same_if_the_c_library_rounds_alike(self):
        runs = self.run_both(self.random_recipes((False,)), **module_runs.WITHOUT_FMA)
        different = []
        for native, _ in runs:
            contents = []
            for path in self.results(native):
                with open(path, "rb") as file:
                    contents.append(file.read())
            if contents[0] != contents[1]:
                different.append(native["name"])
        self.assertEqual(different, [])


def deep(levels):
    return "<a>" * levels + "</a>" * levels


HOSTILE = {
    "empty": "",
    "blank": " \n" * 1000,
    "binary": bytes(range(256)) * 100,
    "zeros": b"\0" * 100000,
    "utf16": '<?xml version="1.0" encoding="UTF-16"?><NonstSurfChem/>'.encode("utf-16"),
    "cut_utf8": b"<NonstSurfChem \xf0",
    "entities": ('<?xml version="1.0"?><!DOCTYPE b [<!ENTITY a "aaaaaaaaaa">'
                 + "".join(f'<!ENTITY {chr(98 + k)} "{("&" + chr(97 + k) + ";") * 10}">' for k in range(20))
                 + "]><NonstSurfChem>&u;</NonstSurfChem>"),
    "deep": deep(1000000),
    "deep_100": deep(100),
    "deep_101": deep(101),
    "attributes": "<a " + " ".join(f'b{k}="1"' for k in range(100000)) + "/>",
    "long_name": "<" + "a" * 10000000 + "/>",
    "too_large": b"<a>" + b" " * (64 << 20),
    "no_root": "<?xml version='1.0'?>",
}


class Hostile(InAFolder):
    """One instance of the module runs all recipes, so each is followed by others that must run."""

    def changed(self, name, old, new):
        with open(os.path.join(SOURCE, "examples", "ingan_gan_mqw.xml"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        return self.write(name + ".xml", text.replace(old, new))

    def test_the_texts_are_those_of_the_library(self):
        recipes = [self.write(name + ".xml", content) for name, content in HOSTILE.items()]
        recipes += [self.changed("nan", '<tau val="', '<tau val="nan'), self.changed("minus", '<tau val="', '<tau val="-'),
                    self.changed("root", "NonstSurfChem", "Recipe")]
        recipes.append(example_recipes()[0])
        runs = self.run_both(recipes)
        for native, module in runs[:-1]:
            with self.subTest(native["name"]):
                self.assertNotEqual(native["message"], "")
                self.assertEqual(module["message"], native["message"].rstrip("\n"))
                # A time of NaN is a number to the reader; the integration fails.
                self.assertEqual(module["status"], "failed" if native["name"] == "nan" else "rejected")
        self.assertEqual(runs[-1][1]["status"], "ok")


if __name__ == "__main__":
    unittest.main()
