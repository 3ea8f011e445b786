"""vyx-sem. Environment: as tool.py, HOLDER a program that has one semaphore until its input ends."""
import fcntl
import json
import os
import shutil
import subprocess
import tempfile
import time
import unittest
from types import SimpleNamespace
from unittest import mock

import tool

vyx_sem = tool.load("sem")
import processes  # noqa: E402
import semaphores  # noqa: E402

SHM = "/dev/shm"


def run(*arguments, user=None):
    return tool.run(vyx_sem, *arguments, user=user)


class Tool(unittest.TestCase):
    """The semaphores of a test are linked into a folder of its own, as other tests use those of the machine meanwhile."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vyx-sem-test-", dir=SHM)
        self.addCleanup(shutil.rmtree, self.folder)
        os.chmod(self.folder, 0o755)
        self.process = subprocess.Popen([os.environ["HOLDER"]], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(self.process.communicate)
        self.assertEqual(self.process.stdout.readline(), b"ready\n")
        mapped = processes.mapped_files(self.process.pid)
        found = [s for s in semaphores.registered(SHM) if s.file in mapped]
        self.assertEqual(len(found), 1)
        self.path = os.path.join(self.folder, os.path.basename(found[0].path))
        os.link(found[0].path, self.path)
        self.original = found[0].path

    def kill(self):
        self.process.kill()
        self.process.wait()
        os.unlink(self.original)

    def listed(self, *arguments, **keywords):
        status, out, _ = run("--json", "--directory", self.folder, *arguments, **keywords)
        return status, {row["path"]: row for row in json.loads(out)["semaphores"]}

    def test_a_live_one_is_held_and_stays(self):
        status, rows = self.listed("--remove-stale", "--ask-kernel")
        self.assertEqual((status, rows[self.path]["state"], rows[self.path]["removed"]), (0, "held", False))
        self.assertIn({"pid": self.process.pid, "command": "tools_holder"}, rows[self.path]["holders"])
        self.assertTrue(os.path.exists(self.path))

    def test_of_a_killed_process_it_is_stale_and_goes_on_request(self):
        self.kill()
        status, rows = 0, {}
        deadline = time.monotonic() + 60  # who just reads the maps of the killed process keeps its memory for a moment
        while status == 0 and time.monotonic() < deadline:
            status, rows = self.listed("--ask-kernel")
        self.assertEqual((status, rows[self.path]["state"]), (1, "stale"))
        self.assertTrue(os.path.exists(self.path))
        status, rows = self.listed("--ask-kernel", "--remove-stale")
        self.assertEqual((status, rows[self.path]["removed"]), (0, True))
        self.assertFalse(os.path.exists(self.path))

    def test_of_a_process_that_cannot_be_looked_into_it_is_unknown_and_stays(self):
        user = tool.NOBODY if os.geteuid() == 0 else None
        self.process.stdin.write(b"\n")
        self.process.stdin.flush()
        self.assertEqual(self.process.stdout.readline(), b"hidden\n")
        for ask in [], ["--ask-kernel"]:
            status, rows = self.listed("--remove-stale", *ask, user=user)
            self.assertEqual((status, rows[self.path]["state"], rows[self.path]["holders"]), (0, "unknown", []))
            self.assertTrue(os.path.exists(self.path))
        _, _, err = run("--directory", self.folder, user=user)
        self.assertRegex(err, r"^vyx-sem: unknown: .*(may not be looked into|PID namespace)")

    def test_nothing_else_is_listed_or_removed(self):
        name = "sem.vyx_named_semaphore_"
        os.symlink(self.path, os.path.join(self.folder, name + "00001"))
        os.mkdir(os.path.join(self.folder, name + "00002"))
        os.mkfifo(os.path.join(self.folder, name + "00003"))
        for other in name + "1", name + "0000x", "vyx_named_semaphore_00004", "sem.other", name + "00005\n":
            with open(os.path.join(self.folder, other), "w", encoding="ascii"):
                pass
        before = sorted(os.listdir(self.folder))
        _, rows = self.listed("--remove-stale", "--ask-kernel")
        self.assertEqual(list(rows), [self.path])
        self.assertEqual(sorted(os.listdir(self.folder)), before)

    def test_one_at_a_time(self):
        other = os.open(self.folder, os.O_RDONLY)
        self.addCleanup(os.close, other)
        fcntl.flock(other, fcntl.LOCK_EX)
        with mock.patch.object(vyx_sem, "PATIENCE", 0):
            status, out, err = run("--directory", self.folder, "--remove-stale")
        self.assertEqual((status, out), (2, ""))
        self.assertIn("another vyx-sem is at work", err)

    def test_wrong_usage(self):
        self.assertEqual(run("--remove")[0], 2)  # no abbreviation of what removes
        self.assertEqual(run("somewhere")[0], 2)
        status, _, err = run("--directory", self.folder + "/none")
        self.assertEqual((status, err), (2, "vyx-sem: %s/none: No such file or directory\n" % self.folder))


class Judgement(unittest.TestCase):
    """What is said where no process seems to hold it; on machines on which this user sees everything, or not."""

    def test_table(self):
        for blind, ask, kernel, state in [
                (None, False, False, "stale"), (None, False, True, "unknown"), (None, False, None, "stale"),
                ("why", False, False, "unknown"), ("why", True, False, "stale"), ("why", True, True, "unknown"),
                ("why", True, None, "unknown")]:
            with self.subTest(blind=blind, ask=ask, kernel=kernel):
                one = SimpleNamespace(file=(1, 2), holders=None, state=None)
                holders = SimpleNamespace(by_file={(1, 3): [7]}, blind=lambda why=blind: why)
                with mock.patch.object(semaphores, "open_anywhere", return_value=kernel):
                    semaphores.judge([one], holders, ask)
                self.assertEqual(one.state, state)

    def test_a_process_that_has_ended_meanwhile_holds_nothing(self):
        holders = processes.Holders(set())
        holders.unreadable.clear()
        holders.look_into((1 << 22) + 1, {(1, 2)})  # no process has so high a number
        self.assertEqual((holders.by_file, holders.unreadable), ({}, []))


if __name__ == "__main__":
    unittest.main()
