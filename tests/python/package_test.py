"""The Python package against the library: each subsystem does something real through it."""

import ctypes
import errno
import json
import logging
import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import vyx
from vyx import raw

LIMIT = 60.0  # seconds that are never needed
API = json.loads(pathlib.Path(os.environ["VYX_API_JSON"]).read_text())


class Package(unittest.TestCase):
    def setUp(self) -> None:
        self.enterContext(vyx.started())
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def test_records_lie_as_described(self) -> None:
        for item in API["records"]:
            record = getattr(raw, item["name"])
            self.assertEqual((ctypes.sizeof(record), ctypes.alignment(record)), (item["size"], item["alignment"]))
            for field in item["fields"]:
                place = getattr(record, field["name"])
                self.assertEqual((place.offset, place.size), (field["offset"], field["size"]), field["name"])
        self.assertEqual(".".join(map(str, vyx.version())), API["version"])

    def test_events(self) -> None:
        with vyx.Event() as first, vyx.Event(signalled=True) as second:
            self.assertEqual(vyx.wait_any([first, second], LIMIT), 1)
            second.reset()
            self.assertIsNone(vyx.wait_any([first, second], 0.01))
            self.assertFalse(first.wait(0.01))
            thread = vyx.Thread(first.set)
            self.assertTrue(first.wait(LIMIT))
            thread.wait()
            with vyx.net.Socket() as door, self.assertRaisesRegex(vyx.Error, "VYX_FALSE for null, for a socket event"):
                second.select(door, raw.VYX_FD_READ)
                second.set()
        with self.assertRaisesRegex(ValueError, "this Event is closed"):
            first.set()

    def test_threads_and_what_they_wait_for(self) -> None:
        mutex = vyx.Mutex()
        done: list[int] = []

        def finish() -> None:
            with mutex:
                done.append(local.get())
                condition.signal()

        with vyx.Semaphore(1) as semaphore:
            self.assertTrue(semaphore.wait())
            self.assertFalse(semaphore.wait(0.01))
        with vyx.Condition() as condition, vyx.Local() as local, mutex:
            local.set(1)
            thread = vyx.Thread(finish)
            while not done:
                condition.wait(mutex, LIMIT)
            self.assertEqual((done, local.get()), ([0], 1))
        thread.wait()
        mutex.close()

    def test_timer_calls_until_closed_and_failures_are_reported(self) -> None:
        self.addCleanup(setattr, threading, "excepthook", threading.excepthook)
        seen: list[object] = []
        third = threading.Event()

        def keep(hook: threading.ExceptHookArgs) -> None:
            seen.append(hook.exc_type)
            if len(seen) == 3:
                third.set()

        threading.excepthook = keep
        with vyx.Timer(0.002, lambda: 1 // 0):
            self.assertTrue(third.wait(LIMIT))
        calls = len(seen)
        with vyx.Timer(0.002, (other := threading.Event()).set):  # its calls show that time has passed
            self.assertTrue(other.wait(LIMIT))
        self.assertEqual(seen, [ZeroDivisionError] * calls)

    def test_messages(self) -> None:
        with vyx.Queue() as queue:
            for data, priority in ((b"low", -1), (b"with \0 zero", 5), (b"x" * queue.LIMIT, 4)):
                queue.send(data, priority, type=7)
            self.assertEqual(queue.receive(LIMIT), (b"with \0 zero", 5, 7))
            self.assertEqual([len(queue.receive().data) for _ in range(2)], [queue.LIMIT, 3])
            self.assertRaises(TimeoutError, queue.receive, 0)
            self.assertRaises(ValueError, queue.send, b"x" * (queue.LIMIT + 1))
        raw.VYX_Fini()
        with self.assertRaisesRegex(vyx.Error, "the library is not started") as caught:
            vyx.Queue()
        self.assertEqual((caught.exception.function, caught.exception.result), ("VYX_MsgQCreateEx", -1))
        raw.VYX_Init()

    def test_pools(self) -> None:
        gate = threading.Event()
        handled = vyx.Semaphore()
        got: list[int] = []

        def handle(number: int) -> None:
            gate.wait(LIMIT)
            got.append(number)
            handled.post()

        with vyx.Pool(1) as pool:
            self.assertTrue(pool.run(handle, 1))
            self.assertFalse(pool.run(got.append, 99, wait=False))
            gate.set()
            self.assertTrue(pool.run(handle, 2))
        self.assertEqual(got, [1, 2])
        with vyx.FlexiblePool(3, handle) as flexible:
            for number in range(3, 100):
                flexible.put(number)
            self.assertTrue(all(handled.wait(LIMIT) for _ in range(1, 100)))
        self.assertEqual(sorted(got), list(range(1, 100)))
        handled.close()

    def test_network(self) -> None:
        loopback = vyx.net.Address("127.0.0.1")
        with vyx.net.Socket.listening(loopback) as listener:
            self.assertRaises(TimeoutError, listener.accept, 0.01)
            with vyx.net.Socket.connected(listener.addresses()[0], LIMIT) as client, vyx.Event() as readable:
                server, peer = listener.accept(LIMIT)
                with server:
                    self.assertEqual(peer, client.addresses()[0])
                    self.assertRaises(TimeoutError, server.receive, 10, 0.01)
                    readable.select(server, raw.VYX_FD_READ | raw.VYX_FD_CLOSE)
                    self.assertEqual(client.send(b"question", LIMIT), 8)
                    self.assertTrue(readable.wait(LIMIT))
                    self.assertEqual(readable.happened()[0], raw.VYX_FD_READ)
                    self.assertEqual(server.receive_exactly(8, LIMIT), b"question")
                    client.shut_down()
                    self.assertEqual(server.receive(10, LIMIT), b"")
        with vyx.net.Socket(kind=socket.SOCK_DGRAM) as one, vyx.net.Socket(kind=socket.SOCK_DGRAM) as other:
            one.bind(loopback)
            other.bind(loopback)
            self.assertEqual(one.send_to(b"datagram", other.addresses()[0]), 8)
            self.assertEqual(other.receive_from(4, LIMIT), (b"data", one.addresses()[0]))
        self.assertEqual(vyx.net.resolve("127.0.0.1", 80), [vyx.net.Address("127.0.0.1", 80)])
        six = vyx.net.Address("fe80::1", 80)
        self.assertEqual(vyx.net.Address.of(six.record()), six)
        for adapter in vyx.net.adapters():
            self.assertEqual(adapter.number, socket.if_nametoindex(adapter.name))
            for address in adapter.addresses:  # which the platform can read again
                socket.inet_pton(address.family, address.host)
        with self.assertRaises(vyx.Error) as caught:
            vyx.net.Socket(kind=99)
        self.assertNotEqual(caught.exception.errno, 0)

    def test_log_and_logging(self) -> None:
        vyx.log.start()  # the library's stop has blocked it
        vyx.log.enable(vyx.log.FILE, self.folder)
        self.addCleanup(vyx.log.threshold, vyx.log.INFO)
        self.assertTrue(vyx.log.write(vyx.log.ERROR, "straße %s\0", "here.py", 7))
        vyx.log.threshold(vyx.log.ERROR)
        self.assertFalse(vyx.log.write(vyx.log.INFO, "not this one"))
        logger = logging.getLogger("vyx test")
        logger.addHandler(handler := vyx.log.Handler())
        logger.error("from %s", "logging")
        logger.removeHandler(handler)
        vyx.log.disable(vyx.log.FILE)
        file = self.folder / "vyx_log_1_w.log"
        file.chmod(0o600)  # the service makes files that nobody may read
        self.assertRegex(file.read_bytes().decode(),
                         r"^[^\n]*\[ERR\]\[FILE:here.py\]\[LINE:7\] straße %s\?\r\n"
                         r"[^\n]*\[ERR\]\[FILE:package_test.py\]\[LINE:\d+\] from logging\r\n$")
        with self.assertRaises(vyx.Error) as caught:
            vyx.log.write(vyx.log.ERROR, "nowhere")
        self.assertEqual(caught.exception.result, -5)

    def test_files(self) -> None:
        one, two = self.folder / "a", self.folder / "b"
        with vyx.File(one, raw.VYX_OPEN_READ | raw.VYX_OPEN_WRITE | raw.VYX_OPEN_CREATE) as file:
            self.assertEqual(file.write(b"content"), 7)
            file.flush()
            self.assertEqual((file.seek(3), file.read(99), file.read(1)), (3, b"tent", b""))
            self.assertEqual(file.status().size, 7)
        vyx.copy_file(one, two)
        self.assertRaises(vyx.Error, vyx.copy_file, one, two, replace=False)
        self.assertEqual({(entry.name, entry.type, entry.size) for entry in vyx.listed(self.folder)},
                         {(name, raw.VYX_TYPE_REG, 7) for name in (b"a", b"b")})
        with self.assertRaises(vyx.Error) as caught:
            vyx.File(self.folder / "none")
        self.assertEqual(caught.exception.errno, errno.ENOENT)
        self.assertRaises(ValueError, vyx.File, b"a\0b")

    def test_containers_and_times(self) -> None:
        with vyx.Table(5) as table:
            for key in (7, 8, 9, 10, 11):
                table.enter(key, str(key))
            self.assertEqual((table[7], 7 in table, 6 in table, len(table)), ("7", True, False, 5))
            self.assertRaises(KeyError, table.enter, 7, "again")
            self.assertRaises(vyx.Error, table.enter, 12, None)
        with vyx.Ring(16) as ring:
            for data in (b"first ", b"2nd"):
                ring.write(data)
            self.assertRaises(vyx.Error, ring.write, b"too long")
            self.assertEqual((len(ring), ring.read(), ring.read()), (9, b"first 2nd", b""))
        self.assertEqual(vyx.uuid4().version, 4)
        self.assertLess(abs(vyx.time_now() - time.time() * 1e6), 60e6)
        fields = vyx.utc(1_234_567_890_123_456)
        self.assertEqual((fields.tm_year, fields.tm_mon, fields.tm_hour, fields.tm_usec), (109, 1, 23, 123456))
        self.assertEqual(vyx.local_time(1_234_567_890_123_456).tm_hour, time.localtime(1_234_567_890).tm_hour)

    def test_collector_takes_what_logmill_sends(self) -> None:
        collector = subprocess.Popen([sys.executable, os.environ["COLLECTOR"], self.folder / "logs"], stdout=subprocess.PIPE,
                                     text=True)
        self.addCleanup(collector.kill)
        assert collector.stdout is not None
        port = collector.stdout.readline().split()[-1]
        text = "".join(f"error {n}\n" for n in range(500))
        for name in ("one", "two"):
            sent = subprocess.run([os.environ["LOGMILL"], "send", "--port", port, "--name", name, "-"], text=True, input=text,
                                  stdout=subprocess.PIPE, check=True)
            self.assertEqual(sent.stdout, f"{name}: 500 lines sent, 500 stored\n")
        collector.terminate()
        self.assertEqual((collector.communicate(timeout=LIMIT)[0], collector.returncode), ("1000 lines of 2 senders\n", 0))
        log = self.folder / "logs" / "vyx_log_1_w.log"
        log.chmod(0o600)
        lines = log.read_text().splitlines()
        for name in ("one", "two"):
            self.assertEqual([line.split("] ", 1)[1] for line in lines if f"[ERR][FILE:{name}]" in line], text.splitlines())


if __name__ == "__main__":
    unittest.main()
