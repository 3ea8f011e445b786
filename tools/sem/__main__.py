"""vyx-sem: the semaphores that programs with libvyx have left registered on this machine, and who holds each."""
import argparse
import fcntl
import json
import os
import pwd
import sys
import time

from processes import Holders, command
from semaphores import STALE, UNKNOWN, judge, registered, remove

FINE, FOUND, USAGE = 0, 1, 2
PATIENCE = 10.0  # seconds for another one to finish


def options():
    parser = argparse.ArgumentParser(
        prog="vyx-sem", allow_abbrev=False,
        description="Lists the semaphores of libvyx that are registered on this machine, with the processes that hold each.",
        epilog="A semaphore is held if a process has it mapped, stale if none has. It is unknown where that cannot be told: "
        "some processes may not be looked into, or there may be others outside of this PID namespace. "
        "Exit status: 0 nothing stale is there, or any more; 1 something stale is there, or could not be removed; "
        "2 wrong usage, or the directory cannot be read.")
    parser.add_argument("--remove-stale", action="store_true", help="remove the stale ones, and nothing else")
    parser.add_argument("--ask-kernel", action="store_true",
                        help="where processes cannot be looked into, try a file lease, which the kernel grants only if "
                        "nobody, in no namespace, has the semaphore open; for its owner or root")
    parser.add_argument("--json", action="store_true", help="print one JSON object")
    parser.add_argument("--directory", default="/dev/shm", metavar="DIR",
                        help="where they are (default: %(default)s); of a container: /proc/PID/root/dev/shm")
    parser.add_argument("--version", action="version", version="vyx-sem " + globals().get("VERSION", "of the source tree"))
    return parser.parse_args()


def say(text):
    print("vyx-sem: " + text, file=sys.stderr)


def lock(directory):
    """One at a time: of two, the slower could take a new semaphore for the stale one that the other has just removed."""
    descriptor = os.open(directory, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    deadline = time.monotonic() + PATIENCE
    while True:
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
            return
        except BlockingIOError:
            if time.monotonic() > deadline:
                raise OSError(None, "another vyx-sem is at work", directory) from None
            time.sleep(0.1)


def remove_stale(semaphores):
    """Result: True if all stale ones are gone."""
    done = True
    for semaphore in semaphores:
        if semaphore.state != STALE:
            continue
        try:
            remove(semaphore)
        except OSError as error:
            done = False
            say("%s cannot be removed: %s; its owner is %s" % (semaphore.path, error.strerror, user(semaphore.uid)))
    return done


def user(uid):
    try:
        return pwd.getpwuid(uid).pw_name
    except KeyError:
        return str(uid)


def age(seconds):
    days, rest = divmod(seconds, 86400)
    return "%s%02d:%02d:%02d" % ("%dd " % days if days else "", rest // 3600, rest // 60 % 60, rest % 60)


def as_json(semaphores, blind):
    return {
        "semaphores": [{
            "name": semaphore.name,
            "path": semaphore.path,
            "state": semaphore.state,
            "removed": semaphore.removed,
            "owner": user(semaphore.uid),
            "age_seconds": semaphore.age,
            "holders": [{"pid": pid, "command": command(pid)} for pid in semaphore.holders],
        } for semaphore in semaphores],
        "unknown_because": blind,
    }


def print_table(semaphores):
    rows = [("NAME", "STATE", "OWNER", "AGE", "HELD BY")]
    for semaphore in semaphores:
        rows.append((semaphore.name, "removed" if semaphore.removed else semaphore.state, user(semaphore.uid),
                     age(semaphore.age), ", ".join("%d %s" % (pid, command(pid)) for pid in semaphore.holders)))
    widths = [max(len(row[column]) for row in rows) for column in range(4)]
    for row in rows:
        print("  ".join([*(cell.ljust(width) for cell, width in zip(row, widths)), row[4]]).rstrip())


def main():
    chosen = options()
    try:
        if chosen.remove_stale:
            lock(chosen.directory)
        semaphores = registered(chosen.directory)
    except OSError as error:
        say("%s: %s" % (chosen.directory, error.strerror))
        return USAGE
    holders = Holders({semaphore.file for semaphore in semaphores})
    judge(semaphores, holders, chosen.ask_kernel)
    done = remove_stale(semaphores) if chosen.remove_stale else not any(s.state == STALE for s in semaphores)
    unknown = any(semaphore.state == UNKNOWN for semaphore in semaphores)
    if chosen.json:
        print(json.dumps(as_json(semaphores, holders.blind() if unknown else None), indent=2))
    elif semaphores:
        print_table(semaphores)
    if unknown and holders.blind():
        say("unknown: " + holders.blind())
    elif unknown:
        say("unknown: nobody seems to hold it, but the kernel says that somebody has it open")
    return FINE if done else FOUND


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        sys.exit(FOUND)
    except KeyboardInterrupt:
        sys.exit(130)
