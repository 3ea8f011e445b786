#!/usr/bin/env python3
"""Writes the measured parts of docs/performance.md, and its plots, from the JSON that the benchmarks write.

  page.py [--page FILE] ROUNDS-FILE...

A measured part lies between "<!-- measured: NAME -->" and "<!-- end -->"; NAME is one of TABLES or CURVES, or "machine".
Everything else of the page stays as it is. The plots go to the folder pictures beside the page. Exit status: 1 if the
page has a part that was not measured; then nothing is written.
"""

import argparse
import datetime
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys

import ratios
import svg

# The sides in the order of the columns, and their names on the page.
SIDES = {"raw": "raw", "try": "a try", "raw_fstatat": "raw", "raw_stat": "by path", "five_calls": "the five calls", "mutex": "mutex, memcpy",
         "heap": "by hand", "mq_send": "mq_send", "mq_timedreceive": "mq_timedreceive", "std": "C++ library",
         "to_chars": "to_chars", "from_chars": "from_chars", "cp": "cp", "glib": "GLib", "glib_plain": "GLib, plain",
         "apr": "APR", "apr_util": "APR", "libuv": "libuv", "boost": "Boost", "boost_asio": "Boost.Asio",
         "spdlog": "spdlog"}

# Rows: what, the case, which of the library's own sides where there are several, and the case that has it if it is another
# one.
TABLES = {
    "locks": [
        ("`VYX_MutexLock`, `VYX_MutexUnlock`, normal", "mutex_lock_unlock"),
        ("the same, recursive", "mutex_recursive_lock_unlock"),
        ("`VYX_Mutex::Lock`, `Unlock`", "mutex_class_lock_unlock"),
        ("`VYX_SemPost`, `VYX_SemWait`", "sem_post_wait"),
        ("`VYX_CondSignal`, nobody waits", "cond_signal_nobody"),
        ("`VYX_CondSignal`, a thread sleeps", "cond_signal_sleeper"),
        ("`VYX_Thread_Create`, `VYX_Thread_Wait`", "thread_create_join"),
        ("`VYX_TimeNow`", "time_now"),
        ("`VYX_CTime`, `TZ` set", "ctime"),
        ("`VYX_CTime`, `TZ` not set", "ctime_no_tz"),
        ("`VYX_StrFmtTime`", "strftime"),
    ],
    "waits": [
        ("`VYX_SemPost`, `VYX_SemTimedWait`, the count is there", "sem_timed_wait_count_there"),
        ("from post to return, median", "sem_post_to_return_median"),
        ("the same, mean", "sem_post_to_return_mean"),
        ("the same, 99 %", "sem_post_to_return_99_percent"),
        ("`VYX_SemTimedWait`, 20 ms time-out, time above it", "sem_20ms_late"),
        ("`VYX_CondTimedWait`, the same", "cond_20ms_late"),
        ("1,000 waits pending, processor time", "pending_cpu/waits:1000"),
        ("10,000 waits pending, the same", "pending_cpu/waits:10000"),
        ("the first `VYX_Init` of a process", "first_start"),
        ("memory that it makes private", "first_start_memory"),
        ("`VYX_Init` again", "start_again"),
        ("`VYX_Fini`", "stop_again"),
        ("first semaphore behind 3,000 stale names", "first_semaphore_3000_stale_names"),
    ],
    "pools": [
        (f"{kind}, {items}, {workers} worker{'s' if workers > 1 else ''}",
         f"{case}/workers:{workers}/item_ns:{nanoseconds}")
        for kind, case in (("flexible", "pool_items"), ("fixed", "pool_items_without_queue"))
        for items, nanoseconds in (("empty items", 0), ("items of 2 us", 2000), ("items of 10 us", 10000))
        for workers in (1, 2, 8)
    ] + [
        (f"fixed, {items}, 2 workers, beside queues", f"pool_items/workers:2/item_ns:{nanoseconds}", "vyx",
         f"pool_items_without_queue/workers:2/item_ns:{nanoseconds}")
        for items, nanoseconds in (("items of 2 us", 2000), ("items of 10 us", 10000))
    ] + [
        ("from hand-over to start, flexible", "pool_hand_over", "vyx_flexible"),
        ("from hand-over to start, fixed", "pool_hand_over", "vyx_fixed"),
    ],
    "queues": [
        ("1 sender to 1 receiver", "message_through"),
        ("16 senders to 16 receivers", "message_through_16_to_16"),
        ("wake, with a limit", "message_wakes_with_limit"),
        ("send with 100,000 queued, by that with 1", "send_cost_100000_equal"),
        ("send with 10,000 priorities queued, likewise", "send_cost_10000_priorities"),
        ("memory of a message beside its data", "memory_equal"),
        ("the same, every priority another", "memory_distinct"),
    ],
    "events": [
        ("event: set, wait and reset", "event_set_wait_reset"),
        ("event: round trip of two threads", "event_round_trip"),
        ("event: set again; raw only looks", "event_set_again"),
        ("event: wait for one that is signalled", "event_wait_signalled"),
        ("event: wait for 64", "event_wait_for_64"),
        ("event: create and close", "event_create_close"),
        ("socket option", "socket_option"),
        ("`VYX_Send`, `VYX_Recv`, 64 bytes", "send_recv_64"),
        ("`VYX_Sendn`, `VYX_Recvn`, 64 KiB", "stream_64_kib"),
        ("the same, 64 bytes there and back", "ping_pong_64"),
        ("`VYX_InetPton`, IPv4", "parse_ipv4"),
        ("`VYX_InetPton`, IPv6", "parse_ipv6"),
        ("`VYX_InetNtop`, IPv4", "print_ipv4"),
        ("`VYX_InetNtop`, IPv6", "print_ipv6"),
    ],
    "timers": [
        ("256 timers: how far an interval is from the period", "timers_of_10ms_deviation/timers:256"),
        ("256 timers: processor time", "timers_of_10ms_cpu/timers:256"),
    ],
    "tables": [
        (f"{what}, {kind}, {room}", f"hash_{case}_{short}", f"vyx_{side}")
        for short, kind in (("text", "text"), ("int", "integer"))
        for what, case in (("enter all", "enter"), ("find", "find"), ("miss", "miss"))
        for room, side in (("half full", "half"), ("95 % full", "95"), ("full", "full"))
    ] + [("find, texts alike in 8 bytes", "hash_find_text_alike")],
    "ring": [
        ("64 bytes, only looked at by the callback", "cycle_64_in"),
        ("64 bytes, copied out by the callback", "cycle_64_in_out"),
        ("4 KiB, only looked at", "cycle_4k_in"),
        ("4 KiB, copied out", "cycle_4k_in_out"),
    ],
    "texts": [
        (f"`VYX_{name}`, {length} bytes", f"{name.lower()}_{length}")
        for name in ("Strcmp", "Strncmp", "Strcpy", "Strncpy", "Strchr", "Strnchr", "Strstr", "Strnstr", "Strdup",
                     "Strcasecmp", "Strncasecmp", "Strcasestr")
        for length in (8, 64, 1000)
    ] + [(f"`VYX_Strcasecmp`, another case, {length} bytes", f"strcasecmp_other_case_{length}") for length in (8, 64, 1000)],
    "numbers": [
        ("`VYX_Atoi32`", "atoi32"), ("`VYX_Atoi64`", "atoi64"), ("`VYX_StrToi32`", "strtoi32"),
        ("`VYX_StrToi64`, base 16", "strtoi64_hex"), ("`VYX_Itoa`", "itoa"), ("`VYX_Ltoa`", "ltoa"),
        ("`VYX_Ltoa`, base 16", "ltoa_hex"),
    ],
    "files": [
        ("`VYX_CopyFile`, 256 MiB", "copy_256m"),
        ("`VYX_FindFileInDir`, 10,000 entries", "list_10k"),
    ],
    "lines": [
        (f"{what}, {threads} thread{'s' if threads > 1 else ''}", f"{case}/threads:{threads}")
        for what, case in (("the call", "log_line_cost"), ("the first 8,000 lines", "log_first_lines"),
                           ("sustained", "log_line_sustained"))
        for threads in (1, 2, 4)
    ],
    "latency": [
        (f"{name}, {threads} thread{'s' if threads > 1 else ''}", f"log_call_{case}/threads:{threads}")
        for name, case in (("p50", "p50"), ("p99", "p99"), ("p99.9", "p99.9"), ("maximum", "max"))
        for threads in (1, 2, 4, 8, 16)
    ],
}

# Title, axes, and the lines: name, case with its size left out, side.
CURVES = {
    "queue-sizes": ("A send and a receive at a queue that holds so many messages", "messages queued", "nanoseconds", [
        ("one priority", "pair_cost_equal/queued:", "vyx"), ("one, by hand", "pair_cost_equal/queued:", "heap"),
        ("all different", "pair_cost_distinct/queued:", "vyx"),
        ("different, by hand", "pair_cost_distinct/queued:", "heap")]),
    "table-sizes": ("A key found in a table of so many", "keys", "nanoseconds", [
        (f"{kind}, {name}", f"hash_find_sized_{short}/keys:", side)
        for short, kind in (("text", "text"), ("int", "integer"))
        for name, side in (("ours", "vyx"), ("C++", "std"), ("GLib", "glib"))]),
    "pending-waits": ("Processor time while so many bounded waits are pending", "waits", "milliseconds a second", [
        ("ours", "pending_cpu/waits:", "vyx"), ("raw", "pending_cpu/waits:", "raw")]),
    "timer-numbers": ("Processor time of so many timers of 10 ms", "timers", "percent of a core", [
        ("ours", "timers_of_10ms_cpu/timers:", "vyx"), ("raw", "timers_of_10ms_cpu/timers:", "raw"),
        ("libuv", "timers_of_10ms_cpu/timers:", "libuv")]),
    "log-threads": ("A call of WriteLog while so many threads log", "threads", "nanoseconds", [
        (f"{name}, {whose}", f"log_call_{case}/threads:", side)
        for name, case in (("p50", "p50"), ("p99", "p99"), ("p99.9", "p99.9"), ("maximum", "max"))
        for whose, side in (("ours", "vyx"), ("spdlog", "spdlog"))]),
    "mill-connections": ("A line through logmill, from so many senders at once", "connections", "nanoseconds a line", [
        ("logmill", "mill_line/connections:", "vyx")]),
}


def value(run):
    return run["figure"] if "figure" in run else ratios.nanoseconds(run)


def spread(runs):
    """Lower quartile, median, upper quartile."""
    values = [value(run) for run in runs]
    return statistics.quantiles(values, n=4) if len(values) > 2 else [min(values), statistics.median(values), max(values)]


def in_words(number, run):
    """A value with three digits and its unit."""
    unit = run["label"] if "figure" in run else "ns"
    number *= ratios.NANOSECONDS.get(unit, 1)
    if unit in ratios.NANOSECONDS:
        for unit, factor in (("ms", 1e6), ("us", 1e3), ("ns", 1)):
            if number >= factor * 9.995 or unit == "ns":
                number /= factor
                break
    return f"{float(f'{number:.3g}'):,g} {unit}"


def judged(runs, ours):
    """What the row says of its limit, or of the bound that it is nearest to or furthest over."""
    limit = runs[ours][0].get("limit", 0)
    if limit:
        return f"{ratios.verdict(spread(runs[ours])[1], limit)}: {in_words(limit, runs[ours][0])}"
    bounds = [(round(ratios.paired(runs[ours], others, value), 2), others[0]["bound"], SIDES[side])
              for side, others in runs.items() if side != ours and others[0].get("bound", 0)]
    if not bounds:
        return ""
    ratio, bound, name = max(bounds, key=lambda found: found[0] / found[1])
    return f"{ratios.verdict(ratio, bound)}: {bound:.2f} × {name}"


def table(name, rows, cases):
    """The part of a page, and its plot."""
    found = []
    for label, case, *own in rows:
        runs, ours = dict(cases.get(case, {})), own[0] if own else "vyx"
        runs.update((side, its) for side, its in cases.get(own[1] if len(own) > 1 else case, {}).items() if side == ours)
        if ours in runs:
            found.append((label, ours, {side: runs[side] for side in [ours, *SIDES] if side in runs}))
    if not found:
        return None
    sides = list(dict.fromkeys(SIDES[side] for side in SIDES for _, _, runs in found if side in runs))
    lines = [["what", "ours", "spread", *sides, "goal"]]
    for label, ours, runs in found:
        low, middle, high = spread(runs[ours])
        others = {SIDES[side]: f"{in_words(spread(its)[1], its[0])} ({ratios.paired(runs[ours], its, value):.2f})"
                  for side, its in runs.items() if side != ours}
        lines.append([label, in_words(middle, runs[ours][0]), f"{50 * (high - low) / middle:.0f} %" if middle and len(runs[ours]) > 2 else "",
                      *(others.get(side, "") for side in sides), judged(runs, ours)])
    plot = svg.bars(f"{name}: beside others", [
        (label.replace("`", ""), [("ours" if side == ours else SIDES[side], in_words(spread(its)[1], its[0]), spread(its))
                                  for side, its in runs.items()])
        for label, ours, runs in found if spread(runs[ours])[1] > 0])
    return ratios.markdown(lines), "Each bar is a side's time in units of ours", plot


def curve(name, cases):
    title, x_name, y_name, wanted = CURVES[name]
    series = []
    for line_name, prefix, side in wanted:
        points = sorted((int(case[len(prefix):]), spread(runs[side])) for case, runs in cases.items()
                        if case.startswith(prefix) and side in runs)
        if points:
            series.append((line_name, points))
    if not series:
        return None
    sizes = sorted({size for _, points in series for size, _ in points})
    lines = [[x_name, *(f"{size:,}" for size in sizes)]]
    for line_name, points in series:
        lines.append([line_name, *(f"{float(f'{dict(points)[size][1]:.3g}'):,g}" if size in dict(points) else ""
                                   for size in sizes)])
    return ratios.markdown(lines), f"{title}, {y_name}", svg.curves(title, x_name, y_name, series)


def first_line(command):
    try:
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True, text=True).stdout.split("\n")[0]
    except (OSError, subprocess.CalledProcessError):
        return ""


def boost_version():
    version = pathlib.Path("/usr/include/boost/version.hpp")
    found = re.search(r'BOOST_LIB_VERSION "(\w+)"', version.read_text()) if version.exists() else None
    return found[1].replace("_", ".") if found else ""


def machine(rounds, load):
    processor = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    peers = {"APR": first_line(["pkg-config", "--modversion", "apr-1"]), "Boost": boost_version(),
             "GLib": first_line(["pkg-config", "--modversion", "glib-2.0"]),
             "libuv": first_line(["pkg-config", "--modversion", "libuv"]),
             "spdlog": first_line(["pkg-config", "--modversion", "spdlog"])}
    return (f"Measured on {datetime.date.today()}, in {rounds} round{'s' if rounds > 1 else ''}, on a machine with {os.cpu_count()} processors"
            f"{' (' + processor[1] + ')' if processor else ''}, {platform.system()} {platform.release()}, "
            f"{' '.join(platform.libc_ver())}, g++ {first_line(['g++', '-dumpfullversion'])}; load before {load}, after "
            f"{os.getloadavg()[0]:.1f}. Peers: {', '.join(f'{name} {version}' for name, version in peers.items() if version)}.")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--page", type=pathlib.Path, default="docs/performance.md")
    parser.add_argument("--load", default="unknown")
    parser.add_argument("files", nargs="+")
    options = parser.parse_args()
    cases, _ = ratios.read(options.files)  # ratios.py tells of single runs that failed
    failures = []
    rounds = max(len(runs) for sides in cases.values() for runs in sides.values())
    pictures = options.page.parent / "pictures"
    plots = {}

    def part(match):
        name = match[1]
        if name == "machine":
            return f"<!-- measured: {name} -->\n\n{machine(rounds, options.load)}\n\n<!-- end -->"
        made = table(name, TABLES[name], cases) if name in TABLES else curve(name, cases)
        if made is None:
            failures.append(f"{name}: nothing was measured")
            return match[0]
        lines, title, plots[name] = made
        return f"<!-- measured: {name} -->\n\n![{title}](pictures/performance-{name}.svg)\n\n{lines}\n\n<!-- end -->"

    page = re.sub(r"<!-- measured: ([\w-]+) -->.*?<!-- end -->", part, options.page.read_text(), flags=re.S)
    for failure in failures:
        print(f"FAILED {failure}", file=sys.stderr)
    if failures:
        return 1
    pictures.mkdir(exist_ok=True)
    for name, plot in plots.items():
        (pictures / f"performance-{name}.svg").write_text(plot)
    options.page.write_text(page)
    print(f"{options.page} and {len(plots)} plots are written")
    return 0


if __name__ == "__main__":
    sys.exit(main())
