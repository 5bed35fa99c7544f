"""What is known of survivors, what came out of earlier runs, and what is printed."""

import hashlib
from collections import Counter
from pathlib import Path

from breaks import Break

OUTCOMES = {"killed": "killed", "survived": "survived", "no code": "changed no code",
            "not compiled": "did not compile"}


class Equivalents:
    """Breaks that change nothing: sentences, and directly below each, indented, their names."""

    def __init__(self, path: Path):
        self.names: set[str] = set()
        self.mistakes: list[str] = []
        sentence = ""
        for number, line in enumerate(path.read_text().splitlines() if path.exists() else [], 1):
            name = line.strip()
            if not line.startswith(" "):
                sentence = name
                continue
            if not sentence:
                self.mistakes.append(f"line {number}: no sentence above: {name}")
            if name in self.names:
                self.mistakes.append(f"line {number}: listed twice: {name}")
            self.names.add(name)

    def stale(self, outcomes: dict[Break, str], files: set[str], known: set[str]) -> list[str]:
        """Entries for these files of breaks that no longer exist, or that no longer survive."""
        gone = [f"does not exist: {name}" for name in sorted(self.names - known)
                if name.split(":")[0] in files]
        return gone + [f"is {OUTCOMES[outcome]}: {broken.name}"
                       for broken, outcome in outcomes.items()
                       if broken.name in self.names and outcome != "survived"]


class Results:
    """A file of outcomes, written as they come, so that a later run need not find them again."""

    def __init__(self, path: Path | None):
        self.path = path
        self.outcomes: dict[str, str] = {}
        if path and path.exists():
            for line in path.read_text().splitlines():
                key, outcome, _ = line.split("\t", 2)
                self.outcomes[key] = outcome

    def outcome(self, broken: Break) -> str | None:
        """None for what has survived, too: a new test may kill it."""
        outcome = self.outcomes.get(_key(broken))
        return None if outcome == "survived" else outcome

    def add(self, broken: Break, outcome: str) -> None:
        if self.path:
            with self.path.open("a") as file:
                file.write(f"{_key(broken)}\t{outcome}\t{broken.name}\n")


def _key(broken: Break) -> str:
    """Belongs to the break of the file as it is now, not as it was when it had other lines."""
    return hashlib.sha256(f"{broken.file}\n{broken.text}".encode()).hexdigest()[:20]


def summary(outcomes: dict[Break, str]) -> str:
    counts = Counter(outcomes.values())
    return ", ".join(f"{words} {counts[outcome]}" for outcome, words in OUTCOMES.items())
