"""A private bus with a service that signals on order, and the tools that count what a receiver does."""

import contextlib
import re
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "release"
BIN = BUILD / "bin"

# The limits of a session bus, or a thousand blocks could not follow an owner each.
BUS_CONFIG = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={}</listen><policy context="default">
<allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/><allow user="*"/>
</policy>
<limit name="max_match_rules_per_connection">50000</limit>
<limit name="max_replies_per_connection">50000</limit>
</busconfig>
"""

# In the time between two signals the receiver sleeps, also under callgrind; in microseconds.
PERIOD = 4000


def say(text):
    print(f"script/bench: {text}", file=sys.stderr, flush=True)


def stop(process):
    if process.poll() is None:
        process.terminate()
    process.wait(timeout=120)


class Bus:
    """A bus daemon of this run's own, and a program on it that plays the services.

    service: makes the program's command from the bus's address; it says so when it is ready.
    """

    def __init__(self, folder, pin=(), service=None):
        self.pin = list(pin)
        self.path = Path(folder) / "bus"
        self.address = f"unix:path={self.path}"
        self.service = service or (lambda address: [BIN / "bench-sender", address])

    def __enter__(self):
        self.path.unlink(missing_ok=True)
        config = self.path.with_suffix(".conf")
        config.write_text(BUS_CONFIG.format(self.path), encoding="utf-8")
        self.daemon = subprocess.Popen(
            self.pin + ["dbus-daemon", "--nofork", "--print-address", f"--config-file={config}"],
            # It complains of limits that only root could raise.
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.daemon.stdout.readline()
        self.sender = subprocess.Popen(
            self.pin + [str(word) for word in self.service(self.address)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        line = self.sender.stdout.readline()
        if "ready" not in line:
            raise RuntimeError(f"the service says {line!r}")
        return self

    def __exit__(self, *_):
        self.sender.stdin.close()
        stop(self.sender)
        stop(self.daemon)

    def order(self, *words):
        self.sender.stdin.write(" ".join(str(word) for word in words) + "\n")
        self.sender.stdin.flush()
        answer = self.sender.stdout.readline()
        if not answer:
            raise RuntimeError("the sender has ended")
        return answer.split()


@contextlib.contextmanager
def running(bus, command, tool=()):
    """A receiver; its lines go to pipes that are read."""
    words = [str(word) for word in [*tool, *command]]
    process = subprocess.Popen(bus.pin + words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    # A reader of its own for both, or a full pipe would stop the receiver.
    readers = [subprocess.Popen(["cat"], stdin=pipe, stdout=subprocess.DEVNULL)
               for pipe in (process.stdout, process.stderr)]
    process.stdout.close()
    process.stderr.close()
    try:
        yield process
    finally:
        stop(process)
        for reader in readers:
            stop(reader)


ALLOCATING = {"malloc", "calloc", "realloc", "reallocarray", "aligned_alloc", "posix_memalign"}


class Counts:
    """What a profile of callgrind holds."""

    def __init__(self, profile):
        self.instructions = 0
        self.allocations = 0
        names = {}
        called = None
        for line in profile.read_text(encoding="utf-8", errors="replace").splitlines():
            if match := re.match(r"c?fn=\((\d+)\)(?: (.*))?$", line):
                number, name = match.groups()
                if name:
                    names[number] = re.sub("[@'].*", "", name)
                if line.startswith("c"):
                    called = names.get(number)
            elif line.startswith("calls=") and called in ALLOCATING:
                self.allocations += int(line[6:].split()[0])
            elif line.startswith(("totals:", "summary:")):
                self.instructions = int(line.split()[1])


@contextlib.contextmanager
def counting(bus, command, *options):
    """A receiver under callgrind. Call what is yielded with what it is to count.

    All threads count, and user space only. With a --toggle-collect in the options, only that counts.
    """
    profile = bus.path.with_name("callgrind.out")
    for old in bus.path.parent.glob("callgrind.out*"):
        old.unlink()
    tool = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={profile}", *options]
    with running(bus, command, tool) as process:

        def control(option):
            subprocess.run(["callgrind_control", option, str(process.pid)], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def count(work=None):
            if work is not None:
                control("--zero")
                work()
            control("--dump")
            parts = sorted(profile.parent.glob("callgrind.out.*"),
                           key=lambda part: int(part.suffix[1:]))
            return Counts(parts[-1])

        yield count, process


def count_until(bus, command, function):
    """Counts what a program does until it enters a function; it ends by itself."""
    profile = bus.path.with_name("callgrind.out")
    with running(bus, command, ["valgrind", "--quiet", "--tool=callgrind",
                                f"--callgrind-out-file={profile}",
                                f"--dump-before={function}"]) as process:
        process.wait(timeout=120)
    return Counts(profile.with_name("callgrind.out.1"))


def system_calls(bus, command, work):
    """The number of system calls that a receiver makes while it does the work."""
    log = bus.path.with_name("strace.out")
    # strace as the grandchild: the signal that ends the receiver is not for it.
    with running(bus, command, ["strace", "-D", "--follow-forks", f"--output={log}"]):
        bus.order("registered")
        bus.order("pace", 20, PERIOD)
        before = len(log.read_text(encoding="utf-8").splitlines())
        work()
        # Each call is one line, or two where another thread calls meanwhile.
        lines = log.read_text(encoding="utf-8").splitlines()[before:]
        return sum("<unfinished" not in line for line in lines)


def settle(process):
    """Waits until a process has come to rest."""
    spent = None
    for _ in range(600):
        before = spent
        spent = Path(f"/proc/{process.pid}/stat").read_text(encoding="utf-8").split()[13:15]
        if spent == before:
            return
        time.sleep(0.2)
    raise RuntimeError("the receiver does not come to rest")


def private_memory(process):
    """KiB that a process shares with nobody."""
    rollup = Path(f"/proc/{process.pid}/smaps_rollup").read_text(encoding="utf-8")
    return sum(int(kib) for kib in re.findall(r"^Private_Dirty: +(\d+) kB", rollup, re.MULTILINE))


def wake_ups(process):
    """How often the threads of a process have gone to sleep so far."""
    return sum(
        int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)",
                      (task / "status").read_text(encoding="utf-8"), re.MULTILINE).group(1))
        for task in Path(f"/proc/{process.pid}/task").iterdir())
