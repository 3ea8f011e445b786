#!/usr/bin/env python3
"""A log collector: hands the lines of logmill's senders to the log service of libvyx.

    collector.py DIRECTORY    prints its port; start senders with: logmill send --port PORT FILE

Each sender has a thread of a pool. Ctrl-C and SIGTERM make one event, which ends the accepting and the connections.
"""

import signal
import socket
import sys

import vyx
from vyx import log, net, raw

stored: list[int] = []  # lines of each sender


def serve(connection: net.Socket, end: vyx.Event) -> None:
    """One sender: its greeting, its lines up to its end, then the answer that all of them are stored."""
    with connection, vyx.Event() as readable:
        readable.select(connection, raw.VYX_FD_READ | raw.VYX_FD_CLOSE)
        name, rest, count, data = b"", b"", 0, b"?"
        while data and vyx.wait_any([end, readable]) == 1:
            data = connection.receive(65536)
            *lines, rest = (rest + data + (b"" if data or not rest else b"\n")).split(b"\n")
            if not name and lines:
                name = lines.pop(0).removeprefix(b"LOGMILL 1 ")
            for line in lines:
                level = log.ERROR if b"error" in line.lower() else log.INFO
                log.write(level, line, name.decode("ascii", "replace"), wait=True)
            count += len(lines)
        connection.send(b"STORED %d\n" % count, timeout=5.0)
        stored.append(count)


def main(directory: str) -> None:
    signalled, wakeup = socket.socketpair()
    wakeup.setblocking(False)
    signal.set_wakeup_fd(wakeup.fileno())  # written by Python as soon as a signal comes
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: None)
    with vyx.started(), vyx.Event() as end, vyx.Event() as caller, net.Socket.listening(net.Address("127.0.0.1")) as door:
        end.select(net.Socket(handle=signalled.detach()), raw.VYX_FD_READ)
        caller.select(door, raw.VYX_FD_ACCEPT)
        log.enable(log.FILE, directory)
        print("collecting at port", door.addresses()[0].port, flush=True)
        with vyx.Pool(32) as pool:
            while vyx.wait_any([end, caller]) == 1:
                pool.run(serve, door.accept(5.0)[0], end)
        log.disable(log.FILE)
    print(sum(stored), "lines of", len(stored), "senders")


if __name__ == "__main__":
    main(sys.argv[1])
