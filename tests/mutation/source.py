"""A C++ source file as tokens, brackets, functions and statements.

Not a parser of C++: it knows as much as is needed to find what can be broken in a file that
clang-format has laid out, in which binary operators stand between spaces and template brackets do
not.
"""

import re
from bisect import bisect_right
from dataclasses import dataclass, field

TOKEN = re.compile(
    r"""
      (?P<skip>\s+|//[^\n]*|/\*.*?\*/|^\#(?:[^\n\\]|\\.)*)
    | (?P<string>(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*")
    | (?P<char>'(?:[^'\\\n]|\\.)+')
    | (?P<number>\d(?:[\w.']|(?<=[eE])[+-])*)
    | (?P<word>[A-Za-z_]\w*)
    | (?P<sign>\.\.\.|<<=|->\*|->|::|\+\+|--|<<|&&|\|\||[<>=!+\-*/%|&^]=|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
CLOSERS = {"(": ")", "[": "]", "{": "}"}
LABELS = {"case", "default", "public", "protected", "private"}
JUMPS = {"return", "break", "continue", "throw"}


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int
    partner: int = -1  # of a bracket: index of the one that it belongs to


@dataclass
class Statement:
    """Tokens `first` to `last`. A condition is the range of tokens between the parentheses."""

    kind: str  # simple, jump, label, or the keyword of a compound one
    first: int
    last: int
    condition: tuple[int, int] | None = None


@dataclass
class Scope:
    """Statements of one block, or declarations of one class or namespace."""

    kind: str  # block, class or namespace
    statements: list[Statement] = field(default_factory=list)


class Source:
    """One file. Ranges of tokens are pairs of indices, the second one exclusive."""

    def __init__(self, text: str):
        self.text = text
        self.tokens = [
            Token(match.lastgroup, match.group(), match.start(), match.end())
            for match in TOKEN.finditer(text)
            if match.lastgroup != "skip"
        ]
        self.scopes: list[Scope] = []
        self.functions: list[tuple[int, int, str]] = []  # body, name
        self.initialiser_lists: list[tuple[int, int]] = []  # of constructors, without the colon
        self.live: list[tuple[int, int]] = []  # what is code: bodies and initial values
        self.enumerations: list[tuple[int, int]] = []  # between the braces
        self.types: list[tuple[int, int]] = []  # the same of classes and enumerations
        self._line_starts = [0] + [match.end() for match in re.finditer("\n", text)]
        self._match_brackets()
        self._declarations("namespace", 0, len(self.tokens))

    def line_of(self, token: int) -> int:
        return bisect_right(self._line_starts, self.tokens[token].start)

    def text_of_line(self, line: int) -> str:
        end = self._line_starts[line] if line < len(self._line_starts) else len(self.text)
        return self.text[self._line_starts[line - 1] : end].strip()

    def function_of(self, token: int) -> str:
        """Name of the function whose body holds the token, or an empty string."""
        return next((name for first, end, name in self.functions if first <= token < end), "")

    def is_in_type(self, token: int) -> bool:
        return any(first <= token < end for first, end in self.types)

    def is_binary(self, index: int) -> bool:
        """Whether a sign stands between spaces, as binary operators do."""
        token = self.tokens[index]
        return self.text[token.start - 1].isspace() and self.text[token.end].isspace()

    def declared_name(self, first: int, last: int) -> str:
        """The name that a statement declares, or an empty string if it looks like no declaration."""
        end = self._find("=;({", first, last)
        before = self.tokens[end - 2] if end - first > 1 else None
        is_declaration = before and (before.kind == "word" or before.text in ("*", "&", ">"))
        return self.tokens[end - 1].text if is_declaration else ""

    def elements(self, first: int, end: int) -> list[tuple[int, int]]:
        """What the commas between two brackets separate; an empty one after the last is left out."""
        found, start, index = [], first, first
        while index < end:
            if self.tokens[index].text == ",":
                found.append((start, index))
                start = index + 1
            index = self._after(index)
        return found + [(start, end)] if start < end else found

    def _match_brackets(self) -> None:
        opened = []
        for index, token in enumerate(self.tokens):
            if token.kind != "sign":
                continue
            if token.text in CLOSERS:
                opened.append(index)
            elif token.text in CLOSERS.values():
                token.partner = opened.pop()
                self.tokens[token.partner].partner = index

    def _after(self, index: int) -> int:
        """The token after this one, or after the brackets that it opens."""
        token = self.tokens[index]
        return (token.partner if token.text in CLOSERS else index) + 1

    def _find(self, texts: str, index: int, end: int) -> int:
        """The first of some one-character signs outside brackets, or `end`."""
        while index < end and self.tokens[index].text not in texts:
            index = self._after(index)
        return index

    def _declarations(self, kind: str, first: int, end: int) -> None:
        scope = Scope(kind)
        self.scopes.append(scope)
        while first < end:
            if self.tokens[first].text in LABELS:
                first = self._find(":", first, end) + 1
                continue
            last = self._declaration(first, end)
            scope.statements.append(Statement("declaration", first, last))
            first = last + 1

    def _declaration(self, first: int, end: int) -> int:
        """Walks through one declaration; returns its last token."""
        first = index = self._after_template_head(first)
        parameters = constructor = -1
        while index < end:
            text = self.tokens[index].text
            if text == ";":
                return index
            if text == "(" and parameters < 0:
                parameters = index
            elif text == ":" and parameters >= 0 and constructor < 0:
                constructor = index + 1
            elif text == "=" and self.tokens[index - 1].text != "operator":
                stop = self._find(";", index, end)
                self.live.append((index + 1, stop))
                return stop
            elif text == "{" and not (constructor >= 0 and self.tokens[index - 1].kind == "word"):
                return self._braces(first, index, parameters, constructor)
            index = self._after(index)
        return end - 1

    def _after_template_head(self, index: int) -> int:
        if self.tokens[index].text != "template":
            return index
        depth = 0
        while True:
            index += 1
            depth += {"<": 1, ">": -1}.get(self.tokens[index].text, 0)
            if depth == 0:
                return self._after_template_head(index + 1)

    def _braces(self, first: int, index: int, parameters: int, constructor: int) -> int:
        """The braces that a declaration ends with; returns the declaration's last token."""
        words = {token.text for token in self.tokens[first:index]}
        close = self.tokens[index].partner
        if parameters >= 0:
            name = self.tokens[parameters - 1].text
            if self.tokens[parameters - 2].text == "~":
                name = "~" + name
            if constructor >= 0:
                self.initialiser_lists.append((constructor, index))
                self.live.append((constructor, index))
            self.functions.append((first, close, name))
            self.live.append((index + 1, close))
            self._block(index + 1, close)
            return close
        if "namespace" in words:
            self._declarations("namespace", index + 1, close)
            return close
        if words & {"class", "struct", "union", "enum"}:
            self.types.append((index + 1, close))
        if "enum" in words:
            self.enumerations.append((index + 1, close))
        elif words & {"class", "struct", "union"}:
            self._declarations("class", index + 1, close)
            return self._find(";", close + 1, len(self.tokens))
        self.live.append((index, close + 1))
        return self._find(";", close + 1, len(self.tokens))

    def _block(self, index: int, end: int) -> None:
        scope = Scope("block")
        self.scopes.append(scope)
        while index < end:
            scope.statements.append(self._statement(index, end))
            index = scope.statements[-1].last + 1

    def _statement(self, index: int, end: int) -> Statement:
        text = self.tokens[index].text
        if text == "{":
            close = self.tokens[index].partner
            self._block(index + 1, close)
            return Statement("block", index, close)
        if text in ("if", "for", "while", "switch"):
            return self._controlled(text, index, end)
        if text == "try":
            last = self._statement(index + 1, end).last
            while self.tokens[last + 1].text == "catch":
                last = self._statement(self._after(last + 2), end).last
            return Statement("try", index, last)
        if text in LABELS:
            return Statement("label", index, self._find(":", index, end))
        kind = "jump" if text in JUMPS else "simple"
        return Statement(kind, index, self._find(";", index, end))

    def _controlled(self, keyword: str, index: int, end: int) -> Statement:
        opening = self._find("(", index, end)
        closing = self.tokens[opening].partner
        last = self._body(closing + 1, end)
        if keyword == "if" and last + 1 < end and self.tokens[last + 1].text == "else":
            last = self._body(last + 2, end)
        return Statement(keyword, index, last, (opening + 1, closing))

    def _body(self, index: int, end: int) -> int:
        """A statement that another one controls; returns its last token."""
        statement = self._statement(index, end)
        if statement.kind != "block":
            self.scopes.append(Scope("block", [statement]))
        return statement.last
