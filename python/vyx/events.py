"""Events, alone and bound to sockets."""

import ctypes
import errno
import time
from collections.abc import Callable, Sequence

from . import raw
from .core import Error, Owner, call, milliseconds, must, must_have
from .net import Socket


class Event(Owner):
    """An event that is set and reset by hand, or one that a socket signals after select()."""

    def __init__(self, signalled: bool = False) -> None:
        self.handle: int = must_have(raw.VYX_CreateEvent, int(signalled))
        self._socket: Socket | None = None

    def set(self) -> None:
        self._answer(raw.VYX_SetEvent)

    def reset(self) -> None:
        self._answer(raw.VYX_ResetEvent)

    def wait(self, timeout: float | None = None) -> bool:
        """Waits until it is signalled; False if the time ran out. Ctrl-C ends the wait for a plain event."""
        if self._socket is not None:
            return wait_any([self], timeout) is not None
        self._alive()
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            left = None if end is None else max(end - time.monotonic(), 0.0)
            result = call(raw.VYX_WaitForSingleObject, self.handle, milliseconds(left))
            if result == raw.VYX_WAIT_OBJECT_0:
                return True
            if result == raw.VYX_WAIT_TIMEOUT and left is not None:
                return False
            if result != raw.VYX_WAIT_FAILED or ctypes.get_errno() != errno.EINTR:
                raise Error("VYX_WaitForSingleObject", result, ctypes.get_errno())

    def select(self, socket: Socket, events: int) -> None:
        """Makes it a socket event: bits raw.VYX_FD_... The socket becomes non-blocking."""
        self._alive()
        must(raw.VYX_EventSelect, socket.handle, self.handle, events)
        self._socket = socket

    def happened(self) -> tuple[int, int]:
        """The raw.VYX_FD_ bit that the last wait_any that returned this event noted, and the error of a connect."""
        self._alive()
        if self._socket is None:
            return 0, 0
        found = raw.VYX_NETWORKEVENTS_T()
        must(raw.VYX_EnumNetworkEvents, self._socket.handle, self.handle, ctypes.byref(found))
        return found.lNetworkEvents, found.iErrorCode[4]

    def _answer(self, function: Callable[..., int]) -> None:
        self._alive()
        if call(function, self.handle) != raw.VYX_TRUE:
            raise Error(function.__name__, raw.VYX_FALSE, ctypes.get_errno())

    def _free(self) -> None:
        call(raw.VYX_CloseEvent, self.handle)


def wait_any(events: Sequence[Event], timeout: float | None = None) -> int | None:
    """Waits until one of several events is signalled: its index, the first one if there are more; None on time-out.

    At most raw.VYX_WAIT_MAX_FDS descriptors are watched; a plain event has one, a socket event up to two.
    """
    for event in events:
        event._alive()
    handles = (ctypes.c_void_p * max(len(events), 1))(*(event.handle for event in events))
    pointer = ctypes.cast(handles, ctypes.POINTER(ctypes.c_void_p))
    result = call(raw.VYX_WaitForMultipleObjects, len(events), pointer, 0, milliseconds(timeout))
    if result == raw.VYX_WAIT_TIMEOUT and timeout is not None:
        return None
    if result < raw.VYX_WAIT_OBJECT_0 + len(events):
        return int(result)
    raise Error("VYX_WaitForMultipleObjects", result, ctypes.get_errno())
