"""The manual builds without warnings, its links have targets, and its console sessions and programs run as shown.

A block `console` is a session in a folder that contains `examples`: lines that start with "$ " are run by bash, the others
are the expected output (stdout and stderr), where "..." matches anything. The programs on the page about embedding are
built against an installation.
"""
import doctest
import html.parser
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
import urllib.parse

from support import EXAMPLES_FOLDER, SOURCE, VORLEN

DOCS = pathlib.Path(SOURCE, "docs")
PAGES = sorted(DOCS.glob("*.md"))
# Commands in blocks `sh` without a comment that says why they are not run: <!-- not run: REASON -->
NOT_RUN = {
    "./run.sh": "tests/package/test_run_script.py runs it",
    "gnuplot": "a program of the reader's",
    "x86_64-w64-mingw32-gcc": "tests/windows/test_archive.py runs it",
    "c++": "needs an installation; tests/package builds such a program",
}
# Their blocks are run by the tests of the Python package.
PYTHON_PAGES = ("python.md", "recipes-in-python.md", "gallery.md", "sweeps.md", "clusters.md", "fitting.md",
                "designing.md", "designing-an-led.md")
FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE


def blocks(page, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)


def shell_blocks(page):
    """[(reason, text)] of the blocks `sh`; the reason of the comment before them is empty if there is none."""
    return re.findall(r"^(?:<!-- not run: ([^\n]+) -->\n)?```sh\n(.*?)^```$", page.read_text(encoding="utf-8"),
                      re.MULTILINE | re.DOTALL)


def sessions(text):
    """[(command, output)] of a block `console`; a backslash continues a command on the next line."""
    found = []
    for line in text.splitlines():
        if line.startswith("$ "):
            found.append([line[2:], ""])
        elif line.startswith("> ") and found[-1][0].endswith("\\"):
            found[-1][0] += "\n" + line[2:]
        else:
            found[-1][1] += line + "\n"
    return found


def misfits(words):
    """What a command refers to and the tree does not have."""
    presets = {preset["name"] for preset in json.loads(read("CMakePresets.json"))["configurePresets"]}
    if words[:2] == ["cmake", "--preset"] and words[2] not in presets:
        yield f"no preset {words[2]}"
    for word in words:
        option = re.match(r"-D(VORLEN_\w+)=", word)
        if option and f"option({option[1]} " not in read("CMakeLists.txt"):
            yield f"no option {option[1]}"
        if word.startswith("build/") and word.split("/")[1] not in presets:
            yield f"no preset with the folder {word}"
        if word.startswith(("scripts/", "tests/", "./")) and not os.path.exists(os.path.join(SOURCE, word)):
            yield f"no file {word}"
    if "apt-get" in words:
        known = re.findall(r"[\w.+-]+", read("scripts/setup.sh"))
        yield from (f"no package {word} in setup.sh" for word in words[words.index("install") + 1:] if word not in known)
    program = os.path.join(SOURCE, words[0])
    if words[0].endswith(".py") and os.path.exists(program):
        if not os.access(program, os.X_OK):
            yield "can't be executed"
        run = subprocess.run([sys.executable, "-B", program, *words[1:], "--help"], capture_output=True, encoding="utf-8",
                             check=False)
        if run.returncode != 0:
            yield run.stderr


def read(name):
    return pathlib.Path(SOURCE, name).read_text(encoding="utf-8")


class Links(html.parser.HTMLParser):
    """Collects the anchors of a page and the targets of its links and pictures."""

    def __init__(self, path):
        super().__init__()
        self.anchors = set()
        self.targets = []
        self.feed(path.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        self.anchors.update(attributes[key] for key in ("id", "name") if attributes.get(key))
        self.targets += [attributes[key] for key in ("href", "src") if attributes.get(key)]


class Folder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def run_in_folder(self, command, **environment):
        return subprocess.run(command, cwd=self.folder, env={**os.environ, **environment}, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, encoding="utf-8", check=False)


class Manual(Folder):
    def test_it_builds_without_warnings_and_its_links_have_targets(self):
        site = self.folder / "site"
        run = self.run_in_folder(["mkdocs", "build", "--strict", "-f", os.path.join(SOURCE, "mkdocs.yml"), "-d", site])
        self.assertEqual(run.returncode, 0, run.stdout)
        pages = {path: Links(path) for path in site.rglob("*.html")
                 if path.name not in ("404.html", "live_page.html")}
        self.assertEqual(len(pages), len(PAGES))
        checked = 0
        for path, links in pages.items():
            for target in links.targets:
                url = urllib.parse.urlparse(target)
                if url.scheme or url.netloc:
                    continue
                place = (path.parent / urllib.parse.unquote(url.path)).resolve() if url.path else path
                self.assertTrue(place.exists(), f"{path.name}: {target}")
                if url.fragment and place in pages:
                    self.assertIn(urllib.parse.unquote(url.fragment), pages[place].anchors, f"{path.name}: {target}")
                checked += 1
        self.assertGreater(checked, 20 * len(PAGES))

    def test_sessions_run_as_shown(self):
        shown = 0
        tool_folder = os.path.dirname(VORLEN)
        for page in PAGES:
            with self.subTest(page=page.name), tempfile.TemporaryDirectory() as folder:
                self.folder = pathlib.Path(folder)
                (self.folder / "examples").symlink_to(EXAMPLES_FOLDER)
                for command, expected in [s for block in blocks(page, "console") for s in sessions(block)]:
                    run = self.run_in_folder(["bash", "-c", command], LC_ALL="C.UTF-8",
                                             PATH=f"{tool_folder}:{os.environ['PATH']}")
                    self.assertTrue(doctest.OutputChecker().check_output(expected, run.stdout, FLAGS),
                                    f"$ {command}\n{run.stdout}\nexpected:\n{expected}")
                    shown += 1
        self.assertGreater(shown, 20)

    def test_each_block_that_is_not_run_has_a_reason(self):
        for page in PAGES:
            if page.name in (*PYTHON_PAGES, "embedding.md"):
                continue
            for line in "".join(text for reason, text in shell_blocks(page) if not reason).splitlines():
                self.assertIn(line.split()[0], NOT_RUN, f"{page.name}: {line}")

    def test_commands_that_are_not_run_fit_the_tree(self):
        """Presets, options of the build, packages and files in them exist; a script in Python accepts its arguments."""
        found = [(f"{page.name}: {line}", shlex.split(line, comments=True)) for page in PAGES
                 for reason, text in shell_blocks(page) if reason for line in text.splitlines()]
        self.assertGreater(len(found), 15)
        for line, words in found:
            for problem in misfits(words):
                self.fail(f"{line}: {problem}")

    def test_a_command_that_does_not_fit_is_noticed(self):
        for command in ("cmake --preset arm65", "cmake --preset arm64 -DVORLEN_TEST=OFF", "cmake --build build/arm65",
                        "sudo apt-get install cmake g++-aarch65", "scripts/set-up.sh run",
                        "tests/numbers/compare.py --scheme stagd"):
            with self.subTest(command):
                self.assertEqual(len(list(misfits(command.split()))), 1)


class Embedding(Folder):
    PAGE = DOCS / "embedding.md"

    @classmethod
    def setUpClass(cls):
        cls.installation = tempfile.TemporaryDirectory()
        build = pathlib.Path(VORLEN).parents[1]
        subprocess.run(["cmake", "--install", build, "--prefix", cls.installation.name], check=True,
                       stdout=subprocess.DEVNULL)
        (package,) = pathlib.Path(cls.installation.name).rglob("vorlensolver.pc")
        cls.library_folder = str(package.parents[1])
        cls.environment = {"PKG_CONFIG_PATH": str(package.parent), "LD_LIBRARY_PATH": cls.library_folder}

    @classmethod
    def tearDownClass(cls):
        cls.installation.cleanup()

    def block(self, language):
        (text,) = blocks(self.PAGE, language)
        return text

    def check_host(self, program, *results):
        """The host ends with status 0 for a recipe, and with 1 and the library's message for a missing file."""
        recipe = self.folder / "recipe.xml"
        shutil.copy(os.path.join(EXAMPLES_FOLDER, "algan_gan_hemt.xml"), recipe)
        run = self.run_in_folder([program, "recipe.xml", *results], **self.environment)
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.assertTrue((self.folder / (results[0] if results else "recipe.xml.result.txt")).stat().st_size > 1000)
        run = self.run_in_folder([program, "missing.xml", *results], **self.environment)
        self.assertEqual(run.returncode, 1)
        self.assertIn("Error reading file missing.xml\nFailed to open file", run.stdout)

    def test_the_c_program_by_pkg_config(self):
        (self.folder / "host.c").write_text(self.block("c"), encoding="utf-8")
        run = self.run_in_folder(["bash", "-c", self.block("sh")], **self.environment)
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.check_host("./host", "result.txt")

    def test_the_c_program_by_cmake(self):
        (self.folder / "host.c").write_text(self.block("c"), encoding="utf-8")
        (self.folder / "CMakeLists.txt").write_text(self.block("cmake"), encoding="utf-8")
        for command in (["cmake", "-B", "build", f"-DCMAKE_PREFIX_PATH={self.installation.name}"],
                        ["cmake", "--build", "build"]):
            run = self.run_in_folder(command)
            self.assertEqual(run.returncode, 0, run.stdout)
        self.check_host("build/host", "result.txt")

    def test_the_threads_of_the_cpp_program(self):
        (self.folder / "host.cpp").write_text(self.block("cpp"), encoding="utf-8")
        flags = self.run_in_folder(["pkg-config", "--cflags", "--libs", "vorlensolver"], **self.environment).stdout
        run = self.run_in_folder(["c++", "-std=c++17", "-Wall", "-Wextra", "-Werror", "-pthread", "host.cpp",
                                  *shlex.split(flags), "-o", "host"])
        self.assertEqual((run.returncode, run.stdout), (0, ""))
        self.check_host("./host")


if __name__ == "__main__":
    if os.environ["VORLEN_PRELOAD"]:
        print("the manual is tested with the release build")
        sys.exit(0)
    unittest.main()
