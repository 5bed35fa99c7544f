#!/usr/bin/env python3
"""Installs the Debian packages in private roots, uses, upgrades, removes and purges them.

    tests/packages/install_test.py PACKAGES

PACKAGES is the folder that script/package has filled, for this machine's architecture or for another
one. The roots are minimal systems of that architecture that mmdebstrap makes with what the packages depend
on, and nothing else; they are kept in build/roots. Needs root.
"""

import functools
import hashlib
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
PACKAGES = Path(sys.argv.pop(1) if len(sys.argv) > 1 else PROJECT / "build/release/packages").resolve()
USERS = ["libfenwa0", "libfenwa-temperature", "fenwa", "fenwa-camera", "fenwa-doc"]
AUTHORS = ["libfenwa0", "libfenwa-temperature", "fenwa", "fenwa-camera", "libfenwa-dev"]
# A plug-in's own project is built with these.
BUILD_TOOLS = ["cmake", "g++", "libgtest-dev", "ninja-build"]
DESK_USER = 1000


def run(*command, **options):
    """Standard output of a command; a failure shows both outputs."""
    done = subprocess.run([str(word) for word in command], text=True, capture_output=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def file_of(package):
    found = [path for path in PACKAGES.glob(f"{package}_*.deb")]
    assert len(found) == 1, f"{len(found)} files of {package} in {PACKAGES}"
    return found[0]


def field(package, name):
    return run("dpkg-deb", "--field", file_of(package), name).strip()


def dependencies(packages):
    """The packages of others that some of ours depend on, the first of each choice."""
    names = set()
    for package in packages:
        for choice in filter(None, field(package, "Depends").split(", ")):
            names.add(choice.split()[0])
    return sorted(name for name in names if "fenwa" not in name)


@functools.cache
def architecture_of_packages():
    return field("libfenwa0", "Architecture")


@functools.cache
def emulation():
    """What a command is put behind so that it can run programs of the packages' architecture."""
    architecture = architecture_of_packages()
    native = architecture == run("dpkg", "--print-architecture").strip()
    return [] if native else [PROJECT / "script/emulated", architecture]


def make_root(folder, packages):
    """Unpacks a minimal system with these packages, which is made at the first time."""
    architecture = architecture_of_packages()
    source = run(PROJECT / "script/sysroot", "--source").strip()
    key = hashlib.sha256(" ".join([architecture, source, *packages]).encode()).hexdigest()[:12]
    archive = PROJECT / "build/roots" / f"{key}.tar"
    if not archive.exists():
        archive.parent.mkdir(parents=True, exist_ok=True)
        made = archive.with_suffix(".part.tar")
        run(*emulation(), "mmdebstrap", "--quiet", "--mode=root", "--variant=essential",
            f"--architectures={architecture}", "--skip=check/qemu",
            f"--include={','.join(['passwd', 'usr-is-merged', *packages])}",
            "--hook-dir=/usr/share/mmdebstrap/hooks/merged-usr", "", made, source)
        made.rename(archive)
    run("tar", "--extract", "--file", archive, "--directory", folder)


class Root:
    """A system of its own below a folder, with our packages beside it in /packages."""

    def __init__(self, packages):
        self.folder = tempfile.TemporaryDirectory(prefix="fenwa-root-")
        self.path = Path(self.folder.name)
        make_root(self.path, packages)
        (self.path / "packages").mkdir()
        # Services are neither started nor stopped in a root without a service manager.
        run("useradd", "--root", self.path, "--uid", DESK_USER, "--create-home", "desk")

    def run(self, *command, user=0):
        """In processes of its own, all of which end with the command."""
        home = "/root" if user == 0 else "/home/desk"
        # An emulator's user namespace may not mount /proc itself.
        return run("unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "--",
                   "sh", "-c", 'mount --bind /proc "$0/proc" && exec "$@"', self.path, *emulation(),
                   "chroot", f"--userspec={user}:{user}", self.path, "env", f"--chdir={home}", *command,
                   env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": home, "LC_ALL": "C.UTF-8"})

    def install(self, files):
        for file in files:
            run("cp", file, self.path / "packages")
        self.run("dpkg", "--install", *[f"/packages/{file.name}" for file in files])
        for file in files:
            (self.path / "packages" / file.name).unlink()

    def files(self):
        """Everything but what dpkg, ldconfig and useradd keep for themselves, with contents."""
        own = re.compile(r"^(var/(lib/dpkg|cache/ldconfig|log)/|etc/ld\.so\.cache$|proc/|packages"
                         r"|etc/(passwd|group|shadow|gshadow|subuid|subgid)-$|etc/\.pwd\.lock$|run/|tmp/)")
        found = {}
        for folder, folders, files in os.walk(self.path):
            for name in folders + files:
                path = Path(folder) / name
                relative = str(path.relative_to(self.path))
                if own.match(relative):
                    continue
                plain = path.is_file() and not path.is_symlink()
                found[relative] = hashlib.sha256(path.read_bytes()).hexdigest() if plain else ""
        return found

    def close(self):
        self.folder.cleanup()


def older(folder, package):
    """The package as a version before this one: another number, and a file that has gone since."""
    tree = folder / package
    run("dpkg-deb", "--raw-extract", file_of(package), tree)
    control = tree / "DEBIAN/control"
    version = field(package, "Version")
    control.write_text(re.sub(rf"\b{re.escape(version)}\b", "0.9.0", control.read_text()))
    gone = tree / "usr/share/doc" / package / "gone"
    gone.write_text("a file of the older version\n")
    file = folder / f"{package}_0.9.0.deb"
    run("dpkg-deb", "--root-owner-group", "--build", tree, file)
    return file


class Packages(unittest.TestCase):
    def test_lintian_has_no_errors_and_no_warnings(self):
        done = subprocess.run(["lintian", "--allow-root", "--fail-on=error,warning",
                               *sorted(PACKAGES.glob("*.deb"))], text=True, capture_output=True)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_an_installation_takes_less_than_5_mb(self):
        sizes = {package: int(field(package, "Installed-Size"))
                 for package in ["libfenwa0", "libfenwa-temperature", "fenwa"]}
        print(f"installed: {sizes} KiB", file=sys.stderr)
        self.assertLess(sum(sizes.values()) * 1024, 5_000_000)

    def test_programs_and_libraries_have_packages_of_debug_symbols(self):
        for package in ["libfenwa0", "libfenwa-temperature", "fenwa", "fenwa-camera"]:
            listing = run("dpkg-deb", "--contents", file_of(f"{package}-dbgsym"))
            self.assertRegex(listing, r"/usr/lib/debug/\.build-id/../.*\.debug\n", package)


class Users(unittest.TestCase):
    """The programs from install to purge, in a system with nothing but their dependencies."""

    @classmethod
    def setUpClass(cls):
        cls.root = Root(dependencies(USERS))
        cls.addClassCleanup(cls.root.close)
        cls.before = cls.root.files()
        cls.scratch = tempfile.TemporaryDirectory(prefix="fenwa-packages-")
        cls.addClassCleanup(cls.scratch.cleanup)

    def installed_version(self, package):
        return self.root.run("dpkg-query", "--show", "--showformat=${Version}", package)

    def test_life(self):
        graph = self.root.path / "etc/fenwa/front.toml"
        old = [older(Path(self.scratch.name), package) for package in USERS]
        with self.subTest("the version before is installed and has a graph"):
            self.root.install(old)
            self.assertEqual(self.installed_version("fenwa"), "0.9.0")
            graph.write_text('plugins = ["libfenwa-temperature.so"]\n')
        with self.subTest("an upgrade keeps the graph and leaves no old file"):
            self.root.install([file_of(package) for package in USERS])
            for package in USERS:
                self.assertEqual(self.installed_version(package), field(package, "Version"))
                self.assertFalse((self.root.path / "usr/share/doc" / package / "gone").exists())
            self.assertEqual(graph.read_text(), 'plugins = ["libfenwa-temperature.so"]\n')
            self.assertIn("\nfenwa:", (self.root.path / "etc/passwd").read_text())
        with self.subTest("an ordinary user runs the demo"):
            examples = "/usr/share/doc/fenwa/examples"
            shown = self.root.run(
                "fenwa-camera", "run", "--private-bus", "--scenario", f"{examples}/scenarios/camera.toml",
                "--", "fenwa", "run", "--control", f"{examples}/graphs/camera.toml", user=DESK_USER)
            self.assertIn("reader.temperature_out = 73.0", shown)
        with self.subTest("pages name the paths that are there"):
            page = self.root.run("zcat", "/usr/share/man/man1/fenwa.1.gz")
            paths = re.findall(r"(/usr/\S*)", page)
            self.assertGreater(len(paths), 3)
            for path in paths:
                self.assertTrue((self.root.path / path[1:]).exists(), path)
        with self.subTest("a removal keeps the graph"):
            self.root.run("dpkg", "--remove", *reversed(USERS))
            self.assertTrue(graph.exists())
        with self.subTest("a purge leaves nothing"):
            graph.unlink()
            self.root.run("dpkg", "--purge", *USERS)
            self.assertEqual(self.root.files(), self.before)


class Authors(unittest.TestCase):
    """A plug-in of somebody else, built from the installed packages."""

    @classmethod
    def setUpClass(cls):
        cls.root = Root(dependencies(AUTHORS) + BUILD_TOOLS)
        cls.addClassCleanup(cls.root.close)
        cls.root.install([file_of(package) for package in AUTHORS])

    def build_and_test(self, source):
        self.root.run("cmake", "-S", source, "-B", f"/tmp/{Path(source).name}", "-G", "Ninja", user=DESK_USER)
        self.root.run("cmake", "--build", f"/tmp/{Path(source).name}", user=DESK_USER)
        self.root.run("ctest", "--test-dir", f"/tmp/{Path(source).name}", "--output-on-failure",
                      "--no-tests=error", user=DESK_USER)

    def test_the_example_builds_and_passes_its_tests(self):
        self.build_and_test("/usr/share/doc/fenwa/examples/plugin")

    def test_a_new_project_builds_and_passes_its_tests(self):
        self.root.run("fenwa", "new", "plugin", "mine", user=DESK_USER)
        self.build_and_test("/home/desk/mine")


if __name__ == "__main__":
    unittest.main(verbosity=2)
