#!/usr/bin/env python3
"""Lets each file operation of a pass and of the service fail, or kills the process there, and damages files of a
machine. Each time it looks at what is left, and whether the next pass and the service work.

    faults.py BIN MEMORY [--seed N] [--damaged N] [--every N] [--case NAME]

BIN holds the built programs, MEMORY takes a machine for each case, MEMORY/server is a reference server's that runs.
With --every only each Nth operation is tried, and those with the setting file. A case's name, "pass-kill-17" or
"damaged-230", tries that one alone and leaves its machine.
"""
import argparse
import collections
import concurrent.futures
import ctypes
import json
import multiprocessing
import os
import pathlib
import random
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import time

from damages import DAMAGES, PLACE

TABLES = {"Thermal": 97, "Battery_Power": 289, "SysInfo": 2}  # the timed tables, and how many rows a month's file takes
TIMERS = ("getSettingFile", "GetThermal", "GetBatteryPower", "GetSystemInfo", "upload")
EVENTS = (("event", "suspend"), ("event", "wmi", "154"))  # each brings a row, in two different files
LIMIT = 20  # seconds until a process counts as hanging; usually it takes a hundredth of one
PRODUCT = "ProgramData/Zorv/Zorvcore/Zorvalis"
KEY = "registry/HKEY_LOCAL_MACHINE/SOFTWARE/Zorv/Zorvcore/Zorvalis"
OLDEST, KEPT = "E_00_201901_V1-0.db", "E_07_201901_V1-0.db"  # the keep limit deletes one; nothing touches the other
# What is run (a pass on a machine with files, a pass on a fresh one, the service) and what happens to its operations.
SERIES = {"pass": ("kill", "enospc", "full", "eio", "read"), "first": ("kill", "enospc", "full", "eio", "read"),
          "service": ("kill", "full", "eio")}

# The findings that the design accepts: patterns of the case, of the operation that was hit or what was damaged, and of
# the finding; and why it is accepted. NAME stands for the resting file of the operation. Any other finding fails the
# run, and so does every finding of a case in which no operation was made to fail.
ACCEPTED = [
    (r"\w+-(kill|eio)", r"renameat2 .*\.cached\.temp", r"lost: of NAME .*|stray for good: NAME\.cached\.temp",
     "a resting file is deleted before its successor takes its name"),
    (r"\w+-(kill|eio)", r"renameat2 .*/(BGFS|E_[^/]*_202001_V1-0)\.db\.cached\.temp", r"next pass: never sent",
     "a resting file is deleted before its successor takes its name"),
    (r"\w+-(enospc|full|eio|read)", r".*BGFS\.db.*", r"next pass: never sent",
     "a registration is lost when the status database cannot be written"),
    (r"\w+-read", r"pread .*\.db\.cached", r"emptied: the data folder|next pass: never sent",
     "a read error during a file's check empties the folder"),
    (r"\w+-read", r"openat .*\.db", r"lost: of NAME .*",
     "a resting file that cannot be opened counts as absent, and is replaced"),
    (r"\w+-eio", r"unlink .*(_MD5_.*|\.cached.*)", r"stray for good: .*(_MD5_|\.cached).*", "what cannot be deleted stays"),
    (r"\w+-\w+-", r".*", r"stray beside its file: .*",
     "what a failed cycle leaves goes with the next cycle of its file, or with the file"),
    (r"service-", r"", r"never reached: 1?\d short", "the threads of the service do not always do the same"),
    (r"damaged", r"status, .*|setting, .*stopped", r"stray beside its file: E_00_201901_V1-0\.db\.cached\.temp",
     "what a failed cycle leaves goes with the next cycle of its file, or with the file"),
    (r"damaged", r"setting, (bytes|text) .*stopped", r"next pass: (no row in \w+|not the server's settings|"
     r".*job0 ended early: (parse error|type must be string).*|.*\bDoC?Job Exception.*)|"
     r"service: (no event is recorded|it cannot be switched off|start, events, switch, stop end with \[(0, )+1, 0\])",
     "a stored setting file that is broken stops timed work until it is removed"),
    (r"damaged", r"setting, (folder|no rights): .*", r"next pass: not the server's settings",
     "a setting file that cannot be opened is none, and cannot be replaced"),
    (r"damaged", r"setting, bytes .*went on", r"next pass: not the server's settings",
     "settings that can be read rule, also over when they are replaced"),
    (r"damaged", r"O, (folder|.*link.*): .*", r"next pass: no row in \w+",
     "a folder or a link in a file's place takes no rows"),
    (r"damaged", r"(O|status), folder: .*", r"stray for good: (O_.*|BGFS)\.db\.cached\.temp",
     "what cannot take its file's place stays until the next cycle, and is left again"),
    (r"damaged", r"status, (statement 3|bytes .*): .*", r"lost: of E_0\d_201901_V1-0\.db .*",
     "the status database says which file is the oldest, and goes"),
    (r"damaged", r"O, bytes .*", r"next pass: no row in \w+", "damage that passes SQLite's check costs what it hit"),
]


def drop_rights():
    """Makes a file's rights count for the started programs, even when this runs as root."""
    for capability in (1, 2):  # CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH
        ctypes.CDLL(None).prctl(24, capability, 0, 0, 0)  # PR_CAPBSET_DROP; fails without effect for other users


class Database:
    """A copy in memory of a database file, without the resting transform."""

    def __init__(self, image):
        self.connection = sqlite3.connect(":memory:", isolation_level=None)
        self.connection.text_factory = bytes
        if image:
            self.connection.deserialize(image)

    def rows(self, sql, *values):
        return self.connection.execute(sql, values).fetchall()

    def image(self):
        return self.connection.serialize()

    def contents(self):
        """The number of rows of each table, and in the status database 1 for each registered file."""
        if self.rows("PRAGMA integrity_check") != [(b"ok",)]:
            raise sqlite3.DatabaseError("fails the integrity check")
        names = [name.decode() for name, in self.rows("SELECT name FROM sqlite_master WHERE type = 'table'")]
        counts = {name: self.rows(f'SELECT COUNT(*) FROM "{name}"')[0][0] for name in names}
        if "FILESTATUS" in counts:
            counts |= {name.decode(): 1 for name, in self.rows("SELECT FILE_NAME FROM FILESTATUS")}
        return counts


class Machine:
    """A stand-in machine in a folder, and the programs that run on it."""

    def __init__(self, rig, folder):
        self.rig, self.folder, self.name = rig, folder, folder.name
        self.data, self.stored = folder / PRODUCT / "data", folder / PRODUCT / "setting.json"
        self.aged = f"E_{self.name}_202001_V1-0.db"
        self.seen = 0

    def start(self, *words, **variables):
        environment = {"PATH": os.environ["PATH"], "ZORV_MACHINE": str(self.folder), **variables}
        environment |= {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
        return subprocess.Popen([str(word) for word in words], env=environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)

    @staticmethod
    def end(process):
        """The exit code, 128 and the signal's number for a killed process, or "hang" after LIMIT seconds."""
        try:
            code = process.wait(LIMIT)
            return code if code >= 0 else 128 - code
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return "hang"

    def run(self, *words):
        return self.end(self.start(self.rig.bin / words[0], *words[1:]))

    def fault(self, kind, number, *words, **variables):
        # Windows' registry does not fail to be read, so reads of the registry in files are left alone.
        folder = self.folder / "ProgramData" if kind == "read" else self.folder
        return self.start(self.rig.bin / "zorvfault", folder, self.log, kind, number, self.rig.bin / words[0],
                          *words[1:], **variables)

    @property
    def log(self):
        return self.folder.with_suffix(".log")

    def operations(self):
        return self.log.read_text().splitlines() if self.log.exists() else []

    def value(self, name, text=None):
        path = self.folder / KEY / name
        if text is None:
            return path.read_text().partition("\n")[2].strip() if path.exists() else ""
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("REG_SZ\n" + text + "\n")

    def make_due(self):
        for name in TIMERS:
            (self.folder / KEY / name).unlink(missing_ok=True)

    def events(self):
        """The new lines of the event log that report an error. A killed process may have left half a line."""
        path = self.folder / "eventlog.jsonl"
        lines = path.read_text().splitlines() if path.exists() else []
        new, self.seen = lines[self.seen:], len(lines)
        return [line for line in new if re.search("ended early|Exception", line)]

    def database(self, name):
        return Database((self.data / name).read_bytes().translate(self.rig.key))

    def contents(self, findings):
        found = {}
        for path in sorted(self.data.glob("*.db")):
            if path.is_file() and not path.is_symlink():
                try:
                    found[path.name] = self.database(path.name).contents()
                except (sqlite3.Error, OSError) as error:
                    findings.append(f"unreadable: {path.name}: {error}")
        return found

    def o_file(self):
        return next((path.name for path in self.data.glob("O_*.db")), "")

    def is_sent(self):
        try:
            received = (self.rig.server / "data/files" / self.aged).read_bytes()
            return received == (self.data / self.aged).read_bytes()
        except OSError:
            return False


class Rig:
    """What all cases share: the programs, the server, and a template machine for each series, copied for each case."""

    def __init__(self, arguments):
        self.bin, self.memory, self.seed = arguments.bin.resolve(), arguments.memory, arguments.seed
        self.server = self.memory / "server"
        self.key = bytes(range(256))
        document = json.loads((self.server / "settings/2.0.6.0/default.json").read_text())
        self.setting = document | {"version": "2.0.6.0"}
        self.make()

    def copy(self, template, name):
        machine = Machine(self, self.memory / name)
        shutil.copytree(self.memory / template, machine.folder, symlinks=True)
        if template == "pass":
            (machine.data / "aged").rename(machine.data / machine.aged)
            machine.value("EDb_Filename", machine.aged + ";2;2020-01-15")
        machine.events()
        return machine

    def make(self):
        first = Machine(self, self.memory / "first")
        assert first.run("zorvctl", "machine", "init") == 0, "no machine can be made"
        assert first.run("zorvalis-agent-service", "-install") == 0
        # Late in the evening the machine's clock is set to noon: passes after midnight would collect nothing.
        now = time.localtime()
        noon = (12 - now.tm_hour) * 3600 - now.tm_min * 60 if now.tm_hour > 18 or now.tm_hour < 1 else 0
        (first.folder / "clock.json").write_text(json.dumps({"wait": 0, "offset": noon}))
        address = re.search(r"listening https (\S+)", (self.server / "server.log").read_text())[1]
        hosts = {"fs.zorvcore.example:443": address}
        (first.folder / "network.json").write_text(
            json.dumps({"online": True, "hosts": hosts, "ca": str(self.server / "ca.pem")}))
        shutil.copytree(first.folder, self.memory / "pass")
        full = Machine(self, self.memory / "pass")
        assert full.run("zorvalis-agent-service", "-j0") == 0 and full.stored.exists(), "the usual pass fails"
        full.make_due()
        # Longer than the server's document, which will replace it: what is left of it behind the new text must go.
        full.stored.write_text(json.dumps(self.setting | {"note": "x" * 200}))
        resting = (full.data / full.o_file()).read_bytes()
        self.key = bytes(byte ^ resting[0] ^ ord("S") for byte in range(256))
        # Ten files of a class were sent. An eleventh, several chunks long and with rows, waits to be registered.
        status, aged = full.database("BGFS.db"), full.database(full.o_file())
        for number in range(10):
            name = OLDEST.replace("00", f"{number:02}", 1)
            (full.data / name).write_bytes(resting)
            status.rows("INSERT INTO FILESTATUS VALUES (?, 2, ?, 1, 16384, 16384, '', '', 2, 'OK', '', '', 1, '')",
                        name, f"2019-01-{number + 1:02}")
        (full.data / (OLDEST + ".cached.temp")).write_bytes(resting)  # as an interrupted cycle leaves it
        # The file of this month's events exists: an event that made it would overwrite the eleventh's registration.
        (full.data / ("E" + full.o_file()[1:])).write_bytes(resting)
        aged.rows("CREATE TABLE Padding AS SELECT randomblob(20000) AS bytes")
        for name, database in (("BGFS.db", status), ("aged", aged)):
            (full.data / name).write_bytes(database.image().translate(self.key))
        self.before = {"pass": full.contents([]), "first": {}}
        self.before["pass"].pop(OLDEST)
        self.before["pass"]["BGFS.db"].pop(OLDEST)
        self.before["pass"]["BGFS.db"].pop("FILESTATUS")
        self.before["service"] = self.before["pass"]
        # For the service: a pass has run, so that events count. The file of one of EVENTS exists, the other's does not.
        shutil.copytree(full.folder, self.memory / "service", ignore=shutil.ignore_patterns("aged", "*.temp"))


# What was there before and is not any more: files, tables, rows.
def losses(before, after):
    if before and KEPT not in after:
        yield "emptied: the data folder"
        return
    for name, counts in before.items():
        fewer = [table for table, count in counts.items() if after.get(name, {}).get(table, 0) < count]
        if fewer:
            yield f"lost: of {name} {', '.join(fewer)}"


def look(machine, series):
    """What is wrong on disk right after the fault, before anything else runs."""
    findings = []
    found = machine.contents(findings)
    findings += losses(machine.rig.before[series], found)
    try:
        json.loads(machine.stored.read_text())
    except FileNotFoundError:
        pass
    except (OSError, ValueError) as error:
        findings.append(f"setting file: {error}")
    return findings


def go_on(machine, series):
    """Runs the next pass and tells what is wrong with it."""
    findings = []
    machine.events()
    before = machine.contents([]).get(machine.o_file(), {})
    machine.make_due()
    code = machine.run("zorvalis-agent-service", "-j0")
    findings += [f"next pass: exit code {code}"] if code != 0 else []
    findings += ["next pass: " + line for line in machine.events()]
    after = machine.contents(findings).get(machine.o_file(), {})
    findings += [f"next pass: no row in {table}" for table, most in TABLES.items()
                 if after.get(table, 0) < min(before.get(table, 0) + 1, most)]
    try:
        same = json.loads(machine.stored.read_text()) == machine.rig.setting
    except (OSError, ValueError, RecursionError):
        same = False
    findings += [] if same else ["next pass: not the server's settings"]
    if series == "pass" and not machine.is_sent():
        findings.append("next pass: never sent")
    worked = {machine.o_file(), "BGFS.db"}  # the files that this pass had open, whose leftovers it must have deleted
    for path in machine.data.glob("*"):
        if path.suffix != ".db":
            resting = re.sub(r"(\.db)\.cached(\.temp|-journal)?$", r"\1", path.name)
            beside = resting not in (path.name, *worked) and (machine.data / resting).exists()
            findings.append(f"stray {'beside its file' if beside else 'for good'}: {path.name}")
    return findings


def quiet(machine, process):
    """Waits until the service has not touched a file for 60 ms."""
    size, since, start = -1, time.time(), time.time()
    while process.poll() is None and time.time() < start + LIMIT and time.time() < since + 0.06:
        now = machine.log.stat().st_size if machine.log.exists() else 0
        if now != size or now == 0:
            size, since = now, time.time()
        time.sleep(0.01)


# How many events are recorded.
def behaviour(machine):
    return sum(counts.get("UserBehavior", 0) for counts in machine.contents([]).values())


def serve(machine):
    """Starts the service and tells what is wrong: it must record events, let itself be switched off, and stop."""
    before, end, again = behaviour(machine), time.time() + 10, 0
    codes = [machine.run("zorvctl", "service", "start")]
    while behaviour(machine) < before + len(EVENTS) and time.time() < end:
        if time.time() > again:  # an event that comes before the service listens is lost, so send it again
            codes[1:] = [machine.run("zorvctl", *words) for words in EVENTS]
            again = time.time() + 2
        time.sleep(0.02)
    findings = [] if behaviour(machine) >= before + len(EVENTS) else ["service: no event is recorded"]
    codes += [machine.run("zorvctl", "set", "main-switch", "off"), machine.run("zorvctl", "service", "stop")]
    findings += [] if not any(codes) else [f"service: start, events, switch, stop end with {codes}"]
    findings += [] if machine.value("MainSwitch") == "0" else ["service: it cannot be switched off"]
    (machine.folder / KEY / "MainSwitch").unlink(missing_ok=True)
    return findings


def fault_case(rig, name, series, kind, number):
    """Lets operation `number` fail. Returns its line in the log and the findings."""
    machine = rig.copy(series, name)
    if series == "service":
        process = machine.fault(kind, number, "zorvalis-agent-service", ZORV_SERVICE="Zorvalis")
        quiet(machine, process)
        for words in (*EVENTS, ("service", "stop")):
            if process.poll() is None:
                machine.run("zorvctl", *words)
                quiet(machine, process)
    else:
        process = machine.fault(kind, number, "zorvalis-agent-service", "-j0")
    code = machine.end(process)
    done = machine.operations()
    hit = done[number - 1] if 0 < number <= len(done) else ""
    findings = [] if code == (137 if kind == "kill" and hit else 0) else [f"exit code {code}"]
    findings += [f"never reached: {number - len(done)} short"] if number > len(done) else []
    findings += look(machine, series)
    if series == "service" or (number and number % 25 == 0) or "setting.json" in hit:
        findings += serve(machine)
    return hit, findings + go_on(machine, series)


def damaged_case(rig, name, number):
    """Damages one file and runs a pass. Returns what was damaged and what came of it, and the findings.

    The first cases try each of DAMAGES once, later ones draw one.
    """
    rng = random.Random(f"{rig.seed} {number}")
    machine = rig.copy("pass", name)
    elsewhere, other = machine.folder / "elsewhere", rng.randbytes(9000)
    elsewhere.write_bytes(other)
    files = {"O": machine.data / machine.o_file(), "aged": machine.data / machine.aged,
             "status": machine.data / "BGFS.db", "setting": machine.stored}
    victim, words, damage = DAMAGES[number - 1] if number <= len(DAMAGES) else rng.choice(DAMAGES)
    damage(rng, files[victim], machine)
    findings = []
    code = machine.run("zorvalis-agent-service", "-j0")
    findings += [f"exit code {code}"] if code != 0 else []
    stopped = machine.events()
    found = machine.contents(findings)
    emptied = KEPT not in found
    if not emptied or victim == "setting" or words in PLACE:
        findings += losses({name: counts for name, counts in rig.before["pass"].items() if name != files[victim].name},
                           found)
    if victim != "setting":
        findings += ["first pass: " + line for line in stopped]
    if number % 25 == 0:
        findings += serve(machine)
    findings += go_on(machine, "damaged")
    same = elsewhere.exists() and elsewhere.read_bytes() == other
    findings += [] if same else ["elsewhere: changed or gone"]
    findings += ["elsewhere: sent"] if (victim, words) == ("aged", "link elsewhere") and machine.is_sent() else []
    outcome = "timed work stopped" if stopped else "the folder was emptied" if emptied else "went on"
    return f"{victim}, {words}: {outcome}", findings


# Returns the case's name, what was hit, the findings that count, and the reasons of those that are accepted.
def try_case(rig, name):
    series, *rest = name.split("-")
    try:
        hit, findings = (damaged_case(rig, name, int(rest[0])) if series == "damaged"
                         else fault_case(rig, name, series, rest[0], int(rest[1])))
    except Exception as error:  # a case that cannot be judged is a finding
        hit, findings = "", [f"the case itself: {error!r}, {getattr(error, 'filename', None)}"]
    resting = re.escape(re.sub(r"(\.db).*", r"\1", hit.rpartition("/")[2]))
    accepted = {finding: reason for finding in findings for case, operation, words, reason in ACCEPTED
                if not name.endswith("-0") and re.match(case, name) and re.fullmatch(operation, hit)
                and re.fullmatch(words.replace("NAME", resting), finding)}
    return name, hit, [finding for finding in findings if finding not in accepted], set(accepted.values())


def clean(rig, name):
    shutil.rmtree(rig.memory / name, ignore_errors=True)
    (rig.memory / name).with_suffix(".log").unlink(missing_ok=True)
    (rig.server / "data/files" / Machine(rig, rig.memory / name).aged).unlink(missing_ok=True)


# A case in a process of the pool, which has `the_rig` from its fork.
def work(name):
    result = try_case(the_rig, name)
    clean(the_rig, name)
    return result


def cases(rig, arguments):
    for series, kinds in SERIES.items():
        for kind in kinds:
            # One run without a fault counts the operations, and must have no findings.
            name = f"{series}-{kind}-0"
            _, _, findings, _ = try_case(rig, name)
            assert not findings, f"{name}, without a fault: {findings}"
            done = Machine(rig, rig.memory / name).operations()
            calls = {line.partition(" ")[0].removesuffix("at") for line in done}
            needed = {"open", "unlink", "renameat2"} if kind in ("kill", "eio") else {"open"}
            assert len(done) > 10 and needed <= calls, f"only {done} of {name}"
            clean(rig, name)
            yield from (f"{series}-{kind}-{number}" for number, operation in enumerate(done, 1)
                        if number % arguments.every == 0 or "setting.json" in operation)
    yield from (f"damaged-{number}" for number in range(1, arguments.damaged + 1))


def main():
    global the_rig
    parser = argparse.ArgumentParser()
    parser.add_argument("bin", type=pathlib.Path)
    parser.add_argument("memory", type=pathlib.Path)
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--damaged", type=int, default=2500)
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--case")
    arguments = parser.parse_args()
    drop_rights()
    the_rig = rig = Rig(arguments)
    if arguments.case:
        name, hit, findings, accepted = try_case(rig, arguments.case)
        print(f"{name} {hit}", *findings, *(f"accepted: {reason}" for reason in accepted), sep="\n  ")
        sys.exit(1 if findings else 0)
    start, shown = time.time(), time.time()
    tried, hits, failed, reasons = (collections.Counter() for _ in range(4))
    names = list(cases(rig, arguments))
    with concurrent.futures.ProcessPoolExecutor(2 * os.cpu_count(), multiprocessing.get_context("fork")) as pool:
        for name, hit, findings, accepted in pool.map(work, names, chunksize=4):
            series = name.rpartition("-")[0]
            tried[series] += 1
            hits[hit.partition(": ")[2] if series == "damaged" else series] += bool(hit)
            failed[series] += bool(findings)
            reasons.update(accepted)
            for finding in findings:
                print(f"{name} {hit}: {finding}", flush=True)
            if time.time() - shown > 10:
                shown = time.time()
                print(f"... {sum(tried.values())} of {len(names)}", flush=True)
    print(f"\n{'':16}{'cases':>8}{'hit':>8}{'findings':>10}")
    for series in tried:
        print(f"{series:16}{tried[series]:8}{hits.get(series, tried[series]):8}{failed[series]:10}")
    for outcome in ("the folder was emptied", "timed work stopped", "went on"):
        print(f"damaged files after which {outcome}: {hits[outcome]}")
    for reason, count in reasons.items():
        print(f"accepted {count} times: {reason}")
    print(f"{sum(tried.values())} cases in {time.time() - start:.0f} s, seed {rig.seed}, "
          f"{sum(failed.values())} with findings")
    sys.exit(1 if failed.total() else 0)


main()
