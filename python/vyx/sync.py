"""Mutexes, semaphores and conditions of the library. Python's own threads have Python's own; these are shared with C."""

import ctypes
import errno
from types import TracebackType

from . import raw
from .core import Error, Owner, call, milliseconds, must


class Mutex(Owner):
    """A mutex, recursive unless asked otherwise; `with mutex:` holds it, close() destroys it."""

    def __init__(self, recursive: bool = True) -> None:
        self.record = raw.VYX_MUTEX_T()
        must(raw.VYX_MutexCreate, ctypes.byref(self.record),
             raw.VYX_MUTEX_RECURSIVE if recursive else raw.VYX_MUTEX_NORMAL)

    def lock(self) -> None:
        self._alive()
        must(raw.VYX_MutexLock, ctypes.byref(self.record))

    def try_lock(self) -> bool:
        self._alive()
        return raw.VYX_MutexTryLock(ctypes.byref(self.record)) == raw.VYX_OK

    def unlock(self) -> None:
        self._alive()
        must(raw.VYX_MutexUnlock, ctypes.byref(self.record))

    def __enter__(self) -> "Mutex":
        self.lock()
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        self.unlock()

    def _free(self) -> None:
        must(raw.VYX_MutexDestroy, ctypes.byref(self.record))


class Semaphore(Owner):
    """A counting semaphore. Waits with a limit need the started library."""

    def __init__(self, count: int = 0) -> None:
        self._slot = ctypes.c_void_p()
        must(raw.VYX_SemCreate, ctypes.byref(self._slot), count)

    def wait(self, timeout: float | None = None) -> bool:
        """Takes one count. False if the time ran out. Ctrl-C ends a wait without a limit, not one with a limit."""
        self._alive()
        while True:
            if call(raw.VYX_SemTimedWait, ctypes.byref(self._slot), milliseconds(timeout)) == raw.VYX_OK:
                return True
            if timeout is not None:
                return False
            if ctypes.get_errno() != errno.EINTR:  # otherwise Python's handlers run, and the wait goes on
                raise Error("VYX_SemTimedWait", raw.VYX_ERROR, ctypes.get_errno())

    def post(self) -> None:
        self._alive()
        must(raw.VYX_SemPost, ctypes.byref(self._slot))

    def _free(self) -> None:
        must(raw.VYX_SemDestroy, ctypes.byref(self._slot))


class Condition(Owner):
    """A condition variable for use with one Mutex, which its waiters hold once."""

    def __init__(self) -> None:
        self._record = raw.VYX_COND_T()
        self._check("VYX_CondCreate", raw.VYX_CondCreate(ctypes.byref(self._record)))

    def wait(self, mutex: Mutex, timeout: float | None = None) -> None:
        """Waits to be woken, or for the time; which of the two is not told: test what you wait for."""
        self._alive()
        result = raw.VYX_CondTimedWait(ctypes.byref(self._record), ctypes.byref(mutex.record), milliseconds(timeout))
        if timeout is None:
            self._check("VYX_CondTimedWait", result)

    def signal(self) -> None:
        self._alive()
        self._check("VYX_CondSignal", raw.VYX_CondSignal(ctypes.byref(self._record)))

    def broadcast(self) -> None:
        self._alive()
        self._check("VYX_CondBroadCast", raw.VYX_CondBroadCast(ctypes.byref(self._record)))

    def _free(self) -> None:
        self._check("VYX_CondDestroy", raw.VYX_CondDestroy(ctypes.byref(self._record)))

    @staticmethod
    def _check(function: str, result: int) -> None:
        if result != 0:  # here it is the platform's error number
            raise Error(function, result, max(result, 0))
