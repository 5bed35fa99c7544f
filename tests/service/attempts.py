"""Tries what the sandbox of fenwa@.service forbids, and prints the setting for each attempt that
works: attempts.py FOLDER, one that everybody may write. With --expect-all it prints those that fail,
and ends with 1 if there is one."""

import ctypes
import os
import socket
import stat
import sys
from pathlib import Path

CLONE_NEWUSER = 0x10000000
READ_WRITE_EXECUTE = 7
PRIVATE_ANONYMOUS = 0x22
ADDR_NO_RANDOMIZE = 0x0040000

libc = ctypes.CDLL(None, use_errno=True)
libc.mmap.restype = ctypes.c_void_p


def check(result: int) -> None:
    if result in (-1, ctypes.c_void_p(-1).value):
        raise OSError(ctypes.get_errno(), "refused")


def write(path: str) -> None:
    Path(path).write_text("")
    os.unlink(path)


def make_program_of_user() -> None:
    path = Path("/tmp/program")
    path.write_text("")
    path.chmod(stat.S_ISUID | 0o755)


def make_readable() -> None:
    path = Path("/tmp/readable")
    path.write_text("")
    if path.stat().st_mode & 0o077 == 0:
        raise PermissionError


def has_capabilities() -> None:
    if "CapBnd:\t0000000000000000" in Path("/proc/self/status").read_text():
        raise PermissionError


# By the setting that forbids it.
ATTEMPTS = {
    "ProtectSystem": lambda: write(sys.argv[1] + "/written"),
    "ProtectHome": lambda: os.stat("/home/of-others"),
    "PrivateTmp": lambda: os.stat("/tmp/of-others"),
    "PrivateDevices": lambda: os.stat("/dev/of-others"),
    "ProtectProc": lambda: os.stat("/proc/1/status"),
    "ProcSubset": lambda: os.stat("/proc/meminfo"),
    "RestrictAddressFamilies, internet": lambda: socket.socket(socket.AF_INET).close(),
    "RestrictAddressFamilies, netlink": lambda: socket.socket(socket.AF_NETLINK,
                                                              socket.SOCK_RAW).close(),
    "RestrictSUIDSGID": make_program_of_user,
    "RestrictRealtime": lambda: os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1)),
    "LockPersonality": lambda: check(libc.personality(ADDR_NO_RANDOMIZE)),
    "MemoryDenyWriteExecute": lambda: check(libc.mmap(
        None, ctypes.c_size_t(4096), READ_WRITE_EXECUTE, PRIVATE_ANONYMOUS, -1, 0)),
    "SystemCallFilter, @resources": lambda: os.setpriority(os.PRIO_PROCESS, 0, 5),
    "SystemCallFilter, @privileged": lambda: os.chroot("/"),
    "SystemCallFilter, @mount": lambda: check(libc.mount(None, b"/tmp", None, 0x84000, None)),
    "CapabilityBoundingSet": has_capabilities,
    "UMask": make_readable,
    "RestrictNamespaces": lambda: check(libc.unshare(CLONE_NEWUSER)),
}


def works(attempt) -> bool:
    try:
        attempt()
    except OSError:
        return False
    return True


expected = "--expect-all" in sys.argv
unexpected = [setting for setting, attempt in ATTEMPTS.items() if works(attempt) != expected]
for setting in unexpected:
    print(setting, "is not needed" if expected else "does not hold")
sys.exit(1 if expected and unexpected else 0)
