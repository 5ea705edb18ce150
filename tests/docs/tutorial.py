#!/usr/bin/env python3
"""tutorial.py TUTORIAL FOLDER: does what a tutorial says, in an empty folder.

Blocks under the name of a file in bold become that file, or are added to it. Blocks of the kind "console" are
commands behind "$ ", with what they print; "..." stands for any lines. Those marked "second" belong to a second
terminal, whose last command goes on while the first terminal is used, and ends by Enter when all is done. Blocks
of the kind "sh" install the library and make the folder, which the caller of this program does.

Identifiers, times, sizes and the numbers of processes are others each time. An identifier of the tutorial stands
for the same one throughout.
"""

import os
import pathlib
import queue
import re
import subprocess
import sys
import threading

LIMIT = 60  # Seconds for what a command, or the next line of the second terminal, may take.
BLOCK = re.compile(r"(?P<before>[^\n]*)\n\n```(?P<kind>\w+)(?P<second> second)?\n(?P<text>.*?)^```$", re.M | re.S)
FILE = re.compile(r"^\*\*`(?P<name>[\w.]+)`\*\*(?P<added>, at its end)?$")
VARIABLE = {
    "id": r"[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}",
    "created": r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d",
    "logged": r"\d\d-\d\d \d\d:\d\d:\d\d +\d+ +\d+",
    "size": r"\d+(?:\.\d+)? (?:B|[KM]iB)",
    "space": r" +",  # As wide as the column.
}
ANY_VARIABLE = re.compile("|".join(f"(?P<{name}>{pattern})" for name, pattern in VARIABLE.items()))


class Failure(Exception):
    pass


class Ids:
    """Which identifier stands for which of the tutorial."""

    def __init__(self):
        self.real = {}
        self.new = []

    def pattern(self, lines):
        """What matches these lines of the tutorial, with a group for each identifier that is new."""
        self.new = []
        return re.compile("".join(r"(?:.*\n)*?" if line == "..." else self._line(line) + r"\n" for line in lines))

    def _line(self, line):
        result, at = "", 0
        for found in ANY_VARIABLE.finditer(line):
            kind = found.lastgroup
            result += re.escape(line[at:found.start()])
            result += self._id(found[0]) if kind == "id" else VARIABLE[kind]
            at = found.end()
        return result + re.escape(line[at:])

    def _id(self, told):
        if told in self.real:
            return re.escape(self.real[told])
        if told in self.new:
            return f"(?P=id{self.new.index(told)})"
        self.new.append(told)
        return f"(?P<id{len(self.new) - 1}>[0-9a-f-]{{36}})"

    def learn(self, match):
        for number, told in enumerate(self.new):
            self.real[told] = match[f"id{number}"]

    def in_command(self, command):
        for told, real in self.real.items():
            command = command.replace(told, real)
        return command


def compare(ids, lines, printed):
    match = ids.pattern(lines).fullmatch(printed)
    if match is None:
        raise Failure("printed:\n" + printed + "the tutorial says:\n" + "".join(line + "\n" for line in lines))
    ids.learn(match)


def commands(text):
    """Pairs of a command, None for what comes of an earlier one, and the lines that it prints."""
    result = []
    for line in text.splitlines():
        if line.startswith("$ "):
            result.append((line[2:], []))
        else:
            if not result:
                result.append((None, []))
            result[-1][1].append(line)
    return result


class Terminals:
    def __init__(self, folder):
        self.folder = folder
        self.ids = Ids()
        self.running = None
        self.printed = queue.Queue()

    def run(self, command, lines):
        done = subprocess.run(["bash", "-c", command], cwd=self.folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=4 * LIMIT)
        sys.stdout.write(done.stdout)
        if done.returncode != 0:
            raise Failure(f"ended with {done.returncode}")
        compare(self.ids, lines, done.stdout)

    def start(self, command, lines):
        self.running = subprocess.Popen(["bash", "-c", "exec " + command], cwd=self.folder, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        threading.Thread(target=self._read, daemon=True).start()
        self.go_on(lines)

    def _read(self):
        for line in self.running.stdout:
            self.printed.put(line)
        self.printed.put("")

    def go_on(self, lines):
        printed = ""
        for _ in lines:
            try:
                printed += self.printed.get(timeout=LIMIT)
            except queue.Empty:
                break
        sys.stdout.write(printed)
        compare(self.ids, lines, printed)

    def play(self, text, second):
        steps = commands(text)
        for number, (command, lines) in enumerate(steps):
            if command is None:
                self.go_on(lines)
                continue
            command = self.ids.in_command(command)
            print(f"{'second ' if second else ''}$ {command}", flush=True)
            if second and number == len(steps) - 1:
                self.start(command, lines)
            else:
                self.run(command, lines)

    def end(self):
        """Presses Enter in the second terminal, where nothing more may be said."""
        if self.running is None:
            raise Failure("nothing ran in the second terminal")
        self.running.stdin.write("\n")
        self.running.stdin.close()
        if self.running.wait(timeout=LIMIT) != 0:
            raise Failure(f"the second terminal ended with {self.running.returncode}")
        rest = self.printed.get(timeout=LIMIT)
        if rest:
            raise Failure(f"the second terminal also said: {rest}")


def write(folder, marker, text):
    place = folder / marker["name"]
    if bool(marker["added"]) != place.exists():
        raise Failure(f"{place.name} is {'' if place.exists() else 'not '}there already")
    with place.open("a") as file:
        file.write(text)


def main():
    tutorial, folder = pathlib.Path(sys.argv[1]).read_text(), pathlib.Path(sys.argv[2])
    terminals = Terminals(folder)
    blocks = list(BLOCK.finditer(tutorial))
    if 2 * len(blocks) != len(re.findall("^```", tutorial, re.M)) or not blocks:
        sys.exit("there are blocks without an empty line and a line of text before them")
    try:
        for block in blocks:
            marker = FILE.match(block["before"])
            if marker:
                write(folder, marker, block["text"])
            elif block["kind"] == "console":
                terminals.play(block["text"], bool(block["second"]))
            elif block["kind"] != "sh":
                raise Failure(f"what is this block for?\n{block[0]}")
        terminals.end()
    except (Failure, subprocess.TimeoutExpired, queue.Empty) as failure:
        print(f"\n{failure}", flush=True)
        sys.exit(1)
    finally:
        if terminals.running and terminals.running.poll() is None:
            terminals.running.kill()


main()
