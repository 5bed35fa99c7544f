"""Builds the tests once, and again with one source file broken."""

import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import threading
import time
from pathlib import Path

from breaks import Break

SOURCES = "src"  # the folder that is broken; all other objects are tests
CLANG = shutil.which("clang++")  # takes half the time of g++
MEMORY_LIMIT = 4 << 30  # of a test run, in bytes


class Ended(Exception):
    """All programs have been ended."""


class BuildError(Exception):
    """The project does not build, or its tests fail, without any break."""


class Processes:
    """The programs that are running, so that all of them can be ended at once."""

    def __init__(self):
        self._lock = threading.Lock()
        self._running: set[subprocess.Popen] = set()
        self._ended = False

    def run(self, command: list[str], folder: Path, environment: dict[str, str] | None = None,
            limit: float | None = None, memory: int | None = None) -> tuple[int, str]:
        """Exit status and output; a program that exceeds its time limit (seconds) is killed."""
        def set_limits() -> None:
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            if memory:
                resource.setrlimit(resource.RLIMIT_AS, (memory, memory))

        with self._lock:
            if self._ended:
                raise Ended
            process = subprocess.Popen(
                command, cwd=folder, env=environment, preexec_fn=set_limits, text=True,
                start_new_session=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, errors="replace")
            self._running.add(process)
        try:
            output, _ = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            self._kill(process)
            output, _ = process.communicate()
        except BaseException:  # a signal, which ends the script
            self._kill(process)
            raise
        finally:
            with self._lock:
                self._running.discard(process)
        if self._ended:
            raise Ended
        return process.returncode, output

    def end(self) -> None:
        with self._lock:
            self._ended = True
            for process in self._running:
                self._kill(process)

    @staticmethod
    def _kill(process: subprocess.Popen) -> None:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass


class Build:
    """A copy of the project, its tests built, in a folder that the caller removes."""

    def __init__(self, project: Path, folder: Path, targets: list[str], processes: Processes):
        self.tree, self.folder, self.processes = folder / "tree", folder / "build", processes
        shutil.copytree(project, self.tree, symlinks=True,
                        ignore=shutil.ignore_patterns("build", ".git"))
        self._make(targets)
        self.links = {target: self._link_command(target) for target in targets}
        used = {word for command in self.links.values() for word in command}
        self.compilations = self._compilations(used)
        self.includes = self._includes()
        self.precompiled = self._precompiled()
        self.limits = {target: self._time_limit(target) for target in targets}

    def objects_of(self, file: str) -> list[str]:
        """The objects that a source file goes into, its own or those that include it."""
        path = str(self.tree / file)
        return [name for name in self.compilations if path in self.includes[name]]

    def is_test(self, name: str) -> bool:
        sources = str(self.tree / SOURCES) + "/"
        return not any(word.startswith(sources) for word in self.compilations[name])

    def _make(self, targets: list[str]) -> None:
        linker = next((name for name in ("lld", "gold") if shutil.which(f"ld.{name}")), "bfd")
        compiler = [f"-DCMAKE_CXX_COMPILER={CLANG}"] if CLANG and "CXX" not in os.environ else []
        self._check(["cmake", "-S", self.tree, "-B", self.folder, "-G", "Ninja", *compiler,
                     "-DCMAKE_BUILD_TYPE=", "-DCMAKE_CXX_FLAGS=-O0 -w",
                     f"-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld={linker}",
                     "-DFENWA_TOOLS=OFF", "-DFENWA_TESTS=ON"])
        self._check(["cmake", "--build", self.folder, "--target", *targets])

    def _check(self, command: list) -> str:
        environment = os.environ | {"CCACHE_BASEDIR": str(self.folder.parent)}
        status, output = self.processes.run([str(word) for word in command], self.folder.parent,
                                            environment)
        if status != 0:
            raise BuildError(output)
        return output

    def _link_command(self, target: str) -> list[str]:
        commands = self._check(["ninja", "-C", self.folder, "-t", "commands", target])
        words = shlex.split(commands.strip().splitlines()[-1])
        return words[words.index("&&") + 1 : len(words) - words[::-1].index("&&") - 1]

    def _compilations(self, used: set[str]) -> dict[str, list[str]]:
        entries = json.loads((self.folder / "compile_commands.json").read_text())
        commands = [_without_cache(shlex.split(entry["command"])) for entry in entries]
        outputs = [command[command.index("-o") + 1] for command in commands]
        return {name: command for name, command in zip(outputs, commands) if name in used}

    def _includes(self) -> dict[str, set[str]]:
        includes: dict[str, set[str]] = {}
        for line in self._check(["ninja", "-C", self.folder, "-t", "deps"]).splitlines():
            if line.startswith("    "):
                includes[name].add(str((self.folder / line.strip()).resolve()))
            elif line:
                name = line.split(":")[0]
                includes[name] = set()
        return includes

    def _precompiled(self) -> list[str]:
        """With clang, what the sources include of others is parsed once, which saves most time."""
        words = next(list(words) for name, words in self.compilations.items()
                     if not self.is_test(name))
        if Path(words[0]) != Path(CLANG or ""):
            return []
        paths = [path for folder in (SOURCES, "include")
                 for path in (self.tree / folder).rglob("*.?pp")]
        lines = {line for path in paths
                 for line in re.findall(rf'^#include (?!"{SOURCES}/).*', path.read_text(), re.M)}
        header = self.folder / "precompiled.hpp"
        header.write_text("\n".join(sorted(lines)) + "\n")
        output = str(header.with_suffix(".pch"))
        words[words.index("-c") :] = ["-x", "c++-header", "-fpch-instantiate-templates", header]
        words[words.index("-o") + 1] = output
        self._check(words)
        return ["-include-pch", output]

    def _time_limit(self, target: str) -> float:
        program = self.folder / self._output(target)
        start = time.monotonic()
        status, output = run_tests(self.processes, program, self.folder, None)
        if status != 0:
            raise BuildError(f"{target} fails without any break:\n{output}")
        return 5 + 10 * (time.monotonic() - start)

    def _output(self, target: str) -> str:
        command = self.links[target]
        return command[command.index("-o") + 1]


def run_tests(processes: Processes, program: Path, folder: Path,
              limit: float | None) -> tuple[int, str]:
    """Memory that nobody has set holds no zeros, so that a missing initial value shows."""
    environment = os.environ | {"MALLOC_PERTURB_": "165", "TMPDIR": str(folder)}
    return processes.run([str(program), "--gtest_fail_fast", "--gtest_brief=1"], folder,
                         environment, limit, MEMORY_LIMIT)


def _without_cache(command: list[str]) -> list[str]:
    """No broken file comes a second time, so the compiler's cache is left out."""
    return command[1:] if Path(command[0]).name in ("ccache", "sccache") else command


class Workshop:
    """One worker's place: breaks files in a copy of its own, builds and tests them."""

    def __init__(self, build: Build, folder: Path):
        self.build, self.processes = build, build.processes
        self.tree, self.objects, self.scratch = folder / "tree", folder / "objects", folder / "run"
        shutil.copytree(build.tree / SOURCES, self.tree / SOURCES, symlinks=True)
        self.objects.mkdir()

    def outcome(self, broken: Break) -> str:
        """What becomes of a break: killed, survived, no code or not compiled."""
        path = self.tree / broken.file
        original = path.read_text()
        path.write_text(broken.text)
        try:
            return self._outcome(broken)
        finally:
            path.write_text(original)

    def _outcome(self, broken: Break) -> str:
        objects = self.build.objects_of(broken.file)
        sources = [name for name in objects if not self.build.is_test(name)]
        tests = [name for name in objects if self.build.is_test(name)] if broken.layout else []
        changed: list[str] = []
        for name in sources:
            if not self._compile(name):
                return "not compiled"
            if not self._differs(name):
                continue
            changed.append(name)
            # What is noticed in one source that includes a header is noticed in all of them.
            if not broken.layout and (outcome := self._tested(changed, tests)) != "survived":
                return outcome
        if changed and broken.layout and (outcome := self._tested(changed, tests)) != "survived":
            return outcome
        differs = any(self._compile(name, "-O2") and self._differs(name, "-O2") for name in changed)
        return "survived" if differs else "no code"

    def _tested(self, changed: list[str], tests: list[str]) -> str:
        """Killed, survived or not compiled, by these objects of the sources and of the tests."""
        for target in sorted(self.build.links, key=lambda target: len(self._of(tests, target))):
            if not all(self._compile(name) for name in self._of(tests, target)):
                return "killed"
            program = self.objects / target
            if not self._link(target, program, changed + tests):
                return "not compiled"
            if not self._passes(program, self.build.limits[target]):
                return "killed"
        return "survived"

    def _of(self, names: list[str], target: str) -> list[str]:
        return [name for name in names if name in self.build.links[target]]

    def _path(self, name: str) -> Path:
        return self.objects / name.replace("/", "%")

    def _compile(self, name: str, *options: str) -> bool:
        return self._compile_in(self.tree, name, self._path(name), options)

    def _compile_in(self, tree: Path, name: str, output: Path, options: tuple[str, ...]) -> bool:
        """Takes the sources from a tree, on which what comes out does not depend."""
        compiler, *words = self.build.compilations[name]
        sources = str(self.build.tree / SOURCES) + "/"
        words = [word.replace(sources, f"{tree / SOURCES}/") for word in words]
        words[words.index("-o") + 1] = str(output)
        words = [compiler, f"-I{tree}", *words, f"-ffile-prefix-map={tree}=.", *options]
        if not options and not self.build.is_test(name):
            words += self.build.precompiled
        return self.processes.run(words, self.build.folder)[0] == 0

    def _differs(self, name: str, *options: str) -> bool:
        """Whether an object is another one than that of the source as it is."""
        original = self.objects / f"original{''.join(options)}%{name.replace('/', '%')}"
        if not original.exists():
            self._compile_in(self.build.tree, name, original, options)
        return self._path(name).read_bytes() != original.read_bytes()

    def _link(self, target: str, program: Path, changed: list[str]) -> bool:
        words = [str(self._path(word)) if word in changed else word
                 for word in self.build.links[target]]
        words[words.index("-o") + 1] = str(program)
        return self.processes.run(words, self.build.folder)[0] == 0

    def _passes(self, program: Path, limit: float) -> bool:
        self.scratch.mkdir()
        try:
            return run_tests(self.processes, program, self.scratch, limit)[0] == 0
        finally:
            shutil.rmtree(self.scratch)
