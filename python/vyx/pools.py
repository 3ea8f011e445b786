"""Thread pools."""

from collections.abc import Callable
from typing import Any

from . import raw
from .core import Owner, Tickets, call, guarded, milliseconds, must, must_have

_work = Tickets()


def _run(ticket: int | None) -> None:
    routine, arguments = _work.take(ticket)
    guarded(routine, *arguments)


def _handle(ticket: int | None) -> None:
    pool, value = _work.take(ticket)
    pool._waiting.discard(ticket)
    guarded(pool._handler, value)


_RUN = raw.VYX_THREAD_PROC(_run)
_HANDLE = raw.VYX_THRMGR_PROC(_handle)


class Pool(Owner):
    """Runs items on its workers, with no queue: an item is taken only when a worker is free. Needs the started library."""

    def __init__(self, most: int, first: int = 0, stack: int = 0, idle: float | None = None) -> None:
        """At most `most` workers, `first` of them at once; one that is idle for `idle` seconds ends."""
        self._pool: int = must_have(raw.VYX_ThreadPool_CreateFlex, first, most, stack, milliseconds(idle))

    def run(self, routine: Callable[..., object], *arguments: Any, wait: bool = True) -> bool:
        """Runs routine(*arguments) on a worker. False if none is free, or no more than `most` can be started; with
        `wait` a full pool is waited for."""
        self._alive()
        ticket = _work.keep((routine, arguments))
        if call(raw.VYX_ThreadPool_WorkEx, self._pool, _RUN, ticket, int(wait)) == raw.VYX_OK:
            return True
        _work.take(ticket)
        return False

    def _free(self) -> None:
        """Waits until every item has run."""
        must(raw.VYX_ThreadPool_Destroy, self._pool)


class FlexiblePool(Owner):
    """Queues values for one handler. Works without the started library."""

    def __init__(self, most: int, handler: Callable[[Any], object], idle: float | None = 10.0, stack: int = 0) -> None:
        self._handler = handler
        self._waiting: set[int] = set()
        limit = -1 if idle is None else milliseconds(idle)
        self._pool: int = must_have(raw.VYX_ThreadPoolFlex_Create, most, limit, _HANDLE, stack)

    def put(self, value: Any) -> None:
        self._alive()
        ticket = _work.keep((self, value))
        self._waiting.add(ticket)
        try:
            must(raw.VYX_ThreadPoolFlex_Work, self._pool, ticket)
        except BaseException:
            self._waiting.discard(ticket)
            _work.take(ticket)
            raise

    def _free(self) -> None:
        """Waits for the handlers in progress; what is still queued is dropped."""
        must(raw.VYX_ThreadPoolFlex_Destroy, self._pool)
        for ticket in self._waiting:
            _work.take(ticket)
