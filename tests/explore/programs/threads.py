# Threads of an interpreter, whose own lock changes hands by a condition and a time-out, meet in a queue, a pipe, sockets
# and a semaphore, which a child uses as well. The virtual clock lets a day pass at once.
import contextlib
import os
import queue
import select
import socket
import struct
import sys
import threading
import time
from _multiprocessing import SemLock

sys.setswitchinterval(0.0001)
threading.excepthook = lambda _: os._exit(1)
items = queue.SimpleQueue()
outlet, inlet = os.pipe()
late_outlet, late_inlet = os.pipe()
listener = socket.create_server(("127.0.0.1", 0), backlog=1)
semaphore = SemLock(1, 0, 1, "/explored", True)


def give():
    for item in range(10):
        items.put(item)
    assert os.write(inlet, bytes(200000)) == 200000  # more than a pipe holds
    os.close(inlet)
    os.write(late_inlet, b"x")
    peer = listener.accept()[0]
    peer.send(peer.recv(1))
    peer.close()


def take():
    assert sum(items.get() for _ in range(10)) == 45
    assert sum(map(len, iter(lambda: os.read(outlet, 65536), b""))) == 200000
    assert select.select([late_outlet], [], [], 1)[0] == [late_outlet] and os.read(late_outlet, 1) == b"x"
    assert select.select([late_outlet], [], [], 0.005)[0] == []
    poll, epoll = select.poll(), select.epoll()
    for waits in poll, epoll:
        waits.register(late_outlet, select.POLLIN)
        assert waits.poll(0.005) == []
    client = socket.create_connection(listener.getsockname())
    os.write(late_inlet, client.send(b"x").to_bytes(1, "big"))
    assert poll.poll() == epoll.poll() == [(late_outlet, select.POLLIN)]
    assert client.recv(1) == b"x" and client.recv(1) == b""
    pair = socket.socketpair()
    pair[0].setsockopt(socket.SOL_SOCKET, socket.SO_RCVTIMEO, struct.pack("ll", 0, 5000))
    with contextlib.suppress(BlockingIOError):
        assert not pair[0].recv(1)
        os._exit(1)


threads = [threading.Thread(target=give), threading.Thread(target=take)]
for thread in threads:
    thread.start()
for thread in threads:
    thread.join()
start = time.time(), time.monotonic()
time.sleep(86400)  # of the virtual clock, and tried itself
assert all(86400 <= now - then < 86500 for now, then in zip((time.time(), time.monotonic()), start))
child = os.fork()
if child == 0:
    late = semaphore.acquire(True, 0.005)
    semaphore.release()
    os._exit(1 if late else 0)
sys.exit(0 if semaphore.acquire() and os.waitpid(child, 0)[1] == 0 else 1)
