#!/usr/bin/env python3
"""What vyx-stat costs the program that it reads: how much work the busy program of tests/stat does for each second of its
processor time, in slices of time in which it is read all the time and in slices in which it is not. Takes minutes.

stat_slowing.py TARGET VYX_STAT LIBRARY GDB_SCRIPT, as tests/stat/stat_test.py. VYX_STAT_READS: how often it is read (1000).
"""

import os
import pathlib
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "stat"))
import stat_test  # noqa: E402

WORK = ("items_done", "sent_done", "received_done", "lines_done")
READS = int(os.environ.get("VYX_STAT_READS", "1000"))
SLICE = 0.5  # seconds


def processor_time(program):
    """Of the program, in seconds: on a full machine the reader takes processors away, as any program does."""
    nanoseconds = 0
    for thread in os.listdir(f"/proc/{program.pid}/task"):
        with open(f"/proc/{program.pid}/task/{thread}/schedstat", encoding="utf-8") as file:
            nanoseconds += int(file.read().split()[0])
    return nanoseconds / 1e9


def speeds(case, program, shared, read):
    """Work for each second of its processor time in a slice, and how long each look at it took."""
    counts, used, looks = case.counts(shared), processor_time(program), []
    end = time.monotonic() + SLICE
    while time.monotonic() < end:
        if read:
            begun = time.monotonic()
            stat_test.stat("--json", program.pid)
            looks.append(time.monotonic() - begun)
        else:
            time.sleep(0.01)
    used = processor_time(program) - used
    after = case.counts(shared)
    return [(after[name] - counts[name]) / used for name in WORK], looks


def main():
    case = stat_test.Busy("busy")
    case.setUpClass()
    program, shared = case.busy()
    alone, watched, looks = [], [], []
    while len(looks) < READS:
        alone.append(speeds(case, program, shared, False)[0])
        speed, more = speeds(case, program, shared, True)
        watched.append(speed)
        looks += more
    case.doCleanups()
    case.tearDownClass()
    print(f"{len(looks)} looks took {sum(looks):.0f} s, half of them up to {statistics.median(looks) * 1000:.0f} ms; "
          "work while it is read, beside work while it is not:")
    for name, free, seen in zip(WORK, zip(*alone), zip(*watched)):
        low, _, high = statistics.quantiles([a / b for a, b in zip(seen, free)])
        print(f"  {name}: {statistics.median(seen) / statistics.median(free):.3f}, "
              f"half of the pairs {low:.3f} to {high:.3f}")


if __name__ == "__main__":
    main()
