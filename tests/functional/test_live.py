"""vorlen live: the recipe in the page, and what happens to the files. How the page works is tested in a browser."""
import base64
import json
import os
import re
import shutil
import stat
import unittest

from support import InAFolder, VORLEN, example

ELEMENT = re.compile(r'<script id="recipe" type="application/json">(.*?)</script>', re.DOTALL)
EXAMPLE = "ingan_gan_mqw"
HAS_PAGE = os.environ["VORLEN_LIVE"] == "1"  # the build has the live page


def bytes_of(path):
    with open(path, "rb") as file:
        return file.read()


@unittest.skipUnless(HAS_PAGE, "built without the live page")
class Live(InAFolder):
    def recipe_in(self, page):
        """Name and bytes of the recipe in a page."""
        found = ELEMENT.findall(self.read(page).decode())
        self.assertEqual(len(found), 1)
        recipe = json.loads(found[0])
        return recipe["name"], base64.b64decode(recipe["base64"], validate=True)

    def live(self, *arguments):
        run = self.run_tool("live", *arguments)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        return run.stdout

    def test_the_recipe_is_in_the_page(self):
        self.assertEqual(self.live(example("hemt"), "-o", "page.html"), "page.html\n")
        self.assertEqual(self.recipe_in("page.html"), ("hemt.xml", bytes_of(example("hemt"))))

    def test_without_a_recipe_it_is_the_quantum_wells(self):
        self.assertEqual(self.live(), EXAMPLE + ".live.html\n")
        self.assertEqual(self.recipe_in(EXAMPLE + ".live.html"), (EXAMPLE + ".xml", bytes_of(example(EXAMPLE))))

    def test_the_page_is_beside_the_recipe(self):
        os.mkdir(self.path("folder"))
        shutil.copy(example("hemt"), self.path("folder/a.b.xml"))
        self.assertEqual(self.live("folder/a.b.xml"), "folder/a.b.live.html\n")

    def test_bytes_of_any_kind_are_kept(self):
        text = '<?xml version="1.0"?><!-- </script><script>alert(1)</script> --><a>\u00c5\u4e00</a>'
        for name, content in (("utf8", text.encode()), ("utf16", text.encode("utf-16")),
                              ("latin", text.replace("\u4e00", "").encode("latin-1")), ("empty", b""),
                              ("all", bytes(range(256)) * 3), ("one", b"<"), ("two", b"<a")):
            with self.subTest(name):
                with open(self.path("r.xml"), "wb") as file:
                    file.write(content)
                self.live("r.xml", "-o", "page.html")
                self.assertEqual(self.recipe_in("page.html"), ("r.xml", content))

    def test_a_name_can_not_end_the_element(self):
        for name in ("<", "<script>.xml", 'a"b\\c.xml', "\u00e9.xml", "<!--"):
            with self.subTest(name):
                shutil.copy(example("hemt"), self.path(name))
                self.live("./" + name, "-o", "page.html")
                self.assertEqual(self.recipe_in("page.html")[0], name)

    def test_an_old_page_is_replaced_and_its_permissions_kept(self):
        self.write("page.html", "old")
        os.chmod(self.path("page.html"), 0o600)
        self.live("-o", "page.html")
        self.assertEqual(self.recipe_in("page.html")[0], EXAMPLE + ".xml")
        self.assertEqual(stat.S_IMODE(os.stat(self.path("page.html")).st_mode), 0o600)

    def test_the_page_needs_no_other_file(self):
        self.live("-o", "page.html")
        links = re.findall(r"""<[a-z]+ [^<>]*\b(?:src|href)=["']?([^"'> ]*)""", self.read("page.html").decode())
        self.assertEqual([link for link in links if not link.startswith(("#", "data:", "https:", "mailto:"))], [])

    def test_the_licences_are_in_the_page(self):
        self.live("-o", "page.html")
        page = self.read("page.html").decode()
        for words in ("TinyXML", "wasi-libc", "LLVM Exceptions", "Permission is hereby granted", "Marijn Haverbeke"):
            self.assertTrue(words in page, words)


class Errors(InAFolder):
    def expect(self, arguments, text, status=1):
        run = self.run_tool("live", *arguments)
        self.assertEqual((run.returncode, run.stdout), (status, ""))
        self.assertEqual(run.stderr.splitlines()[0], "vorlen: " + text if status == 1 else text)
        self.assertEqual([name for name in os.listdir(self.folder) if "live" in name], [])

    def test_recipes_that_can_not_be_read(self):
        self.expect(["none.xml"], "recipe not found: none.xml")
        self.expect(["."], ". can't be read")
        with open(self.path("large.xml"), "wb") as file:
            file.truncate((64 << 20) + 1)
        self.expect(["large.xml"], "large.xml is larger than 64 MiB")

    def test_arguments(self):
        self.expect([""], "RECIPE: must not be empty", 2)
        self.expect(["-o", ""], "--output: must not be empty", 2)
        self.expect([example("hemt"), "-o", example("hemt")], example("hemt") + " is the recipe")

    @unittest.skipUnless(HAS_PAGE, "built without the live page")
    def test_pages_that_can_not_be_written(self):
        self.expect(["-o", "none/p.html"], "none/p.html can't be written: folder not found: none")
        self.expect(["-o", "."], ". is not a regular file")

    def test_a_build_without_the_page_says_what_is_missing(self):
        os.mkdir(self.path("bin"))
        shutil.copy(VORLEN, self.path("bin/vorlen"))
        run = self.run_tool("live", tool=self.path("bin/vorlen"))
        self.assertEqual(run.returncode, 1)
        self.assertIn("this build of vorlen has no live page", run.stderr)
        self.assertIn("scripts/setup.sh run", run.stderr)
        self.assertFalse(os.path.exists(self.path(EXAMPLE + ".live.html")))

    def test_the_page_beside_the_tool_is_used_and_not_replaced(self):
        os.mkdir(self.path("bin"))
        shutil.copy(VORLEN, self.path("bin/vorlen"))
        empty = '<script id="recipe" type="application/json">null</script>'
        self.write("bin/live.html", empty)
        run = self.run_tool("live", "-o", "bin/live.html", tool=self.path("bin/vorlen"))
        self.assertEqual((run.returncode, run.stderr),
                         (1, "vorlen: bin/live.html is the page that recipes are put into\n"))
        self.assertEqual(self.read("bin/live.html").decode(), empty)
        run = self.run_tool("live", "-o", "page.html", tool=self.path("bin/vorlen"))
        self.assertEqual((run.returncode, run.stdout), (0, "page.html\n"))
        self.assertIn(b'"base64":', self.read("page.html"))


if __name__ == "__main__":
    unittest.main()
