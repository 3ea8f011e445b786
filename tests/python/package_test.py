"""The Python package against the library: each subsystem does something real through it."""

import contextlib
import ctypes
import errno
import io
import itertools
import json
import logging
import os
import pathlib
import re
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


class Description(unittest.TestCase):
    def test_everything_is_there(self) -> None:
        for item in API["functions"]:
            if item["language"] == "c":
                self.assertEqual(getattr(raw, item["name"]).__doc__.split(), item["comment"].split())
        for kind in ("constants", "enums"):
            for item in API[kind]:
                for value in item.get("values", [item]):
                    self.assertEqual(getattr(raw, value["name"]), value["value"], value["name"])

    def test_records_lie_as_described(self) -> None:
        for item in API["records"]:
            record = getattr(raw, item["name"])
            self.assertEqual((ctypes.sizeof(record), ctypes.alignment(record)), (item["size"], item["alignment"]))
            for field in item["fields"]:
                place = getattr(record, field["name"])
                self.assertEqual((place.offset, place.size), (field["offset"], field["size"]), field["name"])


class Started(unittest.TestCase):
    """With the library started."""

    def setUp(self) -> None:
        self.enterContext(vyx.started())


class Waiting(Started):
    def test_events(self) -> None:
        with vyx.Event() as first, vyx.Event(signalled=True) as second:
            self.assertEqual(vyx.wait_any([first, second], LIMIT), 1)
            second.reset()
            self.assertIsNone(vyx.wait_any([first, second], 0.01))
            self.assertFalse(first.wait(0.01))
            thread = vyx.Thread(first.set)
            self.assertTrue(first.wait(LIMIT))
            thread.wait()
            with self.assertRaises(vyx.Error) as caught:
                with vyx.net.Socket() as door:
                    second.select(door, raw.VYX_FD_READ)
                    second.set()
            self.assertIn("VYX_FALSE for null, for a socket event", str(caught.exception))
        with self.assertRaisesRegex(ValueError, "this Event is closed"):
            first.set()

    def test_semaphore_and_condition(self) -> None:
        with vyx.Semaphore(1) as semaphore:
            self.assertTrue(semaphore.wait())
            self.assertFalse(semaphore.wait(0.01))
            thread = vyx.Thread(semaphore.post)
            self.assertTrue(semaphore.wait(LIMIT))
            thread.wait()
        mutex = vyx.Mutex()
        done: list[int] = []

        def finish() -> None:
            with mutex:
                done.append(1)
                condition.signal()

        with vyx.Condition() as condition:
            with mutex:
                thread = vyx.Thread(finish)
                while not done:
                    condition.wait(mutex, LIMIT)
            thread.wait()
        mutex.close()

    def test_timer_calls_until_closed(self) -> None:
        calls = itertools.count(1)
        third = threading.Event()
        timer = vyx.Timer(0.002, lambda: third.set() if next(calls) == 3 else None)
        self.assertTrue(third.wait(LIMIT))
        timer.close()
        after = next(calls)
        with vyx.Timer(0.002, (other := threading.Event()).set):  # its calls show that time has passed
            self.assertTrue(other.wait(LIMIT))
        self.assertEqual(next(calls), after + 1)

    def test_failing_routine_is_reported(self) -> None:
        seen: list[object] = []
        reported = threading.Event()
        before = threading.excepthook
        self.addCleanup(setattr, threading, "excepthook", before)

        def keep(hook: threading.ExceptHookArgs) -> None:
            seen.append(hook.exc_type)
            reported.set()

        threading.excepthook = keep
        with vyx.Timer(0.001, lambda: 1 // 0):
            self.assertTrue(reported.wait(LIMIT))
        self.assertIs(seen[0], ZeroDivisionError)


class Messages(Started):
    def test_priorities_and_limits(self) -> None:
        with vyx.Queue() as queue:
            for data, priority in ((b"low", -1), (b"high", 5), (b"with \0 zero", 5)):
                queue.send(data, priority, type=7)
            got = [queue.receive(LIMIT) for _ in range(3)]
            self.assertEqual([m.data for m in got], [b"high", b"with \0 zero", b"low"])
            self.assertEqual(got[0][1:], (5, 7))
            with self.assertRaises(TimeoutError):
                queue.receive(0)
            queue.send(b"x" * queue.LIMIT)
            self.assertEqual(len(queue.receive().data), queue.LIMIT)
            self.assertRaises(ValueError, queue.send, b"x" * (queue.LIMIT + 1))

    def test_without_the_library(self) -> None:
        raw.VYX_Fini()
        with self.assertRaises(vyx.Error) as caught:
            vyx.Queue()
        self.assertEqual((caught.exception.function, caught.exception.result), ("VYX_MsgQCreateEx", -1))
        self.assertIn("the library is not started", str(caught.exception))
        raw.VYX_Init()


class Pools(Started):
    def test_fixed(self) -> None:
        gate = threading.Event()
        sums: list[int] = []

        def add_later(number: int) -> None:
            gate.wait(LIMIT)
            sums.append(number)

        with vyx.Pool(2) as pool:
            for number in (1, 2):
                self.assertTrue(pool.run(add_later, number))
            self.assertFalse(pool.run(sums.append, 99, wait=False))
            gate.set()
            self.assertTrue(pool.run(sums.append, 3))
        self.assertEqual(sorted(sums), [1, 2, 3])

    def test_flexible(self) -> None:
        got: list[int] = []
        all_there = threading.Event()

        def take(value: int) -> None:
            got.append(value)
            if len(got) == 100:
                all_there.set()

        with vyx.FlexiblePool(3, take) as pool:
            for number in range(100):
                pool.put(number)
            self.assertTrue(all_there.wait(LIMIT))
        self.assertEqual(sorted(got), list(range(100)))


class Network(Started):
    def test_sockets_and_their_events(self) -> None:
        for host in ("127.0.0.1", "::1") if socket.has_ipv6 and has_ipv6() else ("127.0.0.1",):
            with vyx.net.Socket.listening(vyx.net.Address(host)) as listener:
                with self.assertRaises(TimeoutError):
                    listener.accept(0.01)
                own = listener.addresses()[0]
                with vyx.net.Socket.connected(own, LIMIT) as client, vyx.Event() as readable:
                    server, peer = listener.accept(LIMIT)
                    with server:
                        self.assertEqual(peer, client.addresses()[0])
                        with self.assertRaises(TimeoutError):
                            server.receive(10, 0.01)
                        readable.select(server, raw.VYX_FD_READ | raw.VYX_FD_CLOSE)
                        self.assertEqual(client.send(b"question", LIMIT), 8)
                        self.assertTrue(readable.wait(LIMIT))
                        self.assertEqual(readable.happened()[0], raw.VYX_FD_READ)
                        self.assertEqual(server.receive_exactly(8, LIMIT), b"question")
                        client.shut_down()
                        self.assertEqual(server.receive(10, LIMIT), b"")
        with self.assertRaises(vyx.Error) as caught:
            vyx.net.Socket(kind=99)
        self.assertNotEqual(caught.exception.errno, 0)

    def test_datagrams(self) -> None:
        loopback = vyx.net.Address("127.0.0.1")
        with vyx.net.Socket(kind=socket.SOCK_DGRAM) as one, vyx.net.Socket(kind=socket.SOCK_DGRAM) as other:
            for end in (one, other):
                end.bind(loopback)
            self.assertEqual(one.send_to(b"datagram", other.addresses()[0]), 8)
            self.assertEqual(other.receive_from(4, LIMIT), (b"data", one.addresses()[0]))
            with self.assertRaises(TimeoutError):
                other.receive_from(4, 0.01)

    def test_names_and_adapters(self) -> None:
        self.assertEqual(vyx.net.resolve("127.0.0.1", 80), [vyx.net.Address("127.0.0.1", 80)])
        self.assertRaises(vyx.Error, vyx.net.resolve, None)
        numbers = {name: number for number, name in socket.if_nameindex()}
        for adapter in vyx.net.adapters():
            self.assertEqual(adapter.number, numbers[adapter.name])
            for address in adapter.addresses:  # which the platform can read again
                socket.inet_pton(address.family, address.host)


def has_ipv6() -> bool:
    try:
        socket.create_server(("::1", 0), family=socket.AF_INET6).close()
    except OSError:
        return False
    return True


class Rest(unittest.TestCase):
    def test_log_and_logging(self) -> None:
        folder = self.enterContext(tempfile.TemporaryDirectory())
        vyx.log.start()  # the library's stop has blocked it
        vyx.log.enable(vyx.log.FILE, folder)
        self.addCleanup(vyx.log.threshold, vyx.log.INFO)
        self.assertTrue(vyx.log.write(vyx.log.ERROR, "straße %s\0", "here.py", 7))
        vyx.log.threshold(vyx.log.ERROR)
        self.assertFalse(vyx.log.write(vyx.log.INFO, "not this one"))
        logger = logging.getLogger("vyx test")
        logger.addHandler(handler := vyx.log.Handler())
        logger.error("from %s", "logging")
        logger.removeHandler(handler)
        vyx.log.disable(vyx.log.FILE)
        file = pathlib.Path(folder, "vyx_log_1_w.log")
        file.chmod(0o600)  # the service makes files that nobody may read
        lines = file.read_bytes().decode().split("\r\n")
        self.assertRegex(lines[0], r"\[ERR\]\[FILE:here.py\]\[LINE:7\] straße %s\?$")
        self.assertRegex(lines[1], r"\[ERR\]\[FILE:package_test.py\]\[LINE:\d+\] from logging$")
        self.assertEqual(lines[2:], [""])
        with self.assertRaises(vyx.Error) as caught:
            vyx.log.write(vyx.log.ERROR, "nowhere")
        self.assertEqual(caught.exception.result, -5)

    def test_files(self) -> None:
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        with vyx.File(folder / "a", raw.VYX_OPEN_READ | raw.VYX_OPEN_WRITE | raw.VYX_OPEN_CREATE) as file:
            self.assertEqual(file.write(b"content"), 7)
            file.flush()
            self.assertEqual((file.seek(3), file.read(99), file.read(1)), (3, b"tent", b""))
            self.assertEqual(file.status().size, 7)
        vyx.copy_file(folder / "a", folder / "b")
        self.assertRaises(vyx.Error, vyx.copy_file, folder / "a", folder / "b", replace=False)
        found = {entry.name: (entry.type, entry.size) for entry in vyx.listed(folder)}
        self.assertEqual(found, {name: (raw.VYX_TYPE_REG, 7) for name in (b"a", b"b")})
        with self.assertRaises(vyx.Error) as caught:
            vyx.File(folder / "none")
        self.assertEqual(caught.exception.errno, errno.ENOENT)
        self.assertRaises(ValueError, vyx.File, b"a\0b")

    def test_containers_and_times(self) -> None:
        with vyx.Table(5) as table:
            table.enter(7, "seven")
            self.assertEqual((table[7], 7 in table, 8 in table, len(table)), ("seven", True, False, 1))
            self.assertRaises(KeyError, table.enter, 7, "again")
            for key in range(100, 104):
                table.enter(key, None)
            self.assertRaises(vyx.Error, table.enter, 104, None)
        with vyx.Ring(16) as ring:
            for data in (b"first ", b"2nd"):
                ring.write(data)
            self.assertRaises(vyx.Error, ring.write, b"too long")
            self.assertEqual((len(ring), ring.read(), ring.read()), (9, b"first 2nd", b""))
        self.assertEqual(vyx.uuid4().version, 4)
        self.assertGreater(vyx.time_now(), 1_700_000_000_000_000)
        moment = 1_234_567_890_123_456
        fields, local = vyx.utc(moment), time.localtime(moment // 1_000_000)
        self.assertEqual([fields.tm_year, fields.tm_mon, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                          fields.tm_usec, fields.tm_wday], [109, 1, 13, 23, 31, 30, 123456, 5])
        self.assertEqual((vyx.local_time(moment).tm_hour, vyx.local_time(moment).tm_isdst), (local.tm_hour, local.tm_isdst))
        self.assertEqual(".".join(map(str, vyx.version())), API["version"])

    def test_thread_local(self) -> None:
        with vyx.Local() as local:
            local.set(1)
            seen: list[int] = []
            thread = vyx.Thread(lambda: seen.append(local.get()))
            thread.wait()
            self.assertEqual((seen, local.get()), ([0], 1))


class Programs(unittest.TestCase):
    def test_document(self) -> None:
        blocks = re.findall(r"```python\n(.*?)```", pathlib.Path(os.environ["DOCUMENT"]).read_text(), re.S)
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            for block in blocks:
                exec(compile(block, "docs/python.md", "exec"), {})
        self.assertEqual((len(blocks), printed.getvalue()), (3, "b'hello' 1\n"))

    def test_collector_takes_what_logmill_sends(self) -> None:
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        collector = subprocess.Popen([sys.executable, os.environ["COLLECTOR"], str(folder / "logs")],
                                     stdout=subprocess.PIPE, text=True)
        try:
            assert collector.stdout is not None
            port = collector.stdout.readline().split()[-1]
            texts = {name: "".join(f"{name} error {n}\n" for n in range(500)) for name in ("one", "two")}
            senders = [subprocess.Popen([os.environ["LOGMILL"], "send", "--port", port, "--name", name, "-"], text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE) for name in texts]
            for sender, (name, text) in zip(senders, texts.items()):
                self.assertEqual(sender.communicate(text, LIMIT)[0], f"{name}: 500 lines sent, 500 stored\n")
                self.assertEqual(sender.returncode, 0)
        finally:
            collector.terminate()
            rest = collector.communicate(timeout=LIMIT)[0]
        self.assertEqual((collector.returncode, rest), (0, "1000 lines of 2 senders\n"))
        log = folder / "logs" / "vyx_log_1_w.log"
        log.chmod(0o600)
        lines = log.read_text().splitlines()
        for name in texts:
            self.assertEqual([line.split("] ", 1)[1] for line in lines if f"[FILE:{name}]" in line],
                             texts[name].splitlines())
        self.assertTrue(all("[ERR]" in line for line in lines))


if __name__ == "__main__":
    unittest.main()
