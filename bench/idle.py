#!/usr/bin/env python3
"""What a running service takes while nothing happens: ./dev bench idle starts it.

    idle.py PROCESS MINUTES

A wake-up is counted by the kernel: a thread that has run is switched away from when it sleeps again, and its status
file has the number of these switches, exactly. Reading it wakes nobody.
"""
import pathlib
import re
import subprocess
import sys
import time

from results import Results


def counts(process):
    """By thread: its switches, and the nanoseconds for which it ran."""
    return {task.name: (sum(map(int, re.findall(r"ctxt_switches:\s+(\d+)", (task / "status").read_text()))),
                        int((task / "schedstat").read_text().split()[0]))
            for task in pathlib.Path(f"/proc/{process}/task").iterdir()}


def taken(before, after):
    """Wake-ups and milliseconds between two counts; a thread that came or went has woken too."""
    wakes = sum(now[0] - before.get(thread, (-1, 0))[0] for thread, now in after.items())
    time_run = sum(now[1] - before.get(thread, (0, 0))[1] for thread, now in after.items())
    return wakes + len(before.keys() - after.keys()), time_run / 1e6


def memory(process):
    """MiB: all, and of it what no file backs."""
    status = pathlib.Path(f"/proc/{process}/status").read_text()
    return [int(re.search(rf"^{field}:\s+(\d+)", status, re.M).group(1)) / 1024 for field in ("VmRSS", "RssAnon")]


def main():
    process, minutes = sys.argv[1], int(sys.argv[2])
    results = Results("A service while nothing happens", ["", "wake-ups", "ms processor", "MiB", "MiB no file backs", "threads"])

    def measure(what, wait):
        before = counts(process)
        wait()
        after = counts(process)
        wakes, milliseconds = taken(before, after)
        whole, own = memory(process)
        results.row(what, str(wakes), f"{milliseconds:.3f}", f"{whole:.2f}", f"{own:.2f}", str(len(after)))
        return wakes, milliseconds, whole

    wakes, milliseconds, whole = measure(f"{minutes} minutes", lambda: time.sleep(60 * minutes))
    seen, *_ = measure("zorvctl service status, to compare", lambda: subprocess.run(
        ["zorvctl", "service", "status"], check=True, stdout=subprocess.DEVNULL))
    results.text("A wake-up is a thread's switch from running to waiting, as the kernel counts it. Of the memory, what files "
                 "back is code that the kernel may drop, the C library's too, which other processes share.")
    results.aim("wake-ups of an idle service", wakes, 0)
    results.aim("its milliseconds of processor time", milliseconds, 0)
    results.aim("its MiB", round(whole, 2), 4.5)
    results.aim("wake-ups seen when it is asked", seen, 1, at_least=True)
    return 0 if results.keep("2-idle") else 1


if __name__ == "__main__":
    sys.exit(main())
