#!/usr/bin/env python3
"""Counts the instructions of calls that programs make often, and compares them with a table.

  instructions.py BUILD              compares; a count that differs by more than 10 % is an error
  instructions.py BUILD --renew      writes the table
  instructions.py BUILD --keep DIR   leaves Callgrind's files in DIR: callgrind_annotate DIR/counts.N-01 shows where the
                                     instructions of the call with number N are

BUILD is the folder that has the program hot_calls and a note of what it was built with. Counts are of the calling thread,
in the library and below it, and do not depend on what else the machine does. Exit status: 1 if counts differ or the program
fails.
"""

import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

REPETITIONS = 500  # kTimes of hot_calls.cpp
TOLERANCE = 0.10
TABLE = pathlib.Path(__file__).with_name("table.json")
# The C library chooses functions by what the processor can do. These every x86-64 processor can.
PLAIN_PROCESSOR = "glibc.cpu.hwcaps=" + ",".join(
    "-" + name for name in ("AVX", "AVX_Fast_Unaligned_Load", "AVX2", "AVX512F", "AVX512VL", "AVX512BW", "ERMS", "FSRM",
                            "BMI2", "LZCNT", "MOVBE", "RTM", "SSE4_1", "SSE4_2", "SSSE3", "POPCNT"))


def counted(program, folder):
    """Name of each call -> its instructions, in the program's order."""
    command = ["valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes",
               f"--callgrind-out-file={folder}/counts", program]
    # Nothing else: to find TZ, the C library reads all variables before it.
    environment = dict(PATH=os.environ["PATH"], GLIBC_TUNABLES=PLAIN_PROCESSOR, LD_BIND_NOW="1", LC_ALL="C", TZ="UTC0")
    subprocess.run(command, check=True, env=environment)
    counts = {}
    files = pathlib.Path(folder).glob("counts.*-01")  # of the first thread, one for each mark
    for file in sorted(files, key=lambda path: int(re.search(r"\.(\d+)-01$", path.name)[1])):
        text = file.read_text()
        mark = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        count = round(int(re.search(r"^totals: (\d+)$", text, re.M)[1]) / REPETITIONS, 1)
        counts[mark[1]] = min(count, counts.get(mark[1], count))
    return counts


def differences(table, found):
    """A line for each call whose count is not as in the table."""
    if found["built_with"] != table["built_with"]:
        yield f"built with {found['built_with']}, the table with {table['built_with']}"
    expected, counts = table["instructions"], found["instructions"]
    for name in dict.fromkeys([*expected, *counts]):
        if name not in counts or name not in expected:
            yield f"{name}: only {'in the table' if name in expected else 'measured'}"
        elif abs(counts[name] - expected[name]) > TOLERANCE * expected[name]:
            yield f"{name}: {counts[name]:g} instructions, {expected[name]:g} in the table " \
                  f"({100 * (counts[name] / expected[name] - 1):+.1f} %)"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--renew", action="store_true")
    parser.add_argument("--keep", type=pathlib.Path)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        if options.keep:
            options.keep.mkdir(parents=True, exist_ok=True)
        found = {"built_with": (options.build / "built_with").read_text(),
                 "instructions": counted(options.build / "hot_calls", options.keep or folder)}
    for name, count in found["instructions"].items():
        print(f"{count:10.1f}  {name}")
    if options.renew:
        TABLE.write_text(json.dumps(found, indent=2) + "\n")
        return 0
    wrong = list(differences(json.loads(TABLE.read_text()), found))
    if wrong:
        print("\nNot as in the table; where that is intended, scripts/bench --instructions --renew writes it anew:", *wrong,
              sep="\n", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
