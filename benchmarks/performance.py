#!/usr/bin/env python3
"""Writes the page about performance, with its plots, from the results of report_benchmark.

usage: performance.py DOCUMENT MACHINE SYSCALLS.json MAIN.json SCALE.json [MAIN.json...]

The first results are those in memory, on which the bars lie; SCALE.json was measured there too. The
exit status tells only whether all rows are there; times are for people to judge.
"""

import json
import os
import string
import sys

from peernames import MAIN_PEERS
from plots import plot_scale
from results import Run

# Row, whether the library waits for the disk, title, what is done.
ROWS = [
    ("create", True, "create", "make a report with its sixteen values, and close it"),
    ("open", False, "open", "open a report and close it"),
    ("change", True, "open, set, close", "open a report, take its write lock, set its description, close it; again and again the same one, "
     "so that opening reads a store that is half full of old records, some 30 KiB"),
    ("visit", True, "the same by a new process",
     "as before, with all that is kept between operations made anew: what a program does that was "
     "started for it (without its start)"),
    ("set", False, "set", "set the description of an open report, which also notes the time"),
    ("get", False, "get", "get the description of an open report"),
    ("variation_add_1", False, "add a variation, 1 property",
     "set an integer variation of a report with so many properties"),
    ("variation_add_10", False, "add a variation, 10 properties", None),
    ("variation_add_100", False, "add a variation, 100 properties", None),
    ("variation_best_1", False, "best variation, 1 property",
     "find the variation that the consent permits, with so many properties"),
    ("variation_best_10", False, "best variation, 10 properties", None),
    ("variation_best_100", False, "best variation, 100 properties", None),
    ("file_add_64K", False, "add a file, 64 KiB", "copy a file into the report, over the copy before"),
    ("file_add_16M", False, "add a file, 16 MiB", None),
    ("policy_values", False, "policy, 100 values",
     "apply the data policy, which drops the half of 100 variations of ten properties"),
    ("policy_files", False, "policy, 100 files", "the same, with a file for each variation"),
    ("list_100", False, "list 100", "find the identifiers of 100 reports"),
    ("remove", False, "delete", "delete a report"),
]

PEERS = ["library", "bare", "sqlite_each", "sqlite_each_durable", "sqlite_all", "sqlite_all_durable"]

# What is measured and by what: the sum of rows, all by one number. Title, row, rows, title, bar.
BARS = [
    ("create a report", "create/library", ["create/bare_durable"], "bare calls", 1.4),
    ("open a report", "open/library", ["open/bare"], "bare calls", 2),
    ("open a report", "open/library", ["open/bare_blind"], "bare calls without looks", None),
    ("list 100", "list_100/library", ["list_100/bare"], "bare calls", 2),
    ("list 100", "list_100/library", ["list_100/bare_blind"], "bare calls without looks", None),
] + [
    (f"add a variation, {count} {noun}", f"variation_add_{count}/library",
     [f"variation_add_{count}/bare", f"json/read/{count}", f"json/write/{count}"],
     "bare calls, JSON read and written", 1.5)
    for count, noun in ((1, "property"), (10, "properties"), (100, "properties"))
] + [
    ("store: set 10 bytes", "store_set/library/10", ["store_set/bare/10"], "bare calls", 1.5),
    ("store: set 1 KiB", "store_set/library/1024", ["store_set/bare/1024"], "bare calls", 1.5),
    ("store: get", "store_get/library", ["store_get/bare"], "bare calls", 3),
    ("copy a file of 16 MiB", "file_add_16M/library", ["file_add_16M/bare"], "bare calls", 1.1),
]

DISK_NOTE = """

A disk has its own ways: where ± is a large part of a number, syncs or writing out took now a fraction of a
millisecond and now many, and nothing but the order of magnitude is told, not even a ratio."""

# How much more one report of very many may cost than one of a hundred.
LONGER_LIST = 1.3

STARTS = [10, 1000, 10000]

SCALES = {
    "reports": ("cpu_time", {"create": "create one more", "open": "open one", "list": "list all"}),
    "properties": ("cpu_time", {"variation_add": "add a variation", "variation_best": "best variation"}),
    "processes": ("real_time", {"create": "create", "set": "set"}),
}


def time_text(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        number = nanoseconds / size
        if abs(number) >= 1:
            return f"{number:.0f} {unit}" if abs(number) >= 100 else f"{number:.3g} {unit}"
    return f"{nanoseconds:.0f} ns"


def cost_text(cost):
    return time_text(cost.median) + (f" ±{100 * cost.spread:.0f}%" if cost.repetitions > 1 else "")


def line(*cells):
    return "| " + " | ".join(str(cell) for cell in cells) + " |"


def times_text(ratio):
    """How many times as long as the library another takes; strong where the library is behind."""
    text = f"{ratio:.2g}" if ratio < 10 else f"{ratio:.0f}"
    return f"**{text}**" if ratio < 1 else text


def bare_row(row, durable):
    return f"{row}/bare_durable" if durable else f"{row}/bare"


def beside_sqlite(run, row, durable, peer):
    """The cost of an SQLite peer with the same promise, divided by the library's."""
    suffix = "_durable" if durable else ""
    return run.median(f"{row}/{peer}{suffix}") / run.median(f"{row}/library")


def place_table(run):
    head = ["Row", "library", "bare calls", "SQLite each", "…, synced", "one SQLite", "…, synced",
            "library ÷ bare", "SQLite each ÷ library", "one SQLite ÷ library"]
    lines = [line(*head), "|---|" + "--:|" * (len(head) - 1)]
    for row, durable, title, _ in ROWS:
        costs = {peer: run.cost(f"{row}/{peer}") for peer in PEERS}
        costs["bare"] = run.cost(bare_row(row, durable))
        lines.append(line(
            title + (", *durable*" if durable else ""), *[cost_text(costs[peer]) for peer in PEERS],
            f"{costs['library'].median / costs['bare'].median:.2f}",
            times_text(beside_sqlite(run, row, durable, "sqlite_each")),
            times_text(beside_sqlite(run, row, durable, "sqlite_all"))))
    return "\n".join(lines)


def places(runs):
    parts = []
    for run in runs:
        where = "In memory (tmpfs, processor time)" if run.in_memory else "On a disk (elapsed time)"
        parts.append(f"## {where}\n\nThe last two columns set beside the library what makes the same "
                     f"promise; numbers below 1, where the library is behind, are strong.\n\n"
                     + place_table(run) + ("" if run.in_memory else DISK_NOTE))
    return "\n\n".join(parts)


def measures(run, scale):
    """For each bar: title, the library's cost, what it is measured by, that cost, the bar."""
    for title, row, others, by, bar in BARS:
        yield title, run.cost(row), by, sum(run.median(other) for other in others), bar
    few, *_, many = scale.amounts("reports/list/library")[1:]
    few_cost, many_cost = (scale.cost(f"reports/list/library/{count}") for count in (few, many))
    many_cost.median /= many
    yield (f"list {many:,}, for each report", many_cost, f"one of {few:,}", few_cost.median / few,
           LONGER_LIST)


def judged(run, scale):
    """The lines of the bars, and those that are missed."""
    lines, missed = [], []
    for title, cost, by, theirs, bar in measures(run, scale):
        ratio = cost.median / theirs
        met = "" if bar is None else "yes" if ratio <= bar else "**no**"
        lines.append(line(title, cost_text(cost), f"{by}: {time_text(theirs)}", f"{ratio:.2f}",
                          "" if bar is None else f"{bar:g}", met))
        if bar is not None and ratio > bar:
            missed.append(f"{title} ({ratio:.2f} instead of {bar:g})")
    return lines, missed


def behind_lines(run):
    """The rows in which each SQLite peer is ahead by more than a twentieth."""
    for peer, name in (("sqlite_each", "a database for each report"),
                       ("sqlite_all", "one database for all")):
        behind, bare_too = [], []
        for row, durable, title, _ in ROWS:
            times = beside_sqlite(run, row, durable, peer)
            if times < 0.95:
                bare = run.median(bare_row(row, durable)) / run.median(f"{row}/library")
                (bare_too if times < 0.95 * bare else behind).append(title)
        yield (f"- {name}: " + ("; ".join(behind) if behind else "none")
               + (". And those in which the bare calls alone are behind it too: " + "; ".join(bare_too)
                  if bare_too else "") + ".")


def missed_text(run, missed):
    return ("Missed: " + ("; ".join(missed) if missed else "none") + ".\n\n"
            "The aim is to be ahead of both ways of SQLite in every row. Rows in which it is behind "
            "by more than a twentieth:\n\n" + "\n".join(behind_lines(run)))


def syscall_lines(counts):
    titles = {row: title for row, _, title, _ in ROWS}
    for row, peers in counts.items():
        calls = sorted(peers["library"].items(), key=lambda call: (-call[1], call[0]))
        yield line(titles[row], *[f"{sum(each.values()):,}" for each in peers.values()],
                   ", ".join(f"{count:,} {name}" for name, count in calls))


def contents_lines(run):
    for count in (1, 10, 100):
        yield line(count, f"{run.counter(f'json/read/{count}', 'bytes'):,.0f} bytes",
                   *[time_text(run.median(f"{row}/{count}"))
                     for row in ("json/read", "json/write", "contents/read", "contents/write")],
                   time_text(run.median(f"variation_add_{count}/library")))


def observer_lines(run):
    for count in STARTS:
        mine, theirs = (run.median(f"observer_start/{who}/{count}") / count for who in ("library", "bare"))
        yield line(f"start, for each of {count:,} reports", time_text(mine), time_text(theirs),
                   f"{mine / theirs:.2f}")
    updates = run.counter("observer_burst/library", "updates")
    mine, theirs = (run.median(f"observer_burst/{who}") / updates for who in ("library", "bare"))
    yield line("each of many changes, processor time", time_text(mine), time_text(theirs),
               f"{mine / theirs:.2f}")
    for peer in ("sqlite_each", "sqlite_all"):
        yield line(f"one look at 100 reports for changes, {MAIN_PEERS[peer]}", time_text(run.median(f"observer_poll/{peer}")),
                   "", "")
    for percent, name in ((50, "median"), (90, "nine of ten within")):
        mine, theirs = (run.counter("observer_latency", f"{who}_called_p{percent}")
                        for who in ("library", "bare"))
        yield line(f"a change is told after, {name}", time_text(mine), time_text(theirs),
                   f"{mine / theirs:.2f}")


def memory_lines(run):
    for title, row in (("one opened report", "memory/open/1"), ("listing 10,000", "memory/list/10000")):
        yield line(title, f"{run.counter(row, 'resident_KiB'):,.0f} KiB",
                   f"{run.counter(row, 'idle_resident_KiB'):,.0f} KiB",
                   f"{run.counter(row, 'heap_bytes') / 1024:.1f} KiB")


def scale_table(run, group):
    time, operations = SCALES[group]
    lines = []
    for operation, title in operations.items():
        prefix = f"{group}/{operation}"
        amounts = run.amounts(f"{prefix}/library")
        if not lines:
            lines = [line(group, *[f"{amount:,}" for amount in amounts]), "|---|" + "--:|" * len(amounts)]
        for peer, name in MAIN_PEERS.items():
            measured = run.amounts(f"{prefix}/{peer}")
            lines.append(line(f"{title}: {name}", *[
                time_text(run.median(f"{prefix}/{peer}/{amount}", time)) if amount in measured else ""
                for amount in amounts]))
    return "\n".join(lines)


def descriptions():
    return "\n".join(line(title, what) for _, _, title, what in ROWS if what is not None)


def page(machine, counts, scale, runs):
    memory = runs[0]
    bars, missed = judged(memory, scale)
    with open(os.path.join(os.path.dirname(__file__), "performance.md.in"), encoding="utf-8") as stream:
        template = string.Template(stream.read())
    return template.substitute(
        machine=machine, repetitions=memory.repetitions("open/library"), descriptions=descriptions(),
        bars="\n".join(bars), missed=missed_text(memory, missed),
        syscalls="\n".join(syscall_lines(counts)), places=places(runs),
        contents="\n".join(contents_lines(memory)), observer="\n".join(observer_lines(memory)),
        memory="\n".join(memory_lines(memory)), scale_repetitions=scale.repetitions("reports/open/library/10"),
        **{f"scale_{group}": scale_table(scale, group) for group in SCALES})


def main():
    if len(sys.argv) < 6:
        sys.exit(__doc__)
    document, machine, syscalls, first, scales, *others = sys.argv[1:]
    with open(syscalls, encoding="utf-8") as stream:
        counts = json.load(stream)
    scale = Run(scales)
    try:
        text = page(machine, counts, scale, [Run(file) for file in [first] + others])
        for group, (time, operations) in SCALES.items():
            plot_scale(scale, group, operations, time, group,
                       os.path.join(os.path.dirname(document), "performance", f"{group}.png"))
    except KeyError as row:
        sys.exit(f"performance.py: no row {row}")
    with open(document, "w", encoding="utf-8") as stream:
        stream.write(text)


if __name__ == "__main__":
    main()
