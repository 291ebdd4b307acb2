"""The elements of an XML file with their byte offsets, and edits that change only the bytes concerned.

An edit is (begin, end, new bytes).
"""

from __future__ import annotations

import re
import xml.parsers.expat
from collections.abc import Iterable, Mapping
from dataclasses import dataclass, field

Edit = tuple[int, int, bytes]
DEPTH_MAX = 500  # of nested elements; a recipe has 7

_ATTRIBUTE = re.compile(rb"""([^\s=<>/"']+)\s*=\s*("[^"]*"|'[^']*')""")
_START_TAG = re.compile(rb"""<[^\s/>"']+(?:[^"'>]++|"[^"]*"|'[^']*')*+>""")
_TAG = rb"""<[^\s!?>"'](?:[^"'>]++|"[^"]*"|'[^']*')*+>"""
# group 1: text that has to stay as it is; otherwise a comment or a line end
_INDENTED = re.compile(rb"(" + _TAG + rb"|<!\[CDATA\[.*?\]\]>|<\?.*?\?>)|<!--.*?-->|\n[ \t]*", re.DOTALL)
_BLANK_IN_VALUE = re.compile(rb"\r\n|[\r\n\t]")
_ENCODING = re.compile(rb"""\s*<\?xml[^>]*\sencoding\s*=\s*["']([^"']+)""")


class RecipeError(ValueError):
    """The XML is not a recipe, or not well-formed."""


@dataclass
class Element:
    """One element. Offsets are in bytes."""

    tag: str
    attributes: dict[str, str]
    begin: int  # of the start tag
    tag_end: int = 0  # past the start tag
    end_tag: int = 0  # of the end tag; equal to tag_end if there is none
    end: int = 0  # past the element
    children: list[Element] = field(default_factory=list)

    def child(self, tag: str) -> Element | None:
        """The first child of that name."""
        return next((child for child in self.children if child.tag == tag), None)

    def attribute(self, path: str, attribute: str = "val") -> str | None:
        """The text of an attribute of the element at a path below this one; None if either is missing."""
        element: Element | None = self
        for part in path.split("/"):
            element = element.child(part) if element else None
        return element.attributes.get(attribute) if element else None


def encoding_of(content: bytes) -> str:
    """The declared encoding; if none is declared, UTF-8 if the bytes are valid UTF-8, else ISO 8859-1."""
    declared = _ENCODING.match(content)
    if declared is not None:
        return declared[1].decode("ascii", "replace")
    try:
        content.decode("utf-8")
    except UnicodeDecodeError:
        return "iso-8859-1"
    return "utf-8"


def is_xml(text: str) -> bool:
    """True for XML, False for a path or another text."""
    return text.lstrip("\ufeff \t\r\n").startswith("<")


def encode(text: str) -> bytes:
    """The bytes of an XML text in the encoding that it declares."""
    try:
        return text.encode(encoding_of(text[:200].encode("ascii", "replace")))
    except (LookupError, UnicodeEncodeError):
        pass
    try:
        return text.encode("utf-8")
    except UnicodeEncodeError as error:
        raise RecipeError(f"the text of the recipe is not Unicode, at character {error.start}") from None


def index(content: bytes, name: str) -> Element:
    """The root element and its descendants. Raises RecipeError, with name and line, if the XML is not well-formed."""
    if content.startswith((b"\xff\xfe", b"\xfe\xff", b"<\0", b"\0<")):
        raise RecipeError(f"{name}: the encoding UTF-16 is not supported; save the recipe as UTF-8")
    stack = [Element("", {}, 0)]

    def start(tag: str, attributes: dict[str, str]) -> None:
        if len(stack) > DEPTH_MAX:
            raise RecipeError(f"{name}: elements are nested more than {DEPTH_MAX} deep")
        element = Element(tag, attributes, parser.CurrentByteIndex)
        stack[-1].children.append(element)
        stack.append(element)

    def end(_: str) -> None:
        stack.pop().end_tag = parser.CurrentByteIndex

    try:
        parser = xml.parsers.expat.ParserCreate(encoding_of(content))
        parser.StartElementHandler, parser.EndElementHandler = start, end
        parser.Parse(content, True)
    except xml.parsers.expat.ExpatError as error:
        raise RecipeError(f"{name}, line {error.lineno}: {xml.parsers.expat.ErrorString(error.code)}") from None
    except RecipeError:
        raise
    except (LookupError, ValueError) as error:
        raise RecipeError(f"{name}: {error}") from None
    root = stack[0].children[0]
    pending = [root]
    while pending:
        element = pending.pop()
        match = _START_TAG.match(content, element.begin)
        if match is None:
            raise RecipeError(f"{name}: the encoding {encoding_of(content)} is not supported")
        element.tag_end = match.end()
        if _BLANK_IN_VALUE.search(match[0]):
            element.attributes |= _attributes_with_line_ends(match[0], encoding_of(content))
        if match[0].endswith(b"/>"):
            element.end_tag = element.end = element.tag_end
        else:
            element.end = content.index(b">", element.end_tag) + 1
        pending.extend(element.children)
    return root


def _attributes_with_line_ends(tag: bytes, encoding: str) -> dict[str, str]:
    """The attributes of a start tag whose texts contain line ends or tabs, as the library reads them.

    XML replaces these by blanks. The library keeps them, and makes CR LF and CR a line feed.
    """
    attributes = {}
    for match in _ATTRIBUTE.finditer(tag):
        if _BLANK_IN_VALUE.search(match[2]):
            value = _BLANK_IN_VALUE.sub(lambda blank: b"&#9;" if blank[0] == b"\t" else b"&#10;", match[2])
            parser = xml.parsers.expat.ParserCreate(encoding)
            parser.StartElementHandler = lambda _, found: attributes.update(found)
            try:
                parser.Parse(b"<value " + match[1] + b"=" + value + b"/>", True)
            except xml.parsers.expat.ExpatError:  # an entity that the file declares
                pass
    return attributes


def indented(content: bytes, step: bytes) -> bytes:
    """XML with one more step of indentation before each line, also in comments but not within tags."""
    return reindented(content, b"", step)


def reindented(content: bytes, old: bytes, new: bytes) -> bytes:
    """XML with another indentation in each line that begins with the old one, also in comments but not within tags."""
    return _INDENTED.sub(
        lambda match: match[0] if match[1] else match[0].replace(b"\n" + old, b"\n" + new), content
    )


def apply(content: bytes, edits: Iterable[Edit]) -> bytes:
    """The bytes after these edits, which must not overlap."""
    pieces, position = [], 0
    for begin, end, new in sorted(edits):
        pieces += [content[position:begin], new]
        position = end
    return b"".join([*pieces, content[position:]])


def space_before(content: bytes, place: int) -> bytes:
    """The blanks and line ends before a place."""
    return content[len(content[:place].rstrip(b" \t\r\n")) : place]


def attribute_edits(content: bytes, element: Element, texts: Mapping[str, str]) -> list[Edit]:
    """Edits that give attributes new texts. Texts that are the same already are left unchanged."""
    edits = []
    for match in _ATTRIBUTE.finditer(content, element.begin + 1, element.tag_end):
        name = match[1].decode("utf-8", "replace")
        if name in texts and texts[name] != element.attributes[name]:
            quote = chr(match[2][0])
            text = quote + escape(texts[name], quote) + quote
            edits.append((match.start(2), match.end(2), text.encode(encoding_of(content), "xmlcharrefreplace")))
    return edits


def added_attribute_edits(content: bytes, element: Element, name: str, text: str) -> list[Edit]:
    """Edits that give an element an attribute that it does not have."""
    place = element.begin + 1 + len(element.tag.encode())
    return [(place, place, _attribute(content, name, text))]


def added_child_edits(content: bytes, parent: Element, tags: list[str], text: str) -> list[Edit]:
    """Edits that add elements before the end tag of parent, each of tags in the one before it.

    The last one has the attribute val. Lines and their indentation follow those of the elements around.
    """
    outer, inner = line_start(content, parent.begin), line_start_inside(content, parent)
    added = _nested(content, tags, text, inner)
    if parent.end == parent.end_tag:  # <parent/>
        begin = len(content[: parent.tag_end - 2].rstrip())
        return [(begin, parent.tag_end, b">" + added + outer + f"</{parent.tag}>".encode())]
    place = end_of_content(content, parent)
    blanks = content[place : parent.end_tag]
    if b"\n" not in blanks and not parent.children:
        added += outer
    return [(place, place, added)]


def _nested(content: bytes, tags: list[str], text: str, line: bytes) -> bytes:
    """Nested elements, the innermost with the attribute val. line: the line start of each."""
    tag = tags[0].encode()
    if len(tags) == 1:
        return line + b"<" + tag + _attribute(content, "val", text) + b"/>"
    return line + b"<" + tag + b">" + _nested(content, tags[1:], text, _deeper(line)) + line + b"</" + tag + b">"


def line_start_inside(content: bytes, parent: Element) -> bytes:
    """The line end and the indentation before the children of an element."""
    if parent.children:
        return line_start(content, parent.children[-1].begin)
    return _deeper(line_start(content, parent.begin))


def end_of_content(content: bytes, element: Element) -> int:
    """The place after the last child or comment of an element that has an end tag."""
    return element.end_tag - len(space_before(content, element.end_tag))


def line_start(content: bytes, place: int) -> bytes:
    """The line end and the indentation before a place; empty if something else precedes it on the line."""
    match = re.search(rb"\r?\n[ \t]*\Z", space_before(content, place))
    return match[0] if match else b""


def _deeper(line_start: bytes) -> bytes:
    """A line start with one more step of indentation."""
    return line_start and line_start + (b"\t" if b"\t" in line_start else b"  ")


def _attribute(content: bytes, name: str, text: str) -> bytes:
    """An attribute with a blank before it."""
    return f' {name}="{escape(text, chr(34))}"'.encode(encoding_of(content), "xmlcharrefreplace")


def escape(text: str, quote: str) -> str:
    text = text.replace("&", "&amp;").replace("<", "&lt;")
    text = text.replace(quote, "&quot;" if quote == '"' else "&apos;")
    return re.sub(r"[\t\n\r]", lambda match: f"&#{ord(match[0])};", text)


def tag_edits(element: Element, tag: str) -> list[Edit]:
    """Edits that give an element another name."""
    edits = [(element.begin + 1, element.begin + 1 + len(element.tag.encode()), tag.encode())]
    if element.end > element.end_tag:
        edits.append((element.end_tag + 2, element.end_tag + 2 + len(element.tag.encode()), tag.encode()))
    return edits


def stage_edits(element: Element, tag: str) -> list[Edit]:
    """Edits that rename a stage, and the sub-stages of a periodic one with it."""
    edits = tag_edits(element, tag)
    for child in element.children:
        if re.fullmatch(re.escape(element.tag) + r"_\d+", child.tag):
            edits += tag_edits(child, tag + child.tag[len(element.tag) :])
    return edits


def renamed_stage(content: bytes, element: Element, tag: str) -> bytes:
    """The bytes of a stage under another name."""
    edits = [(begin - element.begin, end - element.begin, new) for begin, end, new in stage_edits(element, tag)]
    return apply(content[element.begin : element.end], edits)
