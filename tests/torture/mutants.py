#!/usr/bin/env python3
"""Plants single faults in the library, one at a time, and tells how many of them the tests notice.

A copy of the source tree is built once, so that the library notes which test enters which function. For each fault one
line of the copy is changed, the object is rebuilt, and the tests that enter the function run until one fails, those of the
room first, the quick ones before the slow ones; then the room's other tests that enter the file. A fault that does not
compile is replaced by the next. The same seed plants the same faults as long as the lines stay as they are, wherever they
move to. Results are written as they come; a run that was ended goes on where it was.

What a fault leaves running is ended after it, and with the script, however that ends.

Exit status: 0 if at least the asked share was noticed, 1 if less, 2 if the unchanged tests fail.
"""

import argparse
import concurrent.futures
import contextlib
import ctypes
import hashlib
import json
import os
import pathlib
import pickle
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent.parent
BUILD = ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O0", "-DVYX_CHECK_LOCKS=ON", "-DVYX_BUILD_TESTS=ON",
         "-DVYX_PRECOMPILE_TESTS=ON", "-DVYX_BUILD_BENCH=OFF", "-DVYX_BUILD_EXAMPLES=OFF", "-DVYX_BUILD_TOOLS=OFF", "-DVYX_BUILD_EXPLORE=ON",
         "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
for language in ("C", "CXX"): # a compiler cache may hand out objects whose debug information names the files of another tree
    BUILD += [f"-DCMAKE_{language}_COMPILER_LAUNCHER="]
if shutil.which("ld.lld"): # quicker, no more
    BUILD += ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld", "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld"]
LEAST_IN_A_ROOM = 8
OF_ALL = {"conformance", "explore"} # tests of no room
STAGES = {"Torture.load", "Torture.storms"} # that are tried like tests; failing resources are tried one by one
ANALYSIS = "the analysis of locks"

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
    ("result", r"\breturn (?!VYX_|true|false|nullptr|\{|0;)(\w[^;]*);", r"return decltype(\1){};"),
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
            rooms.setdefault(file.parent.name, []).append((order, file, number, kind, line, key))
    return {room: sorted(rooms[room], key=lambda fault: fault[0]) for room in only or sorted(rooms) if room in rooms}


def quotas(tree, rooms, count):
    """How many faults each room gets: by its lines, and a few at least."""
    lines = {room: sum(len(f.read_text().split("\n")) for f in (tree / "src" / room).iterdir() if f.suffix in (".cpp", ".h"))
             for room in rooms}
    total = sum(lines.values())
    share = {room: max(LEAST_IN_A_ROOM, round(count * lines[room] / total)) for room in rooms}
    largest = max(share, key=share.get)
    share[largest] += count - sum(share.values())
    return share


class Test:
    """One case of a test program, started as CTest would."""

    def __init__(self, room, described):
        properties = {p["name"]: p["value"] for p in described["properties"]}
        self.room, self.name, self.command = room, described["name"], described["command"]
        self.folder = properties["WORKING_DIRECTORY"]
        self.environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", []))
        self.serial = properties.get("RUN_SERIAL", False)
        self.took, self.limit, self.touched, self.inside = 0, 600, set(), False

    def start(self, touched):
        self.since = time.monotonic()
        environment = {**os.environ, **self.environment, **({"VYX_TOUCHED": str(touched)} if touched else {})}
        self.process = subprocess.Popen(self.command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)

    def ended(self):
        """None: still runs. Otherwise what is to be said about it, nothing if it passed."""
        status, self.took = self.process.poll(), time.monotonic() - self.since
        if status is None and self.took < self.limit:
            return None
        self.end()
        return f"{self.name} hangs" if status is None else self.name if status else ""

    def end(self):
        try:
            os.killpg(self.process.pid, 9) # children, too
        except ProcessLookupError:
            pass
        self.process.wait()
        self.process = None


class Tree:
    """The copy that is built, changed and tested."""

    def __init__(self, options):
        self.path, self.build = options.work, options.work / "build"
        self.jobs, self.beside = options.jobs, options.beside
        self.own, self.slow, self.most = options.only if options.own else None, options.slow, options.most
        self.torture = [] if options.own else ["torture_programs"]
        self.tests, self.starts = [], {}
        self.commands, self.used_by = {}, {}
        state = hashlib.sha256()
        for file in sorted(f for folder in ("src", "tests", "include", "fuzz") for f in (self.path / folder).rglob("*")
                           if f.is_file() and f.suffix not in (".md", ".py", ".txt")):
            state.update(str(file).encode() + file.read_bytes())
        self.state = state.hexdigest()[:16]

    def quietly(self, *command):
        return subprocess.run(command, cwd=self.path, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def make(self, *targets):
        return self.quietly("ninja", "-C", "build", f"-j{self.jobs}", *targets)

    def learn(self):
        """How each file of the build is made, and which objects a source is in: faults are built without Ninja, which takes
        longer to look at the tree than the compiler for a file."""
        def ninja(*arguments):
            return subprocess.run(["ninja", "-C", self.build, *arguments], check=True, stdout=subprocess.PIPE, text=True).stdout
        described = ninja("-t", "compdb")
        for entry in json.loads(described[described.index("["):]):
            quick = re.sub(r"^\S*ccache |-g1|-W(?!l,)\S+", "", entry["command"])
            self.commands[entry["output"]] = quick + " -w" * entry["output"].endswith(".o")
        for line in ninja("-t", "deps").split("\n"):
            if ": #deps" in line:
                output = line.split(":")[0]
            elif line.startswith("    "):
                self.used_by.setdefault(os.path.normpath(self.build / line.strip()), []).append(output)
        self.library = next(output for output in self.commands if re.match(r"src/libvyx\.so\.\d+\.", output))

    def command(self, output):
        return subprocess.run(self.commands[output], shell=True, cwd=self.build, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0

    def objects(self, file):
        """Those to compile anew: of the library, and of the tests of the file's room."""
        return [o for o in self.used_by.get(str(file), []) if o.startswith(("src/", f"tests/{file.parent.name}/"))]

    def rebuild(self, objects):
        """The first one alone, as the others fail if it does."""
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            return self.command(objects[0]) and all(pool.map(self.command, objects[1:]))

    def prepare(self):
        """Builds the library, all tests and the fuzz targets, which replay their corpus, and lists them."""
        (self.path / "touched").mkdir(exist_ok=True)
        for name in ("touched.cmake", "touched.cpp"):
            update(self.path / "touched" / name, (HERE / name).read_bytes())
        if not self.quietly("cmake", "-G", "Ninja", "-S", ".", "-B", "build", *BUILD,
                            f"-DCMAKE_PROJECT_vyx_INCLUDE={self.path}/touched/touched.cmake"):
            return False
        rooms = self.own or [f.parent.name for f in sorted(self.path.glob("tests/*/CMakeLists.txt"))
                             if (self.path / "src" / f.parent.name).is_dir() or f.parent.name in OF_ALL]
        if not self.make("vyx", "fuzz_targets", *(f"tests/{room}/all" for room in rooms), *self.torture):
            return False
        for folder in [*(f"tests/{room}" for room in rooms), "fuzz", *(["tests/torture"] if self.torture else [])]:
            listed = subprocess.run(["ctest", "--test-dir", self.build / folder, "--show-only=json-v1"], check=True,
                                    stdout=subprocess.PIPE).stdout
            self.tests += [Test(folder.split("/")[-1], test) for test in json.loads(listed)["tests"]
                           if test["command"][0].startswith(str(self.build)) or test["name"] in STAGES]
        if self.torture:
            self.tests += self.scenarios(self.build / "tests/torture/resources/torture_resources")
        return True

    def scenarios(self, program):
        """Those with failing resources, each as a test."""
        names = subprocess.run([program], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
        properties = [{"name": "WORKING_DIRECTORY", "value": str(self.build)}]
        return [Test("resources", {"name": f"Resources.{name}", "properties": properties,
                                   "command": [str(program), name, "1"]}) for name in names]

    def enter(self, test):
        """Runs a test alone: how long it takes, and which bytes of which modules it leaves behind."""
        with tempfile.TemporaryDirectory() as folder:
            test.failure = self.first_failure([test], folder) and self.first_failure([test], folder)
            test.limit = 20 + min(10 * test.took, 3 * test.took + 20)
            for file in pathlib.Path(folder).iterdir():
                module = file.name.replace("%", "/")
                test.touched |= {(module, byte.start()) for byte in re.finditer(b"\1", file.read_bytes())}
                test.inside |= module == test.command[0]

    def measure(self):
        """Finds out which test enters which function, and returns the failures. Known already if no file has changed."""
        known = self.path / "measured.pickle"
        if known.is_file():
            state, tests, starts = pickle.loads(known.read_bytes())
            if state == self.state and [test.name for test in tests] == [test.name for test in self.tests]:
                self.tests, self.starts = tests, starts
                return []
        with concurrent.futures.ThreadPoolExecutor(self.beside) as pool:
            for number, _ in enumerate(pool.map(self.enter, [test for test in self.tests if not test.serial])):
                show(number + 1, len(self.tests), "tests measured")
        for test in self.tests:
            if test.serial:
                self.enter(test)
        entered = {}
        for module in {module for test in self.tests for module, _ in test.touched}:
            symbols = subprocess.run(["nm", "--defined-only", module], stdout=subprocess.PIPE, text=True).stdout
            places = re.findall(r"^(\w+) [tTwW] ", symbols, re.M)
            lines = subprocess.run(["addr2line", "-e", module], input="\n".join(places), stdout=subprocess.PIPE,
                                   text=True).stdout
            for place, line in zip(places, lines.split("\n")):
                file, _, number = line.split(" ")[0].rpartition(":")
                file = os.path.normpath(file)
                if file.startswith(str(self.path / "src")) and number.isdigit():
                    self.starts.setdefault(file, set()).add(int(number))
                    entered[module, int(place, 16)] = (file, int(number))
        for test in self.tests:
            test.touched = {entered[place] for place in test.touched if place in entered}
        failing = [test.failure for test in self.tests if test.failure]
        if not failing:
            known.write_bytes(pickle.dumps((self.state, self.tests, self.starts)))
        return failing

    def tests_for(self, path, number):
        """Those that enter the function, then the room's own that enter the file; each the quick ones first. For what is in
        no function: all if it is in a header, else the room's own and those that enter the file."""
        file, room = str(path), path.parent.name
        start = max((line for line in self.starts.get(file, ()) if line <= number + 1), default=None)
        everywhere = start is None and path.suffix == ".h" # constants and types
        first = [test for test in self.tests if everywhere or (file, start) in test.touched]
        inside = [test for test in self.tests if any(entered == file for entered, _ in test.touched)]
        more = [test for test in self.tests if test not in first and (
            test in inside and (test.room == room or start is None) or
            test.room == room and (start is None or path.suffix == ".h"))]
        first = [test for test in first if test.took < self.slow or test.room == room]
        if path.suffix == ".h": # those with a copy of their own of what is in it take long to build
            first = [test for test in first if not test.inside or test.room in (room, "fuzz")]
        for tests in (first, more):
            tests.sort(key=lambda test: (test.serial, test.room != room, test.took))
        return first + more

    def first_failure(self, tests, touched=None):
        """Runs tests, some beside each other, until one fails, or --most: what they were. Nothing if all passed."""
        running = []
        try:
            return self.first_of(list(tests), running, touched)
        finally:
            for test in running:
                test.end()

    def first_of(self, waiting, running, touched):
        made, failed = set(), []
        while (waiting or running) and len(failed) < self.most:
            while waiting and (not running or (len(running) < self.beside and not waiting[0].serial)):
                test = waiting.pop(0)
                program = os.path.relpath(test.command[0], self.build)
                if test.inside and not touched and program not in made and not self.command(program):
                    return f"{test.name} does not build"
                made.add(program)
                test.start(touched)
                running.append(test)
            time.sleep(0.002)
            for test in list(running):
                result = test.ended()
                if result is not None:
                    running.remove(test)
                    failed += [result] if result else []
        return ", ".join(failed)

    def analysed(self, file):
        """Whether Clang's analysis of the locks, which every change has to pass, objects to the file."""
        unit = next(f for f in [file, *self.path.glob("src/*/*.cpp")]
                    if f.suffix == ".cpp" and (f == file or f'"{file.parent.name}/{file.name}"' in f.read_text()))
        flags = ["-std=c++17", "-fsyntax-only", "-D_FILE_OFFSET_BITS=64", "-DVYX_NO_INLINE", "-I", "include", "-iquote", "src",
                 "-Wno-invalid-offsetof", "-Werror=thread-safety", "-Werror=thread-safety-beta"]
        return "" if self.quietly("clang++", *flags, unit) else ANALYSIS

    def try_fault(self, fault, before):
        """What noticed the fault, "" if nothing did, None if it does not compile. What noticed it before goes first."""
        _, file, number, _, line, _ = fault
        text = file.read_text()
        lines = text.split("\n")
        lines[number] = line
        kept = {self.build / o: (self.build / o).read_bytes() for o in self.objects(file)}
        try:
            file.write_text("\n".join(lines))
            assert kept, f"{file} is in no object"
            if not self.rebuild(self.objects(file)) or not self.command(self.library):
                return None
            self.command("src/libvyx.a")
            tests = sorted(self.tests_for(file, number), key=lambda test: test.name not in before)
            return self.first_failure(tests) or ("" if self.own else self.analysed(file))
        finally:
            end_descendants()
            file.write_text(text)
            for path, content in kept.items():
                path.write_bytes(content)


def adopt():
    """Processes whose parent has ended become children of this one, also those that are in sessions of their own."""
    ctypes.CDLL(None).prctl(36, 1, 0, 0, 0) # PR_SET_CHILD_SUBREAPER


def end_descendants():
    """Kills all children, and theirs as they become children of this process."""
    children = pathlib.Path(f"/proc/self/task/{os.getpid()}/children")
    while found := children.read_text().split():
        for child in found:
            os.kill(int(child), signal.SIGKILL)
        for child in found:
            with contextlib.suppress(ChildProcessError):
                os.waitpid(int(child), 0)


def guarded(work):
    """Does the work in a child. What that leaves behind is ended, even if it is killed; if this process is, it ends, too."""
    adopt()
    worker = os.fork()
    if worker == 0:
        adopt()
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(2)) # the changed line is put back
        ctypes.CDLL(None).prctl(1, signal.SIGTERM, 0, 0, 0) # PR_SET_PDEATHSIG
        return work()
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: os.kill(worker, signal.SIGTERM))
    status = os.waitpid(worker, 0)[1]
    end_descendants()
    return os.WEXITSTATUS(status) if os.WIFEXITED(status) else 2


def update(path, content):
    if not path.is_file() or path.read_bytes() != content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


def files_of_work_tree(work):
    """The names of all files but what is built: those that Git takes or, in a tree without Git, all that are there."""
    listed = shutil.which("git") and subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=TOP,
                                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if listed and listed.returncode == 0:
        names = set(listed.stdout.decode().split("\0"))
    else:
        built = {"build", ".git", *(work.relative_to(TOP).parts[:1] if work.is_relative_to(TOP) else ())}
        names = {str(file.relative_to(TOP)) for entry in TOP.iterdir() if entry.name not in built
                 for file in ([entry] if entry.is_file() else entry.rglob("*"))}
    return {name for name in names if name and (TOP / name).is_file()}


def copy_tree(work, revision):
    """The files of a revision, or of the work tree; what has not changed is not touched."""
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) if revision else TOP
        if revision:
            archive = subprocess.run(["git", "archive", revision], cwd=TOP, check=True, stdout=subprocess.PIPE).stdout
            subprocess.run(["tar", "x"], cwd=folder, input=archive, check=True)
            names = {str(file.relative_to(source)) for file in source.rglob("*") if file.is_file()}
        else:
            names = files_of_work_tree(work)
        for name in names:
            update(work / name, (source / name).read_bytes())
            (work / name).chmod((source / name).stat().st_mode | 0o200)
        for folder in ("src", "tests", "include", "fuzz"):
            for file in (work / folder).rglob("*"):
                if file.is_file() and str(file.relative_to(work)) not in names:
                    file.unlink()


def show(done, total, what):
    if sys.stderr.isatty() or done % 10 == 0 or done == total:
        sys.stderr.write(f"\r{done} of {total} {what} " + ("" if sys.stderr.isatty() else "\n"))


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=400, help="how many faults (400)")
    parser.add_argument("--seed", default="1")
    parser.add_argument("--only", nargs="*", metavar="ROOM", help="folders of src/")
    parser.add_argument("--revision", help="a commit instead of the files as they are")
    parser.add_argument("--work", type=pathlib.Path, default=TOP / "build/torture/mutants", help="where the copy is built")
    parser.add_argument("--least", type=float, default=90, help="share in percent that has to be noticed (90)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="for the compiler")
    parser.add_argument("--beside", type=int, default=os.cpu_count() + 1, help="how many tests run at once")
    parser.add_argument("--results", type=pathlib.Path,
                        help="a line of JSON for each fault; those in it are not tried again while no file changes")
    parser.add_argument("--slow", type=float, default=30, help="seconds: tests of other folders that take longer are left out (30)")
    parser.add_argument("--most", type=int, default=1, help="look for so many tests that notice the same fault (1)")
    parser.add_argument("--again", action="store_true", help="tests have changed: try only those that survived before")
    parser.add_argument("--own", action="store_true", help="only with the tests of the rooms of --only: quick, and less sharp")
    parser.add_argument("--list", action="store_true", help="print the faults and plant none")
    options = parser.parse_args()
    options.work = options.work.resolve()
    options.results = options.results or options.work.with_suffix(".jsonl")
    return options


def report(results, least):
    """A row for each room, and the survivors."""
    rooms = sorted({r["room"] for r in results})
    for r in results:
        if not r["noticed"]:
            print(f"survived: {r['file']}:{r['line']}: {r['kind']}: {r['fault']}")
    for room in rooms + ["all"]:
        mine = [r for r in results if room in (r["room"], "all")]
        noticed = sum(bool(r["noticed"]) for r in mine)
        print(f"{room:10} {len(mine):4} faults {noticed:4} noticed {100 * noticed / len(mine):5.1f} %,"
              f" {sum(r['noticed'] == ANALYSIS for r in mine)} of them by {ANALYSIS} alone,"
              f" {sum(r['seconds'] for r in mine) / len(mine):.1f} s a fault")
    return 0 if 100 * noticed / len(mine) >= least else 1


def main():
    options = arguments()
    copy_tree(options.work, options.revision)
    rooms = all_faults(options.work, options.seed, options.only)
    share = quotas(options.work, rooms, options.count)
    if options.list:
        for room, faults in rooms.items():
            for _, file, number, kind, line, _ in faults[:share[room]]:
                print(f"{file.relative_to(options.work)}:{number + 1}: {kind}: {line.strip()}")
        return 0
    tree = Tree(options)
    known = [json.loads(line) for line in options.results.read_text().split("\n") if line] if options.results.is_file() else []
    before = {r["key"]: re.split(", | hangs", r["noticed"] or "") for r in known}
    known = {r["key"]: r for r in known if r["state"] == tree.state or (options.again and r["noticed"] != "")}
    failing = tree.measure() if tree.prepare() else ["the copy does not build"]
    tree.learn()
    if failing:
        print("without any fault:", *failing, sep="\n  ", file=sys.stderr)
        return 2
    results = []
    for room, faults in rooms.items():
        tried = 0
        for fault in faults:
            if tried == share[room]:
                break
            key = f"{room}|{fault[5]}"
            if key not in known:
                start = time.monotonic()
                noticed = tree.try_fault(fault, before.get(key, ()))
                known[key] = {"key": key, "state": tree.state, "room": room, "kind": fault[3], "noticed": noticed,
                              "seconds": round(time.monotonic() - start, 2)}
                options.results.write_text("".join(json.dumps(r) + "\n" for r in known.values()))
            if known[key]["noticed"] is not None:
                tried += 1
                results.append({**known[key], "file": str(fault[1].relative_to(tree.path)), "line": fault[2] + 1,
                                "fault": fault[4].strip()})
                show(len(results), sum(share.values()), f"faults, {sum(bool(r['noticed']) for r in results)} noticed")
    return report(results, options.least)


if __name__ == "__main__":
    sys.exit(guarded(main))
