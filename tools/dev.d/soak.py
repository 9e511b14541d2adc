#!/usr/bin/env python3
"""Lets a machine with a running service live through days, and compares its rows with what the rules give.

    soak.py DAYS PROCESS       PROCESS is the service's process id; the machine is the one of ZORV_MACHINE

Each day it runs the passes of the scheduled task, every five minutes, and between them lid, mains and suspend events.
For each pass it moves the machine's clock to the start. The machine collects on every second day from the first on
(intervalTimer "1"): thermal and battery every 30 minutes, system information daily.
"""
import collections
import json
import os
import subprocess
import sys
import time

MACHINE = os.environ["ZORV_MACHINE"]
# How many rows a table takes, by the file's class: one more than its limit, or 0 where no row of that kind comes.
LIMITS = {"O": {"Thermal": 97, "Battery_Power": 289, "SysInfo": 2, "UserBehavior": 0},
          "E": {"Thermal": 109, "Battery_Power": 109, "SysInfo": 0, "UserBehavior": 109},
          "W": {"Thermal": 25, "Battery_Power": 25, "SysInfo": 0, "UserBehavior": 25}}


def zorvctl(*words, check=True):
    return subprocess.run(["zorvctl", *words], check=check, capture_output=True, text=True).stdout


def machine_time():
    with open(f"{MACHINE}/clock.json", encoding="utf-8") as file:
        return time.time() + json.load(file).get("offset", 0)


def set_time(when):
    with open(f"{MACHINE}/clock.json.new", "w", encoding="utf-8") as file:
        json.dump({"offset": when - time.time(), "wait": 0.0001}, file)
    os.rename(f"{MACHINE}/clock.json.new", f"{MACHINE}/clock.json")


def held(process):
    """What the process holds: KiB of memory, threads, descriptors."""
    with open(f"/proc/{process}/status", encoding="utf-8") as text:
        fields = dict(line.split(":", 1) for line in text)
    return int(fields["VmRSS"].split()[0]), int(fields["Threads"]), len(os.listdir(f"/proc/{process}/fd"))


# The rows that are there, by class, month and table.
def stored():
    counts = collections.Counter()
    for database in json.loads(zorvctl("show", "--json")):
        name = os.path.basename(database["file"])
        for table, rows in database["tables"].items():
            if table in LIMITS["O"]:
                counts[name[0], name.split("_")[2], table] += len(rows)
    return counts


def main(days, process):
    midnight = time.mktime(time.strptime(time.strftime("%Y-%m-%d", time.localtime(machine_time())), "%Y-%m-%d"))
    start = midnight + 86400 + 60  # tomorrow, so that the first do-job day is a whole one
    # Even when today was a do-job day already.
    zorvctl("registry", "set", "product", "lastDojobTime", str(int(midnight + 86400)))
    expected = collections.Counter()

    def expect(letter, month, tables):
        for table in tables:
            if expected[letter, month, table] < LIMITS[letter][table]:
                expected[letter, month, table] += 1

    first = None
    for day in range(days):
        due = {"Thermal": None, "Battery_Power": None, "SysInfo": None}
        for minute in range(0, 1440, 5):
            now = start + day * 86400 + minute * 60
            set_time(now)
            month = time.strftime("%Y%m", time.localtime(now))
            subprocess.run(["zorvalis-agent-service", "-j0"], check=True)
            if day % 2 == 0:
                for table, period in (("Thermal", 1800), ("Battery_Power", 1800), ("SysInfo", 86400)):
                    if due[table] is None or now - due[table] >= period:
                        due[table] = now
                        expect("O", month, [table])
            if minute % 240 == 120:
                for words in (("lid", "close"), ("lid", "open"), ("ac", "out"), ("ac", "in"), ("suspend",), ("resume",)):
                    zorvctl("event", *words)
                    if day % 2 == 0:
                        # Suspend brings a row of UserBehavior and no samples.
                        samples = [] if words == ("suspend",) else ["Thermal", "Battery_Power"]
                        expect("E", month, ["UserBehavior", *samples])
        if first is None:
            first = held(process)
        print(f"  day {day + 1} of {days}", end="\r" if sys.stdout.isatty() else "\n", flush=True)
    last = held(process)
    found = stored()
    wrong = {key: (found[key], expected[key]) for key in set(found) | set(expected) if found[key] != expected[key]}
    print(f"{days} days, {sum(found.values())} rows; the service after the first and the last day: "
          f"{first[0]} and {last[0]} KiB, {first[1]} and {last[1]} threads, {first[2]} and {last[2]} descriptors")
    for key, (is_there, should_be) in sorted(wrong.items()):
        print(f"  {key[0]} {key[1]} {key[2]}: {is_there} rows, {should_be} by the rules")
    print(f"not as the rules give: {len(wrong)} counts differ" if wrong else "all rows as the rules give")
    return 1 if wrong else 0


try:
    sys.exit(main(int(sys.argv[1]), sys.argv[2]))
except (OSError, subprocess.CalledProcessError) as error:
    sys.exit(f"not counted to the end, the service or a pass has failed: {error}")
