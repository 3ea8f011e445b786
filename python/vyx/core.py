"""What the other modules share: start and stop, failures, times, texts, and calls from the library into Python."""

import ctypes
import itertools
import os
import sys
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from types import TracebackType
from typing import Any, TypeVar
from uuid import UUID

from . import raw

T = TypeVar("T", bound="Owner")


class Error(OSError):
    """A function of the library failed. errno is what the platform left, 0 where it left nothing."""

    def __init__(self, function: str, result: object, number: int) -> None:
        reason = os.strerror(number) if number else "no error number"
        super().__init__(number, f"{function} gave {result}: {reason}")
        self.function = function
        self.result = result
        #: What the header says of the function's results.
        self.documented = raw.RESULTS.get(function, "")

    def __str__(self) -> str:
        return f"{super().__str__()} (documented: {self.documented})"


def call(function: Callable[..., Any], *arguments: Any) -> Any:
    """Calls a function of vyx.raw with a clean errno; what it gives back."""
    ctypes.set_errno(0)
    return function(*arguments)


def must(function: Callable[..., Any], *arguments: Any) -> Any:
    """As call, and a negative result raises Error."""
    result = call(function, *arguments)
    if result is None or result < 0:
        raise Error(function.__name__, result, ctypes.get_errno())
    return result


def must_have(function: Callable[..., Any], *arguments: Any) -> Any:
    """As call, and null raises Error."""
    result = call(function, *arguments)
    if not result:
        raise Error(function.__name__, result, ctypes.get_errno())
    return result


def milliseconds(timeout: float | None) -> int:
    """A time-out of the library: seconds become milliseconds, rounded up, and None no limit."""
    if timeout is None:
        return raw.VYX_INFINITE
    if timeout < 0:
        raise ValueError("a time-out is not negative")
    return min(int(timeout * 1000 + 0.999), 0x7FFFFFFF)


def text(value: str | bytes | os.PathLike[str]) -> bytes:
    """A text as the library takes it; one with a zero byte would be cut there."""
    made = os.fsencode(value)
    if b"\0" in made:
        raise ValueError("a text of the library has no zero byte")
    return made


class Owner:
    """Something of the library that is given back once: a context manager with close()."""

    _closed = False

    def _free(self) -> None:
        raise NotImplementedError

    def close(self) -> None:
        """Gives it back; more calls do nothing."""
        if not self._closed:
            self._closed = True
            self._free()

    @property
    def closed(self) -> bool:
        return self._closed

    def _alive(self) -> None:
        if self._closed:
            raise ValueError(f"this {type(self).__name__} is closed")

    def __enter__(self: T) -> T:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None) -> None:
        self.close()


class Tickets:
    """Keeps Python objects for the library, which only gets a number for each."""

    def __init__(self) -> None:
        self._next = itertools.count(1)
        self._kept: dict[int, Any] = {}

    def keep(self, value: Any) -> int:
        number = next(self._next)
        self._kept[number] = value
        return number

    def look(self, number: int | None) -> Any:
        return self._kept.get(number or 0)

    def take(self, number: int | None) -> Any:
        return self._kept.pop(number or 0, None)


def guarded(routine: Callable[..., Any], *arguments: Any) -> Any:
    """Runs a routine that the library called; a failure goes where those of threads go, not through the library."""
    try:
        return routine(*arguments)
    except BaseException:  # nothing may leave through the library's own code
        kind, error, trace = sys.exc_info()
        assert kind is not None
        threading.excepthook(threading.ExceptHookArgs((kind, error, trace, threading.current_thread())))
    return None


@contextmanager
def started() -> Iterator[None]:
    """The library is started inside: VYX_Init and VYX_Fini, which count."""
    must(raw.VYX_Init)
    try:
        yield
    finally:
        raw.VYX_Fini()


def version() -> tuple[int, int, int]:
    """The version of the library itself."""
    number = raw.VYX_GetVYXVersion()
    return number >> 24, number >> 16 & 0xFF, number & 0xFFFF


def time_now() -> int:
    """The wall clock in microseconds since 1970."""
    return raw.VYX_TimeNow()


def tick() -> int:
    """The wall clock in milliseconds modulo 2**32."""
    return raw.VYX_GetTimeTick()


def local_time(microseconds: int | None = None) -> raw.VYX_TIME_EXP_T:
    """Calendar fields of local time, of now if no time is given. Their tm_gmtoff is the zone's present standard offset."""
    made = raw.VYX_TIME_EXP_T()
    must(raw.VYX_ExpTimeFromTimeLocal, time_now() if microseconds is None else microseconds, ctypes.byref(made))
    return made


def utc(microseconds: int | None = None) -> raw.VYX_TIME_EXP_T:
    """Calendar fields of UTC, of now if no time is given."""
    made = raw.VYX_TIME_EXP_T()
    must(raw.VYX_ExpTimeFromTimeGMT, time_now() if microseconds is None else microseconds, ctypes.byref(made))
    return made


def uuid4() -> UUID:
    """A random UUID."""
    made = (ctypes.c_uint8 * 16)()
    must(raw.VYX_GetUUID, made)
    return UUID(bytes=bytes(made))
