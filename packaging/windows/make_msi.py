#!/usr/bin/env python3
"""Makes the package for Windows: zorvalis.wxs by wixl, and what wixl cannot say by tables of our own. The same input makes
the same bytes; SOURCE_DATE_EPOCH is the date in it.

    make_msi.py --payload DIR --setup zorvsetup.exe --version V --out FILE

DIR has the files that zorvalis.wxs names and no other.
"""
import argparse
import datetime
import hashlib
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import uuid

SOURCE = pathlib.Path(__file__).with_name("zorvalis.wxs")
FAMILY = uuid.UUID("6C1D0A50-7B0E-4A52-9D7E-0A4D60C2A001")  # of all versions: UpgradeCode in zorvalis.wxs
FILE_VERSION = b"\xbd\x04\xef\xfe"  # begins the numbers in a binary's version resource

# The order of an installation. Windows Installer writes the steps behind InstallInitialize into a script and runs it at
# InstallExecute and InstallFinalize. A step of kind UNDO only runs when a later one fails, then from the last backwards,
# files in between: so each stands before the step that it undoes. A step of kind LAST runs when nothing can fail any more;
# what it ends with is not heeded, since Windows Installer would put the files back that a purge has left without a service.
# All are zorvsetup with these words, as LocalSystem.
DO, UNDO, LAST = 0xC02, 0xD02, 0xE42
IN = "NOT REMOVE"  # first installation, repair, and the newer package of an upgrade
OUT = 'REMOVE="ALL" AND NOT UPGRADINGPRODUCTCODE'  # removal; an upgrade removes the older package by its files alone
EITHER = "NOT UPGRADINGPRODUCTCODE"
FOLDER = '"[ProductFolder]."'  # the point keeps the path's last backslash from quoting the mark
STEPS = [
    (25, "FindRelatedProducts", ""),
    (50, "AppSearch", ""),
    (100, "LaunchConditions", ""),
    (700, "ValidateProductID", ""),
    (800, "CostInitialize", ""),
    (850, "ResolveSource", IN),  # a repair that has no files to bring fails here, before the service is stopped
    (900, "FileCost", ""),
    (1000, "CostFinalize", ""),
    (1200, "MigrateFeatureStates", ""),
    (1400, "InstallValidate", ""),
    (1500, "InstallInitialize", ""),
    (1510, "UndoStop", EITHER, UNDO, "resume"),
    (1511, "Stop", EITHER, DO, "stop"),
    (1520, "UndoRemove", OUT, UNDO, "undo"),
    (1521, "Remove", OUT, DO, "remove"),
    (1550, "InstallExecute", ""),  # all stands still before the files are looked at
    (1600, "ProcessComponents", ""),
    (1800, "UnpublishFeatures", ""),
    (3500, "RemoveFiles", ""),
    (3600, "RemoveFolders", ""),
    (3700, "CreateFolders", ""),
    (4000, "InstallFiles", ""),
    (4500, "InstallExecuteAgain", ""),
    # Late: the older package finds its files taken over, and its service as well. What it may still remove is put right
    # by the steps behind it.
    (4501, "RemoveExistingProducts", ""),
    (4510, "UndoConfigure", IN, UNDO, "undo"),  # ends what Start has started, too
    (4511, "Configure", IN, DO, f"configure {FOLDER}"),
    (4512, "Start", IN, DO, "start"),
    # Behind the older package, whose removal may take the registration of all versions with it.
    (6000, "RegisterUser", ""),
    (6100, "RegisterProduct", ""),
    (6300, "PublishFeatures", ""),
    (6400, "PublishProduct", ""),
    (6580, "Commit", EITHER, LAST, "commit"),
    (6590, "Purge", f"{OUT} AND PURGE=1", LAST, "remove --purge"),
    (6600, "InstallFinalize", ""),
]
# In the place of Windows Installer's words for error 1722, which tell to ask the maker.
FAILED = r"Zorvalis: a step failed. C:\Windows\Logs\Zorvalis-setup.log says why. {{Action [2], location: [3], command: [4]}}"


def run(folder, *words):
    done = subprocess.run(words, cwd=folder, env={**os.environ, "TZ": "UTC"}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    # wixl and msibuild only mention what they do not understand.
    if done.returncode or done.stderr:
        sys.exit(f"make_msi: {words[0]} failed with {done.returncode}: {done.stderr.decode()} {done.args}")
    return done.stdout


def stage(payload, setup, folder, date):
    """The files by the names and with the date that the package gives them."""
    wanted = set(re.findall(r' Source="([^"]+)"', SOURCE.read_text()))
    found = {path.name for path in payload.iterdir()}
    if wanted != found:
        sys.exit(f"make_msi: {payload} lacks {sorted(wanted - found)} and has {sorted(found - wanted)}")
    for path in [*(payload / name for name in sorted(wanted)), setup, SOURCE]:
        shutil.copyfile(path, folder / path.name)
        os.utime(folder / path.name, (date, date))


def short(name):
    """As File.FileName has it: a name for 8.3, where it needs one, and the long one."""
    stem, _, end = name.partition(".")
    fits = re.fullmatch(r"[\w-]{1,8}", stem) and re.fullmatch(r"\w{0,3}", end)
    return name if fits else f"{stem[:6]}~1.{end[:3]}".upper() + "|" + name


def file_version(path):
    at = (data := path.read_bytes()).find(FILE_VERSION)
    high, low = struct.unpack_from("<II", data, at + 8) if at >= 0 else (0, 0)
    return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}" if at >= 0 else ""


def mended(tables, folder, version, package, date):
    """wixl's tables (name: rows) with ours in their places."""
    moment = datetime.datetime.fromtimestamp(date, datetime.timezone.utc).strftime("%Y/%m/%d %H:%M:%S")
    own = {"9": f"{{{package}}}".upper(), "12": moment, "13": moment}
    tables["_SummaryInformation"] = [[number, own.get(number, text)] for number, text in tables["_SummaryInformation"]]
    tables["InstallExecuteSequence"] = [[name, condition, str(place)] for place, name, condition, *_ in STEPS]
    tables["CustomAction"] = [[name, str(kind), "Setup", words, ""] for _, name, _, kind, words in
                              (step for step in STEPS if len(step) == 5)]
    tables["InstallUISequence"].append(["FindRelatedProducts", "", "25"])
    # Windows Installer compares three numbers. The same ones, built anew, are replaced as well.
    tables["Upgrade"] = [[f"{{{FAMILY}}}".upper(), "", version, "", "513", "", "OLDERVERSION"],
                         [f"{{{FAMILY}}}".upper(), version, "", "", "2", "", "NEWERVERSION"]]
    tables["Error"] = [["1722", FAILED]]
    for row in tables["Feature"]:
        row[-1] = "24"  # neither left out nor only announced
    for row in tables["File"]:
        row[4] = file_version(folder / row[2])
        row[5] = "1033" if row[4] else ""
        row[2] = short(row[2])
    versioned = {row[0] for row in tables["File"] if row[4]}
    tables["MsiFileHash"] = [row for row in tables["MsiFileHash"] if row[0] not in versioned]


def build(payload, setup, version, out):
    date = int(os.environ.get("SOURCE_DATE_EPOCH", "315532800"))  # the first date that a cabinet knows
    with tempfile.TemporaryDirectory(prefix="msi") as name:
        folder = pathlib.Path(name)
        stage(payload, setup, folder, date)
        digest = hashlib.sha256(version.encode() + pathlib.Path(__file__).read_bytes() + b"%d" % date)
        for path in sorted(folder.iterdir()):
            digest.update(path.name.encode() + b"\0%d\0" % path.stat().st_size + path.read_bytes())
        product, package = (uuid.uuid5(FAMILY, kind + digest.hexdigest()) for kind in ("product", "package"))
        run(folder, "wixl", "-a", "x64", "-D", f"VERSION={version}", "-D", f"PRODUCT={product}", "-o", "wixl.msi", SOURCE.name)

        # wixl writes rows in no order. Written anew, from sorted tables, they are always the same bytes.
        heads, tables = {}, {}
        for table in run(folder, "msiinfo", "tables", "wixl.msi").decode().split():
            lines = run(folder, "msiinfo", "export", "wixl.msi", table).decode().replace("\r", "").split("\n")
            heads[table] = lines[:3]
            tables[table] = [line.split("\t") for line in lines[3:] if line.strip()]
        mended(tables, folder, version, package, date)
        imports = []
        for table in sorted(tables.keys() - {"_ForceCodepage"}):
            rows = heads[table] + ["\t".join(row) for row in sorted(tables[table])]
            (folder / f"{table}.idt").write_bytes("".join(row + "\r\n" for row in rows).encode("ascii"))
            imports += ["-i", f"{table}.idt"]
        (folder / "zorvalis.cab").write_bytes(run(folder, "msiinfo", "extract", "wixl.msi", "zorvalis.cab"))
        run(folder, "msibuild", "new.msi", *imports, "-a", "zorvalis.cab", "zorvalis.cab")
        shutil.copyfile(folder / "new.msi", out)


def main():
    options = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    for name, kind in (("payload", pathlib.Path), ("setup", pathlib.Path), ("version", str), ("out", pathlib.Path)):
        options.add_argument(f"--{name}", type=kind, required=True)
    given = options.parse_args()
    numbers = given.version.split(".") if re.fullmatch(r"\d{1,5}(\.\d{1,5}){2,3}", given.version) else ["256"]
    if any(int(number) > most for number, most in zip(numbers, (255, 255, 65535, 65535))):
        sys.exit(f"make_msi: {given.version} is no version such as 2.0.6.0, at most 255.255.65535")
    build(given.payload, given.setup, given.version, given.out)


if __name__ == "__main__":
    main()
