"""Which lines are shown."""
import argparse
import datetime
import fnmatch
import re

import records

UNITS = {"s": 1, "m": 60, "h": 3600, "d": 86400}
FORMATS = ("%Y-%m-%d %H:%M:%S.%f", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%d")


def moment(text):
    """A local time, a time of today, or so long ago ("10m"), as the header of a line has it."""
    now = datetime.datetime.now()
    match = re.fullmatch(r"(\d+)([smhd])", text)
    if match:
        try:
            return stamp(now - datetime.timedelta(seconds=int(match[1]) * UNITS[match[2]]))
        except OverflowError:
            return b""
    if re.match(r"\d\d?:", text):
        text = now.strftime("%Y-%m-%d ") + text
    for form in FORMATS:
        try:
            return stamp(datetime.datetime.strptime(text.replace("T", " "), form))
        except ValueError:
            pass
    raise argparse.ArgumentTypeError(
        "%r is not a time: 2026-11-22 04:13:00.250, parts of it from the left, 04:13 for today, or 10m for so long ago" % text)


def stamp(time):
    return (time.strftime("%Y-%m-%d %H:%M:%S.") + "%03d" % (time.microsecond // 1000)).encode()


def level(text):
    names = [name.decode() for name in records.LEVELS]
    if text.upper() in names:
        return names.index(text.upper())
    if text.isdigit() and int(text) < len(names):
        return int(text)
    raise argparse.ArgumentTypeError("%r is no level: %s or 0 to 3" % (text, ", ".join(names)))


def pattern(text):
    try:
        return re.compile(text.encode("utf-8", "surrogateescape"))
    except re.error as error:
        raise argparse.ArgumentTypeError("%r is no regular expression: %s" % (text, error)) from None


class Filter:
    def __init__(self, chosen):
        self.highest = chosen.level
        self.files = [re.compile(fnmatch.translate(glob).encode("utf-8", "surrogateescape")) for glob in chosen.file]
        self.texts = chosen.text
        self.since, self.until = chosen.since, chosen.until

    def passes(self, record):
        if record.time is None:  # no line of the library's: nothing is known of it but its text
            return not (self.highest is not None or self.files or self.since or self.until) and self.has_texts(record)
        if self.highest is not None and record.level not in records.LEVELS[:self.highest + 1]:
            return False
        if (self.since and record.time < self.since) or (self.until and record.time > self.until):
            return False
        if self.files and not any(glob.match(record.file) for glob in self.files):
            return False
        return self.has_texts(record)

    def has_texts(self, record):
        return all(text.search(record.text()) for text in self.texts)
