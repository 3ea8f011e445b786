"""One stream of many files: merged by time, and followed."""
import heapq
import os
import time
import zlib

import files
import records

PAUSE = 0.2  # seconds between looks for more
TURN = 1 << 20  # bytes taken of one file before the others have their turn


class Ordered:
    """The records of one file with the times under which they are merged: never earlier than those before, so that each file
    keeps its order whatever clocks and threads did."""

    def __init__(self, file, number, on_error):
        self.file, self.number, self.on_error = file, number, on_error
        self.stream, self.source = None, None
        self.key = b""
        self.done = 0  # records handed out

    def next(self):
        """Result: the next record, or None at the end. The file is not kept open before its first one is due."""
        try:
            if self.source is None:
                self.stream = self.file.open()
                self.source = records.read(self.stream, self.file.path)
                for _ in range(self.done):
                    next(self.source, None)
            record = next(self.source, None)
        except (OSError, EOFError, zlib.error) as error:  # gone meanwhile, or a damaged archive
            self.on_error(self.file.path, error)
            record = None
        if record is None:
            self.put_aside()
            return None
        self.done += 1
        self.key = max(self.key, record.time or b"")
        return record

    def put_aside(self):
        self.source = None
        if self.stream is not None:
            self.stream.close()
            self.stream = None


def merged(found, on_error):
    """All records by time; of the same time in the order of the files."""
    heap = []
    for number, file in enumerate(found):
        ordered = Ordered(file, number, on_error)
        first = ordered.next()
        ordered.put_aside()  # there may be thousands
        if first is not None:
            heap.append((ordered.key, number, first, ordered))
    heapq.heapify(heap)
    while heap:
        _, number, record, ordered = heapq.heappop(heap)
        yield record
        following = ordered.next()
        if following is not None:
            heapq.heappush(heap, (ordered.key, number, following, ordered))


class Followed:
    """One file that may still grow, be renamed, emptied or removed."""

    def __init__(self, file, stream):
        self.file, self.stream = file, stream
        self.splitter = records.Splitter(file.path)
        self.position = 0
        self.key = b""
        self.rest = b""  # of a line that is not complete yet
        self.quiet = 0  # looks in a row that found nothing new

    def is_now(self, file):
        """It may have another name by now."""
        self.file, self.splitter.path = file, file.path

    def more(self):
        """Result: records that are complete now, with their times for the order."""
        found = []
        if not self.file.packed and os.fstat(self.stream.fileno()).st_size < self.position:
            found += self.keep(self.rest_as_record())
            self.stream.seek(0)  # a new run has emptied it
            self.position = 0
        data = self.stream.read(TURN)
        self.quiet = 0 if data else self.quiet + 1
        self.position += len(data)
        lines = split(self.rest + data)
        self.rest = b""
        if lines and not lines[-1].endswith(b"\n") and len(lines[-1]) < records.PIECE:
            self.rest = lines.pop()
        for line in lines:
            found += self.keep(self.splitter.take(line))
        if self.quiet and self.splitter.is_whole() and (not self.rest or records.HEADER.match(self.rest)):
            found += self.keep(self.splitter.end())  # a line's text could go on, but then it comes at once
        return found

    def rest_as_record(self):
        if self.rest:
            self.splitter.take(self.rest)
            self.rest = b""
        return self.splitter.end()

    def keep(self, record):
        if record is None:
            return []
        self.key = max(self.key, record.time or b"")
        return [(self.key, record)]


def split(data):
    """At line feeds alone."""
    lines = data.split(b"\n")
    last = lines.pop()
    return [line + b"\n" for line in lines] + ([last] if last else [])


def end_of_lines(stream):
    """Where the last whole line of a file ends that is being written."""
    end = stream.seek(0, os.SEEK_END)
    while end > 0:
        begin = max(0, end - records.PIECE)
        stream.seek(begin)
        found = stream.read(end - begin).rfind(b"\n")
        if found >= 0:
            return begin + found + 1
        end = begin
    return 0


def mark(status):
    """Tells a file from another one that has got its inode."""
    return status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns


class Follower:
    def __init__(self, paths, on_error):
        self.paths, self.on_error = paths, on_error
        self.open = {}  # (device, inode): Followed
        self.done = set()  # marks of files that are read and will not grow
        self.refused = set()  # paths that could not be opened, told once

    def backlog(self):
        """What is there already, merged. Following begins behind it."""
        found = self.present()
        for file in found:
            try:
                status = os.stat(file.path)
                identity = (status.st_dev, status.st_ino)
                if file.is_done:
                    self.done.add(mark(status))
                    continue
                followed = Followed(file, file.open())
                file.limit = followed.position = end_of_lines(followed.stream)
                followed.stream.seek(file.limit)
                self.open[identity] = followed
            except OSError:
                pass  # merging tells it
        return merged(found, self.failed)

    def failed(self, path, error):
        """Once for each path; what has gone meanwhile is no failure."""
        if not isinstance(error, FileNotFoundError) and path not in self.refused:
            self.refused.add(path)
            self.on_error(path, error)

    def look(self):
        """One round. Result: what is new, by time."""
        found = []
        seen = self.find_new()
        for identity, followed in list(self.open.items()):
            try:
                new = followed.more()
            except (OSError, EOFError, zlib.error) as error:
                self.failed(followed.file.path, error)
                new, seen = [], seen - {identity}
            found += new
            if new or (identity in seen and not followed.file.is_done):
                continue
            found += followed.keep(followed.rest_as_record())  # it was removed, or is full, and all of it is read
            if identity in seen:
                self.done.add(mark(os.fstat(followed.stream.fileno())))
            followed.stream.close()
            del self.open[identity]
        found.sort(key=lambda pair: pair[0])
        return [record for _, record in found]

    def find_new(self):
        """Opens what is new. Result: all that is there, as (device, inode)."""
        seen, marks = set(), set()
        for file in self.present():
            try:
                status = os.stat(file.path)
                identity = (status.st_dev, status.st_ino)
                marks.add(mark(status))
                if identity not in self.open and mark(status) not in self.done:
                    self.open[identity] = Followed(file, file.open())
                if identity in self.open:
                    self.open[identity].is_now(file)
                seen.add(identity)
                self.refused.discard(file.path)
            except OSError as error:
                self.failed(file.path, error)
        self.done &= marks
        return seen

    def present(self):
        found = []
        for path in self.paths:
            try:
                found += files.find([path])
            except OSError:
                pass  # not there yet, or not there for a moment
        return found

    def records(self):
        """Without end."""
        yield from self.backlog()
        while True:
            new = self.look()
            yield from new
            if not new:
                yield None  # nothing for the moment: what is written so far can be flushed
                time.sleep(PAUSE)
