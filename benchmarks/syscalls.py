#!/usr/bin/env python3
"""Counts the system calls of each operation by strace.

usage: syscalls.py TRACE_PROBE RESULT.json

An operation is what stands between two of the marks that trace_probe leaves; the second one of each
run is counted, since the first may have to open what is kept.
"""

import collections
import json
import os
import re
import subprocess
import sys
import tempfile

from peernames import MAIN_PEERS

# Row, operation, properties, reports, bytes.
ROWS = [
    ("create", "create", 1, 1, 0),
    ("open", "open", 1, 1, 0),
    ("change", "change", 1, 1, 0),
    ("visit", "visit", 1, 1, 0),
    ("set", "set", 1, 1, 0),
    ("get", "get", 1, 1, 0),
    ("variation_add_10", "variation_add", 10, 1, 0),
    ("variation_best_10", "variation_best", 10, 1, 0),
    ("file_add_64K", "file_add", 1, 1, 64 << 10),
    ("policy_values", "policy_values", 1, 1, 0),
    ("policy_files", "policy_files", 1, 1, 0),
    ("list_100", "list", 1, 100, 0),
    ("remove", "remove", 1, 1, 0),
]

MARK = '"/trace_probe/mark"'
CALL = re.compile(r"^(\w+)\(")


def calls_of(lines):
    """The calls between the last two marks, by their names."""
    marks = [number for number, line in enumerate(lines) if MARK in line]
    if len(marks) != 4:
        sys.exit(f"syscalls.py: {len(marks)} marks in a trace instead of 4")
    names = (CALL.match(line) for line in lines[marks[2] + 1:marks[3]])
    return dict(collections.Counter(name.group(1) for name in names if name))


def trace(probe, peer, row, directory):
    _, operation, *amounts = row
    output = os.path.join(directory, "trace")
    subprocess.run(["strace", "-o", output, probe, operation, peer] + [str(each) for each in amounts],
                   check=True, env={**os.environ, "TMPDIR": directory})
    with open(output, encoding="utf-8", errors="replace") as stream:
        return calls_of(stream.readlines())


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with tempfile.TemporaryDirectory(prefix="kelp-syscalls-", dir=memory) as directory:
        counts = {row[0]: {peer: trace(sys.argv[1], peer, row, directory) for peer in MAIN_PEERS}
                  for row in ROWS}
    with open(sys.argv[2], "w", encoding="utf-8") as stream:
        json.dump(counts, stream, indent=1)


if __name__ == "__main__":
    main()
