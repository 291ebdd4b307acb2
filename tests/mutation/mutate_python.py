"""The places of a Python file that can be changed, found in its syntax tree. Docstrings, annotations, imports, names of
exports and texts with blanks (wordings) stay as they are.
"""
import ast
import re

from mutant import Mutant

COMPARISON = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",),
              "is": ("is not",), "is not": ("is",), "in": ("not in",), "not in": ("in",)}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "//": "/", "%": "*", "**": "*"}
NAME = re.compile(r"-{0,2}[A-Za-z_][\w./#()-]*")  # of an option, a column, an element
LOGS = re.compile(r"(?:logging|logger|log|warnings)\.\w+")


class _Places(ast.NodeVisitor):
    def __init__(self, file: str, source: bytes):
        self.file, self.source, self.mutants = file, source, []
        self.starts = [0]
        for line in source.splitlines(keepends=True):
            self.starts.append(self.starts[-1] + len(line))
        self.depth = 0  # of functions

    def span(self, node) -> tuple[int, int]:
        return (self.starts[node.lineno - 1] + node.col_offset, self.starts[node.end_lineno - 1] + node.end_col_offset)

    def text(self, node) -> str:
        return self.source[slice(*self.span(node))].decode()

    def add(self, start: int, end: int, new: str, kind: str) -> None:
        self.mutants.append(Mutant(self.file, start, end, new, kind))

    def replace(self, node, new: str, kind: str) -> None:
        self.add(*self.span(node), new, kind)

    def between(self, left, right, table: dict, kind: str) -> None:
        """Changes the operator between two operands; brackets of the operands may be there as well."""
        start, end = self.span(left)[1], self.span(right)[0]
        gap = re.sub(rb"#[^\n]*", lambda comment: b" " * len(comment[0]), self.source[start:end]).decode()
        operator = re.search(r"\b(?:is\s+not|not\s+in|is|in|and|or)\b|[-+*/%<>=!]+", gap)
        if operator:
            news = table.get(" ".join(operator[0].split()), ())
            for new in (news,) if isinstance(news, str) else news:
                self.add(start + operator.start(), start + operator.end(), new, kind)

    def condition(self, node) -> None:
        self.replace(node, f"not ({self.text(node)})", "negated condition")

    # ---- Statements

    def statements(self, body: list) -> None:
        for node in body:
            if isinstance(node, ast.Expr) and isinstance(node.value, ast.Constant):
                continue  # a docstring
            if isinstance(node, (ast.Expr, ast.Assign, ast.AugAssign, ast.Raise, ast.Delete)):
                if not (isinstance(node, ast.Expr) and LOGS.match(self.text(node))):
                    self.replace(node, "pass", "removed statement")
                    if self.depth:
                        self.replace(node, "return None", "early return")
            elif isinstance(node, ast.Return) and node.value is not None:
                if not (isinstance(node.value, ast.Constant) and node.value.value is None):
                    self.replace(node, "return None", "early return")
            elif isinstance(node, (ast.Break, ast.Continue)):
                self.replace(node, "continue" if isinstance(node, ast.Break) else "break", "loop")

    def generic_visit(self, node) -> None:
        for field in ("body", "orelse", "finalbody"):
            if isinstance(getattr(node, field, None), list):
                self.statements(getattr(node, field))
        for field, child in ast.iter_fields(node):
            if field in ("annotation", "returns", "type_comment"):
                continue
            for each in child if isinstance(child, list) else [child]:
                if isinstance(each, ast.AST):
                    self.visit(each)

    def visit_function(self, node) -> None:
        self.depth += 1
        self.generic_visit(node)
        self.depth -= 1

    visit_FunctionDef = visit_AsyncFunctionDef = visit_function

    def visit_skipped(self, node) -> None:
        """No place inside."""

    visit_Import = visit_ImportFrom = visit_JoinedStr = visit_skipped

    def visit_Assign(self, node) -> None:
        if not any(isinstance(target, ast.Name) and target.id == "__all__" for target in node.targets):
            self.generic_visit(node)

    def visit_Expr(self, node) -> None:
        if not isinstance(node.value, ast.Constant) and not LOGS.match(self.text(node)):
            self.generic_visit(node)

    def visit_If(self, node) -> None:
        if self.text(node.test) != "TYPE_CHECKING":
            self.condition(node.test)
            self.generic_visit(node)

    def visit_tested(self, node) -> None:
        self.condition(node.test)
        self.generic_visit(node)

    visit_While = visit_IfExp = visit_Assert = visit_tested

    def visit_comprehension(self, node) -> None:
        for test in node.ifs:
            self.condition(test)
        self.generic_visit(node)

    def visit_AugAssign(self, node) -> None:
        self.between(node.target, node.value, {a + "=": b + "=" for a, b in ARITHMETIC.items()}, "arithmetic")
        self.generic_visit(node)

    # ---- Expressions

    def visit_Compare(self, node) -> None:
        for left, right in zip([node.left, *node.comparators], node.comparators):
            self.between(left, right, COMPARISON, "comparison")
        self.generic_visit(node)

    def visit_BinOp(self, node) -> None:
        self.between(node.left, node.right, ARITHMETIC, "arithmetic")
        self.generic_visit(node)

    def visit_BoolOp(self, node) -> None:
        for left, right in zip(node.values, node.values[1:]):
            self.between(left, right, {"and": "or", "or": "and"}, "and/or")
        self.generic_visit(node)

    def visit_UnaryOp(self, node) -> None:
        if isinstance(node.op, (ast.Not, ast.USub)):
            self.add(self.span(node)[0], self.span(node.operand)[0], "", "removed operator")
        self.generic_visit(node)

    def visit_Call(self, node) -> None:
        for first, second in zip(node.args, node.args[1:]):
            if not isinstance(first, ast.Starred) and not isinstance(second, ast.Starred):
                start, end = self.span(first)[0], self.span(second)[1]
                gap = self.source[self.span(first)[1]:self.span(second)[0]].decode()
                self.add(start, end, self.text(second) + gap + self.text(first), "swapped arguments")
        self.generic_visit(node)

    def visit_Constant(self, node) -> None:
        if isinstance(node.value, bool):
            self.replace(node, str(not node.value), "constant")
        elif isinstance(node.value, (int, float)):
            for new in (repr(node.value + 1), repr(node.value - 1), f"(-{self.text(node)})"):
                self.replace(node, new, "constant")
        elif isinstance(node.value, str) and NAME.fullmatch(node.value) and "\n" not in self.text(node):
            quote = self.text(node)[-1]
            self.replace(node, f"{self.text(node)[:-1]}_x{quote}", "name")


def mutants_of(file: str, source: bytes) -> list[Mutant]:
    places = _Places(file, source)
    places.visit(ast.parse(source))
    return places.mutants


def is_other(source: bytes, changed: bytes) -> bool:
    """The changed source is valid and has another syntax tree."""
    try:
        return ast.dump(ast.parse(changed)) != ast.dump(ast.parse(source))
    except (SyntaxError, ValueError):
        return False
