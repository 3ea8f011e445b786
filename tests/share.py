#!/usr/bin/env python3
"""Prints the code lines of each folder, and the share of test code: tests/ and fuzz/ against everything.

A code line is neither blank nor a comment. Counted are sources, scripts and build files; not documents, nor lists such as
the recorded transcript and the exported names.
"""

import pathlib
import re
import subprocess

TOP = pathlib.Path(__file__).resolve().parent.parent
C = {".c", ".cpp", ".h"}
HASH = {".py", ".sh", ".cmake", ".awk", ""}
NO_CODE = {"LICENSE"}
# A text in quotes stays, a comment goes.
C_PARTS = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/', re.S)


def code_lines(path):
    text = path.read_text(errors="replace")
    if path.suffix in C:
        text = C_PARTS.sub(lambda m: m.group() if m.group()[0] in "\"'" else "\n" * m.group().count("\n"), text)
        return sum(1 for line in text.split("\n") if line.strip())
    if path.suffix in HASH or path.name == "CMakeLists.txt":
        text = re.sub(r'^\s*""".*?"""', "", text, flags=re.S | re.M) if path.suffix == ".py" else text
        return sum(1 for line in text.split("\n") if line.strip() and not line.lstrip().startswith("#"))
    return 0


names = subprocess.run(["git", "ls-files", "-z"], cwd=TOP, check=True, stdout=subprocess.PIPE).stdout.decode().split("\0")
count = {}
for name in (pathlib.Path(n) for n in names if n and not pathlib.Path(n).name.startswith(".")):
    if name.name not in NO_CODE and (TOP / name).is_file():
        folder = "/".join(name.parts[:2] if name.parts[0] in ("tests", "src") and len(name.parts) > 2 else name.parts[:1])
        count[folder] = count.get(folder, 0) + code_lines(TOP / name)
for folder in sorted(filter(count.get, count)):
    print(f"{count[folder]:6} {folder}")
tests, total = sum(n for folder, n in count.items() if re.match(r"(tests|fuzz)\b", folder)), sum(count.values())
print(f"{tests} of {total} lines are test code: {100 * tests / total:.1f} %")
hostile = sum(count.get(folder, 0) for folder in ("fuzz", "tests/torture"))
print(f"without fuzz and tests/torture, the programs that scripts/torture runs: {tests - hostile} of {total - hostile}, "
      f"{100 * (tests - hostile) / (total - hostile):.1f} %")
