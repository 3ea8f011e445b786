"""For gdb: runs the program up to main, and from there on writes what it passes at the probes into the file "seen"."""
import gdb

# How the arguments are shown: p address, d number, s text, - not at all.
SHOWN = {
    "cond_wait_begin": "p", "cond_wait_end": "pd",
    "event_set": "p", "event_wait_begin": "p", "event_wait_end": "pd",
    "flex_hand_over": "pp", "pool_hand_over": "p-p",
    "log_line": "s-d", "log_written": "d",
    "queue_receive": "pd", "queue_send": "p",
    "sem_post": "p", "sem_wait_begin": "p", "sem_wait_end": "pd",
    "start": "d", "stop": "d",
    "timer_begin": "-d", "timer_end": "",
}


def show(kind, value):
    if kind == "p":
        return hex(int(value) & (1 << 64) - 1)
    if kind == "d":
        return str((int(value) + (1 << 31)) % (1 << 32) - (1 << 31))
    text = value.cast(gdb.lookup_type("char").pointer()).string("utf-8")
    return text[text.index("[FILE:"):].rstrip()  # the time is nobody's knowledge


class Probe(gdb.Breakpoint):
    def __init__(self, name, out):
        super().__init__("-probe-stap vyx:" + name)
        self.probe, self.out = name, out

    def stop(self):
        words = [self.probe]
        for number, kind in enumerate(SHOWN[self.probe]):
            if kind != "-":
                words.append(show(kind, gdb.parse_and_eval("$_probe_arg%d" % number)))
        print(*words, file=self.out, flush=True)
        return False


gdb.execute("set pagination off")
gdb.execute("break main")
gdb.execute("run <input >said")
with open("seen", "w", encoding="utf-8") as seen:
    for each in SHOWN:
        Probe(each, seen)
    gdb.execute("continue")
