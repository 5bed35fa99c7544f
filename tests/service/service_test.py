"""fenwa@.service without systemd: its file, and its command line under restrictions that are set by
hand. As root: service_test.py BUILD_FOLDER PREFIX UNIT_FOLDER."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BUILD, PREFIX, UNITS = map(Path, sys.argv[1:4])
HERE = Path(__file__).resolve().parent
# The versions of systemd that fenwa@.service is made for, with what an older systemd says of each.
VERSIONS = {
    "252": [],
    "253": ["Failed to parse service type, ignoring: notify-reload"],
    "254": ["Failed to parse service type, ignoring: notify-reload",
            "Unknown key 'RestartSteps' in section [Service], ignoring.",
            "Unknown key 'RestartMaxDelaySec' in section [Service], ignoring."],
}
# Namespaces, a root that cannot be written, and a /proc as ProtectProc= and ProcSubset= make it;
# then as SETPRIV. No program sets a filter of system calls.
RESTRICTED = ["unshare", "--mount", "--net", "--ipc", "--uts", "--pid", "--fork", "--kill-child",
              "sh", "-ec", """
mount -t proc -o hidepid=ptraceable,subset=pid proc /proc
mount -o bind,remount,ro /
mount -t tmpfs -o mode=1777 tmpfs /tmp
umask 077
exec "$@" """, "sh", "setpriv", "--reuid=daemon", "--regid=daemon", "--clear-groups",
              "--no-new-privs", "--bounding-set=-all", "--inh-caps=-all"]


def run(*command: str) -> subprocess.CompletedProcess:
    return subprocess.run(command, capture_output=True, text=True, timeout=60)


def installed_version() -> int:
    return int(run("systemctl", "--version").stdout.split()[1])


class Unit(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def unit(self, version: str) -> Path:
        """The unit, of a program that is there."""
        text = (UNITS / version / "fenwa@.service").read_text()
        path = self.folder / "fenwa@.service"
        path.write_text(text.replace(f"{PREFIX}/bin", f"{BUILD}/bin"))
        return path

    def test_has_no_mistakes(self):
        for version, unknown in VERSIONS.items():
            with self.subTest(version):
                done = run("systemd-analyze", "verify", "--man=no", str(self.unit(version)))
                texts = [line.split(": ", 1)[1] for line in done.stderr.splitlines()]
                known = installed_version() >= int(version)
                self.assertEqual(texts, [] if known else unknown)

    def test_has_an_exposure_of_1_5_at_most(self):
        for version in VERSIONS:
            with self.subTest(version):
                done = run("systemd-analyze", "security", "--offline=true", "--threshold=15",
                           "--no-pager", str(self.unit(version)))
                self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
                self.assertIn("Overall exposure level", done.stdout)


class ByHand(unittest.TestCase):
    def setUp(self):
        self.assertEqual(os.geteuid(), 0, "this test makes namespaces and has to run as root")
        self.folder = Path(tempfile.mkdtemp(dir="/var/tmp"))  # /tmp becomes private
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)

    def test_runs_under_restrictions(self):
        done = run("cmake", "--install", str(BUILD), "--prefix", str(self.folder))
        self.assertEqual(done.returncode, 0, done.stderr)
        (self.folder / "camera.toml").write_text(
            (HERE.parent.parent / "examples/graphs/camera.toml").read_text())
        unit = (self.folder / "lib/systemd/system/fenwa@.service").read_text()
        command = next(line for line in unit.splitlines() if line.startswith("ExecStart="))
        command = command.removeprefix("ExecStart=").replace(str(PREFIX), str(self.folder))
        command = command.replace("$FENWA_RUN_OPTIONS", "--for 1")
        command = command.replace("/etc/fenwa/%i.toml", str(self.folder / "camera.toml"))
        # Its private bus serves its own user only, so the camera is restricted with the host.
        done = run(*RESTRICTED, str(self.folder / "bin/fenwa-camera"), "run", "--private-bus", "--",
                   *command.split())
        output = done.stdout + done.stderr
        self.assertEqual(done.returncode, 0, output)
        self.assertIn("fenwa: ready", output)
        self.assertIn("Adding dbus interface", output)
        self.assertNotIn("temperature_out", output)

    def test_restrictions_hold(self):
        attempts = shutil.copy(HERE / "attempts.py", self.folder)
        self.folder.chmod(0o777)
        tried = run(*RESTRICTED, "python3", str(attempts), str(self.folder))
        self.assertEqual(tried.returncode, 0, tried.stderr)
        for setting in ("ProtectSystem", "ProcSubset", "RestrictRealtime",
                        "SystemCallFilter, @privileged", "SystemCallFilter, @mount",
                        "CapabilityBoundingSet", "UMask"):
            self.assertNotIn(setting + " does not hold", tried.stdout)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
