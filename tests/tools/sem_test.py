"""vyx-sem. Environment: as tool.py."""
import json
import mmap
import os
import shutil
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

import tool

vyx_sem = tool.load("sem")
import processes  # noqa: E402
import semaphores  # noqa: E402


class Tool(unittest.TestCase):
    """A semaphore in a folder of its own, as other tests use those of the machine meanwhile. This process has it mapped."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vyx-sem-test-", dir="/dev/shm")
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = os.path.join(self.folder, "sem.vyx_named_semaphore_00001")
        with open(self.path, "w+b", buffering=0) as file:
            file.write(bytes(32))
            self.mapping = mmap.mmap(file.fileno(), 32)
        self.addCleanup(self.mapping.close)

    def run_tool(self, *arguments):
        return tool.run(vyx_sem, "--directory", self.folder, *arguments)

    def listed(self, *arguments):
        status, out, _ = self.run_tool("--json", "--ask-kernel", *arguments)
        row, = json.loads(out)["semaphores"]
        self.assertEqual(row["path"], self.path)
        return status, row["state"], row["removed"], [holder["pid"] for holder in row["holders"]]

    def test_nothing_is_removed_but_what_nobody_holds(self):
        name = os.path.join(self.folder, "sem.vyx_named_semaphore_")
        os.symlink(self.path, name + "00001000")
        os.mkdir(name + "00002")
        os.mkfifo(name + "00003")
        for other in name + "1", name + "0000x", os.path.join(self.folder, "sem.other"), name + "00005\n":
            with open(other, "w", encoding="ascii"):
                pass
        before = set(os.listdir(self.folder))
        with mock.patch.object(vyx_sem, "lock"):  # is kept until the process ends
            self.assertEqual(self.listed("--remove-stale"), (0, "held", False, [os.getpid()]))
            self.mapping.close()
            self.assertEqual(self.listed(), (1, "stale", False, []))
            self.assertEqual(set(os.listdir(self.folder)), before)
            self.assertEqual(self.listed("--remove-stale"), (0, "stale", True, []))
        self.assertEqual(before - set(os.listdir(self.folder)), {os.path.basename(self.path)})

    def test_one_at_a_time(self):
        with mock.patch.object(vyx_sem, "PATIENCE", 0):
            self.assertEqual(self.run_tool("--remove-stale")[0], 0)
            status, out, err = self.run_tool("--remove-stale")  # the first lock lasts until the process ends
        self.assertEqual((status, out), (2, ""))
        self.assertIn("another vyx-sem is at work", err)

    def test_wrong_usage(self):
        self.assertEqual(self.run_tool("--remove")[0], 2)  # no abbreviation of what removes
        self.assertEqual(self.run_tool("--directory", self.folder + "/none")[0], 2)


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

    def test_a_process_that_may_not_be_looked_into_may_hold_it(self):
        for error, blind in (PermissionError, True), (ProcessLookupError, False):  # the latter has ended
            with mock.patch.object(processes, "hidden", return_value=None), \
                    mock.patch.object(processes, "mapped_files", side_effect=error):
                self.assertEqual(processes.Holders(set()).blind() is not None, blind)


if __name__ == "__main__":
    unittest.main()
