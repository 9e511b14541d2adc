#!/usr/bin/env python3
"""The packages for Windows under Wine: what the MSI and the ZIP's scripts put on a machine, replace, leave and take away,
and that whatever fails leaves everything as it was. docs/windows.md says what Wine's installer does in its own way.

    windows_package_test.py BUILD    BUILD: a build's folder. Wine runs; its prefix is changed
"""
import collections
import contextlib
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

from support import cases, wine
from support.wine import DRIVE, ENVIRONMENT, FOLDER, HOME, PACKAGES, PRODUCT, RECORDS, SERVICE, SOURCE, TASKS, WINDOWS, running

ROOT, BUILD = pathlib.Path(__file__).resolve().parent.parent, pathlib.Path(sys.argv[1]).resolve()
KEYS = [SERVICE, SOURCE, PACKAGES, "HKLM\\SOFTWARE\\Zorv", ENVIRONMENT]
# Never to be changed: by its identity Windows knows which file of an older package it is.
COMPONENTS = {"": 8, "ZorvalisWinService.exe": 2, "default.json": 3, "zorvctl.exe": 4, "LICENSE": 5, "THIRD-PARTY-NOTICES.md": 6,
              "administrator.md": 7}
DONE, WRITE_FAULT, SHARING, INVALID, SERVICE_CONTROL, OLD_WINDOWS, REFUSED, SAME_VERSION, NO_PROGRAM = (
    0, 29, 32, 87, 1052, 1150, 1603, 1638, 193)
# What Wine's installer ends with when a step fails, and when the package cannot be copied; Windows says 1603 and 1601.
FAILED, NO_ROOM = 1627, 31


def tables(package, name):
    lines = subprocess.run(["msiinfo", "export", package, name], capture_output=True, check=True).stdout.decode()
    return [line.split("\t") for line in lines.replace("\r", "").split("\n")[3:] if line]


def machine():
    """All that a package touches."""
    found = {key: wine.run("reg", "query", key, "/s")[1] for key in KEYS} | {"runs": wine.service_is("RUNNING")}
    for folder in (DRIVE / "Program Files/Zorv", DRIVE / "ProgramData/Zorv", TASKS[0].parent):
        for path in folder.rglob("*"):
            found[str(path)] = hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else "folder"
    return found


def differences(before, after):
    return {name: (before.get(name), after.get(name)) for name in before.keys() | after.keys()
            if before.get(name) != after.get(name)}


class Packages:
    def __init__(self):
        self.place = cases.fresh_folder("packages")
        for name in ("older", "newer", "broken"):
            (self.place / name).mkdir()
            for file in filter(None, COMPONENTS):
                source = next(each for each in (BUILD / "bin" / file, ROOT / file, ROOT / "docs" / file) if each.exists())
                shutil.copy(source, self.place / name)
            (self.place / name / "default.json").write_text(name)
        (self.place / "broken/ZorvalisWinService.exe").write_text("no program, so that the last step fails: the start")
        self.setup, self.service = BUILD / "bin/zorvsetup.exe", BUILD / "tests/setup-service.exe"
        self.old, self.new = self.make("older", "2.0.5.0"), self.make("newer", "2.0.6.0")
        wine.write(WINDOWS, "CurrentBuildNumber", "17763")
        wine.run(self.setup, "remove", "--purge", expect=DONE)
        shutil.rmtree(FOLDER.parent, True)  # what other tests have left
        self.bare = machine()

    def make(self, payload, version, name="", **environment):
        out = self.place / f"{payload}-{version}{name}.msi"
        subprocess.run([sys.executable, ROOT / "packaging/windows/make_msi.py", "--payload", self.place / payload, "--version",
                        version, "--setup", self.setup, "--out", out], check=True, env={**os.environ, **environment})
        return out

    def msi(self, *words, expect=DONE, **limits):
        log = self.place / "log.txt"
        wine.run("msiexec", *words, "/qn", "/l*v", log, expect=expect, **limits)
        return log.read_bytes().replace(b"\0", b"").decode(errors="replace") if log.exists() else ""

    def script(self, name, *words, expect=DONE, **limits):
        """install.cmd has the newer files in its folder; "older" and "broken" install those."""
        payload = name if (self.place / name).exists() else "newer"
        folder = self.place / f"zip of {payload}"
        shutil.copytree(self.place / payload, folder, dirs_exist_ok=True)
        for file in (self.setup, ROOT / "packaging/windows/install.cmd", ROOT / "packaging/windows/remove.cmd"):
            shutil.copy(file, folder)
        return wine.run("cmd", "/c", folder / ("remove.cmd" if name == "remove" else "install.cmd"), *words, expect=expect, **limits)[1]

    def stays(self, act, *words, **options):
        """An act that fails and leaves everything as it was. Returns what it said."""
        before = machine()
        said = act(*words, **options)
        assert not (changed := differences(before, machine())), (words, changed, said)
        return said

    def installed(self, settings, *versions):
        """What is on the machine, when all is well: these packages, the files with these settings, and one service."""
        found = machine()
        assert sorted(path.name for path in FOLDER.iterdir()) == sorted(filter(None, COMPONENTS))
        assert (FOLDER / "default.json").read_text() == settings
        assert tuple(re.findall(r"DisplayVersion +REG_SZ +(\S+)", found[PACKAGES])) == versions, found[PACKAGES]
        executable = HOME + "\\ZorvalisWinService.exe"
        for key, value in ((SERVICE, f'ImagePath    REG_SZ    "{executable}"\n'), (SERVICE, "Start    REG_DWORD    0x2\n"),
                           (SERVICE, "PreshutdownTimeout    REG_DWORD    0x2bf20\n"), (SERVICE, "REG_SZ    LocalSystem\n"),
                           (SOURCE, f"{executable}\n"), (SOURCE, "TypesSupported    REG_DWORD    0x7\n"),
                           (ENVIRONMENT, HOME)):
            assert value in found[key], (key, value, found[key])
        assert found[str(RECORDS)] == "folder"

    def collect(self):
        """Records, identity and a task, as the service leaves them."""
        (RECORDS / "data").mkdir(exist_ok=True)
        (RECORDS / "data/O_device_11_V1-0.db").write_bytes(b"rows")
        for task in TASKS:
            task.write_text("a task")
        wine.write(PRODUCT, "DeviceUUID", "identity")

    def kept(self):
        assert (RECORDS / "data/O_device_11_V1-0.db").read_bytes() == b"rows" and not any(task.exists() for task in TASKS)
        assert wine.read(PRODUCT, "DeviceUUID") == ("REG_SZ", "identity")

    @contextlib.contextmanager
    def serving(self, *files):
        """The service is one that runs. A file `stubborn` beside it keeps it from stopping."""
        shutil.copy(self.service, FOLDER / "ZorvalisWinService.exe")
        for name in files:
            (FOLDER / name).touch()
        wine.run("sc", "start", "Zorvalis", expect=DONE)
        self.wait_for("RUNNING")
        yield
        (FOLDER / "end").touch()
        self.wait_for("STOPPED")
        for name in (*files, "end"):
            (FOLDER / name).unlink()

    def wait_for(self, state):
        until = time.monotonic() + 60
        while not wine.service_is(state):
            assert time.monotonic() < until, state

    def gets_in_the_way(self, act, words, code):
        """Of an installed service with records: nothing that happens changes anything."""
        with running(self.service, "-j0", FOLDER / "default.json"):
            self.stays(act, *words, expect=code or SHARING)
        with self.serving("stubborn"):
            self.stays(act, *words, expect=code or SERVICE_CONTROL)

    def test_tables_of_the_package_are_the_wanted_ones(self):
        os.utime(self.place / "newer/default.json", (0, 1e9))
        assert self.new.read_bytes() == self.make("newer", "2.0.6.0", "again", TZ="Asia/Tokyo").read_bytes()
        files = {row[1]: row[2].rpartition("|")[2] for row in tables(self.new, "File")}
        found = {files.get(row[0], ""): row[1] for row in tables(self.new, "Component")}
        assert found == {name: f"{{6C1D0A50-7B0E-4A52-9D7E-0A4D60C2A00{number}}}" for name, number in COMPONENTS.items()}
        assert {row[0] for row in tables(self.new, "Component")} == {row[1] for row in tables(self.new, "FeatureComponents")}
        old, new = (dict(tables(each, "Property")) for each in (self.old, self.new))
        assert old["ProductCode"] != new["ProductCode"] and old["UpgradeCode"] == new["UpgradeCode"] == new["UpgradeCode"].upper()
        assert {"REINSTALLMODE": "amus", "MSIRESTARTMANAGERCONTROL": "Disable", "REBOOT": "ReallySuppress", "ALLUSERS": "1",
                "SecureCustomProperties": "NEWERVERSION;OLDERVERSION;PURGE;WINDOWSBUILD"}.items() <= new.items()
        codes = [dict(tables(each, "_SummaryInformation"))["9"] for each in (self.old, self.new)]
        assert len({*codes, old["ProductCode"], new["ProductCode"]}) == 4
        steps = sorted(tables(self.new, "InstallExecuteSequence"), key=lambda row: int(row[2]))
        names, actions = [row[0] for row in steps], {row[0]: row for row in tables(self.new, "CustomAction")}
        for name, (_, kind, source, words, _) in actions.items():
            undo, last = name.startswith("Undo"), name in ("Commit", "Purge")
            assert int(kind) == 2 | 0xC00 | 0x100 * undo | 0x240 * last and source == "Setup", (name, kind)
        refusals = dict(tables(self.new, "LaunchCondition"))
        assert "1809 (build 17763)" in refusals["Installed OR WINDOWSBUILD >= 17763"]
        assert "newer version of Zorvalis" in refusals["Installed OR NOT NEWERVERSION"]
        assert "Zorvalis-setup.log" in dict(tables(self.new, "Error"))["1722"]
        for sequence in ("InstallExecuteSequence", "InstallUISequence"):
            place = {name: int(number) for name, _, number in tables(self.new, sequence)}
            assert place["LaunchConditions"] > max(place["AppSearch"], place["FindRelatedProducts"])
        assert names[names.index("RemoveExistingProducts") - 1].startswith("InstallExecute")
        for properties, wanted in (
                ({}, "resume stop RemoveFiles InstallFiles RemoveExistingProducts undo configure start commit"),
                ({"Installed": 1, "REINSTALL": "ALL"}, "resume stop RemoveFiles InstallFiles RemoveExistingProducts undo configure start commit"),
                ({"REMOVE": "ALL", "UPGRADINGPRODUCTCODE": "{}", "PURGE": 1}, "RemoveFiles InstallFiles RemoveExistingProducts"),
                ({"REMOVE": "ALL"}, "resume stop undo remove RemoveFiles InstallFiles RemoveExistingProducts commit"),
                ({"REMOVE": "ALL", "PURGE": 1}, "resume stop undo remove RemoveFiles InstallFiles RemoveExistingProducts commit remove --purge")):
            run = [actions[name][3].split(" \"")[0] if name in actions else name for name, condition, _ in steps
                   if (name in actions or name in wanted.split()) and (not condition or eval(
                       condition.replace("=", "==").replace("NOT", "not").replace("AND", "and"), {}, collections.defaultdict(str, properties)))]
            assert " ".join(run) == wanted, run

    def test_msi_installs_upgrades_repairs_and_leaves(self):
        self.msi("/i", self.old)
        self.installed("older", "2.0.5.0")
        self.collect()
        self.msi("/i", self.new)
        self.installed("newer", "2.0.6.0")
        self.kept()
        (FOLDER / "LICENSE").unlink()
        (FOLDER / "default.json").write_text("spoilt")
        wine.run("reg", "delete", SOURCE, "/f", expect=DONE)
        self.msi("/i", self.new, "REINSTALL=ALL")
        self.installed("newer", "2.0.6.0")
        self.msi("/i", self.make("older", "2.0.6.0", "rebuilt"))
        self.installed("older", "2.0.6.0")
        self.stays(self.msi, "/i", self.old, expect=REFUSED)
        assert "MSI package" in self.stays(self.script, "install", expect=SAME_VERSION)
        assert "MSI package" in self.stays(self.script, "remove", expect=SAME_VERSION)
        self.msi("/i", self.new)
        self.collect()
        self.gets_in_the_way(self.msi, ("/i", self.make("older", "2.0.7.0")), FAILED)
        self.gets_in_the_way(self.msi, ("/x", self.new), FAILED)
        self.stays(self.msi, "/i", self.make("older", "2.0.7.0"), most=4 << 20, expect=NO_ROOM)
        self.msi("/x", self.new)
        self.kept()
        self.msi("/i", self.new)
        self.kept()
        self.msi("/x", self.new, "PURGE=1")
        assert not (left := differences(self.bare, machine())), left

    def test_scripts_do_the_same_without_msi(self):
        self.script("older")
        self.installed("older")
        self.collect()
        self.script("install")
        self.installed("newer")
        self.kept()
        self.collect()
        self.gets_in_the_way(self.script, ("older",), None)
        (left := FOLDER.with_name("Zorvalis.old")).mkdir()  # of an upgrade, by a program that still shows a file of it
        (left / "LICENSE").write_text("in use")
        with wine.running(self.service, "-j0", HOME + ".old\\LICENSE"):
            self.stays(self.script, "older", expect=SHARING), self.stays(self.script, "remove", expect=SHARING)
        shutil.rmtree(left)
        for task in TASKS:
            task.unlink()  # which the service makes anew when it runs again
        with self.serving():
            self.stays(self.script, "broken", expect=NO_PROGRAM)
        self.gets_in_the_way(self.script, ("remove",), None)
        self.script("install")
        assert "cannot be copied" in self.stays(self.script, "older", most=4 << 20, expect=WRITE_FAULT)
        self.script("remove")
        self.kept()
        self.script("install")
        self.msi("/i", self.new)
        self.installed("newer", "2.0.6.0")
        self.msi("/x", self.new)
        self.script("install")
        assert "nothing" in self.stays(self.script, "remove", "--purg", expect=INVALID)
        self.script("remove", "--purge")
        assert not (left := differences(self.bare, machine())), left

    def test_refused_or_failed_leaves_a_bare_machine(self):
        wine.write(WINDOWS, "CurrentBuildNumber", "17134")
        self.stays(self.msi, "/i", self.new, expect=REFUSED)
        assert "1809 (build 17763)" in (said := self.stays(self.script, "install", expect=OLD_WINDOWS)) and "17134" in said, said
        wine.write(WINDOWS, "CurrentBuildNumber", "17763")
        self.stays(self.msi, "/i", self.new, "ALLUSERS=", expect=REFUSED)
        self.stays(self.msi, "/i", self.make("broken", "2.0.7.0"), expect=FAILED)
        self.stays(self.script, "broken", expect=NO_PROGRAM)


if __name__ == "__main__":
    packages = Packages()
    sys.exit(cases.run("Packages", [each for each in cases.methods(packages) if not sys.argv[2:] or each.__name__ in sys.argv[2:]]))
