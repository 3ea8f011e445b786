#!/usr/bin/env python3
"""Prints how the library compares, from the JSON that the benchmarks write.  ratios.py FILE...

A benchmark is named CASE/SIDE, with arguments perhaps behind that. The side "vyx" is this library; "vyx_" and a word
are several ways of its own to do a case. Each file is a round, with one run of each side: a side counts with the median of
its runs, a ratio is the median of the rounds' ratios. Exit status: 0 whatever the figures say, 1 if a benchmark failed or
nothing was measured.
"""

import json
import re
import statistics
import sys

OURS = re.compile("vyx(_|$)")
SETTINGS = re.compile(r"/(real_time|process_time|manual_time|iterations:\d+|repeats:\d+|min_time:[\d.]+)")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def case_and_side(run_name):
    case, side, *arguments = SETTINGS.sub("", run_name).split("/")
    return "/".join([case, *arguments]), side


def read(files):
    """Cases in the order of their registration: case -> side -> runs. Also the failures, as text."""
    runs, failures, cases = [], [], {}
    for file in files:
        with open(file, encoding="utf-8") as stream:
            runs += sorted(({**run, "round": file} for run in json.load(stream)["benchmarks"]),
                           key=lambda run: run["family_index"])
    for run in runs:
        if run["run_type"] != "iteration":
            continue
        if run.get("error_occurred"):
            failures.append(f"{run['run_name']}: {run['error_message']}")
            continue
        case, side = case_and_side(run["run_name"])
        cases.setdefault(case, {}).setdefault(side, []).append(run)
    return cases, failures


def median(runs, pick):
    return statistics.median(pick(run) for run in runs)


def paired(ours, others, pick):
    """The median over all rounds of what `ours` took in proportion to `others`."""
    of_round = {run["round"]: pick(run) for run in others}
    pairs = [pick(run) / of_round[run["round"]] for run in ours if of_round.get(run["round"])]
    return statistics.median(pairs) if pairs else float("nan")


def nanoseconds(run):
    """The time that the benchmark is counted by: of its thread, unless its settings name another clock."""
    clock = "real_time" if re.search("/(real|manual)_time", run["run_name"]) else "cpu_time"
    return run[clock] * NANOSECONDS[run["time_unit"]]


def spread(runs):
    """Half the distance between the quartiles, in percent of the median."""
    times = [nanoseconds(run) for run in runs]
    if len(times) < 4:
        return "-"
    low, middle, high = statistics.quantiles(times, n=4)
    return f"{50 * (high - low) / middle:.1f} %"


def verdict(value, limit):
    return "" if not limit else "ok" if value <= limit else "over"


def ratio_rows(case, own, sides):
    """One row for each side that is not the library's own."""
    ours = median(sides[own], nanoseconds)
    for side, runs in sides.items():
        if OURS.match(side):
            continue
        other, bound = median(runs, nanoseconds), runs[0].get("bound", 0)
        ratio = paired(sides[own], runs, nanoseconds)
        yield [f"{case} {own[4:]}".rstrip(), f"{ours:.1f}", side, f"{other:.1f}", f"{ratio:.2f}",
               f"{bound:.2f}" if bound else "", verdict(round(ratio, 2), bound), spread(sides[own]), spread(runs)]


def figure_row(case, own, sides):
    def figure(side):
        return f"{float(format(median(sides[side], lambda run: run['figure']), '.3g')):g}"

    limit = sides[own][0].get("limit", 0)
    value = median(sides[own], lambda run: run["figure"])
    others = ", ".join(f"{figure(side)} ({side})" for side in sides if not OURS.match(side))
    return [f"{case} {own[4:]}".rstrip(), figure(own), others, sides[own][0]["label"], f"{limit:g}" if limit else "",
            verdict(value, limit)]


def markdown(rows):
    """A table whose first row has the heads."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return "\n".join("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |"
                     for row in [rows[0], ["-" * width for width in widths], *rows[1:]])


def table(title, heads, rows):
    if rows:
        print(f"\n{title}\n\n{markdown([heads, *rows])}")


def main(files):
    cases, failures = read(files)
    ratios, figures = [], []
    for case, sides in cases.items():
        for own in filter(OURS.match, sides):
            if "figure" in sides[own][0]:
                figures.append(figure_row(case, own, sides))
            else:
                ratios += ratio_rows(case, own, sides)
    table("Nanoseconds for one operation; spread is half the distance between the quartiles",
          ["what", "vyx", "other", "takes", "ratio", "bound", "", "spread", "other's"], ratios)
    table("Observed figures", ["what", "vyx", "others", "unit", "limit", ""], figures)
    for failure in failures:
        print(f"FAILED {failure}", file=sys.stderr)
    if not ratios and not figures:
        print("nothing was measured", file=sys.stderr)
    return 1 if failures or not (ratios or figures) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
