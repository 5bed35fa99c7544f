"""script/mutate at work on the project in fixture/, whose test says what it misses."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from breaks import breaks_of
from build import Processes

MUTATE = HERE.parent.parent / "script/mutate"


class Run(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.temporary = self.folder / "temporary"
        self.temporary.mkdir()
        self.project = self.folder / "project"
        shutil.copytree(HERE / "fixture", self.project)

    def command(self, *options: str) -> list[str]:
        return [str(MUTATE), "--project", str(self.project), "--targets", "limit-test",
                "--jobs", "1", *options]

    def run_mutate(self, *options: str) -> tuple[int, list[str]]:
        done = subprocess.run(self.command(*options), capture_output=True, text=True,
                              env=os.environ | {"TMPDIR": str(self.temporary)})
        self.assertEqual(list(self.temporary.iterdir()), [])
        self.assertEqual(done.stderr if done.returncode != 2 else "", "")
        return done.returncode, done.stdout.splitlines()

    def test_survivors_are_printed_unless_a_sentence_explains_them(self):
        status, lines = self.run_mutate()
        self.assertEqual(status, 1)
        place = "survived: src/limit.cpp:{}: in limited: {}: {}"
        self.assertCountEqual(lines[:-1], [
            place.format(6, "else if (value < 0)", "value < 0 becomes false"),
            place.format(6, "else if (value < 0)", "0 becomes -1"),
            place.format(7, "value = 0;", "is removed"),
            place.format(7, "value = 0;", "0 becomes 1"),
            place.format(7, "value = 0;", "0 becomes -1"),
        ])
        self.assertRegex(lines[-1], r"^21 breaks in \d+ s: killed 10, survived 7, changed no code 4, "
                                    r"did not compile 0; 5 survivors are not explained$")

    def test_an_explanation_that_does_not_hold_is_an_error(self):
        # Every other break is explained, so that the exit status is that of the mistakes.
        (self.project / "src/limit.cpp").write_text(
            "int limited(int value) {\n    return value > 100 ? 100 : value;\n}\n")
        place = "src/limit.cpp: limited: return value > 100 ? 100 : value;"
        (self.project / "tests/mutation/equivalent.txt").write_text(
            f"A sentence.\n    {place}: 100 becomes 101\n    {place}: = becomes ==\n\n"
            f"    {place}: > becomes >=\n")
        status, lines = self.run_mutate(str(self.project / "src/limit.cpp"))
        self.assertEqual(status, 1)
        self.assertCountEqual(lines[:-1], [
            f"equivalent.txt: line 5: no sentence above: {place}: > becomes >=",
            f"equivalent.txt: does not exist: {place}: = becomes ==",
            f"equivalent.txt: is killed: {place}: 100 becomes 101",
            f"equivalent.txt: is changed no code: {place}: > becomes >=",
        ])
        self.assertIn("0 survivors are not explained", lines[-1])

    def test_known_outcomes_are_kept_but_those_of_survivors(self):
        results = self.folder / "results"
        self.run_mutate("--every", "2", "--results", str(results))
        first = results.read_text().splitlines()
        self.assertEqual(len(first), 11)
        self.run_mutate("--every", "2", "--results", str(results))
        again = results.read_text().splitlines()[len(first):]
        self.assertCountEqual(again, [line for line in first if "\tsurvived\t" in line])
        self.assertNotEqual(again, [])

    def test_tests_that_fail_without_any_break_are_an_error(self):
        test = self.project / "tests/limit_test.cpp"
        test.write_text(test.read_text().replace("passed ? 0", "!passed ? 0"))
        status, _ = self.run_mutate()
        self.assertEqual(status, 2)

    def test_a_signal_leaves_nothing_behind(self):
        process = subprocess.Popen(self.command(), stdout=subprocess.DEVNULL,
                                   env=os.environ | {"TMPDIR": str(self.temporary)})
        while not list(self.temporary.glob("*/worker0")) and process.poll() is None:
            time.sleep(0.01)
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(60), 128 + signal.SIGTERM)
        self.assertEqual(list(self.temporary.iterdir()), [])


class Parts(unittest.TestCase):
    def test_a_program_that_hangs_is_killed_with_its_children(self):
        start = time.monotonic()
        status, _ = Processes().run(["sh", "-c", "sleep 60; true"], HERE, limit=0.2)
        self.assertEqual(status, -signal.SIGKILL)
        self.assertLess(time.monotonic() - start, 30)

    def changes(self, text: str) -> list[str]:
        return [broken.change for broken in breaks_of("file.cpp", text, {"low": {"Level": "high"}})]

    def test_operators_and_constants(self):
        self.assertCountEqual(self.changes("bool f(int a) {\n    return a == 1 && !low;\n}\n"), [
            "a == 1 && !low becomes {}", "a == 1 is left out",
            "== becomes !=", "1 becomes 2", "1 becomes 0", "&& becomes ||", "!low is left out",
            "!low loses its !", "low becomes high"])

    def test_operands_change_places_where_one_may_do_something(self):
        changes = self.changes("bool f() {\n    return a() || b;\n}\n")
        self.assertIn("a() changes places with b", changes)

    def test_template_brackets_and_references_are_no_operators(self):
        self.assertEqual(self.changes("template <class T>\nvoid f(T&& a, T* b) {\n    ;\n}\n"), [])

    def test_statements(self):
        changes = self.changes("void f() {\n    one();\n    two();\n    return;\n}\n")
        self.assertCountEqual(changes, ["is removed", "one(); changes places with two();",
                                        "is removed", "is removed"])

    def test_what_is_used_later_is_not_removed(self):
        self.assertEqual(self.changes("void f() {\n    const int a = g();\n    h(a);\n}\n"),
                         ["is removed"])

    def test_texts(self):
        self.assertEqual(self.changes('const char* text = "a\\n";\nconst char* empty = "";\n'), [
            '"a\\n" becomes "a"', '"" becomes "x"'])

    def test_members_change_places(self):
        text = "class A {\n  public:\n    void f();\n\n  private:\n    int a;\n    bool b;\n};\n"
        self.assertEqual(self.changes(text), ["int a; changes places with bool b;"])


if __name__ == "__main__":
    unittest.main()
