#!/usr/bin/env python3
"""Plants single faults in the library, one at a time, and tells how many of them the tests notice.

A copy of the source tree is built once. For each fault one line of the copy is changed, the object is rebuilt, and the
tests of the rooms that depend on it run until the first one fails. A fault that does not compile is replaced by the next.
The same seed plants the same faults as long as the lines stay as they are, wherever they move to.

Exit status: 0 if at least the asked share was noticed, 1 if less, 2 if the unchanged tests fail.
"""

import argparse
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DVYX_CHECK_LOCKS=ON", "-DVYX_BUILD_TESTS=ON",
         "-DVYX_BUILD_BENCH=OFF", "-DVYX_BUILD_EXAMPLES=OFF", "-DVYX_BUILD_TOOLS=OFF"]
LEAST_IN_A_ROOM = 8

# Kind, what is looked for, what it becomes. The formatter puts blanks around operators, but none into templates.
CHANGES = [
    ("relation", r" < ", " <= "), ("relation", r" <= ", " < "), ("relation", r" > ", " >= "),
    ("relation", r" >= ", " > "), ("relation", r" == ", " != "), ("relation", r" != ", " == "),
    ("logic", r" && ", " || "), ("logic", r" \|\| ", " && "), ("logic", r"(?<=[(&|=] )!(?=[\w(])", ""),
    ("logic", r"(?<=\()!(?=[\w(])", ""),
    ("arithmetic", r" \+ ", " - "), ("arithmetic", r" - ", " + "), ("arithmetic", r" \* (?=\w)", " / "),
    ("arithmetic", r" / ", " * "), ("arithmetic", r" % ", " / "), ("arithmetic", r" \+= ", " -= "),
    ("arithmetic", r" -= ", " += "), ("arithmetic", r"\+\+(?=\w)", "--"), ("arithmetic", r"--(?=\w)", "++"),
    ("arithmetic", r" << ", " >> "), ("arithmetic", r" >> ", " << "), ("arithmetic", r" & ", " | "),
    ("arithmetic", r" \| ", " & "),
    ("constant", r"(?<![\w.])0(?=[;,) ])", "1"), ("constant", r"(?<![\w.])1(?=[;,) ])", "0"),
    ("constant", r"(?<![\w.])([2-9]|\d\d+)(?=[;,) ])", lambda m: str(int(m.group()) + 1)),
    ("constant", r"\btrue\b", "false"), ("constant", r"\bfalse\b", "true"),
    ("result", r"\breturn VYX_OK;", "return VYX_ERROR;"), ("result", r"\breturn VYX_ERROR;", "return VYX_OK;"),
    ("result", r"\bVYX_TRUE\b", "VYX_FALSE"), ("result", r"\bVYX_FALSE\b", "VYX_TRUE"),
    ("result", r"\breturn (?!VYX_|true|false|nullptr|\{)(\w[^;]*);", r"return decltype(\1){};"),
    ("lock or signal", r"^(\s+)const (?:LockGuard|Uncancelled|ErrnoKeeper)\b[^;]*;", r"\1;"),
    ("lock or signal", r"^(\s+)[\w.>-]+(?:Signal|Broadcast|Acquire|Release|Ring)\([^;]*\);", r"\1;"),
    ("statement", r"^(\s+)(?:\(void\))?[\w:.>\[\]-]+\([^;{}]*\);$", r"\1;"),
    ("statement", r"^(\s+)[\w:.>\[\]-]+ [-+]?= [^;{}]*;$", r"\1;"),
    ("statement", r"^(\s+)(?:break|continue);", r"\1;"),
]
SKIP = re.compile(r"^\s*(#|//|\*|/\*|using |namespace|static_assert|extern|template|constexpr \w+ \w+\(|.*VYX_(TRY_)?(ACQUIRE|RELEASE)\(|\}|VYX_\w+ =)")


def faults_of(file, text):
    """All faults of a file: (line number, kind, new line, key)."""
    seen = {}
    for number, line in enumerate(text.split("\n")):
        code = re.sub(r"//.*$", "", line)
        if SKIP.match(line) or not code.strip() or '"' in code or "= {}" in code:
            continue
        for index, (kind, pattern, new) in enumerate(CHANGES):
            for occurrence, match in enumerate(re.finditer(pattern, code)):
                changed = code[:match.start()] + match.expand(new) + code[match.end():] if isinstance(new, str) \
                    else code[:match.start()] + new(match) + code[match.end():]
                key = f"{file.name}|{index}|{occurrence}|{code.strip()}"
                seen[key] = seen.get(key, 0) + 1
                yield number, kind, changed, f"{key}|{seen[key]}"


def all_faults(tree, seed, only):
    """Room -> its faults in the order of the seed."""
    rooms = {}
    for file in sorted([*tree.glob("src/*/*.cpp"), *tree.glob("src/*/*.h")]):
        if "_darwin" in file.name or file.name == "lock_check.cpp" or (only and file.parent.name not in only):
            continue
        for number, kind, line, key in faults_of(file, file.read_text()):
            order = hashlib.sha256(f"{seed}|{key}".encode()).hexdigest()
            rooms.setdefault(file.parent.name, []).append((order, file, number, kind, line))
    return {room: sorted(faults, key=lambda fault: fault[0]) for room, faults in rooms.items()}


def quotas(tree, rooms, count):
    """How many faults each room gets: by its lines, and a few at least."""
    lines = {room: sum(len(f.read_text().split("\n")) for f in (tree / "src" / room).iterdir() if f.suffix in (".cpp", ".h"))
             for room in rooms}
    total = sum(lines.values())
    share = {room: max(LEAST_IN_A_ROOM, round(count * lines[room] / total)) for room in rooms}
    largest = max(share, key=share.get)
    share[largest] += count - sum(share.values())
    return share


def dependents(tree):
    """Room -> the rooms whose code may notice it, itself first; from the table of layers."""
    text = (tree / "docs/architecture.md").read_text()
    rows = dict(re.findall(r"^\| `src/(\w+)` \|[^|]*\|([^|]*)\|", text, re.M))
    uses = {room: set(re.findall(r"`(\w+)`", includes)) for room, includes in rows.items()}
    return {room: [room] + [other for other in uses if room in uses[other]] + ["conformance"] for room in uses}


class Tree:
    """The copy that is built, changed and tested."""

    def __init__(self, source, jobs):
        self.path, self.build, self.jobs = source, source / "build", jobs
        self.limits = {}

    def run(self, command, limit=None):
        process = subprocess.Popen(command, cwd=self.path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   start_new_session=True)
        try:
            return process.wait(limit)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, 9)
            process.wait()
            return None

    def configure(self):
        return self.run(["cmake", "-G", "Ninja", "-S", ".", "-B", "build", *BUILD]) == 0

    def compile(self, folders):
        targets = [f"tests/{folder}/all" for folder in folders if (self.path / "tests" / folder / "CMakeLists.txt").exists()]
        return self.run(["ninja", "-C", "build", f"-j{self.jobs}", "vyx", *targets]) == 0

    def test(self, folder):
        """True: all passed. None: not in time."""
        folder_path = self.build / "tests" / folder
        if not folder_path.exists():
            return True
        start = time.monotonic()
        status = self.run(["ctest", "--test-dir", str(folder_path), "--stop-on-failure", f"-j{2 * self.jobs}",
                           "-LE", "slow"], self.limits.get(folder))
        self.took = time.monotonic() - start
        return None if status is None else status == 0


def copy_tree(work, revision):
    """A fresh copy of the tracked files of a revision, or of the work tree."""
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    if revision:
        archive = subprocess.run(["git", "archive", revision], cwd=TOP, check=True, stdout=subprocess.PIPE).stdout
        subprocess.run(["tar", "x"], cwd=work, input=archive, check=True)
        return
    files = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=TOP, check=True,
                           stdout=subprocess.PIPE).stdout.decode().split("\0")
    for name in filter(None, files):
        if (TOP / name).is_file():
            (work / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(TOP / name, work / name)


def try_fault(tree, fault, folders):
    """What became of a fault: "noticed", "hang", "survived", or None if it does not compile."""
    _, file, number, _, line = fault
    text = file.read_text()
    lines = text.split("\n")
    lines[number] = line
    try:
        file.write_text("\n".join(lines))
        if not tree.compile(folders[:1]):
            return None
        for index, folder in enumerate(folders):
            if index == 1 and not tree.compile(folders):
                return "noticed"
            passed = tree.test(folder)
            if passed is None:
                return "hang"
            if not passed:
                return "noticed"
        return "survived"
    finally:
        file.write_text(text)


def show(done, total, noticed, start):
    if sys.stderr.isatty() or done % 10 == 0 or done == total:
        sys.stderr.write(f"\r{done} of {total} faults, {noticed} noticed, {time.monotonic() - start:.0f} s "
                         + ("" if sys.stderr.isatty() else "\n"))


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=400, help="how many faults (400)")
    parser.add_argument("--seed", default="1")
    parser.add_argument("--only", nargs="*", metavar="ROOM", help="folders of src/")
    parser.add_argument("--revision", help="a commit instead of the files as they are")
    parser.add_argument("--work", type=pathlib.Path, default=TOP / "build/torture/mutants", help="where the copy is built")
    parser.add_argument("--least", type=float, default=90, help="share in percent that has to be noticed (90)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--json", type=pathlib.Path, help="write all faults and what became of them")
    parser.add_argument("--list", action="store_true", help="print the faults and plant none")
    return parser.parse_args()


def main():
    options = arguments()
    copy_tree(options.work, options.revision)
    tree = Tree(options.work, options.jobs)
    rooms = all_faults(tree.path, options.seed, options.only)
    share = quotas(tree.path, rooms, options.count)
    if options.list:
        for room, faults in rooms.items():
            for _, file, number, kind, line in faults[:share[room]]:
                print(f"{file.relative_to(tree.path)}:{number + 1}: {kind}: {line.strip()}")
        return 0
    folders = dependents(tree.path)
    wanted = sorted({folder for room in rooms for folder in folders.get(room, [room, "conformance"])})
    if not tree.configure() or not tree.compile(wanted):
        print("the copy does not build", file=sys.stderr)
        return 2
    for folder in wanted:
        if not tree.test(folder) and not tree.test(folder):
            print(f"the tests of {folder} fail without any fault", file=sys.stderr)
            return 2
        tree.limits[folder] = 20 + 6 * tree.took
    results, start = [], time.monotonic()
    for room, faults in rooms.items():
        tried = 0
        for fault in faults:
            if tried == share[room]:
                break
            outcome = try_fault(tree, fault, folders.get(room, [room, "conformance"]))
            if outcome is None:
                continue
            tried += 1
            results.append({"file": str(fault[1].relative_to(tree.path)), "line": fault[2] + 1, "kind": fault[3],
                            "fault": fault[4].strip(), "outcome": outcome})
            show(len(results), sum(share.values()), sum(r["outcome"] != "survived" for r in results), start)
            if options.json:
                options.json.write_text(json.dumps(results, indent=1) + "\n")
    survivors = [r for r in results if r["outcome"] == "survived"]
    for r in survivors:
        print(f"survived: {r['file']}:{r['line']}: {r['kind']}: {r['fault']}")
    score = 100 * (len(results) - len(survivors)) / len(results)
    print(f"{len(results)} faults, {len(results) - len(survivors)} noticed: {score:.1f} %")
    return 0 if score >= options.least else 1


if __name__ == "__main__":
    sys.exit(main())
