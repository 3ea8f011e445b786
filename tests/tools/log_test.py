"""vyx-log. Environment: as tool.py."""
import gzip
import json
import os
import pty
import select
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

import tool

vyx_log = tool.load("log")
FOLDER = os.path.dirname(vyx_log.__file__)
LIMIT = 60  # seconds that anything may take


def line(second, text="", level="INF", file="a.c", number=1, day=22):
    return "[2026-11-%02d 04:%02d:%06.3f][%s][FILE:%s][LINE:%d] %s\r\n" % (
        day, second // 60, second % 60, level, file, number, text)


def write(path, content, mode=0o600):
    os.makedirs(os.path.dirname("./" + path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(content if isinstance(content, bytes) else content.encode())
    os.chmod(path, mode)


def run(*arguments):
    return tool.run(vyx_log, *arguments)


class Tool(unittest.TestCase):
    def setUp(self):
        folder = tempfile.mkdtemp(prefix="vyx-log-test-")
        self.addCleanup(shutil.rmtree, folder)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder)

    def texts(self, *arguments):
        """The texts of the lines that are shown."""
        status, out, err = run(*arguments)
        self.assertEqual((status, err), (0, ""))
        return [text.split("] ", 1)[-1] for text in out.splitlines()]


class Shown(Tool):
    def test_files_are_merged_by_time_and_keep_their_own_order(self):
        write("a/vyx_log_2_w.log", line(5, "a5") + line(4.5, "late a5") + line(8, "a8"))
        write("a/vyx_log_1.log", line(1, "a1") + line(3, "a3\nsecond line\r\nthird"))
        write("b/vyx_log_20261122-040000000_1.log.gz", gzip.compress((line(3, "b3") + line(6, "b6")).encode()))
        write("b/vyx_log_1.log", line(2, "b2 \x00 ünï") + line(7, "b7")[:-2])
        write("a/other.log", line(1, "of somebody else"))
        write("named", line(4, "n4"))
        self.assertEqual(self.texts("a", "b", "named", "a"),
                         ["a1", "b2 \x00 ünï", "a3", "second line", "third", "b3", "n4", "a5", "late a5", "b6", "b7", "a8"])

    def test_filters(self):
        write("vyx_log_1.log", line(60, "one", "ERR", "net.c") + line(61, "two", "DBG") + line(62.5, "three", "INF", "x/y") +
              line(63, "four", "DISABLE", "net.cpp") + line(64, "five", "?"))
        for arguments, expected in [
                (["-l", "ERR"], "one four"), (["-l", "3"], "one two three four"),
                (["--file", "net.c", "--file", "a.*"], "one two five"), (["-t", "o", "-t", "n|w"], "one two"),
                (["--since", "2026-11-22 04:01:02.5"], "three four five"), (["--until", "2026-11-22T04:01:02"], "one two"),
                (["--until", "2026-11-22"], "")]:
            with self.subTest(arguments=arguments):
                self.assertEqual(" ".join(self.texts(*arguments, ".")), expected)
        for wrong in ["-l", "4"], ["-t", "("], ["--since", "soon"], ["--gap", "-1"], ["--follow", "--check"], ["none"]:
            with self.subTest(wrong=wrong):
                self.assertEqual(run(*wrong)[0], 2)

    def test_json(self):
        write("vyx_log_1.log", b"no header\n" + line(1.25, 'say "\x07" ', "ERR", number=-7).encode()[:-2] + b"\xff")
        self.assertEqual([json.loads(row) for row in run("--json", ".")[1].splitlines()], [
            {"path": "./vyx_log_1.log", "text": "no header", "header": False},
            {"time": "2026-11-22T04:00:01.250", "level": "ERR", "file": "a.c", "line": -7, "text": 'say "\x07" \\xff',
             "path": "./vyx_log_1.log", "cut": True}])

    def test_what_is_no_log_does_no_harm(self):
        write("vyx_log_1.log", b"x" * 3000000 + b"\n" + os.urandom(100000) + b"\r\n" + line(1, "a").encode())
        write("vyx_log_2.log", b"[2026-11-22 04:00:01.000][INF][FILE:" * 20000)
        write("vyx_log_3.log.gz", gzip.compress(line(2, "b" * 100000).encode())[:60])
        os.mkfifo("vyx_log_4.log")
        os.symlink("/dev/zero", "vyx_log_5.log")
        for mode in "--json", "--check":
            status, out, err = run(mode, ".")
            self.assertEqual(status, 1)
            self.assertIn("the archive is damaged", out + err)
        self.assertEqual(run("vyx_log_4.log")[0], 1)

    def test_a_terminal_gets_no_commands(self):
        write("vyx_log_1.log", line(1, "\x1b[2J"))
        other, terminal = pty.openpty()
        subprocess.run([sys.executable, FOLDER, "."], stdout=terminal, check=True, timeout=LIMIT)
        self.assertIn(b"] ?[2J\r\n", os.read(other, 4096))


class Checked(Tool):
    def test_findings(self):
        good = line(1) + line(2, "with\nline feeds\r\n")
        for name, files, expected in [
                ("nothing", {"1": good, "2": line(1.5), "3_w": line(4)}, ""),
                ("no line end", {"1": good + line(3)[:-2]}, "/vyx_log_1.log:5: cut"),
                ("a line cut within, and one after it", {"1": line(1)[:-2] + "\n" + line(2)}, "/vyx_log_1.log:1: cut"),
                ("a header cut", {"1": "[2026-11-22 04:"}, "/vyx_log_1.log:1: damage"),
                ("back", {"1": line(3) + line(1)}, "/vyx_log_1.log:2: order"),
                ("back, but little", {"1": line(3) + line(2)}, ""),
                ("silence", {"1": line(3) + line(90)}, "/vyx_log_1.log:2: gap"),
                ("no time", {"1": line(3) + line(4, day=99)}, "/vyx_log_1.log:2: damage"),
                ("a file missing", {"2": good, "4_w": good}, "/vyx_log_3.log: gap"),
                ("a number twice", {"1": good, "1_w": good}, "/vyx_log_1_w.log: order")]:
            with self.subTest(name):
                for number, content in files.items():
                    write("%s/vyx_log_%s.log" % (name, number), content)
                status, out, err = run("--check", "--gap", "60", name)
                self.assertEqual((status, out.rpartition(": ")[0]), (1, name + expected) if expected else (0, ""))
                self.assertIn("in %d files" % len(files), err)


class Finished(Tool):
    def test_files_of_a_crashed_run_get_names_of_their_own(self):
        first, second = "vyx_log_20261122-040001000_1", "vyx_log_20261122-040000500_2"
        content = (line(1, "z" * 100) * 5000).encode()
        write("vyx_log_1_w.log", content[:-2], 0o200)
        write("vyx_log_2.log", line(0.5), 0o200)
        write(first + ".log", "taken")
        write(first + ".2.log.gz", "taken")
        self.assertEqual(run("--finish", "."),
                         (0, "./vyx_log_1_w.log -> ./%s.2.log\n./vyx_log_2.log -> ./%s.log\n" % (first, second), ""))
        self.assertEqual(run("--finish", ".")[:2], (0, ""))  # once is enough
        self.assertEqual(stat.S_IMODE(os.stat(first + ".2.log").st_mode), 0o600)
        os.utime(first + ".2.log", (5, 7))
        self.assertEqual(run("--archive", ".")[::2], (0, ""))
        names = [first + ".2.log.gz", first + ".3.log.gz", first + ".log.gz", second + ".log.gz"]
        self.assertEqual(sorted(os.listdir()), sorted(names))
        packed = next(name for name in names if os.stat(name).st_mtime == 7)
        with gzip.open(packed) as file:
            self.assertEqual(file.read(), content[:-2])

    def test_a_file_that_is_written_stays(self):
        write("vyx_log_1_w.log", line(1))
        write("vyx_log_2.log", line(1))
        with open("vyx_log_1_w.log", "ab"), open("vyx_log_2.log", "ab"):
            for mode in "--finish", "--archive":
                status, _, err = run(mode, ".")
                self.assertEqual(status, 1)
                self.assertRegex(err, "a process is writing it|cannot be told")
        self.assertEqual(sorted(os.listdir()), ["vyx_log_1_w.log", "vyx_log_2.log"])


class Follows(Tool):
    def expect(self, *texts):
        """Waits for lines with these texts, in this order and no others."""
        for text in texts:
            found = b""
            while not found.endswith(b"\n"):
                self.assertTrue(select.select([self.process.stdout], [], [], LIMIT)[0], text)
                found += os.read(self.process.stdout.fileno(), 1)
                self.assertNotEqual(found, b"", text)
            self.assertEqual(found.decode().rstrip("\n").split("] ")[-1], text)

    def append(self, content):
        with open("d/vyx_log_1_w.log", "ab") as file:
            file.write(content.encode())

    def test_across_rotations_ends_and_new_runs(self):
        write("d/vyx_log_9.log", line(0.5, "b", "ERR"))
        write("d/vyx_log_1_w.log", line(0, "a") + line(1, "one")[:-20])
        self.process = subprocess.Popen([sys.executable, FOLDER, "-f", "-l", "INF", "d", "late"], stdout=subprocess.PIPE)
        self.addCleanup(self.process.communicate)
        self.addCleanup(self.process.kill)
        self.expect("a", "b")
        self.append(line(1, "one")[-20:])
        self.expect("one")
        self.append(line(2, "two") + line(2, "not this", "?") + line(3, "half a line")[:-8])
        self.expect("two")
        self.append("a line\r\n" + line(5, "five"))
        os.rename("d/vyx_log_1_w.log", "d/vyx_log_1.log")
        write("d/vyx_log_2_w.log", line(6, "six"))
        self.expect("half a line", "five", "six")
        os.unlink("d/vyx_log_1.log")
        write("d/vyx_log_2_w.log", "")  # as a new run begins
        write("late/vyx_log_1_w.log", line(7, "seven"))
        self.expect("seven")
        write("d/vyx_log_2_w.log", line(8, "8"))
        self.expect("8")


if __name__ == "__main__":
    unittest.main()
