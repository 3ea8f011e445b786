"""Lines of a log: what the library writes, and what a hostile or damaged file may hold instead."""
import re

LEVELS = (b"DISABLE", b"ERR", b"DBG", b"INF")
HEADER = re.compile(rb"\[(\d{4,}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3})\]\[(DISABLE|ERR|DBG|INF|\?)\]\[FILE:([^\]]*)\]\[LINE:(-?\d+)\] ")
PIECE = 65536  # bytes read at a time of a line without an end
LONGEST = 1 << 20  # bytes kept of one line; the library's have 2048 at most


class Record:
    """One line of the library's, with the line feeds that the caller's text may have."""
    __slots__ = ("raw", "path", "time", "level", "file", "line", "start", "whole")

    def __init__(self, raw, path, header, start):
        self.raw = raw  # with its end
        self.path = path
        self.time, self.level, self.file, self.line = header.groups() if header else (None, None, None, None)
        self.start = start  # of the text
        self.whole = raw.endswith(b"\r\n")  # else it was cut

    def text(self):
        return self.raw[self.start:].rstrip(b"\r\n")

    def as_json(self):
        def plain(value):
            return value.decode("utf-8", "backslashreplace")
        if self.time is None:
            return {"path": self.path, "text": plain(self.text()), "header": False}
        return {"time": plain(self.time).replace(" ", "T"), "level": plain(self.level), "file": plain(self.file),
                "line": int(self.line), "text": plain(self.text()), "path": self.path, "cut": not self.whole}


class Splitter:
    """Makes records of what is read of one file. A line that does not begin with a header goes on with the one before."""

    def __init__(self, path):
        self.path = path
        self.pieces = []  # of the record that has begun
        self.size = 0
        self.line_begins = True

    def take(self, piece):
        """piece: a line with its feed, or a part of one. Result: the record that ended before it, or None."""
        done = None
        if self.line_begins and self.pieces and HEADER.match(piece):
            done = self.end()
        self.line_begins = piece.endswith(b"\n")
        if self.size < LONGEST:
            self.pieces.append(piece)
            self.size += len(piece)
        return done

    def is_whole(self):
        """Whether the record that has begun looks complete; more lines of its text may still come."""
        return bool(self.pieces) and self.pieces[-1].endswith(b"\r\n")

    def end(self):
        """Result: the record that has begun, or None."""
        if not self.pieces:
            return None
        raw = b"".join(self.pieces)
        self.pieces, self.size = [], 0
        header = HEADER.match(raw)
        return Record(raw, self.path, header, header.end() if header else 0)


def read(stream, path):
    """All records of a file that is not written any more."""
    splitter = Splitter(path)
    while True:
        piece = stream.readline(PIECE)
        if not piece:
            break
        record = splitter.take(piece)
        if record:
            yield record
    record = splitter.end()
    if record:
        yield record
