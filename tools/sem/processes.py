"""Which processes have which files mapped, and whether all processes could be asked."""
import os
import re
import sys
import time

INITIAL_PID_NAMESPACE = "pid:[4026531836]"  # the kernel's fixed number
SLOW = 1.0  # seconds after which the progress is told


def mapped_files(pid):
    """The files that a process has mapped, as (device, inode). The names in there say nothing: the C library makes a
    semaphore under a temporary name first, which the kernel goes on to show."""
    files = set()
    with open("/proc/%d/maps" % pid, encoding="utf-8", errors="surrogateescape") as maps:
        for line in maps:
            _, _, _, device, inode = line.split(None, 5)[:5]
            if inode != "0":
                major, minor = device.split(":")
                files.add((os.makedev(int(major, 16), int(minor, 16)), int(inode)))
    return files


def command(pid):
    try:
        with open("/proc/%d/comm" % pid, encoding="utf-8", errors="replace") as comm:
            return comm.read().rstrip("\n")
    except OSError:
        return "?"


def hidden():
    """Why there may be processes that /proc does not show, or None."""
    try:
        if os.readlink("/proc/self/ns/pid") != INITIAL_PID_NAMESPACE:
            return "this is a PID namespace, and processes outside cannot be seen"
        with open("/proc/self/mountinfo", encoding="utf-8", errors="replace") as mounts:
            for line in mounts:
                if line.split()[4] == "/proc" and re.search(r"\bhidepid=(?!0\b|off\b)", line) and os.geteuid() != 0:
                    return "/proc hides the processes of other users"
    except OSError as error:
        return "%s: %s" % (error.filename, error.strerror)
    return None


class Holders:
    """What a look at all processes found."""

    def __init__(self, wanted):
        """wanted: the (device, inode) of the files that matter."""
        self.by_file = {}  # (device, inode): [PID]
        self.unreadable = []  # PIDs that this user may not look into
        self.hidden = hidden()
        if not os.path.exists("/proc/self/maps"):
            self.hidden = "/proc is not there"
            return
        began = time.monotonic()
        pids = sorted(int(name) for name in os.listdir("/proc") if name.isdigit())
        for number, pid in enumerate(pids):
            self.look_into(pid, wanted)
            if sys.stderr.isatty() and time.monotonic() - began > SLOW:
                print("\r%d of %d processes" % (number + 1, len(pids)), end="", file=sys.stderr, flush=True)
        if sys.stderr.isatty() and time.monotonic() - began > SLOW:
            print("\r\033[K", end="", file=sys.stderr)

    def look_into(self, pid, wanted):
        try:
            for file in mapped_files(pid) & wanted:
                self.by_file.setdefault(file, []).append(pid)
        except PermissionError:
            self.unreadable.append(pid)
        except (FileNotFoundError, ProcessLookupError):
            pass  # it has ended: it holds nothing

    def blind(self):
        """Why a file that nobody seems to hold may be held all the same, or None."""
        if self.hidden:
            return self.hidden
        if self.unreadable:
            return "%d process%s may not be looked into, the first is %d %s%s" % (
                len(self.unreadable), "" if len(self.unreadable) == 1 else "es", self.unreadable[0],
                command(self.unreadable[0]), "" if os.geteuid() == 0 else "; root may")
        return None
