"""Sockets and addresses."""

import ctypes
import select
import socket as platform
from typing import NamedTuple

from . import raw
from .core import Error, Owner, call, milliseconds, must, text


class _PollFd(ctypes.Structure):
    """struct pollfd of the platform."""

    _fields_ = [("fd", ctypes.c_int), ("events", ctypes.c_short), ("revents", ctypes.c_short)]


class Address(NamedTuple):
    """An IPv4 or IPv6 address, told apart by the colon, and a port."""

    host: str = ""
    port: int = 0

    @property
    def family(self) -> int:
        return int(platform.AF_INET6 if ":" in self.host else platform.AF_INET)

    def record(self) -> raw.VYX_ADDR_T:
        made = raw.VYX_ADDR_T()
        if ":" in self.host:  # the platform's own reading: the library's is its own
            packed = (ctypes.c_uint8 * 16)(*platform.inet_pton(platform.AF_INET6, self.host))
            must(raw.VYX_MakeAddr6ByInt, packed, self.port, ctypes.byref(made))
        else:
            must(raw.VYX_MakeAddrByString, self.family, text(self.host), self.port, ctypes.byref(made))
        return made

    @classmethod
    def of(cls, record: raw.VYX_ADDR_T) -> "Address":
        parts = raw.VYX_ADDR_EXP_T()
        must(raw.VYX_GetAddrInfo, ctypes.byref(record), ctypes.byref(parts))
        length = 4 if parts.nFamily == platform.AF_INET else 16
        return cls(platform.inet_ntop(parts.nFamily, bytes(parts.byAddr)[:length]), parts.nPort)


class Socket(Owner):
    """A socket of the library."""

    def __init__(self, family: int = platform.AF_INET, kind: int = platform.SOCK_STREAM, handle: int | None = None) -> None:
        self.handle: int = must(raw.VYX_CreateSocket, family, kind, 0) if handle is None else handle

    @classmethod
    def listening(cls, address: Address, backlog: int = 128) -> "Socket":
        made = cls(address.family)
        try:
            must(raw.VYX_SetReuseAddr, made.handle, 1)
            must(raw.VYX_Bind, made.handle, ctypes.byref(address.record()))
            must(raw.VYX_Listen, made.handle, backlog)
        except BaseException:
            made.close()
            raise
        return made

    @classmethod
    def connected(cls, address: Address, timeout: float = 30.0) -> "Socket":
        made = cls(address.family)
        try:
            must(raw.VYX_ConnectWithTimeOut, made.handle, ctypes.byref(address.record()), milliseconds(timeout))
        except BaseException:
            made.close()
            raise
        return made

    def accept(self, timeout: float | None = None) -> tuple["Socket", Address]:
        """A connection and its peer. TimeoutError if there is none within the time."""
        self._alive()
        peer = raw.VYX_ADDR_T()
        handle = call(raw.VYX_Accept, self.handle, ctypes.byref(peer), milliseconds(timeout))
        if handle < 0:
            self._failed("VYX_Accept", handle, timeout)
        return Socket(handle=handle), Address.of(peer)

    def send(self, data: bytes, timeout: float | None = None) -> int:
        """Sends all of it within the time; how many bytes went."""
        self._alive()
        return raw.VYX_Sendn(self.handle, data, len(data), milliseconds(timeout))

    def receive(self, most: int, timeout: float | None = None) -> bytes:
        """What is there, at most so many bytes; empty at the end of the connection. TimeoutError if nothing comes."""
        if most < 1:
            raise ValueError("at least one byte is received")
        self._wait_for_data(timeout)
        block = ctypes.create_string_buffer(most)
        count = must(raw.VYX_Recv, self.handle, block, most)
        return block.raw[:count]

    def receive_exactly(self, count: int, timeout: float | None = None) -> bytes:
        """So many bytes; fewer if the time ran out. Error if the peer ended before."""
        self._alive()
        block = ctypes.create_string_buffer(max(count, 1))
        got = must(raw.VYX_Recvn, self.handle, block, count, milliseconds(timeout))
        return block.raw[:got]

    def send_to(self, data: bytes, address: Address) -> int:
        """Sends one datagram; how many bytes went."""
        self._alive()
        return int(must(raw.VYX_SendTo, self.handle, data, len(data), ctypes.byref(address.record())))

    def receive_from(self, most: int, timeout: float | None = None) -> tuple[bytes, Address]:
        """One datagram, cut after so many bytes, and its sender. TimeoutError if none comes."""
        self._wait_for_data(timeout)
        block, sender = ctypes.create_string_buffer(max(most, 1)), raw.VYX_ADDR_T()
        count = must(raw.VYX_RecvFrom, self.handle, block, most, ctypes.byref(sender))
        return block.raw[:count], Address.of(sender)

    def bind(self, address: Address) -> None:
        self._alive()
        must(raw.VYX_Bind, self.handle, ctypes.byref(address.record()))

    def addresses(self) -> tuple[Address, Address | None]:
        """Its own address, and its peer's if it has one."""
        self._alive()
        own, peer = raw.VYX_ADDR_T(), raw.VYX_ADDR_T()
        must(raw.VYX_GetAddrBySockFd, self.handle, ctypes.byref(own), None)
        has = call(raw.VYX_GetAddrBySockFd, self.handle, None, ctypes.byref(peer)) == raw.VYX_OK
        return Address.of(own), Address.of(peer) if has else None

    def shut_down(self, how: int = platform.SHUT_WR) -> None:
        self._alive()
        must(raw.VYX_ShutDown, self.handle, how)

    def blocking(self, on: bool) -> None:
        self._alive()
        must(raw.VYX_SetNonBlock, self.handle, int(not on))

    def _wait_for_data(self, timeout: float | None) -> None:
        self._alive()
        look = _PollFd(self.handle, select.POLLIN, 0)
        left = ctypes.c_uint32(milliseconds(timeout))
        if must(raw.VYX_PollEx, ctypes.byref(look), 1, ctypes.byref(left)) == 0:
            raise TimeoutError("nothing to receive")

    @staticmethod
    def _failed(function: str, result: int, timeout: float | None) -> None:
        number = ctypes.get_errno()
        if timeout is not None and number == 0:
            raise TimeoutError("no connection")
        raise Error(function, result, number)

    def _free(self) -> None:
        call(raw.VYX_CloseSocket, self.handle, 0)


class Adapter(NamedTuple):
    """A network adapter that is up and running. Addresses have port 0."""

    name: str
    number: int
    hardware: bytes
    addresses: tuple[Address, ...]


def resolve(host: str | None, service: str | int | None = None, kind: int = platform.SOCK_STREAM) -> list[Address]:
    """The addresses of a host and a service, in the platform's order. It may ask name servers."""
    hints = raw.VYX_ADDRESS_INFO_T(iSockType=kind)
    found = ctypes.POINTER(raw.VYX_ADDRESS_INFO_T)()
    must(raw.VYX_GetAddressInfo, None if host is None else text(host), None if service is None else text(str(service)),
         ctypes.byref(hints), ctypes.byref(found))
    made, node = [], found
    while node:
        if node.contents.iFamily in (platform.AF_INET, platform.AF_INET6):
            made.append(Address.of(node.contents.struAddr))
        node = node.contents.pNext
    raw.VYX_FreeAddressInfo(found)
    return made


def adapters() -> list[Adapter]:
    """The adapters that are up and running, in the platform's order."""
    found = ctypes.POINTER(raw.VYX_ADAPTER_INFO)()
    must(raw.VYX_GetAdapterInfo, ctypes.byref(found))
    made, node = [], found
    while node:
        here, addresses = node.contents, []
        entry = here.pIpAddrList
        while entry:
            addresses.append(Address(bytes(entry.contents.szAddr).split(b"\0")[0].decode()))
            entry = entry.contents.pNext
        entry = here.pIp6AddrList
        while entry:
            addresses.append(Address(platform.inet_ntop(platform.AF_INET6, bytes(entry.contents.byAddr))))
            entry = entry.contents.pNext
        made.append(Adapter(here.szName.decode(), here.nIndex, bytes(here.byAddr)[:here.nAddrLen], tuple(addresses)))
        node = here.pNext
    raw.VYX_FreeAdapterInfo(found)
    return made
