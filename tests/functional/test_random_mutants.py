"""tests/mutation/random_mutants.py: which changes it makes in small files, and a whole run on a small tree."""
import os
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ["VORLEN_SOURCE"]
FOLDER = os.path.join(SOURCE, "tests", "mutation")
sys.path.insert(0, FOLDER)

import mutant  # noqa: E402
import mutate_cpp  # noqa: E402
import mutate_python  # noqa: E402
import random_mutants  # noqa: E402

PYTHON = '''"""A docstring with 1 < 2 and a name."""
from __future__ import annotations


def inside(x: float = 2, *, key: str = "column") -> bool:
    """True and 3."""
    if not 0 < x and key != "two words":  # 4 < 5
        return max(x, 1) - 6
    return True
'''

CPP = '''// a < b and 1
#include <array>
#define LIMIT 7
static const char* NAME = "--option";
/* 3 > 2 */
std::array<double, 2> values(const double* x, bool&& flag) {
  if (x[0] <= 1.5e-3 && !flag) throw Error("two words");
  sum(x[0], 2) ;
  return {a + b, -c};
}
'''


def pairs(mutants, source):
    """(kind, old, new) of each change."""
    return [(each.kind, source[each.start:each.end].decode(), each.new) for each in mutants]


class PythonMutants(unittest.TestCase):

    def setUp(self):
        self.source = PYTHON.encode()
        self.mutants = mutate_python.mutants_of("toy.py", self.source)
        self.pairs = pairs(self.mutants, self.source)

    def test_each_kind_of_change_is_made(self):
        for pair in (("comparison", "<", "<="), ("comparison", "<", ">="), ("comparison", "!=", "=="),
                     ("and/or", "and", "or"), ("removed operator", "not ", ""), ("arithmetic", "-", "+"),
                     ("constant", "6", "7"), ("constant", "6", "5"), ("constant", "6", "(-6)"),
                     ("constant", "2", "3"), ("constant", "True", "False"), ("name", '"column"', '"column_x"'),
                     ("swapped arguments", "x, 1", "1, x"), ("early return", "return True", "return None"),
                     ("negated condition", 'not 0 < x and key != "two words"',
                      'not (not 0 < x and key != "two words")')):
            self.assertIn(pair, self.pairs)

    def test_wordings_docstrings_annotations_imports_and_comments_stay(self):
        for each in self.mutants:
            line = self.source.splitlines()[each.line(self.source) - 1].decode()
            self.assertNotIn('"""', line)
            self.assertNotIn("import", line)
            self.assertNotIn("4 < 5", self.source[each.start:each.end].decode())
        self.assertFalse([pair for pair in self.pairs if "two words_x" in pair[2]])
        self.assertFalse([pair for pair in self.pairs if pair[1] in ("float", "str", "bool", "-> bool")])

    def test_each_change_gives_another_syntax_tree(self):
        for each in self.mutants:
            self.assertTrue(mutate_python.is_other(self.source, each.apply(self.source)), each)
        self.assertFalse(mutate_python.is_other(self.source, self.source + b"# only a comment\n"))
        self.assertFalse(mutate_python.is_other(self.source, self.source + b"if\n"))

    def test_a_place_after_letters_of_several_bytes_is_found(self):
        source = 'text = "°Ωé"; count = 3\n'.encode()
        self.assertIn(("constant", "3", "4"), pairs(mutate_python.mutants_of("toy.py", source), source))


class CppMutants(unittest.TestCase):

    def setUp(self):
        self.source = CPP.encode()
        self.pairs = pairs(mutate_cpp.mutants_of("toy.cpp", self.source), self.source)

    def test_each_kind_of_change_is_made(self):
        for pair in (("operator", "<=", "<"), ("operator", "<=", ">"), ("and/or", "&&", "||"),
                     ("removed operator", "!", ""), ("removed operator", "-", ""), ("operator", "+", "-"),
                     ("constant", "1.5e-3", "1.6e-3"), ("constant", "1.5e-3", "-1.5e-3"), ("constant", "2", "3"),
                     ("name", '"--option"', '"--option_x"'), ("swapped arguments", "x[0], 2", "2, x[0]"),
                     ("removed statement", "sum(x[0], 2) ;", ""), ("early return", "sum(x[0], 2) ;", "return {};"),
                     ("negated condition", "x[0] <= 1.5e-3 && !flag", "!(x[0] <= 1.5e-3 && !flag)")):
            self.assertIn(pair, self.pairs)

    def test_comments_directives_types_and_wordings_stay(self):
        self.assertFalse([pair for pair in self.pairs if pair[1] in ("<", ">", "*", "7", '"two words"')])
        # The && of the reference, the * of the pointer and the < of the template have no blank before them.
        self.assertEqual(sum(pair[1] == "&&" for pair in self.pairs), 1)

    def test_no_declaration_is_removed(self):
        source = b"void f() {\n  std::string names;\n  int n = 3;\n  names = g(n);\n}\n"
        removed = [pair[1] for pair in pairs(mutate_cpp.mutants_of("toy.cpp", source), source)
                   if pair[0] == "removed statement"]
        self.assertEqual(removed, ["names = g(n);"])
        self.assertIn(("early return", "names = g(n);", "return;"),
                      pairs(mutate_cpp.mutants_of("toy.cpp", source), source))

    def test_a_place_after_letters_of_several_bytes_is_found(self):
        source = 'int f() {\n  // °Ω\n  return 3;\n}\n'.encode()
        self.assertIn(("constant", "3", "4"), pairs(mutate_cpp.mutants_of("toy.cpp", source), source))


class Tree(unittest.TestCase):
    """A package of one module. Its test notices each change of limit, and none of unused."""

    MODULE = "def limit(x):\n    return x < 3\n\n\ndef unused(x):\n    return x * 5\n"
    TEST = "from vorlen import toy\n\n\ndef test_limit():\n    assert [toy.limit(x) for x in (2, 3, 4)] == " \
           "[True, False, False]\n    assert not toy.limit(2.5) is False\n    assert toy.limit(-4)\n"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = folder.name
        for name, text in (("python/vorlen/__init__.py", ""), ("python/vorlen/toy.py", self.MODULE),
                           ("python/tests/test_toy.py", self.TEST),
                           ("python/pyproject.toml", "[tool.pytest.ini_options]\npythonpath = [\".\"]\n")):
            path = os.path.join(self.root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)

    def mutants(self, seed):
        return random_mutants.candidates(self.root, "python", "*", seed)

    def run_script(self, *options):
        return subprocess.run([sys.executable, "-B", os.path.join(FOLDER, "random_mutants.py"), "python", "--root",
                               self.root, *options], capture_output=True, encoding="utf-8", check=False)

    def test_the_same_seed_gives_the_same_mutants(self):
        self.assertEqual(self.mutants(3), self.mutants(3))
        self.assertGreater(len({tuple(self.mutants(seed)) for seed in range(20)}), 1)
        self.assertEqual({each.line(self.MODULE.encode()) for each in self.mutants(3)}, {2, 6})

    def test_a_glob_selects_files(self):
        self.assertEqual(random_mutants.candidates(self.root, "python", "*/other.py", 1), [])

    def test_survivors_are_listed_and_counted_and_the_tree_stays_as_it_is(self):
        for jobs in ("1", "2"):
            with self.subTest(jobs=jobs):
                run = self.run_script("--seed", "1", "--count", "2", "--jobs", jobs)
                self.assertEqual(run.returncode, 1, run.stdout + run.stderr)
                self.assertTrue(run.stdout.startswith("seed 1\n"))
                self.assertIn("python/vorlen/toy.py:2 ", run.stdout)  # noticed
                self.assertRegex(run.stdout, r"\npython/vorlen/toy.py:6 \(.*\)\n- return x \* 5\n\+ ")
                self.assertTrue(run.stdout.endswith("\n1 of 2 noticed (50 %)\n"), run.stdout)
        with open(os.path.join(self.root, "python/vorlen/toy.py"), encoding="utf-8") as file:
            self.assertEqual(file.read(), self.MODULE)

    def test_a_hang_counts_as_noticed(self):
        with open(os.path.join(self.root, "python/vorlen/toy.py"), "w", encoding="utf-8") as file:
            file.write("def limit(x):\n    while not (x == x):\n        x = x\n    return x < 3\n")
        tree = random_mutants.PythonTree(os.path.join(self.root, "copy"), self.root)
        with open(os.path.join(tree.folder, "python/vorlen/toy.py"), "w", encoding="utf-8") as file:
            file.write("def limit(x):\n    while x == x:\n        x = x\n    return x < 3\n")
        self.assertRaises(subprocess.TimeoutExpired, tree.failure, "test_toy", 5)

    def test_a_case_that_fails_without_a_change_does_not_leave_out_its_file(self):
        path = os.path.join(self.root, "python/tests/test_toy.py")
        with open(path, "a", encoding="utf-8") as file:
            file.write("\n\nimport pytest\n\n\n@pytest.mark.parametrize('x', [1, 2], ids=['a - b', 'c'])\n"
                       "def test_fails(x):\n    assert x == 2\n")
        run = self.run_script("--seed", "1", "--count", "2")
        self.assertIn("test_toy: left out 1 cases that fail without any change, ['tests/test_toy.py::test_fails[a']",
                      run.stdout)
        self.assertTrue(run.stdout.endswith("\n1 of 2 noticed (50 %)\n"), run.stdout)

    def test_the_other_tests_try_the_survivors(self):
        with open(os.path.join(self.root, "python/tests/test_other.py"), "w", encoding="utf-8") as file:
            file.write("from vorlen import toy\n\n\ndef test_unused():\n    assert toy.unused(3) == 15\n")
        run = self.run_script("--seed", "1", "--count", "2")
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)
        first, _, then = run.stdout.partition("the other tests try 1 survivors\n")
        self.assertRegex(first, r"\nsurvives in .*toy.py:6 ")
        self.assertRegex(then, r"noticed in .*toy.py:6 .*test_other.py::test_unused")
        self.assertTrue(then.endswith("\n2 of 2 noticed (100 %)\n"), then)

    def test_the_near_tests_come_first(self):
        tests = os.path.join(self.root, "python/tests")
        for name in ("sweep", "sweep_engines", "sweep_pool", "run", "fit"):
            with open(os.path.join(tests, f"test_{name}.py"), "w", encoding="utf-8"):
                pass
        tree = random_mutants.PythonTree(os.path.join(self.root, "copy"), self.root)
        self.assertEqual(tree.tests("python/vorlen/_sweep/pool.py"), [
            ("test_sweep_pool", True), ("test_sweep", True),
            ("test_fit", False), ("test_run", False), ("test_toy", False)])
        self.assertEqual(tree.tests("python/vorlen/_fit/plot.py")[0], ("test_fit", True))
        self.assertEqual(sum(near for _, near in tree.tests("python/vorlen/_fit/plot.py")), 1)

    def test_the_tests_that_are_near_exist(self):
        names = [name.removeprefix("test_") for name in os.listdir(os.path.join(SOURCE, "python/tests"))]
        for word in " ".join(random_mutants.PYTHON_TESTS.values()).split():
            self.assertTrue(any(name.startswith(word) for name in names), word)

    def test_a_kept_copy_follows_the_tree_and_keeps_its_build(self):
        with tempfile.TemporaryDirectory() as copy:
            mutant.copy_tree(self.root, copy)
            kept = os.path.join(copy, "python/vorlen/__init__.py")
            os.utime(kept, (1, 1))
            for path, text in (("build/toy.o", "object"), ("python/vorlen/toy.py", "a mutant left by a killed run")):
                os.makedirs(os.path.dirname(os.path.join(copy, path)), exist_ok=True)
                with open(os.path.join(copy, path), "w", encoding="utf-8") as file:
                    file.write(text)
            os.remove(os.path.join(self.root, "python/tests/test_toy.py"))
            mutant.copy_tree(self.root, copy)
            self.assertEqual(os.stat(kept).st_mtime, 1)
            self.assertTrue(os.path.exists(os.path.join(copy, "build/toy.o")))
            self.assertFalse(os.path.exists(os.path.join(copy, "python/tests/test_toy.py")))
            with open(os.path.join(copy, "python/vorlen/toy.py"), encoding="utf-8") as file:
                self.assertEqual(file.read(), self.MODULE)

    def test_equivalent_changes_have_a_reason_and_occur_in_the_tree(self):
        with open(os.path.join(FOLDER, "equivalent.txt"), encoding="utf-8") as file:
            entries = [entry.splitlines() for entry in file.read().split("\n\n") if not entry.startswith("#")]
        self.assertEqual(len(entries), len(random_mutants.judged_equivalent()))
        for path, old, new, *reason in entries:
            self.assertTrue(old.startswith("- ") and new.startswith("+") and reason, path)
            with open(os.path.join(SOURCE, path), encoding="utf-8") as file:
                self.assertIn(old[2:], " ".join(file.read().split()), path)


if __name__ == "__main__":
    unittest.main()
