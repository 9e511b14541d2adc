#!/usr/bin/env python3
"""Compares the programs that are handed out with a budget of bytes, each as packages have it, without symbols.

    tools/sizes.py [BUILD...]     linux-release or windows; without any, whatever is built

A program that has to grow gets a larger figure here, in the commit that lets it grow.
"""
import pathlib
import subprocess
import sys
import tempfile

BUILDS = pathlib.Path(__file__).resolve().parent.parent / "build"
BUDGET = {
    "linux-release": {
        "zorvalis-agent-service": 2_370_000,
        "zorvctl": 3_885_000,
        "zorvserver": 3_145_000,
        "libzorvalis_client.so.1": 433_000,
        "ZorvWinIo64.so": 72_000,
    },
    "windows": {
        "ZorvalisWinService.exe": 2_135_000,
        "zorvctl.exe": 4_820_000,
        "zorvsetup.exe": 1_810_000,
        "zorv-acceptance.exe": 4_280_000,
        "zorvalis_client.dll": 277_000,
        "ZorvWinIo64.dll": 157_000,
    },
}


def size(program):
    if program.suffix in (".exe", ".dll"):
        return program.stat().st_size  # the build has stripped it
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, program], check=True)
        return pathlib.Path(stripped.name).stat().st_size


def main():
    wanted = sys.argv[1:] or BUDGET
    over = 0
    for build in wanted:
        programs = {name: BUILDS / build / "bin" / name for name in BUDGET[build]}
        missing = [name for name, program in programs.items() if not program.is_file()]
        if missing:
            print(f"{build}: not built, so not compared: {', '.join(missing)}")
            over += len(sys.argv) > 1
        for name, limit in BUDGET[build].items():
            bytes_ = 0 if name in missing else size(programs[name])
            if bytes_ > limit:
                print(f"{build}/{name}: {bytes_} bytes, {limit} are allowed (tools/sizes.py); if it is of older sources, "
                      f"`./dev build {build}` makes it anew")
                over += 1
    return 1 if over else 0


if __name__ == "__main__":
    sys.exit(main())
