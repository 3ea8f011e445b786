#!/usr/bin/env python3
"""The programs in the documents: each is written once, in its Markdown page, and compiled and run by a test.

A program is a block ```c NAME, ```cpp NAME or ```python NAME; what it prints is the block ```text NAME that
follows it, in which … stands for any characters of a line.

samples.py write DIR        writes each program to DIR/NAME.c or the like, if it is not there as it is; prints the paths
samples.py run NAME=PATH... runs the programs, each in an empty folder, and compares their status (0) and what they print;
                            those in Python by the same interpreter
"""

import concurrent.futures
import pathlib
import re
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parent.parent
BLOCK = re.compile(r"^```(\w+) (\w+)\n(.*?)^```$", re.S | re.M)
SUFFIXES = {"c": ".c", "cpp": ".cpp", "python": ".py"}
LIMIT = 60  # seconds that a program may take, ten times as long as the slowest needs in an emulator


def pages():
    return [TOP / "README.md", *sorted((TOP / "docs").rglob("*.md"))]


def blocks():
    for page in pages():
        yield from BLOCK.findall(page.read_text())


def write(folder):
    folder.mkdir(parents=True, exist_ok=True)
    names = set()
    for language, name, text in blocks():
        if language not in SUFFIXES:
            continue
        if name in names:
            sys.exit(f"there are two programs {name}")
        names.add(name)
        file = folder / (name + SUFFIXES[language])
        if not file.exists() or file.read_text() != text:
            file.write_text(text)
        print(file)


def fault(name, path):
    """What is wrong with the program, or None."""
    expected = [text for language, owner, text in blocks() if language == "text" and owner == name]
    if len(expected) != 1:
        return f"{len(expected)} blocks say what {name} prints"
    with tempfile.TemporaryDirectory() as folder:
        command = [sys.executable, "-B", path] if path.endswith(".py") else [path]
        done = subprocess.run(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=LIMIT, check=False)
    said = done.stdout.decode(errors="replace").replace("\r\n", "\n")  # of the log's lines
    pattern = "[^\n]*".join(map(re.escape, expected[0].split("…")))
    if done.returncode == 0 and re.fullmatch(pattern, said):
        return None
    return f"{name}: status {done.returncode}\n--- printed\n{said}--- expected\n{expected[0]}"


def run(programs):
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        faults = [found for found in pool.map(lambda program: fault(*program.split("=", 1)), programs) if found]
    print("\n".join(faults) or f"{len(programs)} programs print what their pages say")
    sys.exit(1 if faults or not programs else 0)


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "write":
        write(pathlib.Path(sys.argv[2]))
    elif len(sys.argv) >= 2 and sys.argv[1] == "run":
        run(sys.argv[2:])
    else:
        sys.exit(__doc__)


main()
