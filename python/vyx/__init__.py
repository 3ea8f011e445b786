"""libvyx for Python: what the library has, the way Python says it.

    import vyx

    with vyx.started(), vyx.Queue() as queue:
        queue.send(b"hello", priority=1)
        print(queue.receive(timeout=1.0).data)

Times are seconds, None is no limit, texts for the library are bytes or str (UTF-8). What fails raises vyx.Error, which
quotes the header on the function's results; a time that runs out is a result, not a failure, where a function can tell
them apart. Objects own what they stand for and are context managers; close() may be called twice. The flat functions
themselves are in vyx.raw, all of them, with the headers' comments.
"""

from . import log, net, raw
from .containers import Ring, Table
from .core import Error, local_time, started, tick, time_now, utc, uuid4, version
from .events import Event, wait_any
from .files import Entry, File, copy_file, listed
from .messages import Message, Queue
from .pools import FlexiblePool, Pool
from .sync import Condition, Mutex, Semaphore
from .threads import Local, Thread
from .timers import Timer

__all__ = ["Condition", "Entry", "Error", "Event", "File", "FlexiblePool", "Local", "Message", "Mutex", "Pool", "Queue",
           "Ring", "Semaphore", "Table", "Thread", "Timer", "copy_file", "listed", "local_time", "log", "net", "raw",
           "started", "tick", "time_now", "utc", "uuid4", "version", "wait_any"]
