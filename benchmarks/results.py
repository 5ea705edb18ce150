"""Reads the JSON of report_benchmark."""

import json
import statistics

# What a row's name says of how it is measured.
_OPTIONS = {"process_time", "manual_time", "real_time"}

_NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def _plain_name(row):
    """The row's name without how and how often it is measured."""
    parts = row["run_name"].split("/")
    return "/".join(part for part in parts if ":" not in part and part not in _OPTIONS)


class Cost:
    """The times of one iteration over the repetitions, in nanoseconds."""

    def __init__(self, times):
        self.repetitions = len(times)
        self.median = statistics.median(times)
        low, high = self.median, self.median
        if len(times) > 1:
            low, _, high = statistics.quantiles(times, n=4, method="inclusive")
        # Half of the width in which the middle half of the repetitions lies, as a part of the median.
        self.spread = (high - low) / 2 / self.median if self.median else 0


class Run:
    """The rows of one or several results that were measured on one file system."""

    def __init__(self, *files):
        self.rows = {}
        for file in files:
            with open(file, encoding="utf-8") as stream:
                result = json.load(stream)
            self.context = result["context"]
            for row in result["benchmarks"]:
                if row.get("run_type") == "iteration":
                    self.rows.setdefault(_plain_name(row), []).append(row)

    @property
    def in_memory(self):
        return self.context["filesystem"] == "tmpfs"

    def cost(self, name, time=None):
        """@param time "cpu_time" or "real_time"; if it is not said: processor time in memory, where
        nothing waits and what else the machine does hardly disturbs, and elapsed time on a disk."""
        if time is None:
            time = "cpu_time" if self.in_memory else "real_time"
        return Cost([row[time] * _NANOSECONDS[row["time_unit"]] for row in self.rows[name]])

    def median(self, name, time=None):
        return self.cost(name, time).median

    def counter(self, name, counter):
        return statistics.median(row[counter] for row in self.rows[name])

    def amounts(self, prefix):
        """The numbers with which the rows under @p prefix end, in order."""
        parts = (name.rsplit("/", 1) for name in self.rows)
        return sorted(int(number) for begin, *number in parts if begin == prefix for number in number)

    def repetitions(self, name):
        return len(self.rows[name])
