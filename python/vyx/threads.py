"""Threads of the library, and values that each thread has of its own."""

import ctypes
from collections.abc import Callable
from typing import Any

from . import raw
from .core import Error, Owner, Tickets, guarded, must

_routines = Tickets()


def _run(ticket: int | None) -> None:
    routine, arguments = _routines.take(ticket)
    guarded(routine, *arguments)


_RUN = raw.VYX_THREAD_PROC(_run)


class Thread:
    """A thread that runs routine(*arguments) and is waited for once."""

    def __init__(self, routine: Callable[..., object], *arguments: Any, stack: int = 0) -> None:
        ticket = _routines.keep((routine, arguments))
        self._handle: int | None = raw.VYX_Thread_Create(_RUN, ticket, stack, 0, 0, 0)
        if ctypes.c_size_t(self._handle or 0).value == ctypes.c_size_t(raw.VYX_INVALID_THREAD).value:
            _routines.take(ticket)
            raise Error("VYX_Thread_Create", raw.VYX_INVALID_THREAD, 0)

    def wait(self) -> None:
        """Waits until the thread has ended; more calls do nothing."""
        handle, self._handle = self._handle, None
        if handle is not None:
            must(raw.VYX_Thread_Wait, handle)


class Local(Owner):
    """A number for each thread, 0 at first."""

    def __init__(self) -> None:
        self._key = raw.VYX_ThreadTls_Create()
        if self._key == raw.VYX_INVALID_TLS:
            raise Error("VYX_ThreadTls_Create", self._key, 0)

    def set(self, value: int) -> None:
        self._alive()
        must(raw.VYX_ThreadTls_SetValue, self._key, value)

    def get(self) -> int:
        self._alive()
        return raw.VYX_ThreadTls_GetValue(self._key) or 0

    def _free(self) -> None:
        must(raw.VYX_ThreadTls_Destroy, self._key)
