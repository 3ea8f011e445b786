"""vyx-log."""
import gzip
import json
import os
import pty
import select
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

import tool

vyx_log = tool.load("log")
FOLDER = os.path.dirname(vyx_log.__file__)
LIMIT = 60  # seconds that anything may take


def line(second, text="", level="INF", file="a.c", number=1, day=22):
    return "[2026-11-%02d 04:%02d:%06.3f][%s][FILE:%s][LINE:%d] %s\r\n" % (
        day, second // 60, second % 60, level, file, number, text)


class Tool(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vyx-log-test-")
        self.addCleanup(shutil.rmtree, self.folder)
        os.chmod(self.folder, 0o777)

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, content, mode=0o600):
        path = self.path(name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        os.chmod(path, mode)
        return path

    def content(self, path):
        with (gzip.open if path.endswith(".gz") else open)(path, "rb") as file:
            return file.read()

    def run_tool(self, *arguments, user=None):
        return tool.run(vyx_log, *arguments, user=user, folder=self.folder)

    def texts(self, *arguments):
        """The texts of the lines that are shown."""
        status, out, err = self.run_tool(*arguments)
        self.assertEqual((status, err), (0, ""))
        return [text.split("] ", 1)[-1] for text in out.splitlines()]


class Shown(Tool):
    def test_files_are_merged_by_time_and_keep_their_own_order(self):
        self.write("a/vyx_log_2_w.log", line(5, "a5") + line(4.5, "late a5") + line(8, "a8"))
        self.write("a/vyx_log_1.log", line(1, "a1") + line(3, "a3\nsecond line\r\nthird"))
        self.write("b/vyx_log_20261122-040000000_1.log.gz", gzip.compress((line(3, "b3") + line(6, "b6")).encode()))
        self.write("b/vyx_log_1.log", line(2, "b2 \x00 ünï") + line(7, "b7")[:-2])
        self.write("a/other.log", line(1, "of somebody else"))
        self.write("named", line(4, "n4"))
        self.assertEqual(self.texts("a", "b", "named", "a"),
                         ["a1", "b2 \x00 ünï", "a3", "second line", "third", "b3", "n4", "a5", "late a5", "b6", "b7", "a8"])

    def test_filters(self):
        self.write("vyx_log_1.log", line(60, "one", "ERR", "net.c") + line(61, "two", "DBG") + line(62.5, "three", "INF", "x/y") +
                   line(63, "four", "DISABLE", "net.cpp") + line(64, "five", "?"))
        for arguments, expected in [
                ([], "one two three four five"), (["-l", "ERR"], "one four"), (["-l", "0"], "four"),
                (["-l", "3"], "one two three four"), (["--file", "net.*"], "one four"),
                (["--file", "net.c", "--file", "a.*"], "one two five"), (["-t", "^.{4}$"], "four five"),
                (["-t", "o", "-t", "n|w"], "one two"), (["--since", "2026-11-22 04:01:02.5"], "three four five"),
                (["--until", "2026-11-22T04:01:02"], "one two"), (["--until", "2026-11-22"], ""),
                (["--since", "2026-11-22 04:01:01", "--until", "2026-11-22 04:01:03", "-l", "DBG"], "two four")]:
            with self.subTest(arguments=arguments):
                self.assertEqual(" ".join(self.texts(*arguments, ".")), expected)
        for wrong in ["-l", "4"], ["-l", "LOUD"], ["-t", "("], ["--since", "soon"], ["--gap", "-1"], ["--follow", "--check"]:
            with self.subTest(wrong=wrong):
                self.assertEqual(self.run_tool(*wrong, ".")[0], 2)
        self.assertEqual(self.run_tool("none")[0], 2)

    def test_json(self):
        self.write("vyx_log_1.log", b"no header\n" + line(1.25, 'say "\x07" ', "ERR", number=-7).encode()[:-2] + b"\xff")
        status, out, _ = self.run_tool("--json", ".")
        self.assertEqual(status, 0)
        self.assertEqual([json.loads(row) for row in out.splitlines()], [
            {"path": "./vyx_log_1.log", "text": "no header", "header": False},
            {"time": "2026-11-22T04:00:01.250", "level": "ERR", "file": "a.c", "line": -7, "text": 'say "\x07" \\xff',
             "path": "./vyx_log_1.log", "cut": True}])

    def test_what_is_no_log_does_no_harm(self):
        self.write("vyx_log_1.log", b"x" * 3000000 + b"\n" + os.urandom(100000) + b"\r\n" + line(1, "a").encode())
        self.write("vyx_log_2.log", b"")
        self.write("vyx_log_3.log", b"[2026-11-22 04:00:01.000][INF][FILE:" * 20000)
        self.write("vyx_log_4.log.gz", gzip.compress(line(2, "b" * 100000).encode())[:60])
        os.mkdir(self.path("vyx_log_5.log"))
        os.mkfifo(self.path("vyx_log_6.log"))
        os.symlink("/dev/zero", self.path("vyx_log_7.log"))
        for mode in [], ["--json"], ["--check"]:
            status, out, err = self.run_tool(*mode, ".")
            self.assertEqual(status, 1)
            self.assertNotIn("Traceback", err)
            self.assertIn("the archive is damaged", out + err)
        self.assertEqual(self.run_tool("vyx_log_6.log")[0], 1)

    def test_a_terminal_gets_no_commands(self):
        self.write("vyx_log_1.log", line(1, "\x1b[2J"))
        other, terminal = pty.openpty()
        subprocess.run([sys.executable, FOLDER, "."], stdout=terminal, cwd=self.folder, check=True, timeout=LIMIT)
        self.assertIn(b"] ?[2J\r\n", os.read(other, 4096))

    def test_unreadable_files_are_told_and_chmod_helps(self):
        self.write("vyx_log_1.log", line(1, "one"), 0o200)
        user = None
        if os.geteuid() == 0:
            user = tool.NOBODY
            os.chown(self.path("vyx_log_1.log"), user, user)
        status, out, err = self.run_tool(".", user=user)
        self.assertEqual((status, out), (1, ""))
        self.assertIn("--chmod lets you read them", err)
        status, out, _ = self.run_tool("--chmod", ".", user=user)
        self.assertEqual((status, out), (0, line(1, "one").replace("\r", "")))


class Checked(Tool):
    def test_findings(self):
        good = line(1) + line(2, "with\nline feeds\r\n")
        for name, files, expected in [
                ("nothing", {"1": good, "2": line(1.5), "3_w": line(4)}, []),
                ("no line end", {"1": good + line(3)[:-2]}, ["cut"]),
                ("a line cut within, and one after it", {"1": line(1)[:-2] + "\n" + line(2)}, ["cut"]),
                ("a header cut", {"1": line(1) + "[2026-11-22 04:"}, ["cut"]),
                ("a header cut at the beginning", {"1": "[2026-11-22 04:"}, ["damage"]),
                ("a text cut by another line", {"1": line(1)[:-2] + line(2)}, []),  # looks like a text with a header in it
                ("back", {"1": line(3) + line(1)}, ["order"]),
                ("back, but little", {"1": line(3) + line(2)}, []),
                ("silence", {"1": line(3) + line(90)}, ["gap"]),
                ("no time", {"1": line(3) + line(4, day=99)}, ["damage"]),
                ("files missing", {"2": good, "3": good, "6_w": good}, ["gap", "gap"]),
                ("a number twice", {"1": good, "1_w": good}, ["order"])]:
            with self.subTest(name):
                for number, content in files.items():
                    self.write("%s/vyx_log_%s.log" % (name, number), content)
                status, out, err = self.run_tool("--check", "--json", "--gap", "60", name)
                self.assertEqual([json.loads(row)["kind"] for row in out.splitlines()], expected)
                self.assertEqual(status, 1 if expected else 0)
                self.assertIn("in %d files" % len(files), err)

    def test_a_finding_has_its_place(self):
        self.write("vyx_log_1.log", line(1, "a\nb") + line(2)[:-2])
        self.assertEqual(self.run_tool("--check", ".")[1], "./vyx_log_1.log:3: cut: the line is cut\n")


class Finished(Tool):
    NAME = "vyx_log_20261122-040001000_1.log"

    def test_files_of_a_crashed_run_get_names_of_their_own(self):
        self.write("vyx_log_1_w.log", line(1, "cut"), 0o200)
        self.write("vyx_log_2.log", line(0.5), 0o200)
        self.write(self.NAME, "taken")
        status, out, err = self.run_tool("--finish", ".")
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(sorted(os.listdir(self.folder)),
                         ["vyx_log_20261122-040000500_2.log", "vyx_log_20261122-040001000_1.2.log", self.NAME])
        self.assertIn("./vyx_log_1_w.log -> ./vyx_log_20261122-040001000_1.2.log\n", out)
        self.assertEqual(self.content(self.path(self.NAME)), b"taken")
        path = self.path("vyx_log_20261122-040001000_1.2.log")
        self.assertEqual(self.content(path), line(1, "cut").encode())
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)
        self.assertEqual(self.run_tool("--finish", ".")[:2], (0, ""))  # once is enough
        self.assertEqual(self.run_tool("--finish", "none")[0], 0)  # before the first run

    def test_a_file_that_is_written_stays(self):
        path = self.write("vyx_log_1_w.log", line(1))
        with open(path, "ab"):
            for mode in "--finish", "--archive":
                name = path if mode == "--finish" else self.write("vyx_log_2.log", line(1))
                with open(name, "ab"):
                    status, _, err = self.run_tool(mode, ".")
                self.assertEqual(status, 1)
                self.assertRegex(err, "a process is writing it|cannot be told")
        self.assertEqual(sorted(os.listdir(self.folder)), ["vyx_log_1_w.log", "vyx_log_2.log"])

    def test_archives_are_the_files(self):
        content = (line(1, "z" * 100) * 5000).encode()
        os.utime(self.write("vyx_log_1.log", content, 0o200), (5, 7))
        self.write("vyx_log_2_w.log", line(1))
        self.write(self.NAME + ".gz", b"taken")
        self.write("vyx_log_20261122-040001000_3.log", line(1), 0o444)
        status, _, err = self.run_tool("--archive", ".")
        self.assertEqual((status, err), (0, ""))
        first = "vyx_log_20261122-040001000_1.2.log.gz"
        self.assertEqual(sorted(os.listdir(self.folder)),
                         [first, self.NAME + ".gz", "vyx_log_20261122-040001000_3.log.gz", "vyx_log_2_w.log"])
        self.assertEqual(self.content(self.path(first)), content)
        self.assertEqual(os.stat(self.path(first)).st_mtime, 7)
        with open(self.path(self.NAME + ".gz"), "rb") as taken:
            self.assertEqual(taken.read(), b"taken")
        os.unlink(self.path(self.NAME + ".gz"))
        self.assertEqual(self.run_tool("--check", ".")[0], 0)


class Follows(Tool):
    def start(self, *arguments):
        self.process = subprocess.Popen([sys.executable, FOLDER, "-f", *arguments], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, cwd=self.folder)
        self.addCleanup(self.stop)

    def stop(self):
        self.process.kill()
        self.process.communicate()

    def append(self, name, content):
        with open(self.path(name), "ab") as file:
            file.write(content.encode())

    def expect(self, *texts):
        """Waits for lines with these texts, in this order and no others."""
        for text in texts:
            found = b""
            while not found.endswith(b"\n"):
                self.assertTrue(select.select([self.process.stdout], [], [], LIMIT)[0], text)
                found += os.read(self.process.stdout.fileno(), 1)
                self.assertNotEqual(found, b"", text)
            self.assertEqual(found.decode().rstrip("\n").split("] ")[-1], text)

    def test_across_rotations_ends_and_new_runs(self):
        self.write("d/vyx_log_9.log", line(0.5, "b"))
        self.write("d/vyx_log_1_w.log", line(0, "a") + line(1, "one")[:-20])
        self.start("d", "late")
        self.expect("a", "b")
        self.append("d/vyx_log_1_w.log", line(1, "one")[-20:])
        self.expect("one")
        self.append("d/vyx_log_1_w.log", line(2, "two") + line(3, "half a line")[:-8])
        self.expect("two")
        self.append("d/vyx_log_1_w.log", "a line\r\n" + line(4, "four"))
        self.expect("half a line", "four")
        self.append("d/vyx_log_1_w.log", line(5, "five"))
        os.rename(self.path("d/vyx_log_1_w.log"), self.path("d/vyx_log_1.log"))
        self.write("d/vyx_log_2_w.log", line(6, "six"))
        self.expect("five", "six")
        os.unlink(self.path("d/vyx_log_1.log"))
        with open(self.path("d/vyx_log_2_w.log"), "wb"):
            pass  # as a new run begins
        self.write("late/vyx_log_1_w.log", line(7, "seven"))
        self.expect("seven")
        self.append("d/vyx_log_2_w.log", line(8, "8"))
        self.expect("8")
        os.rename(self.path("d/vyx_log_2_w.log"), self.path("gone"))
        self.append("gone", line(9, "written after the look"))
        os.unlink(self.path("gone"))
        self.append("late/vyx_log_1_w.log", line(10, "ten"))
        rest = b""
        while b"ten" not in rest:  # the line before it is shown if a look came between
            self.assertTrue(select.select([self.process.stdout], [], [], LIMIT)[0])
            rest += os.read(self.process.stdout.fileno(), 4096)
        self.process.send_signal(signal.SIGINT)
        self.assertEqual(self.process.wait(LIMIT), 130)

    def test_what_comes_is_filtered_and_hostile_input_is_survived(self):
        self.start("--level", "ERR", "d")
        self.write("d/vyx_log_1_w.log", b"\x00" * 200000)
        self.append("d/vyx_log_1_w.log", "\r\n" + line(1, "not this") + line(2, "this", "ERR"))
        self.expect("this")
        deadline = time.monotonic() + LIMIT
        for turn in range(100):  # files that come and go while they are looked at
            self.write("d/vyx_log_%d_w.log" % (turn + 2), line(2))
            os.rename(self.path("d/vyx_log_%d_w.log" % (turn + 2)), self.path("d/vyx_log_%d.log" % (turn + 2)))
            os.unlink(self.path("d/vyx_log_%d.log" % (turn + 2)))
            self.assertLess(time.monotonic(), deadline)
        self.append("d/vyx_log_1_w.log", line(3, "that", "ERR"))
        self.expect("that")
        self.assertIsNone(self.process.poll())


if __name__ == "__main__":
    unittest.main()
