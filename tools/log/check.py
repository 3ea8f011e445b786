"""--check: whether the files hold what the library wrote: in order, without gaps, no line cut."""
import datetime
import os
import zlib

import files
import records


def seconds_between(earlier, later):
    def time(text):
        return datetime.datetime.strptime(text.decode(), "%Y-%m-%d %H:%M:%S.%f")
    try:
        return (time(later) - time(earlier)).total_seconds()
    except ValueError:
        return None  # a month of 13


class Check:
    def __init__(self, tolerance, gap, on_finding):
        self.tolerance, self.gap, self.on_finding = tolerance, gap, on_finding
        self.lines = 0

    def finding(self, kind, path, line, text):
        self.on_finding({"kind": kind, "path": path, "line": line, "text": text})

    def numbers(self, found):
        """Files that are missing, and files of the same number."""
        folders = {}
        for file in found:
            if not file.saved and file.number:
                folders.setdefault(file.folder, {}).setdefault(file.number, []).append(file)
        for folder, numbers in sorted(folders.items()):
            missing = sorted(set(range(min(numbers), max(numbers))) - set(numbers)) if len(numbers) < 10000 else []
            for number in missing[:100]:
                self.finding("gap", os.path.join(folder, "vyx_log_%d.log" % number), 0, "file %d is missing" % number)
            if len(missing) > 100:
                self.finding("gap", folder, 0, "%d more files are missing" % (len(missing) - 100))
            for number, same in sorted(numbers.items()):
                if len(same) > 1:
                    self.finding("order", same[1].path, 0, "file %d is there %d times" % (number, len(same)))

    def times(self, path, number, before, now):
        """What the times of two lines in a row say."""
        passed = seconds_between(before, now) if before else 0
        if passed is None:
            self.finding("damage", path, number, "%s is no time" % now.decode())
        elif passed < -self.tolerance:
            self.finding("order", path, number, "%.3f s back to %s" % (-passed, now.decode()))
        elif self.gap is not None and passed > self.gap:
            self.finding("gap", path, number, "nothing for %.3f s before %s" % (passed, now.decode()))

    def file(self, file):
        number, before = 1, None  # the line in the file
        try:
            with file.open() as stream:
                for record in records.read(stream, file.path):
                    self.lines += 1
                    if record.time is None:
                        self.finding("damage", file.path, number, "no line of the library's")
                    elif not record.whole:
                        self.finding("cut", file.path, number, "the line is cut")
                    if record.time:
                        self.times(file.path, number, before, record.time)
                        before = record.time
                    number += max(1, record.raw.count(b"\n"))
        except (OSError, EOFError, zlib.error) as error:
            self.finding("unreadable", file.path, 0, files.explain(error, file.path) if isinstance(error, OSError) else
                         "the archive is damaged")
