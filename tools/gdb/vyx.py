"""gdb: what libvyx does in the program, live or in a core.

Loaded by gdb with the library, beside which it lies under the name libvyx.so.VERSION-gdb.py, where gdb may do that
("set auto-load safe-path"); otherwise by "source". "help vyx" lists the commands. They need no debug information: the
library says in its ELF notes where its registries are. Values of the public types are printed in one line each.
"""

import datetime
import re
import socket
import struct
import time

import gdb
import gdb.printing

PAGE = 4096
FORMAT = 1
NEVER = (1 << 63) - 1  # a deadline that is none
MOST = 100000  # records of a list that are followed


# ---- Memory and description

def memory(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size))


class Description:
    """The rows of the library's tables. An object for each stop of the program: it caches nothing that changes."""

    def __init__(self):
        self.rows = {}
        base = self._image()
        head = memory(base, 64)
        self.word = {1: 4, 2: 8}[head[4]]
        self.order = {1: "little", 2: "big"}[head[5]]
        wide = self.word == 8
        at, count = self._number(head[32 if wide else 28:], self.word), self._number(head[56 if wide else 44:], 2)
        size = 56 if wide else 32
        entries = [memory(base + at + i * size, size) for i in range(min(count, 128))]
        segments = [(self._number(e, 4), self._number(e[8 if wide else 4:], self.word),
                     self._number(e[16 if wide else 8:], self.word), self._number(e[40 if wide else 20:], self.word))
                    for e in entries]
        base -= next((address for kind, offset, address, _ in segments if kind == 1 and offset == 0), 0)
        for kind, _, address, size in segments:
            if kind == 4:
                self._notes(base + address, memory(base + address, min(size, 65536)))
        if not self.rows:
            raise gdb.GdbError("This libvyx does not describe itself.")

    @staticmethod
    def _image():
        """The ELF header below a function of the library."""
        try:
            address = int(gdb.parse_and_eval("(unsigned long) &VYX_Init"))
        except gdb.error:
            raise gdb.GdbError("The program has no libvyx.") from None
        address -= address % PAGE
        for _ in range(65536):
            try:
                if memory(address, 4) == b"\x7fELF":
                    return address
            except gdb.MemoryError:
                break
            address -= PAGE
        raise gdb.GdbError("libvyx cannot be found in the program's memory.")

    def _number(self, data, size):
        return int.from_bytes(data[:size], self.order)

    def _notes(self, address, data):
        at = 0
        while at + 12 <= len(data):
            name, size, kind = (self._number(data[at + i:], 4) for i in (0, 4, 8))
            content = at + 12 + (name + 3) // 4 * 4
            if data[at + 12:at + 16] == b"VYX\0" and kind == 1 and content + 4 <= len(data):
                distance = int.from_bytes(data[content:content + 4], self.order, signed=True)
                self._table(address + content + distance)
            at = content + (size + 3) // 4 * 4

    def _table(self, address):
        head = memory(address, 16)
        version, word, size, count = (self._number(head[i:], 4) for i in (0, 4, 8, 12))
        if version != FORMAT or word != self.word or count > 1024 or not 40 <= size <= 256:
            raise gdb.GdbError(f"This libvyx describes itself in format {version}; this script knows format {FORMAT}.")
        data = memory(address + 16 + word, size * count)
        for at in range(0, len(data), size):
            name = data[at:at + 28].split(b"\0")[0].decode("ascii", "replace")
            self.rows[name] = tuple(self._number(data[at + i:], 4) for i in (28, 32, 36)) + (
                self._number(data[at + 40:], word),)

    def row(self, name):
        """(offset, size, count, address)"""
        if name not in self.rows:
            raise gdb.GdbError(f'This libvyx does not describe "{name}": it is of another version than this script.')
        return self.rows[name]

    def has(self, name):
        return name in self.rows

    def number(self, address, size, signed=False):
        return int.from_bytes(memory(address, size), self.order, signed=signed)

    def value(self, name):
        _, size, _, address = self.row(name)
        return self.number(address, min(size, 8))

    def entries(self, registry):
        _, size, count, address = self.row(registry)
        return [Record(self, registry, address + i * size) for i in range(min(count, 4096))]

    def chain(self, record, first):
        found = []
        while first != 0 and len(found) < MOST:
            found.append(Record(self, record, first))
            first = found[-1].get("next")
        return found

    def listed(self, registry):
        return self.chain(registry, self.value(registry)) if self.has(registry) else []


class Record:
    def __init__(self, description, kind, address):
        self.description, self.kind, self.address = description, kind, address

    def place(self, field):
        return self.address + self.description.row(f"{self.kind}.{field}")[0]

    def get(self, field, signed=False):
        return self.description.number(self.place(field), self.description.row(f"{self.kind}.{field}")[1], signed)

    def bits(self, field):
        return bin(int.from_bytes(memory(self.place(field), self.description.row(f"{self.kind}.{field}")[1]),
                                  "little")).count("1")

    def text(self, field):
        data = memory(self.place(field), self.description.row(f"{self.kind}.{field}")[1])
        return data.split(b"\0")[0].decode("utf-8", "replace")


def function(address):
    """The function at an address, or the address."""
    text = gdb.execute(f"info symbol {address}", to_string=True) if address else ""
    found = re.match(r"(.*?)( \+ \d+)? in section", text)
    return found.group(1) if found else hex(address)


def threads():
    """System number -> gdb's thread."""
    return {thread.ptid[1] or thread.ptid[2]: thread for thread in gdb.selected_inferior().threads()}


def thread_text(number, known):
    thread = known.get(number)
    if thread is None:
        return f"thread {number}" if number else "?"
    return f"thread {thread.num}" + (f' "{thread.name}"' if thread.name else f" ({number})")


def show(heads, rows, empty):
    if not rows:
        print(empty)
        return
    rows = [heads] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(heads))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


# ---- Locks

class Locks:
    """All locks, who holds them, and who waits for which."""

    def __init__(self, description):
        self.description = description
        self.threads = threads()
        ranks = {row[0]: (row[1], name[5:]) for name, row in description.rows.items() if name.startswith("rank:")}
        state, owner = description.row("mutex.state")[0], description.row("mutex.owner")[0]
        self.locks = {}  # address of the mutex -> (level, name)
        for name, place in self._all():
            level, rank = ranks.get(description.number(place + description.row("lock.rank")[0], 1), (0, "?"))
            self.locks[place + description.row("lock.mutex")[0]] = (level, rank + name)
        self.waiting = self._waiting()  # system number of a thread -> address of the mutex
        self.state = {address: description.number(address + state, 4)
                      for address in set(self.locks) | set(self.waiting.values())}
        self.owner = {address: description.number(address + owner, 4) for address in self.state}

    def _all(self):
        """(what follows the rank's name, address) of each lock."""
        d = self.description
        found = [("", row[3]) for name, row in d.rows.items() if name.startswith("lock:")]
        if d.has("pool"):
            used = d.value("pool_used")
            found += [(f" {i}", pool.place("lock")) for i, pool in enumerate(d.entries("pool")) if used >> i & 1]
        found += [(f" {pool.get('number')}", pool.place("lock")) for pool in d.listed("flex")]
        found += [(f" {event.address:#x}", event.place("lock")) for event in d.listed("event")]
        if d.has("queue"):
            found += [(f" {i}", queue.place(lock)) for i, queue in enumerate(d.entries("queue"))
                      for lock in ("lock", "receive_lock")]
        if d.has("log"):
            found += [("", d.entries("log")[0].place(lock)) for lock in ("service_lock", "ring_lock", "files_lock")]
        return found

    def _waiting(self):
        """Threads that sleep in the system's call until a mutex is free. Other sleeps there are told by their operation."""
        found = {}
        selected = gdb.selected_thread()
        for number, thread in self.threads.items():
            try:
                thread.switch()
                frame = gdb.newest_frame()
                call, address, operation = self._call(frame)
            except (gdb.error, ValueError):
                continue
            if call and operation & 127 == 0:
                found[number] = address
        if selected is not None:
            selected.switch()
        return found

    @staticmethod
    def _call(frame):
        name = frame.architecture().name()
        register = lambda which, bits: int(frame.read_register(which)) & ((1 << bits) - 1)
        if name == "i386:x86-64":
            return register("orig_rax", 64) == 202, register("rdi", 64), register("rsi", 32)
        if name.startswith("i386"):
            return register("orig_eax", 32) in (240, 422), register("ebx", 32), register("ecx", 32)
        return False, 0, 0

    def name(self, address):
        return self.locks[address][1] if address in self.locks else f"application's mutex {address:#x}"

    def holder(self, address):
        return thread_text(self.owner[address], self.threads)

    def cycle(self):
        """Threads, each waiting for a mutex that the next one holds, the last one for one of the first's."""
        for first in self.waiting:
            way, number = [], first
            while number in self.waiting and number not in way:
                way.append(number)
                number = self.owner[self.waiting[number]]
            if number == first:
                return way
        return []

    def show(self):
        busy = [address for address in self.state if self.state[address] != 0]
        busy.sort(key=lambda address: (self.locks.get(address, (0, ""))[0], address))
        rows = []
        for address in busy:
            waiting = [thread_text(n, self.threads) for n, mutex in self.waiting.items() if mutex == address]
            rows.append((self.locks[address][0] if address in self.locks else "-", self.name(address),
                         self.holder(address), ", ".join(waiting) or "-"))
        show(("LEVEL", "LOCK", "HELD BY", "WAITED FOR BY"), rows, "No lock is held.")
        print(f"{len(self.locks) - sum(address in self.locks for address in busy)} locks of the library are free.")
        way = self.cycle()
        if way:
            print("Deadlock: " + "; ".join(
                f"{thread_text(n, self.threads)} waits for {self.name(self.waiting[n])}, held by "
                f"{self.holder(self.waiting[n])}" for n in way) + ".")
        elif not self.waiting:
            print("No thread waits for a lock.")


def warn_if_held(description, place, what):
    """The program may have been stopped in the middle of a change."""
    if description.number(place + description.row("lock.mutex")[0] + description.row("mutex.state")[0], 4) != 0:
        print(f"({what} is just being changed: its lock is held)")


# ---- Commands

COMMANDS = []


def command(function_):
    """A sub-command of vyx, with the function's name and documentation."""
    name = function_.__name__[5:]
    COMMANDS.append(type(name, (gdb.Command,), {
        "__doc__": function_.__doc__,
        "__init__": lambda self: super(type(self), self).__init__(f"vyx {name}", gdb.COMMAND_STATUS),
        "invoke": lambda self, argument, tty: function_(Description()),
    }))


@command
def show_pools(d):
    """Fixed and flexible thread pools: workers, items, who waits."""
    rows = []
    if d.has("pool"):
        used = d.value("pool_used")
        for i, pool in enumerate(d.entries("pool")):
            if used >> i & 1:
                warn_if_held(d, pool.place("lock"), f"pool {i}")
                rows.append((f"pool {i}", pool.get("workers"), pool.get("most"),
                             pool.get("workers") - pool.bits("idle"), pool.bits("idle"), pool.get("waiting"),
                             pool.get("items"), "-"))
    for pool in d.listed("flex"):
        warn_if_held(d, pool.place("lock"), f"flexible pool {pool.get('number')}")
        rows.append((f"flexible {pool.get('number')}", pool.get("workers"), pool.get("most"),
                     pool.get("workers") - pool.get("idle"), pool.get("idle"), pool.get("queued"), pool.get("items"),
                     function(pool.get("handler"))))
    show(("POOL", "WORKERS", "MOST", "BUSY", "IDLE", "WAITING", "ITEMS", "HANDLER"), rows, "No pools.")


@command
def show_queues(d):
    """Message queues: messages, bytes, the highest priority, who waits for a message."""
    rows, known = [], threads()
    closed = d.row("queue_closed")[3] if d.has("queue") else 0
    for i, queue in enumerate(d.entries("queue") if d.has("queue") else []):
        if queue.get("newest") == closed:
            continue
        warn_if_held(d, queue.place("lock"), f"queue {i}")
        new = d.chain("message", queue.get("newest"))
        highest = [message.get("priority", True) for message in new]
        if queue.get("sorted") > 0:
            index = Record(d, "queue_index", queue.get("index"))
            bucket = index.place("buckets") + (index.get("used") - 1) * d.row("queue_bucket")[1]
            highest.append(Record(d, "queue_bucket", bucket).get("highest", True))
        receivers = [thread_text(r.get("thread"), known) + waited(r.get("since"))
                     for r in d.chain("receiver", queue.get("receivers"))]
        rows.append((i, queue.get("sorted") + len(new), queue.get("sorted_bytes") + sum(m.get("bytes") for m in new),
                     max(highest, default="-"), ", ".join(receivers) or "-"))
    show(("QUEUE", "MESSAGES", "BYTES", "HIGHEST", "RECEIVERS THAT WAIT"), rows, "No queues.")


@command
def show_timers(d):
    """Timers: period, runs, lateness of the last run, routine."""
    rows = []
    for i, entry in enumerate(d.entries("timer") if d.has("timer") else []):
        if entry.get("used") == 0:
            continue
        timer = Record(d, "timer_record", entry.get("record"))
        rows.append((i, "-", "-", "-", "-") if timer.address == 0 else
                    (i, f"{timer.get('period')} ms", timer.get("runs"), f"{timer.get('late')} us",
                     function(timer.get("routine"))))
    show(("TIMER", "PERIOD", "RUNS", "LATE", "ROUTINE"), rows, "No timers.")


def is_live():
    """Whether the program runs on this machine, and has not left a core only."""
    connection = getattr(gdb.selected_inferior(), "connection", None)
    return connection is not None and connection.type == "native"


def waited(since):
    """How long it is since a moment in milliseconds of the wall clock, modulo 2^32. Of a core that is not known."""
    passed = int(time.time() * 1000) - since & 0xFFFFFFFF
    return f" for {passed if passed < 1 << 31 else 0} ms" if is_live() else ""


def bound_to(event):
    pipe = event.description.number(event.place("pipe"), 4, True)
    return f"pipe {pipe}" if pipe != -1 else f"socket {event.get('socket', True)}"


def awaited_events(wait):
    """What the events of a wait are bound to; null ones are none."""
    d = wait.description
    data = memory(wait.get("events"), d.word * max(0, min(wait.get("count", True), 1024)))
    found = [event for at in range(0, len(data), d.word) if (event := int.from_bytes(data[at:at + d.word], d.order))]
    more = f" and {len(found) - 4} more" if len(found) > 4 else ""
    return (", ".join(bound_to(Record(d, "event", event)) for event in found[:4]) or "nothing") + more


def bounded_waits(d):
    """(kind, on what, number of the thread, deadline in microseconds, whether that is of the wall clock)"""
    micros = d.row("deadline.micros")[0]

    def deadline(wait):
        return d.number(wait.place("deadline") + micros, 8, True)
    for wait in d.listed("sem_wait"):
        yield ("semaphore", Record(d, "semaphore", wait.get("semaphore")).text("name"), wait.get("thread"),
               deadline(wait), True)
    for wait in d.listed("cond_wait"):
        yield "condition", hex(wait.get("condition")), wait.get("thread"), deadline(wait), True
    for i, queue in enumerate(d.entries("queue") if d.has("queue") else []):
        for receiver in d.chain("receiver", queue.get("receivers")):
            if deadline(receiver) != NEVER:
                yield "message", f"queue {i}", receiver.get("thread"), deadline(receiver), True
    for waiter in d.listed("event_waiter"):
        if waiter.get("wait") != 0:
            wait = Record(d, "event_wait", waiter.get("wait"))
            yield "event", awaited_events(wait), waiter.get("thread"), deadline(wait), False


@command
def show_waits(d):
    """Bounded waits: who waits for what, how much is left, until when."""
    rows, known = [], threads()
    for kind, what, thread, deadline, wall in bounded_waits(d):
        left = deadline - int((time.time() if wall else time.monotonic()) * 1e6)
        until = deadline if wall else int(time.time() * 1e6) + left
        rows.append((kind, what, thread_text(thread, known), f"{max(left, 0) // 1000} ms" if is_live() else "-",
                     utc(until) if wall or is_live() else "-"))
    show(("KIND", "ON", "THREAD", "LEFT", "UNTIL"), rows, "No bounded waits.")


@command
def show_events(d):
    """Events: pipe or socket, and what the socket was asked for."""
    rows = []
    for event in d.listed("event"):
        pipe = d.number(event.place("pipe"), 4, True)
        rows.append((hex(event.address), bound_to(event),
                     "-" if pipe != -1 else network_events(event.get("asked")),
                     "-" if pipe != -1 else network_events(event.get("found"))))
    show(("EVENT", "BOUND TO", "ASKED", "FOUND"), rows, "No events.")


@command
def show_log(d):
    """The log service: level, targets, lines, ring, file."""
    if not d.has("log"):
        print("No log.")
        return
    log = d.entries("log")[0]
    warn_if_held(d, log.place("ring_lock"), "the ring")
    waiting = log.get("put") - log.get("done") & 0xFFFFFFFF
    size = d.row("log_ring")[1]
    used = size - log.get("free") if log.get("memory") else 0
    names = [target.text("name") for target in d.entries("log_target")]
    targets = "+".join(name for bit, name in enumerate(names) if log.get("targets") >> bit & 1)
    print(f"level {log.get('level')}, targets {targets or 'none'}")
    print(f"{log.get('written') + waiting} lines queued, {log.get('written')} written, {waiting} waiting, "
          f"{log.get('refused')} refused")
    print(f"{used} of {size} bytes of the ring are taken")
    if log.get("file", True) != -1:
        print(f"file {log.text('file_folder')}vyx_log_{log.get('file_index', True) + 1}_w.log, "
              f"at most {log.get('file_limit')} bytes")


@command
def show_locks(d):
    """The library's locks in the order of their ranks: who holds them, who waits for them, and a deadlock if there is one.

    Who waits is told on x86 only. Mutexes of the application count where a thread waits for one."""
    Locks(d).show()


class Vyx(gdb.Command):
    """What libvyx does in the program."""

    def __init__(self):
        super().__init__("vyx", gdb.COMMAND_STATUS, prefix=True)


# ---- Printers of public types

def utc(micros):
    try:
        moment = datetime.datetime(1970, 1, 1) + datetime.timedelta(microseconds=micros)
    except OverflowError:
        return f"{micros} us"
    return moment.isoformat(" ", "milliseconds") + " UTC"


def network_events(bits):
    names = {1: "read", 2: "write", 8: "accept", 16: "connect", 32: "close"}
    return "+".join(name for bit, name in names.items() if bits & bit) or "none"


def octets(value, count):
    return bytes(int(value[i]) & 255 for i in range(count))


def address_text(family, data, port):
    if family == socket.AF_INET:
        return f"{socket.inet_ntop(family, data[:4])}:{port}"
    if family == socket.AF_INET6:
        return f"[{socket.inet_ntop(family, data[:16])}]:{port}"
    return f"no address (family {family})"


def print_address(value):
    data = bytes(gdb.selected_inferior().read_memory(int(value.address), 28)) if value.address else b""
    family = int(value["sa"]["sa_family"])
    if len(data) < 28 or family not in (socket.AF_INET, socket.AF_INET6):
        return address_text(family, b"", 0) if family not in (socket.AF_INET, socket.AF_INET6) else "an address"
    return address_text(family, data[4:] if family == socket.AF_INET else data[8:], struct.unpack(">H", data[2:4])[0])


def print_message(value):
    length = int(value["iDataLen"])
    shown = octets(value["szData"], max(0, min(length, 40)))
    return (f"message of type {int(value['iMsgType'])}, priority {int(value['iPriority'])}, {length} bytes: "
            f"{shown!r}{'...' if length > 40 else ''}")


def print_time(value):
    part = {name: int(value[name]) for name in
            ("tm_usec", "tm_sec", "tm_min", "tm_hour", "tm_mday", "tm_mon", "tm_year", "tm_gmtoff")}
    east = abs(part["tm_gmtoff"]) // 60
    return (f"{part['tm_year'] + 1900:04d}-{part['tm_mon'] + 1:02d}-{part['tm_mday']:02d} "
            f"{part['tm_hour']:02d}:{part['tm_min']:02d}:{part['tm_sec']:02d}.{part['tm_usec']:06d} "
            f"{'-' if part['tm_gmtoff'] < 0 else '+'}{east // 60:02d}:{east % 60:02d}")


def print_file(value):
    kinds = {512: "file", 256: "directory", 128: "block device", 64: "link", 32: "pipe", 16: "socket",
             1: "character device"}
    return (f"{kinds.get(int(value['type']), 'unknown kind')}, {int(value['size'])} bytes, "
            f"permissions {int(value['perm']):#x}, owner {int(value['uid'])}:{int(value['gid'])}")


def print_adapter(value):
    hardware = octets(value["byAddr"], min(int(value["nAddrLen"]), 8))
    return f"adapter {value['szName'].string()}, index {int(value['nIndex'])}, {hardware.hex(':') or 'no address'}"


def print_network(value):
    return f"{network_events(int(value['lNetworkEvents']))}, connect error {int(value['iErrorCode'][4])}"


def print_info(value):
    return (f"{print_address(value['struAddr'])}, socket type {int(value['iSockType'])}, "
            f"protocol {int(value['iProtocol'])}")


def print_ip6(value):
    parts = (socket.inet_ntop(socket.AF_INET6, octets(value[name], 16)) for name in ("byAddr", "byMask"))
    return " mask ".join(parts)


def print_table(value):
    return f"hash table of {int(value['size'])} slots, {int(value['filled'])} filled"


def print_msgq(value):
    if not int(value["m_pQueue"]):
        return "no message queue"
    # Programs rarely have the type. In LLVM's C++ library: four pointers of the map of blocks, the first item's place, the
    # size. In the GNU C++ library: the map of blocks and its size; then for the beginning and for the end the place, the
    # block's limits, and where it is in the map.
    words = value["m_pQueue"].cast(gdb.lookup_type("char").pointer().pointer())
    if "std::__1::" in str(value["m_pQueue"].type):
        return f"message queue of {int(words[5])} blocks"
    _, _, place, first, limit, node, end, end_first, _, end_node = (int(words[i]) for i in range(10))
    size = words.type.sizeof
    length = ((end_node - node) // size * (limit - first) + end - end_first - (place - first)) // size
    return f"message queue of {length} blocks"


def print_mutex(value):
    holder = int(value["m_hMutex"]["__data"]["__owner"])
    return f"mutex held by {thread_text(holder, threads())}" if holder else "free mutex"


def handle(kind, text):
    """For a pointer to a record that the library does not show."""
    def show_handle(value):
        address = int(value)
        if address == 0:
            return "none"
        try:
            return f"{text(Record(Description(), kind, address))} ({address:#x})"
        except (gdb.error, gdb.GdbError):
            return hex(address)
    return show_handle


def entry(record):
    _, size, _, address = record.description.row(record.kind)
    return (record.address - address) // size


HANDLES = {
    "VYX_SEM_S": handle("semaphore", lambda r: f"semaphore {r.text('name')}, {r.get('waits')} bounded waits"),
    "VYX_EVENT_T": handle("event", lambda r: "event on " + bound_to(r)),
    "THREAD_POOL_T": handle("pool", lambda r: f"pool {entry(r)}, {r.get('workers')} workers"),
    "VYX_MQ_INTER": handle("queue", lambda r: f"queue {entry(r)}"),
}

RECORDS = {
    "VYX_MSG_BLOCK_T": print_message,
    "VYX_NETWORKEVENTS_T": print_network,
    "VYX_ADDR_T": print_address,
    "VYX_ADDR_EXP_T": lambda v: address_text(int(v["nFamily"]), octets(v["byAddr"], 16), int(v["nPort"])),
    "VYX_ADDRESS_INFO_T": print_info,
    "VYX_IPADDR_STRING": lambda v: f"{v['szAddr'].string()} mask {v['szMask'].string()}",
    "VYX_IP6ADDR_ENTRY": print_ip6,
    "VYX_ADAPTER_INFO": print_adapter,
    "VYX_FINFO_T": print_file,
    "_FILE_FIND_INFO": lambda v: f"{v['name'].string()}: {print_file(v['finfo'])}",
    "VYX_TIME_EXP_T": print_time,
    "VYX_MEMORY_STATUS_T": lambda v: "memory status, not filled on this platform",
    "VYX_CPU_PERFORMANCE_T": lambda v: "processor times, not filled on this platform",
    "_VYX_ENTRY": lambda v: f"{v['key'].string() if int(v['key']) else 'no key'}: {int(v['data']):#x}",
    "_VYX_INTITEM": lambda v: f"{int(v['key'])}: {int(v['data']):#x}",
    "VYX_HSEARCH_DATA": print_table,
    "VYX_HSEARCH_INTDATA": print_table,
    "VYX_Mutex": print_mutex,
    "vyx::vyx_mutex": print_mutex,
    "vyx::vyx_recursive_mutex": print_mutex,
    "vyx::vyx_msgq": print_msgq,
    "vyx::vyx_sem": lambda v: "semaphore, not available on this platform",
    "VYX_Sema": lambda v: f"{HANDLES['VYX_SEM_S'](v['m_hSem'])}, {int(v['m_nCount'])} of {int(v['m_nMaxCount'])} counts",
    "VYX_ThreadPool": lambda v: HANDLES["THREAD_POOL_T"](v["m_hPool"]),
    "VYX_Thread": lambda v: f"thread {int(v['m_hThread']):#x}",
    "vyx::vyx_time": lambda v: utc(int(v["m_time"]) * 1000000),
    "vyx::vyx_time_tick": lambda v: utc(int(v["m_time"])),
}


class Printer:
    def __init__(self, value, text):
        self.value, self.text = value, text

    def to_string(self):
        try:
            return self.text(self.value)
        except (gdb.error, ValueError, OverflowError) as error:
            return f"<{error}>"


def printer_of(value):
    kind = value.type.strip_typedefs()
    if kind.code == gdb.TYPE_CODE_PTR and kind.target().unqualified().tag in HANDLES:
        return Printer(value, HANDLES[kind.target().unqualified().tag])
    name = kind.unqualified().tag
    return Printer(value, RECORDS[name]) if name in RECORDS else None


printer_of.name, printer_of.enabled = "vyx", True
Vyx()
for each in COMMANDS:
    each()
gdb.printing.register_pretty_printer(gdb.current_objfile(), printer_of, replace=True)
