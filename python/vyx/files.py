"""Files and directories."""

import ctypes
import os
from collections.abc import Iterator
from typing import NamedTuple

from . import raw
from .core import Owner, call, must, must_have, text

Path = str | bytes | os.PathLike[str]


class Entry(NamedTuple):
    """One entry of a directory; times are microseconds since 1970. A broken link has the type 0."""

    name: bytes
    type: int
    size: int
    modified: int


class File(Owner):
    """An open file: flags raw.VYX_OPEN_..., permission bits raw.VYX_UREAD and their kin for a file that is made."""

    def __init__(self, path: Path, flags: int = raw.VYX_OPEN_READ, permissions: int = raw.VYX_UREAD | raw.VYX_UWRITE) -> None:
        self.handle: int = must(raw.VYX_OpenFile, text(path), flags, permissions)

    def read(self, most: int) -> bytes:
        """At most so many bytes; empty at the end."""
        self._alive()
        block, count = ctypes.create_string_buffer(max(most, 1)), ctypes.c_int32()
        must(raw.VYX_ReadFile, self.handle, block, most, ctypes.byref(count))
        return block.raw[:count.value]

    def write(self, data: bytes) -> int:
        """How many of the bytes were written, perhaps fewer."""
        self._alive()
        count = ctypes.c_int32()
        must(raw.VYX_WriteFile, self.handle, data, len(data), ctypes.byref(count))
        return count.value

    def seek(self, offset: int, whence: int = 0) -> int:
        """The new position."""
        self._alive()
        position = ctypes.c_int64()
        must(raw.VYX_FileSeek, self.handle, offset, whence, ctypes.byref(position))
        return position.value

    def flush(self) -> None:
        """Waits until it is on the disk."""
        self._alive()
        must(raw.VYX_FileFlush, self.handle)

    def status(self) -> raw.VYX_FINFO_T:
        self._alive()
        made = raw.VYX_FINFO_T()
        must(raw.VYX_FileStat, self.handle, ctypes.byref(made))
        return made

    def _free(self) -> None:
        must(raw.VYX_CloseFile, self.handle)


def listed(path: Path) -> Iterator[Entry]:
    """The entries of a directory, in no order, without "." and ".."."""
    handle = must_have(raw.VYX_OpenDir, text(path))
    try:
        found = raw._FILE_FIND_INFO()
        while call(raw.VYX_FindFileInDir, handle, ctypes.byref(found)) == raw.VYX_OK:
            name = bytes(found.name)
            if name not in (b".", b".."):
                yield Entry(name, found.finfo.type, found.finfo.size, found.finfo.mtime)
    finally:
        raw.VYX_CloseDir(handle)


def copy_file(source: Path, target: Path, replace: bool = True) -> None:
    """Copies a file's content; an empty source is refused."""
    must(raw.VYX_CopyFile, text(source), text(target), int(not replace))
