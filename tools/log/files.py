"""The files of logs: their names, who writes them, how they are opened."""
import errno
import fcntl
import gzip
import os
import re
import stat
import sys

# As the library names them, and as they are named once no later run may remove them: with the time of their first line.
NAME = re.compile(r"vyx_log_(?:(?P<saved>\d{8}-\d{9})_)?(?P<number>\d{1,10})(?P<working>_w)?(?P<again>\.\d+)?\.log(?P<gz>\.gz)?")


class Packed(gzip.GzipFile):
    """A compressed file that closes what it reads."""

    def __init__(self, stream):
        self.packed_stream = stream
        super().__init__(fileobj=stream, mode="rb")

    def close(self):
        super().close()
        self.packed_stream.close()


class Limited:
    """The beginning of a file that grows."""

    def __init__(self, stream, limit):
        self.stream, self.left = stream, limit

    def readline(self, most):
        line = self.stream.readline(min(most, self.left)) if self.left else b""
        self.left -= len(line)
        return line

    def close(self):
        self.stream.close()


class LogFile:
    def __init__(self, path, match=None):
        self.path = path
        self.folder = os.path.dirname(path) or "."
        self.number = int(match["number"]) if match else 0
        self.saved = (match["saved"] or "") if match else ""
        self.working = bool(match and match["working"])
        self.packed = path.endswith(".gz")
        self.is_done = self.packed or bool(match and not match["working"])  # it will not grow
        self.limit = None  # bytes that are read of it

    def open(self):
        """For reading. Raises OSError, also for what is no file."""
        descriptor = os.open(self.path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        if not stat.S_ISREG(os.fstat(descriptor).st_mode):
            os.close(descriptor)
            raise OSError(errno.EINVAL, "not a file", self.path)
        stream = os.fdopen(descriptor, "rb", buffering=1 << 16)
        if self.limit is not None:
            return Limited(stream, self.limit)
        return Packed(stream) if self.packed else stream


def in_folder(folder):
    """The log files of a folder, in the order of their numbers. Raises OSError."""
    found = []
    for entry in os.scandir(folder):
        match = NAME.fullmatch(entry.name)
        if match and entry.is_file(follow_symlinks=False):
            found.append(LogFile(entry.path, match))
    return sorted(found, key=lambda file: (file.saved, file.number, file.working, file.path))


def find(paths):
    """The log files of folders, and files of any name. Raises OSError."""
    found = {}
    for path in paths:
        if os.path.isdir(path):
            files = in_folder(path)
        else:
            os.stat(path)
            files = [LogFile(path, NAME.fullmatch(os.path.basename(path)))]
        for file in files:
            found.setdefault(os.path.realpath(file.path), file)
    return list(found.values())


def explain(error, path):
    """What an ordinary user can do about a file that may not be read."""
    if not isinstance(error, PermissionError):
        return error.strerror or str(error)
    try:
        if os.stat(path).st_uid == os.geteuid():
            return "the library makes its files unreadable; --chmod lets you read them"
    except OSError:
        pass
    return "Permission denied; its owner may, with --chmod, or root"


def let_owner_read(path):
    """Raises OSError."""
    mode = stat.S_IMODE(os.stat(path).st_mode)
    if not mode & stat.S_IRUSR:
        os.chmod(path, mode | stat.S_IRUSR)


def leased(path):
    """Asks the kernel for a lease, which it grants only if nobody else has the file open for writing, in whatever namespace.
    Result: True somebody has; False nobody; None it does not tell."""
    if not hasattr(fcntl, "F_SETLEASE"):
        return None
    try:  # the library's own files may be written only, those of others perhaps read only
        descriptor, lease = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC), fcntl.F_RDLCK
    except OSError:
        try:
            descriptor, lease = os.open(path, os.O_WRONLY | os.O_NONBLOCK | os.O_CLOEXEC), fcntl.F_WRLCK
        except OSError:
            return None
    try:
        fcntl.fcntl(descriptor, fcntl.F_SETLEASE, lease)
        return False
    except OSError as error:
        return True if error.errno in (errno.EAGAIN, errno.EBUSY) else None
    finally:
        os.close(descriptor)


def open_in_processes(path):
    """Looks for the file among the descriptors of all processes. Result as above."""
    try:
        wanted = os.stat(path)
        pids = [name for name in os.listdir("/proc") if name.isdigit()]
    except OSError:
        return None
    blind = False
    for pid in pids:
        folder = "/proc/%s/fd" % pid
        try:
            for name in os.listdir(folder):
                if os.path.samestat(os.stat("%s/%s" % (folder, name)), wanted):
                    return True
        except PermissionError:
            blind = True
        except OSError:
            pass  # it has ended, or closed it
    return None if blind else False


def is_written(path):
    """Whether a process has the file open for writing. Result: True, False, or None if it cannot be told."""
    answer = leased(path)
    return open_in_processes(path) if answer is None else answer


def rename_to_new(old, new):
    """Renames without overwriting anything. Raises FileExistsError, OSError."""
    try:
        os.link(old, new)
    except OSError as error:
        if error.errno not in (errno.EPERM, errno.EOPNOTSUPP, errno.EMLINK):
            raise
        os.close(os.open(new, os.O_WRONLY | os.O_CREAT | os.O_EXCL))  # no links here: an empty file keeps the place
        os.rename(old, new)
        return
    os.unlink(old)


def say(text):
    print("vyx-log: " + text, file=sys.stderr)


def progress(text):
    """A line that the next one takes the place of; only on a terminal."""
    if sys.stderr.isatty():
        print("\r\033[K" + text, end="", file=sys.stderr, flush=True)
