"""fenwa@.service under a real systemd, whose only other services are the bus, the journal and a
camera. Runs in the container of `booted`: inside.py PREFIX TEST_PLUGINS."""

import json
import os
import shutil
import signal
import subprocess
import sys
import time
import unittest
from pathlib import Path

PREFIX = Path(sys.argv[1])
TEST_PLUGINS = Path(sys.argv[2])
HERE = Path(__file__).resolve().parent
GRAPHS = Path("/etc/fenwa")
UNITS = Path("/run/units")
CONTROL = "com.tarlo.Fenwa.Host1."
TIMER = '[blocks.tick]\ntype = "Timer"\ninterval = 100\n'


def run(*command: str) -> subprocess.CompletedProcess:
    return subprocess.run(command, capture_output=True, text=True, timeout=40)


def systemctl(*arguments: str) -> subprocess.CompletedProcess:
    return run("systemctl", *arguments)


def show(unit: str, name: str) -> str:
    return systemctl("show", "--value", "--property", name, unit).stdout.strip()


def journal(unit: str) -> str:
    run("journalctl", "--sync")
    return run("journalctl", "--unit", unit, "--output", "cat").stdout


def drop_in(unit: str, text: str) -> None:
    folder = UNITS / f"{unit}.d"
    folder.mkdir()
    (folder / "test.conf").write_text(text)
    systemctl("daemon-reload")


def set_up_module() -> None:
    GRAPHS.mkdir()
    # A platform's policy; the camera is all of its services.
    names = ["Fenwa.Camera1", "TemperatureController", "PowerControl.Consumer",
             "PowerControl.Status", "Onscreencontrols1", "PrioritizedTextOverlay", "VideoReady1"]
    own = "".join(f'<allow own="com.tarlo.{name}"/>' for name in names)
    Path("/etc/dbus-1/system.d/camera.conf").write_text(
        f'<busconfig><policy user="root">{own}<allow send_destination="com.tarlo.Fenwa.Camera1"/>'
        '</policy></busconfig>')
    run("busctl", "call", "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "ReloadConfig")
    (UNITS / "camera.service").write_text(
        "[Service]\nType=dbus\nBusName=com.tarlo.VideoReady1\n"
        f"ExecStart={PREFIX}/bin/fenwa-camera run --system --without init\n")
    # The platform delays video, so that VideoReady reports it.
    (UNITS / "video-ready.service").write_text(
        "[Service]\nExecStart=/bin/true\n[Install]\nWantedBy=multi-user.target\n")
    systemctl("daemon-reload")
    systemctl("enable", "--runtime", "video-ready.service")
    started = systemctl("start", "camera.service")
    assert started.returncode == 0, journal("camera.service")


class Service(unittest.TestCase):
    def start(self, name: str, graph: str | None, settings: str = "") -> str:
        """Starts the service of a graph. Without a graph there is no file."""
        unit = f"fenwa@{name}.service"
        if graph is not None:
            (GRAPHS / f"{name}.toml").write_text(graph)
        if settings:
            drop_in(unit, f"[Service]\n{settings}\n")
        self.started = systemctl("start", unit)
        self.addCleanup(systemctl, "stop", unit)
        return unit

    def expect_started(self, unit: str) -> None:
        self.assertEqual(self.started.returncode, 0, self.started.stderr + journal(unit))
        self.assertEqual(show(unit, "ActiveState"), "active")

    def wait_until(self, holds, unit: str) -> None:
        deadline = time.monotonic() + 15
        while not holds():
            self.assertLess(time.monotonic(), deadline, journal(unit))
            time.sleep(0.05)

    def wait_for_restart(self, unit: str, pid: str) -> None:
        self.wait_until(lambda: show(unit, "NRestarts") != "0" and
                        show(unit, "ActiveState") == "active", unit)
        self.assertNotEqual(show(unit, "MainPID"), pid)

    def start_camera(self, name: str, settings: str = ""):
        """Starts the camera's graph. Returns its unit, and a function that reads a port of it."""
        unit = self.start(name, (HERE.parent.parent / "examples/graphs/camera.toml").read_text(),
                          f"Environment=FENWA_RUN_OPTIONS=--control={CONTROL}%i\n{settings}")
        self.expect_started(unit)
        return unit, lambda port: run("fenwa", "read", "--control", CONTROL + name, port).stdout

    def wait_until_all_blocks_work(self, unit: str, read) -> None:
        outputs = {"reader.temperature_out": "36.5", "guard.temperature_ok_out": "true",
                   "power.power_out": "12.0", "supply.power_ok_out": "true"}
        for port, value in outputs.items():
            self.wait_until(lambda: read(port) == value + "\n", unit)
        registered = {"temperature", "power-consumer", "controls", "overlay", "video"}
        self.wait_until(lambda: registered <= self.registered_services(), unit)

    def registered_services(self) -> set[str]:
        shown = run("fenwa-camera", "show", "--format", "json").stdout
        return {each["name"] for each in json.loads(shown)["services"] if each["registrations"]}

    def test_brings_everything_back_after_the_bus_was_lost(self):
        unit, read = self.start_camera("lost", "RestartSec=500ms")
        self.wait_until_all_blocks_work(unit, read)
        pid = show(unit, "MainPID")
        # The next one who connects has systemd start it again. The camera has no Restart=.
        systemctl("kill", "--signal=SIGKILL", "dbus.service")
        self.wait_until(lambda: "lost the connection to the bus at" in journal(unit), unit)
        self.wait_until(lambda: show("camera.service", "ActiveState") == "failed", "camera.service")
        self.assertEqual(systemctl("start", "camera.service").returncode, 0)
        self.wait_for_restart(unit, pid)
        self.wait_until_all_blocks_work(unit, read)

    def test_starts_again_once_the_machine_has_descriptors_for_it(self):
        unit = self.start("limited", f'plugins = ["libfenwa-temperature.so"]\n{TIMER}',
                          "RestartSec=100ms\nLimitNOFILE=11")
        self.assertNotEqual(self.started.returncode, 0)
        self.wait_until(lambda: journal(unit).count("status=70") > 1, unit)
        self.assertIn("Too many open files", journal(unit))
        (UNITS / f"{unit}.d/test.conf").write_text("[Service]\nRestartSec=100ms\n")
        systemctl("daemon-reload")
        self.wait_until(lambda: show(unit, "ActiveState") == "active", unit)

    def test_runs_the_cameras_graph_with_a_name_of_its_own(self):
        unit, read = self.start_camera("camera")
        self.wait_until_all_blocks_work(unit, read)
        shown = json.loads(run(
            "busctl", "--json=short", "call", CONTROL + "camera", "/com/tarlo/Fenwa/Host1",
            "com.tarlo.Fenwa.Host1", "Describe").stdout)
        self.assertNotIn("AccessDenied", str(shown))
        text = journal(unit)
        self.assertIn("Adding dbus interface", text)  # log lines are there, values are not
        self.assertNotIn("temperature_out", text)
        self.assertNotIn("denied", text.lower())
        self.assertEqual(systemctl("stop", unit).returncode, 0)
        self.assertEqual(show(unit, "Result"), "success")
        self.assertEqual(show(unit, "ExecMainStatus"), "0")
        self.assertTrue("\nstopped\n" in journal(unit), journal(unit))

    def test_has_a_user_and_no_privileges(self):
        unit = self.start("plain", TIMER)
        self.expect_started(unit)
        pid = show(unit, "MainPID")
        lines = Path(f"/proc/{pid}/status").read_text().splitlines()
        status = dict(line.split(":\t", 1) for line in lines if ":\t" in line)
        user = run("id", "--user", "fenwa").stdout.strip()
        self.assertEqual(status["Uid"].split(), [user] * 4)
        self.assertEqual(status["NoNewPrivs"], "1")
        self.assertEqual(status["Seccomp"], "2")
        self.assertEqual(show(unit, "WatchdogUSec"), "1min")
        for capabilities in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"):
            self.assertEqual(int(status[capabilities], 16), 0, capabilities)
        for namespace in ("mnt", "net", "user"):
            self.assertNotEqual(os.readlink(f"/proc/{pid}/ns/{namespace}"),
                                os.readlink(f"/proc/1/ns/{namespace}"))

    def test_is_kept_from_all_that_a_host_does_not_need(self):
        script = PREFIX / "attempts.py"
        shutil.copy(HERE / "attempts.py", script)
        Path("/var/of-all").mkdir()
        Path("/var/of-all").chmod(0o1777)
        for forbidden in ("/home/of-others", "/tmp/of-others", "/dev/of-others"):
            Path(forbidden).write_text("")
        # Each of them works where nothing forbids it.
        free = run("python3", str(script), "/var/of-all", "--expect-all")
        self.assertEqual(free.returncode, 0, free.stdout)
        unit = self.start("attempts", None, "Type=oneshot\nRestart=no\nExecReload=\nExecStart=\n"
                          f"ExecStart=/usr/bin/python3 {script} /var/of-all")
        self.assertEqual(self.started.returncode, 0, journal(unit))
        self.assertNotIn("does not hold", journal(unit))

    def test_reloads_its_graph(self):
        unit = self.start("reload", TIMER)
        self.expect_started(unit)
        pid = show(unit, "MainPID")
        (GRAPHS / "reload.toml").write_text(TIMER + TIMER.replace("tick", "tock"))
        self.assertEqual(systemctl("reload", unit).returncode, 0)
        self.wait_until(lambda: "reloaded; added 'tock'" in journal(unit), unit)
        (GRAPHS / "reload.toml").write_text("blocks = 1\n")
        systemctl("reload", unit)
        self.wait_until(lambda: "reload.toml:1" in journal(unit), unit)
        self.wait_until(lambda: show(unit, "ActiveState") == "active", unit)
        self.assertEqual(show(unit, "MainPID"), pid)

    def test_restarts_a_host_that_hangs(self):
        shutil.copy(TEST_PLUGINS / "libprobe.so", PREFIX / "lib/fenwa/plugins")
        hanging = 'plugins = ["libprobe.so"]\n[blocks.b]\ntype = "Stubborn"\nin = "run"\n'
        unit = self.start("hang", hanging, "WatchdogSec=2s\nRestartSec=500ms")
        self.expect_started(unit)
        pid = show(unit, "MainPID")
        self.wait_until(lambda: "Watchdog timeout" in journal(unit), unit)
        (GRAPHS / "hang.toml").write_text(TIMER)
        self.wait_for_restart(unit, pid)
        self.assertIn("block 'b' crashed in run (SIGABRT)", journal(unit))

    def test_restarts_a_host_that_is_killed(self):
        unit = self.start("killed", TIMER, "RestartSec=100ms")
        self.expect_started(unit)
        pid = show(unit, "MainPID")
        os.kill(int(pid), signal.SIGKILL)
        self.wait_for_restart(unit, pid)

    def test_does_not_restart_what_does_not_mend_itself(self):
        for name, graph, options, code in (
                ("wrong", "blocks = 1\n", "", "78"),
                ("missing", None, "", "66"),
                ("usage", TIMER, "--no-such-option", "2")):
            with self.subTest(name):
                unit = self.start(name, graph, "RestartSec=100ms\n"
                                  f"Environment=FENWA_RUN_OPTIONS={options}")
                self.assertNotEqual(self.started.returncode, 0)
                time.sleep(0.5)
                self.assertEqual(show(unit, "ActiveState"), "failed", journal(unit))
                self.assertEqual(show(unit, "ExecMainStatus"), code)
                self.assertEqual(show(unit, "NRestarts"), "0")


setUpModule = set_up_module

if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
