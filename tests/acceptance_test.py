#!/usr/bin/env python3
"""The acceptance kit under Wine: every step is in its report, none has failed, those that Wine cannot show say why, and
nothing of a run is left. The prefix is a fresh one.

    acceptance_test.py MADE     the folder that ./dev package made
"""
import json
import pathlib
import sys
import zipfile

from support import cases, wine
from support.wine import CONTROL, DRIVE, ENVIRONMENT, PACKAGES, SERVICE, SOFTWARE, SOURCE, WINDOWS

# What a step says for why Wine cannot show it, and the steps that say so.
IMPOSSIBLE = {
    "without DeriveCapabilitySidsFromName": "1.13 2.2 2.3 2.4 2.5 2.6 2.7 2.10 2.11 2.12 3.1 3.2 4.10 "
                                            "5.1 5.2 5.3 5.4 5.5 5.6 5.7 5.8 5.9 7.26",
    "Task Scheduler has no more than stubs": "1.15 3.3 3.4 3.5 3.6 3.7 3.8",
    "files do not keep the access lists": "1.5",
    "tells of no recovery": "1.4",
    "tells of nothing": "2.9",
    "the log takes no entries": "4.2",
    "the session left nothing": "4.3 4.4 4.5 4.6",
    "step 4 says 0x80041008": "4.7 4.8",
    "making WMI's compiler of classes fails": "4.9",
    "this runtime makes no callbacks": "5.11",
    "this runtime has no NDR64": "5.12 5.13 5.15",
    "closes the connection with a fault": "5.16",
    "runs the calls of one context in turn": "5.20",
    "as what could be continued": "5.31",
    "does not heed what a client allows": "5.32",
    "gives one endpoint to two processes": "5.34",
    "does not look at a machine's name": "5.35",
    "has no anonymous token": "5.36",
    "CreateProcessWithLogonW fails": "5.40",
    "as the same user with the same rights": "5.41",
    "no app containers": "5.42 5.43",
    "waits for an answer's head": "6.4",
    "a server of TLS is made": "6.5 6.6 6.7 6.8 6.9 6.10 6.13 6.16 6.18",
    "says yes to every machine": "6.14",
    "junctions cannot be made": "1.17 7.4 7.5",
    "LocalSystem is the same user": "1.19",
    "does not keep the files that it replaces": "1.20",
    "CreateSymbolicLink makes nothing": "7.6",
    "diskpart makes no virtual disk": "7.13",
    "does not count this process's handles": "7.16",
    "time zone of Windows cannot be changed": "7.17 7.18",
    "in the place of a false one": "7.22",
    "tells nothing about addresses": "7.23",
    "may make files in": "7.27",
    "has no DeriveCapabilitySidsFromName": "7.28",
    "has all rights": "7.29",
    "no PowerShell that runs": "7.30",
}


def traces():
    """What there is of the product and of the kit, and what both change."""
    keys = [f"{SOFTWARE}\\Zorv", f"{SOFTWARE}\\zorv-acceptance", f"{CONTROL}\\Services\\zorv-acceptance",
            f"{CONTROL}\\Control\\TimeZoneInformation", PACKAGES, SERVICE, SOURCE, ENVIRONMENT]
    folders = ["Program Files", "ProgramData", "windows/system32/tasks", "users/*/Temp"]
    return {key: wine.run("reg", "query", key, "/s") for key in keys} | {
        folder: sorted(str(path) for each in DRIVE.glob(folder) for path in each.rglob("*")) for folder in folders}


class Kit:
    def __init__(self):
        self.place = cases.fresh_folder("kit")
        with zipfile.ZipFile(*pathlib.Path(sys.argv[1]).glob("zorvalis-acceptance-*.zip")) as archive:
            archive.extractall(self.place)
        (self.place,) = self.place.iterdir()
        wine.write(WINDOWS, "CurrentBuildNumber", "17763")
        wine.write(f"{SOFTWARE}\\Microsoft\\Windows\\CurrentVersion\\Setup\\State", "ImageState", "IMAGE_STATE_COMPLETE")

    def run(self, *words):
        return wine.run(self.place / "zorv-acceptance.exe", *words)

    def test_tries_all_that_wine_can_show_and_leaves_nothing(self):
        before = traces()
        code, output = self.run()
        report = json.loads((self.place / "report/report.json").read_text())
        listed = [line.split()[0] for line in self.run("--list")[1].splitlines()]
        assert [step["number"] for step in report["steps"]] == [each for each in listed if not each.startswith("9.")]
        failed = [step for step in report["steps"] if step["verdict"] == "FAILED"]
        assert code == 0 and not failed, (code, output if not failed else json.dumps(failed, indent=1))
        reasons = {number: reason for reason, numbers in IMPOSSIBLE.items() for number in numbers.split()}
        given = {step["number"]: step["saw"][-1] for step in report["steps"] if step["verdict"] == "not possible here"}
        reasons |= {number: "is not free" for number, reason in given.items() if "port 80 is not free" in reason}
        wrong = [(number, reasons.get(number), given.get(number)) for number in given.keys() | reasons.keys()
                 if reasons.get(number, "no reason") not in given.get(number, "")]
        assert not wrong, wrong
        after = traces()
        assert after == before, [(name, before[name], after[name]) for name in before if after[name] != before[name]]

    def test_goes_on_after_a_run_that_was_broken_off(self):
        before = traces()
        (records := DRIVE / "ProgramData/Zorv/Zorvcore/Zorvalis").mkdir(parents=True)  # a removal keeps them
        assert "would delete" in self.run()[1] and "--only 8" not in self.run("--only", "1.2")[1]
        for folder in (records, *records.parents[:2]):
            folder.rmdir()
        code, output = self.run("--only", "1.2")
        assert code == 0 and "--only 8" in output, output
        code, output = self.run()
        assert code == 2 and "--restore" in output, output
        code, output = self.run("--restore")
        assert code == 0 and "--only 8" in output, output
        code, output = self.run("--only", "8.3")
        assert code == 0 and traces() == before, output


if __name__ == "__main__":
    sys.exit(cases.run("Acceptance", cases.methods(Kit())))
