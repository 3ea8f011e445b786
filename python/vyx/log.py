"""The log service."""

import logging
import os

from . import raw
from .core import Error, must, text

DISABLE, ERROR, DEBUG, INFO = (raw.VYX_LOG_LEVEL_DISABLE, raw.VYX_LOG_LEVEL_ERR, raw.VYX_LOG_LEVEL_DBG,
                               raw.VYX_LOG_LEVEL_INF)
ABOVE_THRESHOLD, FULL = -3, -4  # results of WriteLog
CONSOLE, STDERR, FILE = raw.VYX_LOG_TARGET_CONSOLE, raw.VYX_LOG_TARGET_DEBUG, raw.VYX_LOG_TARGET_FILE


def enable(target: int, directory: str | bytes | os.PathLike[str] | None = None, size: int = 0, wrap: bool = False) -> None:
    """Switches a target on. After the library's stop, and after stop(True), call start() before. The rest is for FILE: the directory, bytes of one file, and whether numbers begin anew
    after 100. Lines to CONSOLE go through C's stdio, not Python's, and appear when its buffer is full."""
    must(raw.EnableTarget, target, None if directory is None else text(directory), size, int(wrap))


def disable(target: int) -> None:
    """Switches a target off, after what was taken for it is written."""
    must(raw.DisableTarget, target)


def threshold(level: int) -> None:
    """Lines above this level are left out."""
    raw.AdjustLogLevel(level)


def write(level: int, line: str | bytes, file: str = "python", number: int = 0, wait: bool = False) -> bool:
    """Hands one line over. False if its level is above the threshold; Error if it is not taken.

    A full buffer is the result -4, and the line lost; with `wait` there are more attempts, a millisecond apart. A zero
    byte is shown as a question mark, and what is longer than a line of the log is cut.
    """
    shown = (line.encode("utf-8", "replace") if isinstance(line, str) else line).replace(b"\0", b"?")
    while (result := raw.WriteLog(level, text(file), number, b"%s", shown)) == FULL and wait:
        raw.VYX_Sleep(1)
    if result not in (0, ABOVE_THRESHOLD):
        raise Error("WriteLog", result, 0)
    return result == 0


def stop(block: bool = False) -> None:
    """Writes what was taken and stops the service; with `block` until start()."""
    must(raw.StopLogService, block)


def start() -> None:
    """Allows the service to start again after stop(True)."""
    must(raw.StartLogService)


class Handler(logging.Handler):
    """Sends what Python's own logging has to say to the service."""

    def emit(self, record: logging.LogRecord) -> None:
        level = ERROR if record.levelno >= logging.WARNING else DEBUG if record.levelno <= logging.DEBUG else INFO
        try:
            write(level, self.format(record), record.filename, record.lineno)
        except Exception:
            self.handleError(record)
