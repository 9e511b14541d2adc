#!/usr/bin/env python3
"""What ./dev package made: complete, said so, the same each time, signed where that is asked for, and what is for Linux
runs where it is unpacked.

    package_test.py WINDOWS LINUX MADE    the builds' folders, and the folder that the packages are in
"""
import json
import os
import pathlib
import re
import struct
import subprocess
import sys

from support import cases

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT / "packaging"))
import packages  # noqa: E402

PRODUCT, LIBRARY = packages.versions()
MSI = f"Zorvalis-{PRODUCT}.msi"
SERVICE = {"ZorvalisWinService.exe", "zorvctl.exe", "default.json", "LICENSE", "THIRD-PARTY-NOTICES.md", "administrator.md"}
SETUP = {"zorvsetup.exe", "install.cmd", "remove.cmd"}
KIT = {"zorv-acceptance.exe", "ZorvWinIo64.dll", "hardware.json", "README.txt", "LICENSE", "THIRD-PARTY-NOTICES.md", MSI,
       f"Zorvalis-{packages.OLD}-old.msi"}
DEBUG = {f"{name}.debug" for name in "ZorvalisWinService.exe zorvctl.exe zorvsetup.exe zorv-acceptance.exe "
         "zorvalis_client.dll".split()}
SDK = {"include/zorvalis.h", "share/doc/zorvalis/LICENSE", "share/zorvalis/csharp/Zorvalis.cs"}  # and more
LINUX = SDK | {f"lib/zorvalis/{name}" for name in "zorvctl zorvserver ZorvWinIo64.so default.json hardware.json".split()} | {
    "share/man/man1/zorvctl.1", "share/bash-completion/completions/zorvctl"}
HOLDS = {MSI: SERVICE | {"zorvsetup.exe"}, f"Zorvalis-{PRODUCT}.zip": SERVICE | SETUP, f"zorvalis-acceptance-{PRODUCT}.zip": KIT,
         f"zorvalis-debug-{PRODUCT}.zip": DEBUG, f"zorvalis-sdk-{LIBRARY}.zip": SDK | {"lib/zorvalis_client.def"},
         f"zorvalis_{PRODUCT}_amd64.deb": LINUX, f"zorvalis-{PRODUCT}-linux-x86_64.tar.gz": LINUX}


def run(*command, fails=False, **environment):
    done = subprocess.run([*map(str, command)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600, text=True,
                          errors="replace", env={**os.environ, **{name: str(each) for name, each in environment.items()}})
    assert (done.returncode != 0) == fails, f"{command} ended with {done.returncode}:\n{done.stdout[-3000:]}"
    return done.stdout


class Tests:
    def __init__(self, windows, linux, made, folder):
        self.windows, self.linux, self.made, self.folder = windows, linux, made, folder
        date = json.loads(next(made.glob("*.cdx.json")).read_text())["metadata"]["timestamp"]
        self.date = run("date", "+%s", "-d", date).strip()

    def make(self, out, **more):
        return run("sh", "-c", 'umask 077; "$@"', "sh", sys.executable, "-B", ROOT / "packaging/packages.py", self.windows,
                   self.linux, out, TZ="Asia/Tokyo", SOURCE_DATE_EPOCH=self.date, **more)

    def files(self, path):
        """What is in it, by name."""
        place = self.folder / f"{path.parent.name}-{path.name}"
        run(*{".zip": ("unzip", "-qod", place, path), ".msi": ("msiextract", "-C", place, path),
              ".deb": ("dpkg", "-x", path, place)}.get(path.suffix, ("tar", f"--one-top-level={place}", "-xf", path)))
        top = next(each for mark in ("bin", "zorvctl.exe", "README.txt", "*.debug") for each in place.rglob(mark)).parent
        if path.suffix == ".msi":
            run("sh", "-c", 'msiinfo extract "$1" Binary.Setup >"$2"', "sh", path, top / "zorvsetup.exe")
        return {str(each.relative_to(top)): each for each in top.rglob("*") if each.is_file() and not each.is_symlink()}

    def test_hold_what_they_should_and_sums_and_bill_say_so(self):
        run("sh", "-c", 'cd "$1" && sha256sum --strict -c SHA256SUMS', "sh", self.made)
        summed, bill = (self.made / "SHA256SUMS").read_text().split()[1::2], f"zorvalis-{PRODUCT}.cdx.json"
        assert {*summed, "SHA256SUMS"} == {each.name for each in self.made.iterdir()} == {*HOLDS, bill, "SHA256SUMS"}, summed
        parts = json.loads((self.made / bill).read_text(encoding="utf-8"))["components"]
        notices = re.findall("^## (.+)$", (ROOT / "THIRD-PARTY-NOTICES.md").read_text(encoding="utf-8"), re.M)
        assert {each["name"] for each in parts} == {*notices, *HOLDS}, parts
        assert all(each["version"] and (each["name"] in HOLDS or each["purl"] and each["licenses"]) for each in parts), parts
        for name, expected in HOLDS.items():
            found = self.files(self.made / name)
            told = {each["name"]: each["hashes"][0]["content"] for part in parts if part["name"] == name
                    for each in part["components"]}
            assert expected <= found.keys() and (SDK <= expected or expected == found.keys()), f"{name}: {found.keys()}"
            assert {file: packages.sha256(path) for file, path in found.items()} == told, name
            for file in filter(re.compile(r"\.msi$").search, found):
                version = re.search(r"-([\d.]+)(-old)?\.msi", file)[1]
                assert f"ProductVersion\t{version}" in run("msiinfo", "export", found[file], "Property"), file
            for data in (path.read_bytes() for path in found.values() if expected is not LINUX):
                assert str(ROOT).encode() not in data, f"{name} tells where it was built"
                header = struct.unpack_from("<I", data, 0x3C)[0] if data[:2] == b"MZ" else None
                assert header is None or data[header + 8:header + 12] == bytes(4), f"a program in {name} has a time"

    def test_are_the_same_bytes_each_time(self):
        self.make(self.folder / "again")
        sums = [(folder / "SHA256SUMS").read_text() for folder in (self.made, self.folder / "again")]
        assert sums[0] == sums[1], sums

    def test_are_signed_where_that_is_asked_for(self):
        key, certificate, signer, out = (self.folder / name for name in ("key", "certificate", "sign it", "signed"))
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Test", "-addext",
            "extendedKeyUsage=codeSigning", "-keyout", key, "-out", certificate)
        signer.write_text(f'osslsigncode sign -certs {certificate} -key {key} -in "$1" -out "$1.new" && mv "$1.new" "$1"')
        self.make(out, ZORV_SIGN=f"sh '{signer}'")
        for name in HOLDS:
            self.files(out / name)
        signed = [path for path in self.folder.glob("signed*/**/*") if path.suffix in (".exe", ".dll", ".msi")]
        for path in signed:
            run("osslsigncode", "verify", "-CAfile", certificate, "-in", path)
        assert len({path.name for path in signed}) == 8, signed
        for command, told in ("false", "ended with 1"), ("true", "as it was"):
            assert told in self.make(out, fails=True, ZORV_SIGN=command) and not out.exists(), command

    def test_for_linux_run_where_they_are_unpacked(self):
        package = next(self.made.glob("*.deb"))
        assert "libcurl4" in run("dpkg", "-f", package, "Depends")
        run("dpkg", "-x", package, self.folder / "un packed")
        run("cmake", "--install", self.linux, "--prefix", self.folder / "installed", "--component", "tools")
        for prefix in (self.folder / "un packed/usr", self.folder / "installed"):
            machine, zorvctl = {"ZORV_MACHINE": prefix / "machine"}, prefix / "bin/zorvctl"
            run(zorvctl, "machine", "init", **machine)
            run(prefix / "lib/zorvalis/zorvalis-agent-service", "-j0", **machine)
            assert "Battery_Power: 1 row" in run(zorvctl, "show", **machine)
            assert "--make-ca" in run(prefix / "bin/zorvserver", "--help")


if __name__ == "__main__":
    folders = [pathlib.Path(each).resolve() for each in sys.argv[1:]]
    sys.exit(cases.run("Package", cases.methods(Tests(*folders, cases.fresh_folder("zorv-package-")))))
