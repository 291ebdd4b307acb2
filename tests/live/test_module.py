"""vorlen.wasm survives hostile recipes, with the texts of the library. tests/numbers compares its numbers."""
import os
import sys
import tempfile
import unittest

SOURCE = os.environ["VORLEN_SOURCE"]
BUILD = os.environ["VORLEN_BUILD"]
sys.path.insert(0, os.path.join(SOURCE, "tests", "numbers"))

import platforms  # noqa: E402


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


class Hostile(unittest.TestCase):
    """One instance of the module runs all recipes, so each is followed by others that must run."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def write(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def changed(self, name, old, new):
        with open(os.path.join(SOURCE, "examples", "ingan_gan_mqw.xml"), encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        return self.write(name + ".xml", text.replace(old, new))

    def test_the_texts_are_those_of_the_library(self):
        recipes = [self.write(name + ".xml", content) for name, content in HOSTILE.items()]
        recipes += [self.changed("nan", '<tau val="', '<tau val="nan'), self.changed("minus", '<tau val="', '<tau val="-'),
                    self.changed("root", "NonstSurfChem", "Recipe")]
        recipes.append(os.path.join(SOURCE, "examples", "ingan_gan_mqw.xml"))
        known = platforms.known(BUILD)
        runs = list(zip(*(known[name].run(os.path.join(self.folder, name), recipes)
                          for name in (platforms.REFERENCE, "wasm"))))
        for native, module in runs[:-1]:
            with self.subTest(native["name"]):
                self.assertEqual(module["name"], native["name"])
                self.assertNotEqual(native["message"], "")
                self.assertEqual(module["message"], native["message"].rstrip("\n"))
                # A time of NaN is a number to the reader; the integration fails.
                self.assertEqual(module["status"], "failed" if native["name"] == "nan" else "rejected")
        self.assertEqual(runs[-1][1]["status"], "ok")


if __name__ == "__main__":
    unittest.main()
