"""--finish and --archive: what becomes of the files of a run that is over."""
import contextlib
import gzip
import hashlib
import os
import shutil
import stat
import time

import files
import records

BUFFER = 1 << 20


def first_time(file):
    """The time of a file's first line, else that of its last change; as it stands in names: 20261122-043308544."""
    with contextlib.suppress(OSError, EOFError), file.open() as stream:
        header = records.HEADER.match(stream.readline(records.PIECE))
        if header and header[1][:4].isdigit() and len(header[1]) == 23:
            digits = bytes(c for c in header[1] if c in b"0123456789").decode()
            return "%s-%s" % (digits[:8], digits[8:])
    changed = os.stat(file.path).st_mtime
    return time.strftime("%Y%m%d-%H%M%S", time.localtime(changed)) + "%03d" % (changed % 1 * 1000)


def saved_names(file):
    """Names that no later run touches, one after the other."""
    begin = os.path.join(file.folder, "vyx_log_%s_%d" % (file.saved or first_time(file), file.number))
    yield begin + ".log"
    for again in range(2, 10000):
        yield "%s.%d.log" % (begin, again)


def place(names, take):
    """The first of the names that take(name) does not find taken. Raises OSError."""
    for name in names:
        try:
            take(name)
            return name
        except FileExistsError:
            pass
    raise FileExistsError(0, "all names are taken")


def refusal(file, force):
    """Why the file is to be left alone, or None."""
    written = files.is_written(file.path)
    if written:
        return "a process is writing it"
    if written is None and not force:
        return "it cannot be told whether a process is writing it; root may, or --force"
    return None


def finish(file, force):
    """Gives a file of a run that is over a name of its own, and its owner the right to read it. Result: the new path. Raises
    OSError, also where a process is still writing it."""
    why = refusal(file, force)
    if why:
        raise OSError(0, why)
    files.let_owner_read(file.path)
    return place(saved_names(file), lambda name: files.rename_to_new(file.path, name))


def digest(stream):
    sum_of_all = hashlib.blake2b()
    while True:
        piece = stream.read(BUFFER)
        if not piece:
            return sum_of_all.digest()
        sum_of_all.update(piece)


def archive(file, force):
    """Compresses a finished file; the original goes when the archive has been read back. Result: the new path. Raises OSError,
    also where a process is still writing it."""
    why = refusal(file, force)
    if why:
        raise OSError(0, why)
    files.let_owner_read(file.path)
    part = "%s.%d.part" % (file.path, os.getpid())
    try:
        with file.open() as source:
            before = os.fstat(source.fileno())
            with open(os.open(part, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o600), "wb") as target:
                with gzip.GzipFile(os.path.basename(file.path), "wb", 6, target, int(before.st_mtime)) as packed:
                    shutil.copyfileobj(source, packed, BUFFER)
                target.flush()
                os.fchmod(target.fileno(), stat.S_IMODE(before.st_mode))
                with contextlib.suppress(PermissionError):
                    os.fchown(target.fileno(), before.st_uid, before.st_gid)
                os.fsync(target.fileno())
            os.utime(part, ns=(before.st_atime_ns, before.st_mtime_ns))
            source.seek(0)
            with gzip.open(part) as packed:
                same = digest(packed) == digest(source)
        now = os.stat(file.path)
        if not same or (now.st_ino, now.st_size, now.st_mtime_ns) != (before.st_ino, before.st_size, before.st_mtime_ns):
            raise OSError(0, "it has changed meanwhile")
        path = place((name + ".gz" for name in saved_names(file)), lambda name: files.rename_to_new(part, name))
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(part)
    os.unlink(file.path)
    return path
