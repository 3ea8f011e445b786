"""The semaphores that are registered, and what is to be said of each."""
import errno
import fcntl
import os
import re
import stat
import time

NAME = re.compile(r"sem\.(vyx_named_semaphore_\d{5,})")  # the C library's prefix, and the name
HELD, STALE, UNKNOWN = "held", "stale", "unknown"


class Semaphore:
    def __init__(self, path, name, status):
        self.path = path
        self.name = name
        self.file = (status.st_dev, status.st_ino)
        self.uid = status.st_uid
        self.age = max(0, int(time.time() - status.st_ctime))
        self.holders = []  # PIDs
        self.state = UNKNOWN
        self.removed = False


def registered(directory):
    """The semaphores of this library in the directory, by name. Raises OSError."""
    found = []
    for entry in os.scandir(directory):
        match = NAME.fullmatch(entry.name)
        if not match:
            continue
        try:
            status = entry.stat(follow_symlinks=False)
        except FileNotFoundError:
            continue  # destroyed meanwhile
        if stat.S_ISREG(status.st_mode):
            found.append(Semaphore(entry.path, match.group(1), status))
    return sorted(found, key=lambda semaphore: semaphore.name)


def open_anywhere(semaphore):
    """Asks the kernel whether anybody has the file open or mapped, in whatever namespace: it grants a lease for writing
    only where nobody has. Result: True, False, or None if it does not tell this user."""
    try:
        descriptor = os.open(semaphore.path, os.O_RDONLY | os.O_NONBLOCK | os.O_NOFOLLOW | os.O_CLOEXEC)
    except OSError:
        return None
    try:
        status = os.fstat(descriptor)
        if (status.st_dev, status.st_ino) != semaphore.file:
            return True  # somebody has made it anew
        fcntl.fcntl(descriptor, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        return False
    except OSError as error:
        return True if error.errno in (errno.EAGAIN, errno.EBUSY) else None
    finally:
        os.close(descriptor)  # and the lease with it


def judge(semaphores, holders, ask_kernel):
    """Sets the state of each. What no process seems to hold is stale only if all of them could be looked into, or the
    kernel says that nobody has it; and never against the kernel's word."""
    blind = holders.blind() is not None
    for semaphore in semaphores:
        semaphore.holders = holders.by_file.get(semaphore.file, [])
        if semaphore.holders:
            semaphore.state = HELD
        elif blind and not ask_kernel:
            semaphore.state = UNKNOWN
        else:
            held = open_anywhere(semaphore)
            semaphore.state = STALE if held is False or (held is None and not blind) else UNKNOWN


def remove(semaphore):
    """Removes a stale one, unless it is another one by now. Raises OSError."""
    try:
        status = os.lstat(semaphore.path)
        if (status.st_dev, status.st_ino) == semaphore.file:
            os.unlink(semaphore.path)
    except FileNotFoundError:
        pass
    semaphore.removed = True
