"""vyx-log: the log files of libvyx as one stream."""
import argparse
import json
import os
import sys

import check
import files
import filters
import finish
import stream

FINE, FOUND, USAGE = 0, 1, 2
# A line holds a stranger's text: on a terminal no byte of it is a command.
HARMLESS = bytes.maketrans(bytes([*range(9), *range(11, 32), 127]), b"?" * 31)


def seconds(text):
    try:
        value = float(text)
    except ValueError:
        value = -1
    if not 0 <= value < 1e12:
        raise argparse.ArgumentTypeError("%r is no number of seconds" % text)
    return value


def options():
    parser = argparse.ArgumentParser(
        prog="vyx-log", allow_abbrev=False,
        description="Shows log files of libvyx as one stream, merged by time; checks, finishes and archives them.",
        epilog="Exit status: 0 fine; 1 --check found something, or a file could not be read or finished; 2 wrong usage.")
    parser.add_argument("paths", nargs="*", default=["vyxlog"], metavar="PATH",
                        help="directories with log files, and files (default: vyxlog)")
    what = parser.add_argument_group("what is done, if not shown").add_mutually_exclusive_group()
    what.add_argument("-f", "--follow", action="store_true", help="go on with what is written, across rotations, until Ctrl-C")
    what.add_argument("--check", action="store_true", help="report lines out of order, gaps and cut lines")
    what.add_argument("--finish", action="store_true",
                      help="of a run that is over: give its files readable modes and names that no later run touches")
    what.add_argument("--archive", action="store_true", help="compress finished files, with such names as well")
    which = parser.add_argument_group("which lines")
    which.add_argument("-l", "--level", type=filters.level, help="this level and those below: DISABLE, ERR, DBG, INF or 0 to 3")
    which.add_argument("--file", action="append", default=[], metavar="GLOB", help="logged from such a source file")
    which.add_argument("-t", "--text", action="append", default=[], type=filters.pattern, metavar="REGEX",
                       help="with such a text; of several all")
    which.add_argument("--since", type=filters.moment, metavar="TIME",
                       help="from 2026-11-22 04:13:00.250, parts of it from the left, 04:13 of today, or 10m ago")
    which.add_argument("--until", type=filters.moment, metavar="TIME", help="up to that time")
    how = parser.add_argument_group("how")
    how.add_argument("-H", "--with-path", action="store_true", help="print the file's path before each line")
    how.add_argument("--json", action="store_true", help="print one JSON object a line")
    how.add_argument("--chmod", action="store_true", help="first let the owner read the files, which the library does not")
    how.add_argument("--force", action="store_true", help="finish and archive also where it cannot be told who writes a file")
    how.add_argument("--tolerance", type=seconds, default=1.0, metavar="SECONDS",
                     help="with --check: how far back times may go (default: 1; lines of several threads do by milliseconds)")
    how.add_argument("--gap", type=seconds, metavar="SECONDS", help="with --check: also report so long a silence")
    parser.add_argument("--version", action="version", version="vyx-log " + globals().get("VERSION", "of the source tree"))
    return parser.parse_args()


class Tool:
    def __init__(self, chosen):
        self.chosen = chosen
        self.status = FINE
        self.out = sys.stdout.buffer
        self.terminal = self.out.isatty()

    def failed(self, path, error):
        self.status = FOUND
        files.say("%s: %s" % (path, files.explain(error, path) if isinstance(error, OSError) else "the archive is damaged"))

    def print_json(self, value):
        self.out.write(json.dumps(value).encode() + b"\n")

    def print_record(self, record):
        if self.chosen.json:
            self.print_json(record.as_json())
            return
        if self.chosen.with_path:
            self.out.write(os.fsencode(record.path) + b": ")
        line = record.raw.rstrip(b"\r\n")
        self.out.write((line.translate(HARMLESS) if self.terminal else line) + b"\n")

    def show(self, found):
        wanted = filters.Filter(self.chosen)
        if self.chosen.follow:
            source = stream.Follower(self.chosen.paths, self.failed).records()
        else:
            source = stream.merged(found, self.failed)
            if not found:
                files.say("no log files in " + ", ".join(self.chosen.paths))
        for record in source:
            if record is None:
                self.out.flush()
            elif wanted.passes(record):
                self.print_record(record)

    def check(self, found):
        def finding(what):
            self.status = FOUND
            if self.chosen.json:
                self.print_json(what)
            else:
                place = "%s:%d" % (what["path"], what["line"]) if what["line"] else what["path"]
                self.out.write(os.fsencode("%s: %s: %s\n" % (place, what["kind"], what["text"])))
        checker = check.Check(self.chosen.tolerance, self.chosen.gap, finding)
        checker.numbers(found)
        for number, file in enumerate(found):
            files.progress("%d of %d files" % (number, len(found)))
            checker.file(file)
        files.progress("")
        files.say("%d lines in %d files" % (checker.lines, len(found)))

    def change(self, found, act):
        """act(file, force) gives a file its new name."""
        for number, file in enumerate(found):
            files.progress("%d of %d files" % (number, len(found)))
            try:
                new = act(file, self.chosen.force)
            except OSError as error:
                files.progress("")
                self.failed(file.path, error)
                continue
            if self.chosen.json:
                self.print_json({"path": file.path, "now": new})
            else:
                self.out.write(os.fsencode("%s -> %s\n" % (file.path, new)))
        files.progress("")

    def run(self):
        chosen = self.chosen
        try:
            found = files.find(chosen.paths)
        except OSError as error:
            files.say("%s: %s" % (error.filename, error.strerror))
            if not (isinstance(error, FileNotFoundError) and (chosen.follow or chosen.finish or chosen.archive)):
                return USAGE
            found = []  # it may still come, or nothing is to be done before the first run
        if chosen.chmod:
            for file in found:
                try:
                    files.let_owner_read(file.path)
                except OSError as error:
                    self.failed(file.path, error)
        if chosen.check:
            self.check(found)
        elif chosen.finish:
            self.change([file for file in found if file.number and not file.saved and not file.packed], finish.finish)
        elif chosen.archive:
            self.change([file for file in found if file.number and not file.working and not file.packed], finish.archive)
        else:
            self.show(found)
        self.out.flush()
        return self.status


def main():
    try:
        return Tool(options()).run()
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)  # what is left in the buffer goes nowhere
        return FINE
    except KeyboardInterrupt:
        try:
            sys.stdout.buffer.flush()
        except BrokenPipeError:
            pass
        return 130


if __name__ == "__main__":
    sys.exit(main())
