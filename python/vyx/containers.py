"""A table of fixed capacity, and a ring of bytes."""

import ctypes
from collections.abc import Callable
from typing import Any

from . import raw
from .core import Error, Owner, call, guarded, must


class Table(Owner):
    """Integer keys to Python objects, of a fixed capacity. There is no removal: in the library it loses other items."""

    def __init__(self, capacity: int) -> None:
        self._table = ctypes.c_void_p()
        self._values: list[Any] = []
        must(raw.VYX_SimpleIntHashCreate, capacity, ctypes.byref(self._table))

    def enter(self, key: int, value: Any) -> None:
        """Adds an item. Error if the table is full, KeyError if the key is there."""
        self._alive()
        if key in self:
            raise KeyError(f"{key} is there already")
        item = raw._VYX_INTITEM(key, len(self._values) + 1)
        must(raw.VYX_SimpleIntHashEnter, ctypes.byref(item), self._table)
        self._values.append(value)

    def _find(self, key: int) -> int:
        self._alive()
        found = ctypes.c_void_p()
        call(raw.VYX_SimpleIntHashFind, key, ctypes.byref(found), self._table)
        return found.value or 0

    def __contains__(self, key: int) -> bool:
        return self._find(key) != 0

    def __getitem__(self, key: int) -> Any:
        place = self._find(key)
        if not place:
            raise KeyError(key)
        return self._values[place - 1]

    def __len__(self) -> int:
        return len(self._values)

    def _free(self) -> None:
        must(raw.VYX_SimpleIntHashDestroy, self._table)


class Ring(Owner):
    """A ring of bytes: any number of writers, one reader at a time. What is stored at once should be at most half of the
    capacity: of more, a read may drop some."""

    def __init__(self, capacity: int) -> None:
        self._read: list[bytes] = []
        self._routine = raw.VYX_CYCLEBUFFER_PROC(self._take)  # kept, as the library keeps its address
        self._handle = ctypes.c_void_p()
        must(raw.VYX_CycleBufferInit, ctypes.byref(self._handle), capacity, self._routine, None)

    def _take(self, data: Any, count: int, _user: int | None) -> int:
        guarded(self._read.append, ctypes.string_at(data, count) if count else b"")
        return 0

    def write(self, data: bytes) -> None:
        """All or nothing: Error if there is no room."""
        self._alive()
        block = (ctypes.c_uint8 * len(data)).from_buffer_copy(data)
        must(raw.VYX_CycleBufferWrite, self._handle, block, len(data))

    def read(self) -> bytes:
        """All that is stored; empty if nothing is."""
        self._alive()
        self._read.clear()
        call(raw.VYX_CycleBufferRead, self._handle)
        return b"".join(self._read)

    def __len__(self) -> int:
        self._alive()
        count = ctypes.c_uint32()
        if call(raw.VYX_CycleBufferValue, self._handle, ctypes.byref(count)) != raw.VYX_OK:
            raise Error("VYX_CycleBufferValue", raw.VYX_ERROR, 0)
        return count.value

    def _free(self) -> None:
        must(raw.VYX_CycleBufferDestroy, self._handle)
