#!/usr/bin/env python3
"""Under the staged scheme all platforms give the same numbers, within its tolerance.

    VORLEN_PLATFORMS="arm64 windows" test_platforms.py

VORLEN_PLATFORMS lists the platforms to compare with the reference, Linux on x86-64. VORLEN_RELEASE is the build for it, by
default build/release. VORLEN_TABLE is a file for the table of the largest differences.
"""
import json
import os
import platform
import re
import tempfile
import unittest

import compare
import differences
import platforms
import recipes

RELEASE = os.environ.get("VORLEN_RELEASE", os.path.join(platforms.SOURCE, "build", "release"))
KNOWN = platforms.known(RELEASE)
CHOSEN = [KNOWN[name] for name in os.environ["VORLEN_PLATFORMS"].split()]
REFERENCE = KNOWN[platforms.REFERENCE]

# The relative tolerance of the scheme. The functions of two mathematics libraries differ in the last bit; the numbers may
# then differ by about the tolerance.
BOUND = 1e-6
# Densities are not integrated: they are the root of the energy balance, which enlarges the errors of what is integrated.
# On the reference they err by up to 8e-5 (compare.py, error of the scheme). So a density may differ by more than the
# tolerance, but not by more than this, in few recipes, and the difference must vanish with the tolerance.
DENSITIES = ("dislocations", "V-defects")
DENSITY_BOUND = 1e-5
MOST_EXCEPTIONS = 3


def has_fma():
    """Whether glibc uses fused multiply-adds on this processor, as it does on ARM."""
    if not os.path.exists("/proc/cpuinfo"):
        return False
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        flags = set(file.read().split())
    return {"fma", "avx2"} <= flags


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name


class Numbers(InAFolder):
    def test_the_staged_scheme_gives_the_same_numbers(self):
        texts = recipes.texts("staged")
        found = compare.compare_all("staged", REFERENCE, CHOSEN, self.folder, texts)
        print(compare.table(found), flush=True)
        if "VORLEN_TABLE" in os.environ:
            with open(os.environ["VORLEN_TABLE"], "w", encoding="utf-8") as file:
                json.dump({one.title: one.record() for one in found}, file, indent=1)
        for other, one in zip(CHOSEN, found):
            with self.subTest(one.title):
                self.assertEqual((one.runs, one.messages, one.failed, one.unphysical), (len(texts), [], [], []))
                large = {(name, quantity): value for quantity, values in one.compared.items()
                         for name, value in values.items() if not value <= BOUND}
                self.assertEqual({key: value for key, value in large.items()
                                  if key[1] not in DENSITIES or not value <= DENSITY_BOUND}, {})
                names = sorted({name for name, _ in large})
                self.assertLessEqual(len(names), MOST_EXCEPTIONS, names)
                self.check_finer(other, {name: recipes.with_scheme(texts[name], "staged", compare.FINE) for name in names})

    def check_finer(self, other, texts):
        """With a hundredth of the tolerance nothing differs by more than the bound."""
        found, = compare.compare_all("staged", REFERENCE, [other], os.path.join(self.folder, "finer_" + other.name), texts)
        for quantity in found.compared:
            self.assertLessEqual(found.largest(quantity)[0], BOUND, quantity)


# Values in places of a recipe where they reach sums, powers, comparisons and conversions to integers.
ODD_VALUES = ("nan", "-inf", "1e308", "-0", "1e-310", "4e9")
ODD_PLACES = ('<tau val="', '<T val="', '<P val="', '<Kd_In A="', '<Kd_Ga A="1e13" Ta="', '<TEGa val="', '<n_stages val="')


def odd_recipes():
    """One value of a good recipe is replaced by an unusual one."""
    text = recipes.plausible.recipe("thick", True, 0, recipes.SEED, "staged")
    found = {}
    for place in ODD_PLACES:
        for value in ODD_VALUES:
            changed, count = re.subn(f'({re.escape(place)})[^"]*', rf"\g<1>{value}", text, count=1)
            assert count == 1, place
            found[f"odd_{len(found)}"] = changed
    return found


class Bytes(InAFolder):
    """Where the mathematics libraries compute alike."""

    def assert_same(self, texts, one, other):
        runs = compare.run_all([one, other], self.folder, recipes.write(os.path.join(self.folder, "recipes"), texts))
        found = [name for name in texts if runs[one.name][name]["message"] != runs[other.name][name]["message"]]
        self.assertEqual(found, [], "messages")
        contents = [[os.path.join(self.folder, side.name, name + ".txt") for side in (one, other)] for name in texts]
        for paths in contents:
            existing = [os.path.exists(path) for path in paths]
            self.assertEqual(existing[0], existing[1], paths[0])
            if existing[0]:
                self.assertTrue(differences.same_text(*paths), paths[0])
        return [run["message"] for run in runs[one.name].values()]

    def chosen(self, name):
        if name not in (one.name for one in CHOSEN):
            self.skipTest(f"{name} is not chosen")
        return KNOWN[name]

    @unittest.skipUnless(has_fma(), "the functions of glibc round differently on this processor")
    def test_arm64_gives_the_bytes_of_x86_64(self):
        arm64 = self.chosen("arm64")
        texts = recipes.texts("staged", 3)
        texts.update((name + "_continuous", text) for name, text in recipes.texts("continuous", 0).items())
        self.assert_same(texts, REFERENCE, arm64)

    @unittest.skipUnless(has_fma(), "the functions of glibc round differently on this processor")
    def test_odd_numbers_do_the_same_on_arm64(self):
        messages = self.assert_same(odd_recipes(), REFERENCE, self.chosen("arm64"))
        self.assertGreater(len(set(messages)), 3)

    @unittest.skipUnless(platform.machine() == "x86_64" and platform.libc_ver()[0] == "glibc", "another C library")
    def test_without_relaxation_webassembly_gives_the_bytes_of_x86_64_without_fma(self):
        wasm = self.chosen("wasm")
        texts = {name: text for name, text in recipes.texts("staged").items() if re.match(r"[a-z]+_0_", name)}
        self.assertEqual(len(texts), 4 * recipes.COUNT)
        self.assert_same(texts, KNOWN["linux-without-fma"], wasm)


if __name__ == "__main__":
    unittest.main()
