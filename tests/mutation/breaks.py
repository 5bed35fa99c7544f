"""Makes the single breaks of a source file: each is what a slip of the hand would have left."""

import re
from dataclasses import dataclass
from pathlib import Path

from source import JUMPS, Source, Statement

COMPARISONS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
REPLACEMENTS = COMPARISONS | {
    "&&": "||", "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*",
    "+=": "-=", "-=": "+=", "++": "--", "--": "++",
}
# Binary operators, the loosest first; what stands further up also bounds an operand.
LEVELS = [{"||"}, {"&&"}, set(COMPARISONS), {"<<"}, {"+", "-"}]
BOUNDS = {"(", "[", "{", ")", "]", "}", ",", ";", "=", "?", ":", "return", "+=", "-="}
WORDS = {"true": "false", "false": "true", "break": "continue", "continue": "break"}
CONSTANTS = {"true", "false", "nullptr"}
LONGEST_QUOTE = 60
ENUM = re.compile(r"\benum\s+(?:class\s+|struct\s+)?(\w+)[^;{]*\{(.*?)\}", re.DOTALL)


@dataclass(frozen=True)
class Break:
    file: str  # relative to the project
    line: int
    function: str  # empty outside of functions
    place: str  # the line as it is written
    change: str
    text: str  # the whole file, broken
    layout: bool  # concerns members of a class or enumerators, which tests are compiled against

    @property
    def name(self) -> str:
        """Tells the break from every other one, also when lines move."""
        return f"{self.file}: {self.function or '-'}: {self.place}: {self.change}"


# Of each enumerator: for the names of its enumerations the enumerator that follows.
Enumerators = dict[str, dict[str, str]]


def enumerators(paths: list[Path]) -> Enumerators:
    """The enumerators that some files declare."""
    following: Enumerators = {}
    for path in paths:
        for match in ENUM.finditer(re.sub(r"//[^\n]*", "", path.read_text())):
            names = re.findall(r"(?:^|,)\s*(\w+)", match[2])
            for name, successor in zip(names, names[1:] + names[:1]):
                following.setdefault(name, {})[match[1]] = successor
    return following


def breaks_of(file: str, text: str, next_enumerators: Enumerators) -> list[Break]:
    """All breaks of one file, in the order of its lines."""
    return _Breaker(file, Source(text), next_enumerators).all()


class _Breaker:
    def __init__(self, file: str, source: Source, next_enumerators: Enumerators):
        self.file = file
        self.source = source
        self.tokens = source.tokens
        self.next_enumerators = next_enumerators
        self.found: list[tuple[int, Break]] = []
        self.texts = {source.text}
        self.counts: dict[str, int] = {}

    def all(self) -> list[Break]:
        for scope in self.source.scopes:
            self._statements(scope.kind, scope.statements)
        for first, end in self.source.initialiser_lists:
            self._elements(self.source.elements(first, end))
        for first, end in self.source.live:
            for index in range(first, end):
                self._token(index)
        self.found.sort(key=lambda pair: pair[0])
        return [self._numbered(broken) for _, broken in self.found]

    def _numbered(self, broken: Break) -> Break:
        """Equal breaks of equal lines of one function are counted, so that each has its name."""
        count = self.counts[broken.name] = self.counts.get(broken.name, 0) + 1
        if count == 1:
            return broken
        return Break(**(vars(broken) | {"change": f"{broken.change} ({count})"}))

    # What every break is made of.

    def _add(self, index: int, change: str, *edits: tuple[int, int, str]) -> None:
        """Edits are (start, end, text), with offsets in the file."""
        text = self.source.text
        for start, end, replacement in sorted(edits, reverse=True):
            text = text[:start] + replacement + text[end:]
        if text in self.texts:
            return
        self.texts.add(text)
        line = self.source.line_of(index)
        place = self.source.text_of_line(line)
        function = self.source.function_of(index)
        layout = not function and self.source.is_in_type(index)
        self.found.append((index, Break(self.file, line, function, place, change, text, layout)))

    def _span(self, first: int, end: int) -> tuple[int, int]:
        return self.tokens[first].start, self.tokens[end - 1].end

    def _written(self, first: int, end: int) -> str:
        start, stop = self._span(first, end)
        text = re.sub(r"\s+", " ", self.source.text[start:stop])
        return text if len(text) <= LONGEST_QUOTE else text[: LONGEST_QUOTE - 3] + "..."

    def _replace(self, first: int, end: int, text: str, change: str = "") -> None:
        change = change or f"{self._written(first, end)} becomes {text}"
        self._add(first, change, (*self._span(first, end), text))

    def _swap(self, left: tuple[int, int], right: tuple[int, int]) -> None:
        a, b = self._span(*left), self._span(*right)
        change = f"{self._written(*left)} changes places with {self._written(*right)}"
        self._add(left[0], change, (*a, self.source.text[slice(*b)]),
                  (*b, self.source.text[slice(*a)]))

    # Orders and removed lines.

    def _statements(self, kind: str, statements: list[Statement]) -> None:
        for statement in statements:
            if kind == "block":
                self._statement(statement)
        for one, other in zip(statements, statements[1:]):
            if self._may_change_places(kind, one, other):
                self._swap((one.first, one.last + 1), (other.first, other.last + 1))

    def _may_change_places(self, kind: str, one: Statement, other: Statement) -> bool:
        if kind == "class":
            return self._is_stored(one) and self._is_stored(other)
        # Before a jump a statement's change of places is its removal.
        if kind != "block" or {one.kind, other.kind} & {"jump", "label"}:
            return False
        if self._declares_constant(one) or self._declares_constant(other):
            return False
        name = self.source.declared_name(one.first, one.last)
        return not name or not self._is_used(name, other.first, other.last)

    def _declares_constant(self, statement: Statement) -> bool:
        """Whether a declaration computes nothing, so that it can stand anywhere before its use."""
        name = self.source.declared_name(statement.first, statement.last)
        tokens = self.tokens[statement.first : statement.last]
        value = tokens[[token.text for token in tokens].index(name) + 1 :] if name else []
        return bool(name) and all(token.kind != "word" or token.text in CONSTANTS
                                  for token in value)

    def _is_used(self, name: str, first: int, end: int) -> bool:
        return any(token.text == name for token in self.tokens[first:end])

    def _is_stored(self, statement: Statement) -> bool:
        """Whether a declaration of a class has a place in its objects or its table of functions."""
        words = {token.text for token in self.tokens[statement.first : statement.last]}
        if words & {"using", "friend", "static", "enum", "struct", "class"}:
            return False
        return "virtual" in words or "(" not in words

    def _statement(self, statement: Statement) -> None:
        if self._may_go(statement):
            self._replace(statement.first, statement.last + 1, ";", "is removed")
        if statement.condition:
            self._condition(statement.kind, *statement.condition)
        if statement.kind == "for" and self._is_range_for(statement):
            self._replace(statement.first, statement.last + 1, ";", "the loop is removed")
        if self.tokens[statement.first].text == "return" and statement.last > statement.first + 2:
            self._replace(statement.first + 1, statement.last, "{}")

    def _may_go(self, statement: Statement) -> bool:
        """Whether a statement can be removed, which leaves a program whose behaviour is defined."""
        end = next(end for first, end, _ in self.source.functions if first < statement.first < end)
        if statement.kind == "simple":
            name = self.source.declared_name(statement.first, statement.last)
            return not name or not self._is_used(name, statement.last, end)
        if statement.kind != "jump":
            return False
        # Without its last return a function that has a result gives anything.
        return statement.last + 1 != end or statement.last == statement.first + 1

    def _is_range_for(self, statement: Statement) -> bool:
        return not any(token.text == ";" for token in self.tokens[slice(*statement.condition)])

    def _condition(self, kind: str, first: int, end: int) -> None:
        parts = [index for index in range(first, end) if self.tokens[index].text == ";"]
        if kind == "for" and len(parts) == 2:
            first, end = parts[0] + 1, parts[1]
        elif kind in ("if", "while"):
            first = parts[0] + 1 if parts else first
        else:
            return
        if first == end:
            return
        # A loop that does not end would only be stopped by the time limit.
        for text in ("true", "false") if kind == "if" else ("false",):
            self._replace(first, end, text)

    def _elements(self, elements: list[tuple[int, int]]) -> None:
        """What stands on lines of its own in a list: each is left out, and changes places."""
        lines = {self.source.line_of(first) for first, _ in elements}
        if len(elements) < 2 or len(lines) < len(elements):
            return
        for number, (first, end) in enumerate(elements):
            if number + 1 < len(elements):
                span = self.tokens[first].start, self.tokens[elements[number + 1][0]].start
            else:
                span = self.tokens[elements[number - 1][1] - 1].end, self.tokens[end - 1].end
            self._add(first, f"{self._written(first, end)} is removed", (*span, ""))
        if elements[0][0] not in {first for first, _ in self.source.initialiser_lists}:
            for one, other in zip(elements, elements[1:]):
                self._swap(one, other)

    def _arguments(self, opening: int) -> None:
        elements = self.source.elements(opening + 1, self.tokens[opening].partner)
        if (opening + 1, self.tokens[opening].partner) in self.source.enumerations:
            return
        if self.tokens[opening].text == "{":
            self._elements(elements)
        for one, other in zip(elements, elements[1:]):
            kinds = self._simple_kind(*one), self._simple_kind(*other)
            if kinds[0] and kinds[0] == kinds[1]:
                self._swap(one, other)

    def _simple_kind(self, first: int, end: int) -> str:
        """Arguments of one kind may be of one type: names (and their members), or literals."""
        tokens = self.tokens[first:end]
        if len(tokens) == 1 and tokens[0].kind in ("string", "number"):
            return tokens[0].kind
        names, signs = tokens[::2], tokens[1::2]
        is_name = all(token.kind == "word" for token in names)
        return "name" if is_name and all(t.text in (".", "->", "::") for t in signs) else ""

    # Operators, constants and texts.

    def _token(self, index: int) -> None:
        token = self.tokens[index]
        if token.kind == "string":
            self._string(index)
        elif token.kind == "char":
            self._replace(index, index + 1, "'x'")
        elif token.kind == "number":
            self._number(index)
        elif token.kind == "word":
            self._word(index)
        else:
            self._sign(index)

    def _string(self, index: int) -> None:
        quoted = self.tokens[index].text
        before, content = quoted[: quoted.index('"') + 1], quoted[quoted.index('"') + 1 : -1]
        letters = re.findall(r"\\.|.", content)
        text = "".join(letters[:-1]) if letters else "x"
        self._replace(index, index + 1, f'{before}{text}"')

    def _number(self, index: int) -> None:
        match = re.fullmatch(r"(\d+)(\.\d+)?(\w*)", self.tokens[index].text)
        if not match:
            return
        value, fraction, suffix = int(match[1]), match[2] or "", match[3]
        self._replace(index, index + 1, f"{value + 1}{fraction}{suffix}")
        if not fraction and (value > 0 or "U" not in suffix):
            self._replace(index, index + 1, f"{value - 1}{suffix}")

    def _word(self, index: int) -> None:
        text = self.tokens[index].text
        before = self.tokens[index - 1].text
        if text in WORDS:
            self._replace(index, index + 1, WORDS[text])
        elif any(first <= index < end for first, end in self.source.enumerations):
            return
        elif text in self.next_enumerators and before not in (".", "->", "&"):
            following = self.next_enumerators[text]
            enumeration = self.tokens[index - 2].text if before == "::" else ""
            named = [following[enumeration]] if enumeration in following else following.values()
            for successor in dict.fromkeys(named):
                self._replace(index, index + 1, successor)

    def _sign(self, index: int) -> None:
        text = self.tokens[index].text
        unary = self._is_unary(index)
        if text in ("(", "{"):
            self._arguments(index)
        elif text == "!" or text == "-" and unary:
            change = f"{self._written(index, index + 2)} loses its {text}"
            self._replace(index, index + 1, "", change)
        elif text == "?":
            self._branches(index)
        elif text in ("++", "--") or not unary and self.source.is_binary(index):
            if text in REPLACEMENTS:
                self._replace(index, index + 1, REPLACEMENTS[text])
            self._operands(index)

    def _is_unary(self, index: int) -> bool:
        before = self.tokens[index - 1]
        return before.text in JUMPS or before.kind == "sign" and before.text not in (")", "]", "}")

    def _branches(self, index: int) -> None:
        colon = self._edge(index, 1, {":"})
        self._swap((index + 1, colon), (colon + 1, self._edge(colon, 1, BOUNDS | {"<<"})))

    def _operands(self, index: int) -> None:
        """Either side of an operator is left out, or both change places."""
        text = self.tokens[index].text
        level = next((n for n, signs in enumerate(LEVELS) if text in signs), None)
        if level is None or text in COMPARISONS:
            return
        bounds = BOUNDS.union(*LEVELS[: level + 1])
        left = self._edge(index, -1, bounds) + 1, index
        right = index + 1, self._edge(index, 1, bounds)
        first_of_chain = self.tokens[left[0] - 1].text != text
        if not (text == "<<" and first_of_chain):
            self._leave_out(left, right[0])
            if text == "<<" or any(self._may_do_something(*side) for side in (left, right)):
                self._swap(left, right)
        self._leave_out(right, right[1], index)

    def _may_do_something(self, first: int, end: int) -> bool:
        return any(token.text in ("(", "++", "--", "=") for token in self.tokens[first:end])

    def _leave_out(self, operand: tuple[int, int], end: int, first: int | None = None) -> None:
        start = self.tokens[operand[0] if first is None else first].start
        stop = self.tokens[operand[1] - 1].end if first is not None else self.tokens[end].start
        self._add(operand[0], f"{self._written(*operand)} is left out", (start, stop, ""))

    def _edge(self, index: int, step: int, bounds: set[str]) -> int:
        """The next token in one direction that bounds an operand, brackets passed over."""
        index += step
        while True:
            token = self.tokens[index]
            passed_over = token.text in (("(", "[", "{") if step > 0 else (")", "]", "}"))
            if passed_over and token.partner >= 0:
                index = token.partner
            elif token.text in bounds and (token.text not in "<>" or self.source.is_binary(index)):
                return index
            index += step
