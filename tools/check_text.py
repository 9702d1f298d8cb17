#!/usr/bin/python3
"""Do the text files of the tree obey .editorconfig: UTF-8, LF, no tab, no trailing blank, one final newline, and a line
length for sources? Prints each offence as file:line: reason."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SKIPPED_FOLDERS = {".git", "build", "corpus", "__pycache__"}
BINARY = {".mid", ".png"}
LONGEST = 120
ANY_LENGTH = {".md", ".json"}


def offences(path):
    data = path.read_bytes()
    if not data:
        return
    try:
        lines = data.decode("utf-8").split("\n")
    except UnicodeDecodeError as error:
        yield 1, f"not UTF-8 at byte {error.start}"
        return
    if lines[-1] != "" or lines[-2:] == ["", ""]:
        yield len(lines), "does not end with exactly one newline"
    for number, line in enumerate(lines, 1):
        if "\r" in line:
            yield number, "carriage return"
        elif line != line.rstrip():
            yield number, "trailing blank"
        if "\t" in line:
            yield number, "tab"
        if len(line) > LONGEST and path.suffix not in ANY_LENGTH:
            yield number, f"longer than {LONGEST} columns"


def main():
    count = 0
    for path in sorted(ROOT.rglob("*")):
        relative = path.relative_to(ROOT)
        if SKIPPED_FOLDERS.intersection(relative.parts) or path.suffix in BINARY or not path.is_file():
            continue
        for line, reason in offences(path):
            print(f"{relative}:{line}: {reason}")
            count += 1
    return 1 if count else 0


sys.exit(main())
