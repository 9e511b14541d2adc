#!/usr/bin/env python3
"""What the programs take on disk and of what they are made, by the linker's maps of their builds, and how long they take to
start.

    programs.py     reads build/linux-release and, where it was built, build/windows

Sizes are those in packages, without symbols. Valgrind, where it is installed, counts the instructions before main.
"""
import collections
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from results import Results

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools"))
from sizes import size  # noqa: E402

BUILD = pathlib.Path("build")
# By build: the program, the target whose map tells of it, and an argument with which it does least.
PROGRAMS = {
    "linux-release": [("zorvalis-agent-service", "zorvalis", "-nothing"), ("zorvctl", "zorvctl", "--version"),
                      ("zorvserver", "zorvserver", "--help"), ("libzorvalis_client.so.1", "zorvalis_client", None),
                      ("ZorvWinIo64.so", "zorv_hardware", None)],
    "windows": [("ZorvalisWinService.exe", "zorvalis", None), ("zorvctl.exe", "zorvctl", None),
                ("zorvsetup.exe", "zorvsetup", None), ("zorv-acceptance.exe", "zorv_acceptance", None),
                ("zorvalis_client.dll", "zorvalis_client", None), ("ZorvWinIo64.dll", "zorv_hardware", None)],
}
# The first pattern that a function's name in its section or its object file's path has tells where it is from.
ORIGINS = [("SQLite", r"sqlite3\.c\.o|zorv_sqlite"), ("JSON", r"_Z\w*8nlohmann"), ("asio", r"_Z\w*4asio"),
           ("CLI11", r"_Z\w*3CLI"), ("C++", r"libstdc\+\+\.a|_ZT?[VISC]?(N[KVR]*)?(S[a-z]|9__gnu_cxx)"),
           ("ours", r"CMakeFiles|libzorvalis|\.obj$|generated/")]
NOT_LOADED = re.compile(r"\.(debug|comment|bss|tbss|note|stapsdt|symtab|strtab|shstrtab|gnu_debug)")
RUNS = 25


def origins(file):
    """KiB by origin, of what the map says has a place in memory."""
    found = collections.Counter()
    memory = file.read_text(errors="replace").split("\nLinker script and memory map", 1)[1]
    for section, address, size, path in re.findall(
            r"^ (\.[\w.$*@]+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+) (\S.*)$", memory, re.M):
        if int(address, 16) and not NOT_LOADED.match(section):
            both = f"{section} {path}"
            found[next((name for name, pattern in ORIGINS if re.search(pattern, both)), "rest")] += int(size, 16) / 1024
    return found


def run(command):
    start = time.perf_counter()
    subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    return (time.perf_counter() - start) * 1e3


def instructions(command):
    """Before main, and in all; nothing without valgrind."""
    if not shutil.which("valgrind"):
        return "", ""
    with tempfile.TemporaryDirectory() as folder:
        run(["valgrind", "--tool=callgrind", "--dump-before=main", f"--callgrind-out-file={folder}/out", *command])
        parts = [int(re.search(r"^(?:summary|totals): (\d+)", (pathlib.Path(folder) / name).read_text(), re.M).group(1))
                 for name in sorted(os.listdir(folder), key=lambda name: (name == "out", name))]
    return f"{parts[0] / 1e3:.0f}", f"{sum(parts) / 1e3:.0f}"


def main():
    names = [name for name, _ in ORIGINS]
    results = Results("Programs: KiB on disk, by where they are from; thousands of instructions, and ms, of the smallest run",
                      ["", "KiB", *names, "rest", "to main", "in all", "ms"])
    os.environ["ZORV_MACHINE"] = "/nowhere"  # a machine that is not there; none of these runs asks for it
    empty = statistics.median(run(["true"]) for _ in range(RUNS))
    for build, programs in PROGRAMS.items():
        for name, target, argument in programs:
            program, linked = BUILD / build / "bin" / name, BUILD / build / "maps" / f"{target}.map"
            if not program.is_file() or not linked.is_file():
                print(f"{build}/{name} is not built")
                continue
            whole, found = size(program) / 1024, origins(linked)
            parts = [found[each] for each in names]
            started = ["", "", ""]
            if argument:
                command = [str(program.resolve()), argument]
                started = [*instructions(command), f"{statistics.median(run(command) for _ in range(RUNS)):.1f}"]
            results.row(f"{build}/{name}", *(f"{part:.0f}" for part in [whole, *parts, whole - sum(parts)]), *started)
    results.text("JSON, asio and CLI11 are header libraries, compiled into the programs, as templates of the C++ library are "
                 "beside its own part; the rest is the compiler's and C's runtime, relocations and headers.")
    results.text(f"`true`, which does nothing, takes {empty:.1f} ms. How long Windows takes to start a program, and its working "
                 "set there, only a real Windows tells: Wine's loader and memory are not Windows'.")
    results.keep("7-programs")
    return 0


if __name__ == "__main__":
    sys.exit(main())
