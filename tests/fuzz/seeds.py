#!/usr/bin/env python3
"""Writes the seed corpora and the dictionary of the fuzz targets: seeds.py FOLDER

FOLDER/recipes gets the example recipes, the recipes of the reference results, and one recipe of each kind of fault
and of good ones, without blanks and comments so that mutations meet what is read. FOLDER/xml gets short XML texts with the oddities
of the parser. FOLDER/recipe.dict gets the names of elements and attributes, the keywords, and pieces of XML.
"""
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]
SIZE_MAX = 8192  # of a seed, bytes; longer ones are slow

MARK = b"\xef\xbb\xbf"  # byte order mark
ODD_XML = [
    b"", b"<a/>", b"<a><b c='1' d=\"2\"/>text</a>", b"<a><!-- <b> --><![CDATA[<c>]]><?d?><!DOCTYPE e><f/></a>",
    MARK + b"<a><b/></a>", b"<?xml version='1.0' encoding='latin1'?><a b='\xe9'/>", b"<?xml?><a b=\"\xc3\" c='\">'><d></a>",
    b"<?xml version='1.0'?><a b=" + MARK + b"\"x y='\"><z></z>'", MARK + b"<" + MARK + b" a><b></b>",
    b"<?xml encoding='UTF-8'?><a>&#228;&lt;&unknown;&#x1F600;<b></b></a>", b"<a b=c/d><e f = 'g' / ></a>",
    MARK + b"\r\n\r\n\r\n\r\n\r\n\r\n\r\n<a b='><x><x>\xf0", b"<a><b></a></b>", b"<a b='1' b='2'/>", b"</a><b></b>text",
    b"<a" + b"".join(b" a%d=''" % i for i in range(8)) + b"></a>", b"<a>\x00<b>", b"\xff\xfe<\x00a\x00/\x00>\x00"]
PIECES = ["<", ">", "/>", "</", "<!--", "-->", "<![CDATA[", "]]>", "<?xml", "?>", "<!DOCTYPE", "encoding=", "UTF-8",
          "UTF8", "'", "\"", "=\"", "&#x", "&#", "&lt;", ";", " val=\"", " end=\"", "\r\n", "stage_1", "stage_1_1"]
PIECES_IN_BYTES = [MARK, b"\xef\xbf\xbe", b"\xef\xbf\xbf", b"\xef", b"\xc3", b"\xf0", b"\x7f", b"\x00"]
WORD = re.compile(r"[A-Za-z][A-Za-z0-9_]*")


def recipe_files() -> list[Path]:
    """The recipes of the source tree that serve as seeds."""
    bad = TREE / "tests/data/bad"
    return sorted([*(TREE / "examples").glob("*.xml"), *(TREE / "tests/data/recipes").glob("*.xml"),
                   *bad.glob("*_001.xml"), *bad.glob("good_*.xml")])


def main(folder: Path) -> None:
    """Fills the folder."""
    (folder / "recipes").mkdir(parents=True, exist_ok=True)
    (folder / "xml").mkdir(exist_ok=True)
    words = set(PIECES)
    for file in recipe_files():
        try:
            root = ElementTree.parse(file).getroot()
        except ElementTree.ParseError:
            continue
        for element in root.iter():
            element.text = element.tail = None
            words |= {element.tag, *element.attrib, *filter(WORD.fullmatch, element.attrib.values())}
        text = ElementTree.tostring(root)
        if len(text) <= SIZE_MAX:
            (folder / "recipes" / file.name).write_bytes(text)
    for number, text in enumerate(ODD_XML):
        (folder / "xml" / f"odd_{number}.xml").write_bytes(text)
    quoted = [word.encode() for word in sorted(words) if len(word) < 40] + PIECES_IN_BYTES
    entries = ("".join(f"\\x{byte:02x}" for byte in word) for word in quoted)
    (folder / "recipe.dict").write_text("".join(f'"{entry}"\n' for entry in entries), encoding="ascii")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__.splitlines()[0])
    main(Path(sys.argv[1]))
