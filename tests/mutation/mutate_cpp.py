"""The places of a C++ file that can be changed, found in its tokens. The sources are formatted by clang-format: an
operator with two operands has a blank on both sides, which a template's or a pointer's has not. Comments, directives
and texts with blanks (wordings) stay as they are. A change that does not compile is discarded later.
"""
import dataclasses
import re

from mutant import Mutant

TOKEN = re.compile(r"""
    (?P<comment> //[^\n]* | /\*.*?\*/ )
  | (?P<directive> ^[ ]*\#(?:[^\n\\]|\\.)*(?:\\\n[^\n]*)* )
  | (?P<string> R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)" | "(?:[^"\\\n]|\\.)*" | '(?:[^'\\\n]|\\.)+' )
  | (?P<number> (?:0[xX][\da-fA-F']+ | (?:\d[\d']*\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)[uUlLfF]* )
  | (?P<word> [A-Za-z_]\w* )
  | (?P<operator> <=>|<<=|>>=|->|::|\+\+|--|<<|[-+*/%<>=!&|^]=|&&|\|\||[^\s] )
""", re.VERBOSE | re.MULTILINE | re.DOTALL)
BINARY = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",),
          "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("*",), "&&": ("||",), "||": ("&&",),
          "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "/=": ("*=",)}
NAME = re.compile(r'"-{0,2}[A-Za-z_][\w./#()-]*"')  # of an option, a column, an element
NO_STATEMENT = {"return", "using", "namespace", "struct", "class", "enum", "const", "constexpr", "static", "template",
                "typedef", "case", "default", "if", "for", "while", "do", "else", "switch", "inline", "extern",
                "friend", "goto", "try", "catch", "public", "private", "static_assert", "auto",
                "thread_local", "explicit"}
PAIRS = {"(": ")", "[": "]", "{": "}"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int  # bytes
    end: int


def tokens_of(source: bytes) -> list[Token]:
    text = source.decode("latin-1")  # one character per byte
    found = [Token(match.lastgroup, match[0], *match.span()) for match in TOKEN.finditer(text)]
    found = [dataclasses.replace(token, kind="string") if token.kind == "mark" else token for token in found]
    return [token for token in found if token.kind not in ("comment", "directive")]


def _closing(tokens: list[Token], i: int) -> int:
    """The index of the bracket that closes the one at i."""
    depth = 0
    for k in range(i, len(tokens)):
        depth += (tokens[k].text in PAIRS) - (tokens[k].text in PAIRS.values())
        if depth == 0:
            return k
    return len(tokens) - 1


def _is_declaration(statement: list[Token]) -> bool:
    """Two names in a row, or a name after > & * of a type, before the first bracket or assignment."""
    for token, following in zip(statement, statement[1:]):
        if token.text in ("(", "[", "=", "+=", "-=", "*="):
            return False
        if following.kind == "word" and (token.kind == "word" or token.text in (">", "&", "*")):
            return True
    return False


def _numbers(text: str) -> list[str]:
    """The number changed by one, in its last digit, or in its sign."""
    digits = re.match(r"[\d.]+", text)[0]
    rest = text[len(digits):]
    if text.startswith(("0x", "0X")) or "'" in rest:
        return []
    if "." not in digits:
        news = [str(int(digits) + 1)] + ([str(int(digits) - 1)] if digits != "0" else [])
    else:
        last = max(k for k, c in enumerate(digits) if c != ".")
        step = 1 if digits[last] != "9" else -1
        news = [digits[:last] + str(int(digits[last]) + step) + digits[last + 1:]]
        if float(digits) != 0.0:
            news.append("-" + digits)
    return [new + rest for new in news]


def mutants_of(file: str, source: bytes) -> list[Mutant]:
    tokens = tokens_of(source)
    mutants = []

    def add(first: int, last: int, new: str, kind: str) -> None:
        """Instead of the tokens from first to last."""
        start, end = tokens[first].start, tokens[last].end
        if source[start:end].decode() != new:
            mutants.append(Mutant(file, start, end, new, kind))

    def text(first: int, last: int) -> str:
        return source[tokens[first].start:tokens[last].end].decode()

    returns = "return {};"  # of the function around
    for i, token in enumerate(tokens):
        before, after = source[token.start - 1:token.start], source[token.end:token.end + 1]
        if before in (b"\n", b"") and token.kind == "word":
            returns = "return;" if token.text == "void" else "return {};"
        inside = source[source.rfind(b"\n", 0, token.start) + 1:token.start].startswith(b"  ")  # a function
        following = tokens[i + 1].text if i + 1 < len(tokens) else ""
        if token.kind == "operator":
            if token.text in BINARY and before in (b" ", b"\n") and after in (b" ", b"\n"):
                for new in BINARY[token.text]:
                    add(i, i, new, "and/or" if new in ("&&", "||") else "operator")
            elif token.text in ("++", "--"):
                add(i, i, "--" if token.text == "++" else "++", "operator")
            elif token.text == "!" or token.text == "-" and after != b" " and following != "-":
                add(i, i, "", "removed operator")
        elif token.kind == "number":
            for new in _numbers(token.text):
                add(i, i, new, "constant")
        elif token.kind == "string" and NAME.fullmatch(token.text):
            add(i, i, token.text[:-1] + '_x"', "name")
        elif token.text in ("true", "false"):
            add(i, i, "false" if token.text == "true" else "true", "constant")
        elif token.text in ("break", "continue"):
            add(i, i, "continue" if token.text == "break" else "break", "loop")
        elif token.text in ("if", "while") and following == "(":
            close = _closing(tokens, i + 1)
            if not any(each.text == ";" for each in tokens[i + 2:close]):
                add(i + 2, close - 1, f"!({text(i + 2, close - 1)})", "negated condition")
        elif token.kind == "word" and following == "(" and inside:
            _swap(tokens, i + 1, add, text)
        # A statement: from after ; { } or ) of a condition to the next ; of the same level.
        previous = tokens[i - 1].text if i else ""
        if token.kind == "word" and inside and previous in (";", "{", "}", ")", "else") \
                and token.text not in NO_STATEMENT and following in ("(", ".", "->", "::", "[", "=", "+=", "-=", "*="):
            end = i
            while end < len(tokens) - 1 and tokens[end].text not in (";", "}"):
                end = _closing(tokens, end) + 1 if tokens[end].text in PAIRS else end + 1
            if tokens[end].text == ";" and not _is_declaration(tokens[i:end]):
                add(i, end, ";" if previous in (")", "else") else "", "removed statement")
                add(i, end, returns, "early return")
    return mutants


def _swap(tokens: list[Token], opening: int, add, text) -> None:
    """Adds the swaps of neighbouring arguments of a call."""
    close = _closing(tokens, opening)
    starts, k = [opening + 1], opening + 1
    while k < close:
        if tokens[k].text in PAIRS:
            k = _closing(tokens, k)
        elif tokens[k].text == ",":
            starts.append(k + 1)
        elif tokens[k].text == ";":
            return
        k += 1
    ends = [start - 2 for start in starts[1:]] + [close - 1]
    for (a, b), (c, d) in zip(zip(starts, ends), zip(starts[1:], ends[1:])):
        if b >= a and d >= c:
            add(a, d, f"{text(c, d)}, {text(a, b)}", "swapped arguments")
