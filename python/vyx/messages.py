"""Message queues."""

import ctypes
from typing import NamedTuple

from . import raw
from .core import Error, Owner, call, milliseconds, must


class Message(NamedTuple):
    """What a queue delivers."""

    data: bytes
    priority: int
    type: int


class Queue(Owner):
    """A queue of messages in the order of their priorities, higher ones first. Needs the started library."""

    #: Bytes that a message can hold.
    LIMIT = raw.VYX_MSG_DATA_SIZE

    def __init__(self) -> None:
        self._handle = ctypes.c_void_p()
        must(raw.VYX_MsgQCreateEx, ctypes.byref(self._handle))

    def send(self, data: bytes, priority: int = 0, type: int = 0) -> None:
        self._alive()
        if len(data) > self.LIMIT:
            raise ValueError(f"a message holds {self.LIMIT} bytes, not {len(data)}")
        block = raw.VYX_MSG_BLOCK_T()
        block.iMsgType, block.iPriority, block.iDataLen = type, priority, len(data)
        ctypes.memmove(ctypes.addressof(block) + raw.VYX_MSG_BLOCK_T.szData.offset, data, len(data))
        must(raw.VYX_MsgQSendEx, self._handle, ctypes.byref(block))

    def receive(self, timeout: float | None = None) -> Message:
        """The oldest message of the highest priority. TimeoutError if there is none within the time, as the library
        does not tell why a wait ended. A time of 0 looks only: that is a wait of one millisecond, because the library's
        own 0 waits without a limit."""
        self._alive()
        block = raw.VYX_MSG_BLOCK_T()
        block.iDataLen = self.LIMIT
        wait = -1 if timeout is None else max(milliseconds(timeout), 1)
        if call(raw.VYX_MsgQReceiveEx, self._handle, ctypes.byref(block), wait) != raw.VYX_OK:
            if timeout is None:
                raise Error("VYX_MsgQReceiveEx", raw.VYX_ERROR, ctypes.get_errno())
            raise TimeoutError("no message")
        start = ctypes.addressof(block) + raw.VYX_MSG_BLOCK_T.szData.offset
        return Message(ctypes.string_at(start, block.iDataLen), block.iPriority, block.iMsgType)

    def _free(self) -> None:
        call(raw.VYX_MsgQDestroyEx, self._handle)
