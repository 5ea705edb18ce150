#!/usr/bin/env python3
"""links.py TREE: what the documents of a source tree name is there.

Looks at each Markdown file: links to files of the tree, to headings in them, and paths in backquotes that begin
with a folder of the tree. In the sources it looks at the documents that comments name. Says what is dead, and
fails then.
"""

import pathlib
import re
import subprocess
import sys

FOLDERS = r"(?:\.ci|benchmarks|cmake|docs|examples|include|scripts|src|tests|tools)"
LINK = re.compile(r"(?<!!)\[[^\]]*\]\(([^)\s]+)\)")
NAMED = re.compile(rf"`({FOLDERS}/(?!.*\b[A-Z]{{2,}}\b)[\w./-]*)`")  # Capitals stand for any name.
DOCUMENT = re.compile(r"\bdocs/[\w/-]+\.md\b")


def tracked(tree, *patterns):
    """The files that are tracked, or new and not ignored; all, where there is no repository."""
    listed = subprocess.run(["git", "-C", tree, "ls-files", "--cached", "--others", "--exclude-standard", "--",
                             *patterns], capture_output=True, text=True)
    if listed.returncode == 0:
        files = [tree / line for line in listed.stdout.splitlines()]
    else:
        files = [file for pattern in patterns for file in tree.rglob(pattern)
                 if file.relative_to(tree).parts[0] != "build"]
    return sorted(file for file in files if file.is_file())


def without_code(text):
    """The text with its fenced blocks made empty lines, so that lines keep their numbers."""
    return re.sub(r"^ *```.*?^ *```", lambda block: "\n" * block[0].count("\n"), text, flags=re.M | re.S)


def anchors(document):
    """The names by which headings can be linked to."""
    headings = re.findall(r"^#+ +(.+?) *$", without_code(document.read_text()), re.M)
    return {re.sub(r"[^\w\- ]", "", re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).lower()).replace(" ", "-")
            for heading in headings}


def dead_link(document, target):
    path, _, anchor = target.partition("#")
    place = document.parent / path if path else document
    if not place.exists():
        return True
    return bool(anchor) and place.suffix == ".md" and anchor not in anchors(place)


def dead_in_document(tree, document):
    for number, line in enumerate(without_code(document.read_text()).splitlines(), 1):
        for target in LINK.findall(line):
            if not re.match(r"[a-z]+:", target) and dead_link(document, target):
                yield number, target
        for path in NAMED.findall(line):
            if not (tree / path).exists():
                yield number, path


def dead_in_source(tree, source):
    for number, line in enumerate(source.read_text().splitlines(), 1):
        for path in DOCUMENT.findall(line):
            if not (tree / path).exists():
                yield number, path


def main():
    tree = pathlib.Path(sys.argv[1]).resolve()
    documents = tracked(tree, "*.md")
    if not documents:
        sys.exit(f"there are no documents in {tree}")
    sources = tracked(tree, "*.h", "*.cpp", "*.cmake", "CMakeLists.txt", "*.sh", "*.py", "scripts/*", ".ci/*")
    dead = [(document, *found) for document in documents for found in dead_in_document(tree, document)]
    dead += [(source, *found) for source in sources for found in dead_in_source(tree, source)]
    for file, number, target in dead:
        print(f"{file.relative_to(tree)}:{number}: there is no {target}")
    print(f"{len(documents)} documents, {len(sources)} sources, {len(dead)} dead links")
    sys.exit(bool(dead))


main()
