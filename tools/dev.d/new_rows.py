#!/usr/bin/env python3
"""Prints the rows of `zorvctl show --json`, read from the standard input, that were not there the last time.

    zorvctl show --json | new_rows.py STATE        STATE is a file that remembers how many rows there were
"""
import json
import os
import sys

# The trigger numbers of column `freq`; the others are those of timed passes.
OCCASIONS = {10: "power on", 11: "power off", 12: "suspend", 13: "resume", 14: "mains in", 15: "mains out",
             16: "lid open", 17: "lid closed", 18: "quiet fan on", 19: "quiet fan off", 20: "battery to 100 %",
             21: "battery to 80 %", 22: "battery to 60 %", 23: "graphics event", 24: "connector event"}
SHOWN = {"Thermal": ("cpu_temp", "rpm_fans", "cpu_usage"), "Battery_Power": ("current_capacity", "current", "ac_dc"),
         "SysInfo": ("model_name", "bios_version"), "UserBehavior": ()}


def main(state):
    seen = {}
    if os.path.exists(state):
        with open(state, encoding="utf-8") as file:
            seen = json.load(file)
    fresh = []
    shown = json.loads(sys.stdin.read() or "[]")
    for database in shown if isinstance(shown, list) else []:  # an object tells that there is no file yet
        name = os.path.basename(database["file"])
        for table, rows in database["tables"].items():
            if table not in SHOWN:
                continue
            key = f"{name} {table}"
            for row in rows[seen.get(key, 0):]:
                why = OCCASIONS.get(row["freq"], "timed")
                values = ", ".join(f"{column} {row[column]}" for column in SHOWN[table])
                fresh.append((row["local_time"], f"{name[0]}  {table:<13}  {why:<16}  {values}".rstrip()))
            seen[key] = len(rows)
    for time, line in sorted(fresh):
        print(f"  {time}  {line}")
    with open(state, "w", encoding="utf-8") as file:
        json.dump(seen, file)


main(sys.argv[1])
