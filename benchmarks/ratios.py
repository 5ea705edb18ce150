#!/usr/bin/env python3
"""Turns the JSON of report_benchmark into tables: each operation beside its bare system calls, with
the highest ratio that is accepted on tmpfs, and beside the same work done by SQLite.

usage: ratios.py RESULT.json...

All times are medians over the repetitions of one run. The bars are for processor time on tmpfs, where
nothing waits: what else the machine does hardly disturbs it. Elapsed time, with what an operation
waits for on a disk, stands beside it, and tells something only about a machine without other work. How
soon the observer tells of a change is elapsed time.
The exit status tells only whether all rows are there; times are for people to judge.
"""

import json
import statistics
import sys

# Operation, row, row of the bare calls, highest ratio that is accepted.
BESIDE_BARE_CALLS = [
    ("store: set, 10 bytes", "store_set/library/10", "store_set/bare/10", 1.5),
    ("store: set, 1024 bytes", "store_set/library/1024", "store_set/bare/1024", 1.5),
    ("store: get", "store_get/library", "store_get/bare", 3),
    ("store: open and close", "store_open/library", "store_open/bare", None),
    ("report: create", "create/library", "create/bare", 2),
    ("report: create, durable calls", "create/library", "create/bare_durable", None),
    ("report: open", "open/library", "open/bare", 3),
    ("report: change and close, durable calls", "change/library", "change/bare_durable", None),
    ("report: setter", "report_setter/library", "report_setter/bare", None),
    ("report: getter", "report_getter/library", "store_get/bare", None),
    ("report: delete", "delete/library", "delete/bare", None),
    ("add a variation, 1 property", "variation_add/library/1", "variation_add/bare/1", None),
    ("add a variation, 10 properties", "variation_add/library/10", "variation_add/bare/10", None),
    ("add a variation, 100 properties", "variation_add/library/100", "variation_add/bare/100",
     None),
    ("best variation, 1 property", "variation_best/library/1", "store_get/bare", None),
    ("best variation, 10 properties", "variation_best/library/10", "store_get/bare", None),
    ("best variation, 100 properties", "variation_best/library/100", "store_get/bare", None),
    ("copy a file of 64 KiB", "file_copy/library/65536", "file_copy/bare/65536", None),
    ("copy a file of 64 MiB", "file_copy/library/67108864", "file_copy/bare/67108864", 1.1),
    ("policy on 100 values", "policy_values/library", "policy_values/bare", None),
    ("policy on 100 files", "policy_files/library", "policy_files/bare", None),
    ("list 100", "list/library/100", "list/bare/100", None),
    ("list 10,000", "list/library/10000", "list/bare/10000", None),
]

# Operation, row, row of SQLite.
BESIDE_SQLITE = [
    ("set, 10 bytes", "store_set/library/10", "store_set/sqlite/10"),
    ("set, 1024 bytes", "store_set/library/1024", "store_set/sqlite/1024"),
    ("get", "store_get/library", "store_get/sqlite"),
    ("open, read one, close", "store_open/library", "store_open/sqlite"),
]

# What is durable beside what is not: operation, row, row of the same that a power cut may take back.
DURABLE = [
    ("report: create and close, bare calls", "create/bare_durable", "create/bare"),
    ("report: open, change and close", "change/library", "change/bare"),
    ("the same, bare calls", "change/bare_durable", "change/bare"),
    ("add a file of 64 KiB", "file_add/durable", "file_add/library"),
]

# How much more one report of many may cost than one of few.
LONGER_LISTS = [("library", 1.3), ("bare", None)]

# The steps of adding a variation, by the number of the report's properties.
ADDING = [("1 property", 1), ("10 properties", 10), ("100 properties", 100)]
ADDING_STEPS = ["parse", "write", "store"]

# How long the observer takes to start, for each report, by the number of reports.
STARTS = [10, 1000, 10000]

# From a setter in another process until its change was told: title, counters, highest ratio of the
# medians that is accepted.
LATENCIES = [("return of the setter", "returned", 2), ("call of the setter", "called", None)]

MEMORY = [("one opened report", "memory/open/1"), ("listing 10,000", "memory/list/10000")]

# What a row's name says of how it is measured.
OPTIONS = ["process_time", "manual_time"]

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Run:
    """The rows of one run, each under its name without the counts of iterations and repetitions."""

    def __init__(self, result):
        self.context = result["context"]
        self.on_tmpfs = self.context["filesystem"] == "tmpfs"
        self.rows = {}
        for row in result["benchmarks"]:
            if row.get("run_type") == "iteration":
                parts = row["run_name"].split("/")
                name = "/".join(part for part in parts
                                if ":" not in part and part not in OPTIONS)
                self.rows.setdefault(name, []).append(row)

    def median(self, name, time):
        """Median time of one iteration in nanoseconds."""
        return statistics.median(
            row[time] * NANOSECONDS[row["time_unit"]] for row in self.rows[name])

    def counter(self, name, counter):
        return statistics.median(row[counter] for row in self.rows[name])


def time_text(nanoseconds):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if abs(nanoseconds) >= size:
            return f"{nanoseconds / size:.2f} {unit}"
    return f"{nanoseconds:.0f} ns"


def verdict(run, ratio, bar):
    """The columns of the highest accepted ratio and of whether it is kept."""
    if bar is None or not run.on_tmpfs:
        return ["", ""]
    return [f"{bar:g}", "yes" if ratio <= bar else "NO"]


def compared(run, title, mine, theirs, bar=None):
    """One line that compares two costs, each a row and the number by which it is divided."""
    columns = []
    ratios = []
    for time in ("cpu_time", "real_time"):
        costs = [run.median(row, time) / count for row, count in (mine, theirs)]
        ratios.append(costs[0] / costs[1])
        columns.append([time_text(cost) for cost in costs] + [f"{ratios[-1]:.2f}"])
    return [title] + columns[0] + verdict(run, ratios[0], bar) + columns[1]


def latency(run, title, since, bar):
    """One line with the percentiles of both watchers. The medians have no ratio when the bare watcher
    had told of a change before its setter returned."""
    times = {watcher: [run.counter("observer_latency", f"{watcher}_{since}_p{percent}")
                       for percent in (10, 50, 90)] for watcher in ("library", "bare")}
    mine, theirs = times["library"][1], times["bare"][1]
    ratio = mine / theirs if theirs > 0 else None
    judged = ["", ""] if ratio is None else verdict(run, ratio, bar)
    return ([title] + [time_text(time) for watcher in times.values() for time in watcher]
            + ["" if ratio is None else f"{ratio:.2f}"] + judged)


def header(title, mine, theirs):
    return [title, mine, theirs, "ratio", "bar", "met", "elapsed: " + mine, theirs, "ratio"]


def print_table(titles, rows):
    widths = [max(len(row[i]) for row in [titles] + rows) for i in range(len(titles))]
    for row in [titles, ["-" * width for width in widths]] + rows:
        cells = [row[0].ljust(widths[0])]
        cells += [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("| " + " | ".join(cells) + " |")
    print()


def report(run):
    print(f"## {run.context['root']} ({run.context['filesystem']})\n")
    print_table(header("operation", "library", "bare calls"),
                [compared(run, title, (mine, 1), (bare, 1), bar)
                 for title, mine, bare, bar in BESIDE_BARE_CALLS])
    print_table(header("each report of a list", "of 10,000", "of 100"),
                [compared(run, kind, (f"list/{kind}/10000", 10000), (f"list/{kind}/100", 100), bar)
                 for kind, bar in LONGER_LISTS])
    print_table(header("store", "library", "SQLite"),
                [compared(run, title, (mine, 1), (sqlite, 1))
                 for title, mine, sqlite in BESIDE_SQLITE])
    print_table(header("what a power cut leaves", "durable", "not"),
                [compared(run, title, (mine, 1), (other, 1)) for title, mine, other in DURABLE])
    print_table(["add a variation to", "whole"] + ADDING_STEPS + ["size of the contents"],
                [[title, time_text(run.median(f"variation_add/library/{count}", "cpu_time"))]
                 + [time_text(run.median(f"variation_add/{step}/{count}", "cpu_time"))
                    for step in ADDING_STEPS]
                 + [f"{run.counter(f'variation_add/parse/{count}', 'bytes'):.0f} bytes"]
                 for title, count in ADDING])
    print_table(header("observer: start, each report", "library", "bare calls"),
                [compared(run, f"of {count:,}", (f"observer_start/library/{count}", count),
                          (f"observer_start/bare/{count}", count)) for count in STARTS])
    updates = run.counter("observer_burst/library", "updates")
    print_table(header("observer: many changes", "library", "bare calls"),
                [compared(run, "each update", ("observer_burst/library", updates),
                          ("observer_burst/bare", updates))])
    print_table(["observer: a change, since the", "library, p10", "p50", "p90",
                 "bare calls, p10", "p50", "p90", "ratio", "bar", "met"],
                [latency(run, title, since, bar) for title, since, bar in LATENCIES])
    print_table(["peak memory", "process", "the same process idle", "allocated by new"],
                [[title, f"{run.counter(row, 'resident_KiB'):.0f} KiB",
                  f"{run.counter(row, 'idle_resident_KiB'):.0f} KiB",
                  f"{run.counter(row, 'heap_bytes') / 1024:.1f} KiB"] for title, row in MEMORY])


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    for name in sys.argv[1:]:
        with open(name, encoding="utf-8") as file:
            run = Run(json.load(file))
        try:
            report(run)
        except KeyError as row:
            sys.exit(f"{name}: no row {row}")


if __name__ == "__main__":
    main()
