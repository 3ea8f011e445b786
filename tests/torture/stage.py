"""What the stages written in Python share: the form, progress, findings and the line of figures at the end."""
import atexit
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VYX_TORTURE_BUILD") or
                     pathlib.Path(os.environ.get("VYX_BUILD_DIR", TOP / "build")) / "release")
SHORT = "--full" not in sys.argv[1:]
FOLDER = pathlib.Path(tempfile.mkdtemp(prefix="vyx-torture-"))  # for all files, those of programs too
os.environ["TMPDIR"] = str(FOLDER)
atexit.register(shutil.rmtree, FOLDER, ignore_errors=True)
runs, findings = 0, []


def say(text):
    print(f"{time.strftime('%H:%M:%S')} {text}", file=sys.stderr, flush=True)


def check(good, what):
    """Counts a run, and a finding if it is not good."""
    global runs
    runs += 1
    if not good:
        findings.append(what)
        say(f"finding: {what}")
    return good


def program(name):
    """A program of the build; without it the stage cannot run."""
    path = BUILD / name
    if not path.exists():
        say(f"{path} is not built")
        print(json.dumps({"runs": 0, "findings": 0, "what": f"{name} is not built"}))
        sys.exit(77)
    return str(path)


def figures(name, command, limit, during=lambda process: None):
    """Runs a program that ends with a line of JSON and 0, or 1 and findings; `during` may disturb it. Its figures."""
    say(f"{name}: {' '.join(command)}")
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        try:
            during(process)
            output, errors = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            process.kill()
            output, errors = process.communicate()
    sys.stderr.write(errors[-4000:])
    try:
        found = json.loads(output.strip().splitlines()[-1])
    except (IndexError, ValueError):
        found = {}
    told = [line for line in errors.splitlines() if line.startswith("finding: ")]
    check(process.returncode == 0 and bool(found), f"{name}: status {process.returncode}: {'; '.join(told)[:500]}")
    say(f"{name}: {found}")
    return found


def end(what):
    print(json.dumps({"runs": runs, "findings": len(findings), "what": "; ".join(findings)[:1000] or what}))
    sys.exit(1 if findings else 0)
