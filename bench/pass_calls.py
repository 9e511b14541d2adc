#!/usr/bin/env python3
"""pass_calls.py [--who]: which part of the program makes the system calls of a first pass. It reads what pass-bench has
traced, so the numbers are exact; --who tells functions too.

A call belongs to the innermost function on the stack that is neither the C library's nor a mere helper's."""

import bisect
import collections
import json
import pathlib
import re
import subprocess
import sys

BUILD = pathlib.Path(__file__).resolve().parent.parent / "build" / "linux-release"
LIBRARIES = ("trivial library", "stand-in library")
SQLITE, LOADER, HARDWARE, START = "SQLite", "the loader", "the stand-in library", "the process's start and end"
NOT_OURS = (SQLITE, LOADER)
MOST = 900
SMALL = 10  # parts with fewer calls share a row
# Sources of which others are made: their calls count for who asked.
HELPERS = {"whole_file.cpp", "machine_path.cpp", "machine.cpp"}
FRAME = re.compile(r" > (.+?)\((.*)\+0x[0-9a-f]+\) \[0x([0-9a-f]+)\]$")


def nm(*arguments):
    return subprocess.run(["nm", *arguments], capture_output=True, text=True, check=True).stdout.splitlines()


def sources():
    """From a function to the source that has it; templates, and names that several sources have, are left out."""
    found = collections.defaultdict(set)
    for object_file in BUILD.rglob("*.o"):
        if "src" in object_file.parts or "rpc" in object_file.parts or object_file.name == "sqlite3.c.o":
            source = SQLITE if object_file.name == "sqlite3.c.o" else object_file.name.removesuffix(".o")
            for line in nm("--defined-only", object_file):
                _, kind, symbol = line.split()
                if kind in "tT":
                    found[symbol].add(source)
    return {symbol: names.pop() for symbol, names in found.items() if len(names) == 1}


class Program:
    """The executable: which source an address in it comes from."""

    def __init__(self):
        self.sources = sources()
        lines = [line.split() for line in nm("-n", "--defined-only", BUILD / "bin" / "zorvalis-agent-service")]
        code = [(int(address, 16), symbol) for address, kind, symbol in lines if kind in "tTwW"]
        self.addresses, self.symbols = zip(*code)

    def source(self, address):
        return self.sources.get(self.symbols[bisect.bisect_right(self.addresses, address) - 1])


def origin(frames, program):
    """The part that makes a call, and its function."""
    for file, function, address in frames:
        name = pathlib.Path(file).name
        if name.startswith("ld-linux"):
            return LOADER, function
        if name == "ZorvWinIo64.so":
            return HARDWARE, function
        if name == "zorvalis-agent-service":
            source = program.source(int(address, 16))
            if source is not None and source not in HELPERS:
                return source, function
    return START, ""


def calls(log, program):
    """Of each call its name, its part and its function."""
    found, name, frames = [], None, []
    for line in [*log.read_text(errors="replace").splitlines(), "0 end("]:
        frame = FRAME.match(line)
        if frame:
            frames.append(frame.groups())
        elif " resumed>" not in line and (call := re.match(r"\d+ +(\w+)\(", line)):
            if name is not None:
                found.append((name, *origin(frames, program)))
            name, frames = call.group(1), []
    return found


def main():
    program = Program()
    made = [calls(BUILD / "bench" / f"{library}.calls", program) for library in LIBRARIES]
    counts = [collections.Counter(part for _, part, _ in one) for one in made]
    large = [part for part in counts[0] | counts[1] if max(count[part] for count in counts) >= SMALL]
    rows = [[part, *(str(count[part]) for count in counts)]
            for part in sorted(large, key=lambda part: -max(count[part] for count in counts))]
    rows.append(["other sources", *(str(sum(count.values()) - sum(count[part] for part in large)) for count in counts)])
    own = [sum(n for part, n in count.items() if part not in NOT_OURS) for count in counts]
    rows.append(["all but SQLite's and the loader's", *map(str, own)])
    aims = [{"what": f"{library}: system calls of a first pass but SQLite's and the loader's", "value": n, "limit": MOST,
             "atLeast": False, "held": n <= MOST} for library, n in zip(LIBRARIES, own)]
    result = {"title": "System calls of a first pass, by the part that makes them", "columns": ["", *LIBRARIES],
              "rows": rows, "texts": [], "aims": aims, "plots": []}
    (BUILD / "bench" / "results" / "1-pass-calls.json").write_text(json.dumps(result, indent=1) + "\n")
    print("\n" + result["title"])
    for row in [result["columns"], *rows]:
        print(f"{row[0]:40}" + "".join(f"{cell:>20}" for cell in row[1:]))
    for aim in aims:
        print(f"{aim['what']}: {aim['value']}, wanted at most {MOST}: {'held' if aim['held'] else 'MISSED'}")
    if "--who" in sys.argv[1:]:
        for library, one in zip(LIBRARIES, made):
            print(f"\n{library}")
            who = collections.Counter((part, name, function.split("(")[0] if "(anonymous" not in function else function)
                                      for name, part, function in one if part not in NOT_OURS)
            for (part, name, function), n in who.most_common(60):
                print(f"{n:5} {name:12} {part:24} {function[:100]}")


main()
