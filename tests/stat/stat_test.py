#!/usr/bin/env python3
"""Looks at the program `target` with vyx-stat and with gdb, and compares with what the program knows of itself.

stat_test.py TARGET VYX_STAT LIBRARY GDB_SCRIPT [CLASS]. The library is tested as it is installed: stripped.
VYX_STAT_SECONDS and VYX_STAT_READS: how long the busy program is watched, and how often it is read at least (2, 20).
VYX_STAT_EMULATOR and STRIP: the command that runs TARGET if it is for another processor, and its strip.
"""

import json
import mmap
import os
import re
import resource
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest

TARGET, VYX_STAT, LIBRARY, SCRIPT = sys.argv[1:5]
SECONDS = float(os.environ.get("VYX_STAT_SECONDS", "2"))
READS = int(os.environ.get("VYX_STAT_READS", "20"))
EMULATOR = os.environ.get("VYX_STAT_EMULATOR", "").split()
with open(TARGET, "rb") as elf:
    ORDER = {1: "<", 2: ">"}[elf.read(6)[5]]
PATIENCE = 60  # seconds for a command


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False, **options)


def stat(*arguments, status=0, **options):
    done = run(VYX_STAT, *map(str, arguments), **options)
    if done.returncode != status:
        raise AssertionError(f"vyx-stat {arguments}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout if status == 0 else done.stderr


def small_stacks():
    """Of the threads, so that cores are small."""
    resource.setrlimit(resource.RLIMIT_STACK, (1 << 18, resource.getrlimit(resource.RLIMIT_STACK)[1]))


class Case(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        cls.library = os.path.join(cls.folder, os.path.basename(os.path.realpath(LIBRARY)))
        subprocess.run([os.environ.get("STRIP", "strip"), "-o", cls.library, LIBRARY], check=True)
        shutil.copy(SCRIPT, cls.library + "-gdb.py")
        os.symlink(os.path.basename(cls.library), os.path.join(cls.folder, "libvyx.so.1"))

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def start(self, *mode):
        """The program, at the point where it is ready, and what it printed before."""
        program = subprocess.Popen([*EMULATOR, TARGET, *mode], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                   env=dict(os.environ, LD_LIBRARY_PATH=self.folder, TSAN_OPTIONS=""),
                                   preexec_fn=small_stacks)
        self.addCleanup(self.end, program)
        text = ""
        for line in program.stdout:
            if line == "ready\n":
                return program, text
            text += line
        raise AssertionError(f"the program has ended: {program.wait()}")

    @staticmethod
    def end(program):
        program.stdin.close()
        program.stdout.close()
        try:
            status = program.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            program.kill()
            raise
        if status != 0:
            raise AssertionError(f"the program ended with status {status}")

    def gdb(self, *arguments):
        return run("gdb", "-nx", "-q", "-batch", "-iex", "set debuginfod enabled off", "-iex",
                   "set auto-load safe-path /", "-iex", f"set environment LD_LIBRARY_PATH {self.folder}",
                   *arguments).stdout

    def core_of(self, program):
        path = os.path.join(self.folder, "core")
        self.gdb("-p", str(program.pid), "-ex", f"gcore {path}")
        return path

    def busy(self):
        """The program and its counts."""
        path = os.path.join(self.folder, "counts")
        program, _ = self.start("busy", path)
        with open(path, "r+b") as file:
            return program, mmap.mmap(file.fileno(), 0)


class Still(Case):
    """A program that has stopped at known states."""

    FORMS = {"NAME": "^vyx_named_semaphore_[0-9]{5}$", "PIPE": "^pipe [0-9]+$", "BOTH": "^pipe [0-9]+, socket [0-9]+$"}

    def check(self, seen, known, live):
        for table in ("library", "log"):
            self.assertEqual({key: seen[table][key] for key in known[table]}, known[table])
        for table in ("pools", "flexible_pools", "queues", "receivers", "timers", "waits", "events"):
            self.assertEqual(len(seen[table]), len(known[table]), table)
            for row, expected in zip(seen[table], known[table]):
                for key, value in expected.items():
                    if value in self.FORMS:
                        self.assertRegex(row[key], self.FORMS[value])
                    elif live or key != "signalled":
                        self.assertEqual(row[key], value, f"{table}.{key}")
        self.assertEqual(seen["incomplete"], [])

    def test_live_process(self):
        program, text = self.start("still")
        known = json.loads(text)
        seen = json.loads(stat("--json", program.pid))[0]
        self.check(seen, known, True)
        counts = [row["count"] for row in seen["semaphores"]]
        self.assertEqual(sum(counts), 5)
        self.assertTrue(set(known["counts"]) <= set(counts))
        self.assertTrue(set(known["threads"]) <= {row["name"] for row in seen["threads"]})
        for wait in seen["waits"] + seen["receivers"][1:]:
            self.assertTrue(3000000 < wait["left_ms"] <= 3600000, wait)
        self.assertTrue(0 <= seen["receivers"][0]["waits_ms"] < PATIENCE * 1000)

        self.assertIn("vyx_queue_bytes{process=\"%d\",queue=\"0\"} 307\n" % program.pid,
                      stat("--prometheus", program.pid))
        self.assertRegex(stat(program.pid), r"\n +0 +3 +5 +2 +1 +0 +2\n")
        self.assertIn(program.pid, [each["process"] for each in json.loads(stat("--all", "--json"))])
        watching = subprocess.Popen([VYX_STAT, "--watch=0.1", str(program.pid)], stdout=subprocess.PIPE, text=True)
        for _ in range(2):
            while not watching.stdout.readline().startswith("process "):
                pass
        program.stdin.close()
        watching.communicate(timeout=PATIENCE)
        self.assertEqual(watching.returncode, 0)

    def test_gdb_and_a_core(self):
        program, text = self.start("still")
        known = json.loads(text)
        core = self.core_of(program)
        self.check(json.loads(stat("--json", core))[0], known, False)
        commands = [part for name in ("pools", "queues", "timers", "waits", "events", "log", "locks")
                    for part in ("-ex", f"vyx {name}")]
        for arguments, waited, left in ((["-p", str(program.pid)], r" for \d+ ms", r"3\d{6} ms +2"),
                                        ([TARGET, core], "", "- +")):
            output = self.gdb(*arguments, *commands)
            thread = r'thread \d+ ("[^"]+"|\(\d+\))'
            for expected in (r"pool 0 +3 +5 +2 +1 +0 +2 ", r"flexible 0 +1 +1 +1 +0 +3 +1 +HandlerOfTheItems",
                             rf"\n0 +4 +307 +12 +-\n1 +0 +0 +- +{thread}{waited}, {thread}{waited}\n",
                             r"\n0 +3600000 ms +0 +0 us +RoutineOfTheTimer", rf"condition +0x\w+ +{thread} +{left}",
                             rf"semaphore +vyx_named_semaphore_\d+ +{thread} +{left}",
                             rf"message +queue 1 +{thread} +{left}", rf"event +pipe \d+, socket \d+ +{thread} +{left}",
                             r"socket \d+ +read\+close", rf"level {known['log']['level']}, targets debug",
                             "locks of the library are free",
                             r"Deadlock: thread (\d+)[^;]* waits for .*, held by thread (\d+)[^;]*; "
                             r"thread \2[^;]* waits for .*, held by thread \1"):
                self.assertRegex(output, expected)
        with open(core, "rb") as file:
            data = file.read()
        for size in (data.index(b"pool.items\0"), 3000, 64, 10, 0):
            os.truncate(core, size)
            stat(core, status=1)


PROBES = """
class Probe(gdb.Breakpoint):
    def stop(self):
        arguments = (gdb.parse_and_eval("$_probe_arg%d" % i) for i in range(int(gdb.parse_and_eval("$_probe_argc"))))
        print("seen", self.location.split(":")[1], *("%x" % (int(each) & 0xffffffff) for each in arguments))
for each in gdb.execute("info probes stap vyx", to_string=True).split("\\n"):
    if each.startswith("stap") and not any(probe.location.endswith(each.split()[2]) for probe in gdb.breakpoints()):
        Probe("-probe-stap vyx:" + each.split()[2])
"""


class Printed(Case):
    def test_public_types_and_probes(self):
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "printed.cpp")
        output = self.gdb("-ex", "break main", "-ex", "run", "-ex", f"python exec({PROBES!r})", "-ex", "break Stop",
                          "-ex", "continue", "-ex", "up", "-ex", "info locals",
                          os.path.join(os.path.dirname(TARGET), "stat_printed"))
        with open(source, encoding="utf-8") as file:
            expected = [line.split("// ")[1].rstrip() for line in file if "; // " in line and " = " in line.split("; // ")[1]]
        for line in expected:
            self.assertRegex(output, line)
        passed, seen = (re.findall(rf"^{word} (.*)$", output, re.M) for word in ("passed", "seen"))
        with open(self.library, "rb") as file:
            has_probes = b"stapsdt" in file.read()
        for line in passed if has_probes else ():
            at = next((i for i, each in enumerate(seen) if re.fullmatch(line, each)), None)
            self.assertIsNotNone(at, f"{line} in {seen}")
            del seen[at]


class Refusals(Case):
    def test_usage(self):
        for arguments in ([], ["--nonsense", "1"], ["1", "2"], ["--all", "1"], ["--watch=x", "1"],
                          ["--json", "--prometheus", "1"]):
            self.assertIn("see --help", stat(*arguments, status=2))
        self.assertIn("Exit status", stat("--help"))

    def test_what_cannot_be_read(self):
        self.assertIn("there is no process", stat(2 ** 22 + 1, status=1))
        if os.stat("/proc/1").st_uid == 0:  # no container of an ordinary user
            self.assertIn("no right", stat(1, status=1, **({"user": 65534} if os.getuid() == 0 else {})))
        self.assertIn("neither a process nor a core", stat(sys.executable, status=1))
        self.assertIn("No such file", stat(os.path.join(self.folder, "none"), status=1))
        self.assertRegex(stat(os.getpid(), status=1), "has no libvyx|and this is a 32-bit program")

    def test_another_version(self):
        with open(self.library, "rb") as file:
            data = file.read()
        word = 8 if data[4] == 2 else 4
        for old, new, message in (
                (struct.pack(ORDER + "II", 1, word), struct.pack(ORDER + "II", 9, word), "in format 9"),
                (b"VYX\0", b"OLD\0", "older than this program"), (b"pool.items\0", b"pool.other\0", '"pool.items"')):
            with open(self.library + ".new", "wb") as file:
                file.write(data.replace(old, new))
            os.replace(self.library + ".new", self.library)  # the program before has the old one mapped, and runs
            program, _ = self.start("still")
            self.assertIn(message, stat(program.pid, status=1))


class Busy(Case):
    """A program at full speed: what is shown was true at a moment while it was read."""

    NAMES = [f"{work}_{end}" for end in ("begun", "done") for work in ("items", "flex", "sent", "received", "lines", "waits")]

    def counts(self, shared):
        return dict(zip([*self.NAMES, "runs"], struct.unpack_from(ORDER + "13Q", shared)))

    def between(self, low, seen, high, what):
        self.assertTrue(low <= seen <= high, f"{what}: {seen} is not within {low} to {high}")

    def check(self, before, seen, after):
        """How much of what the program must know was known."""
        known = 0
        pool, flex, queue = seen["pools"][0], seen["flexible_pools"], seen["queues"][0]
        if pool["items"] is not None:
            known += 1
            self.between(before["items_done"], pool["items"], after["items_begun"], "items")
            self.assertEqual((pool["workers"], pool["most"], pool["busy"] + pool["idle"]), (2, 2, 2))
            self.between(0, pool["waiting"], 1, "waiting")
        if flex and flex[0]["items"] is not None:
            known += 1
            self.between(0, flex[0]["items"] + flex[0]["queued"], after["flex_begun"], "flexible items")
            self.between(0, flex[0]["busy"], 2, "busy")
        if queue["messages"] is not None:
            known += 1
            self.between(before["sent_done"] - after["received_begun"], queue["messages"],
                         after["sent_begun"] - before["received_done"], "messages")
            self.assertEqual(queue["bytes"], 24 * queue["messages"])
            self.assertEqual(queue["highest"] is None, queue["messages"] == 0)
            self.between(1, queue["highest"] or 1, 5, "priority")
        for timer in seen["timers"]:
            known += 1
            self.between(before["runs"], timer["runs"], after["runs"] + 1, "runs")
        if seen["log"]["queued"] is not None:
            known += 1
            self.between(before["lines_done"], seen["log"]["queued"], after["lines_begun"], "lines")
            self.between(0, seen["log"]["ring_bytes"], seen["log"]["ring_size"], "ring")
        for semaphore in seen["semaphores"]:
            self.assertRegex(semaphore["name"], "^vyx_named_semaphore_[0-9]{5}$")
            self.between(0, semaphore["count"] or 0, 3, "counts")
        for wait in seen["waits"] + seen["receivers"]:
            self.assertRegex(wait.get("on", "queue 0"), {
                "semaphore": "^vyx_named_semaphore_[0-9]{5}$", "event": "^pipe [0-9]+$"}.get(wait.get("kind"), "^queue 0$"))
            self.between(0, wait["left_ms"], 2, "left")
        for event in seen["events"]:
            self.assertRegex(event["bound_to"], "^pipe [0-9]+$")
        return known

    def test_nothing_wrong_is_read(self):
        program, shared = self.busy()
        reads = known = 0
        end = time.monotonic() + SECONDS
        begun = self.counts(shared)
        while reads < READS or time.monotonic() < end:
            before = self.counts(shared)
            seen = json.loads(stat("--json", program.pid))[0]
            known += self.check(before, seen, self.counts(shared))
            reads += 1
        done = self.counts(shared)
        print(f"{reads} reads, {known / reads / 5:.0%} known, "
              + ", ".join(f"{done[name] - begun[name]} {name}" for name in ("items_done", "sent_done", "lines_done")))
        self.assertGreater(known, reads * 5 // 4)


class Bpftrace(Case):
    """The scripts of bpftrace, where the kernel lets this user."""

    def trace(self, name):
        program, _ = self.busy()
        script = os.path.join(os.path.dirname(SCRIPT), "..", "bpftrace", name)
        with subprocess.Popen(["bpftrace", "-p", str(program.pid), script], stdout=subprocess.PIPE, text=True) as tracer:
            text = ""
            for line in tracer.stdout:
                text += line
                if line.startswith("Tracing"):
                    time.sleep(SECONDS)  # it counts, and tells nothing before its end
                    program.stdin.close()  # its end is that of the trace
        self.assertEqual(tracer.returncode, 0)
        return text

    def test_scripts(self):
        if run("bpftrace", "-e", "BEGIN { exit(); }").returncode != 0:
            self.skipTest("bpftrace cannot run here")
        text = self.trace("waits.bt")
        for expected in (r"@waits\[semaphore, \d+\]: [1-9]", "@conditions_us:", "@events_us:"):
            self.assertRegex(text, expected)
        self.assertRegex(self.trace("queues.bt"), r"@deepest\[(\d+)\]: [1-9][^$]*@received\[\1\]: [1-9]\d*\n@sent\[\1\]: [1-9]")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
