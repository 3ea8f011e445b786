"""Periodic timers."""

import ctypes
from collections.abc import Callable

from . import raw
from .core import Owner, Tickets, guarded, milliseconds, must

_timers = Tickets()


def _due(_identifier: int, ticket: int | None) -> None:
    routine = _timers.look(ticket)
    if routine is not None:
        guarded(routine)


_DUE = raw.VYX_TIMER_PROC(_due)


class Timer(Owner):
    """Calls a routine every period, on a thread of its own, from one period on. Needs the started library."""

    def __init__(self, period: float, routine: Callable[[], object]) -> None:
        self._ticket = _timers.keep(routine)
        identifier = ctypes.c_uint32()
        try:
            must(raw.VYX_SetTimer, _DUE, self._ticket, milliseconds(period), ctypes.byref(identifier))
        except BaseException:
            _timers.take(self._ticket)
            raise
        self.id = identifier.value

    def _free(self) -> None:
        """Waits for a routine that is running, unless that is who asks."""
        raw.VYX_KillTimer(self.id)
        _timers.take(self._ticket)
