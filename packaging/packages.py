#!/usr/bin/env python3
"""Makes of two builds what is handed out: installers, archives, their sums, and a bill of materials. The same builds make
the same bytes, wherever and whenever.

    packages.py WINDOWS LINUX OUT    the builds' folders; OUT is made anew, and only when all succeeds

SOURCE_DATE_EPOCH is the date of all files. ZORV_SIGN, where it is set, is a command that signs the file whose name is
put after it, in place: each executable and library for Windows, then each installer.
"""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import zipfile

import bill

ROOT = pathlib.Path(__file__).resolve().parent.parent
OLD = "1.0.0.0"  # the version of an installer to try an upgrade from: lower than any of ours


def run(*command):
    done = subprocess.run([*map(str, command)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
                          errors="replace")
    if done.returncode:
        sys.exit(f"packages: {' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout}")


def sha256(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def versions():
    """The product's and the client library's."""
    product = re.search(r'kServiceVersion\[\] = "([\d.]+)"', (ROOT / "src/common/version.h").read_text())[1]
    return product, re.search(r"project\(zorvalis VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]


def sign(paths):
    command = os.environ.get("ZORV_SIGN", "")
    for path in sorted(paths) if command else []:
        before = sha256(path)
        run("sh", "-c", command + ' "$1"', "sign", path)
        if sha256(path) == before:
            sys.exit(f"packages: ZORV_SIGN left {path.name} as it was")


def stage(build, folder, *components):
    for component in components:
        run("cmake", "--install", build, "--prefix", folder, "--component", component)
    return folder


def contents(folder):
    return sorted(path for path in folder.rglob("*") if path.is_file())


def make_zip(path, *folders):
    """Everything is below one folder with the archive's name."""
    date = time.gmtime(max(int(os.environ["SOURCE_DATE_EPOCH"]), 315532800))[:6]  # an archive's dates begin in 1980
    with zipfile.ZipFile(path, "x", zipfile.ZIP_DEFLATED) as archive:
        for name, file in sorted((file.relative_to(folder).as_posix(), file) for folder in folders
                                 for file in contents(folder)):
            entry = zipfile.ZipInfo(f"{path.stem}/{name}", date)
            entry.compress_type, entry.create_system = zipfile.ZIP_DEFLATED, 3
            entry.external_attr = (0o100755 if file.suffix in (".exe", ".dll") else 0o100644) << 16
            archive.writestr(entry, file.read_bytes())


def make_msi(path, version, service, setup):
    run(sys.executable, "-B", ROOT / "packaging/windows/make_msi.py", "--payload", service, "--version", version,
        "--setup", setup / "zorvsetup.exe", "--out", path)


def main(windows, linux, out):
    os.umask(0o022)
    product, library = versions()
    work = out.with_name(out.name + ".work")
    shutil.rmtree(out, True)
    shutil.rmtree(work, True)
    made = work / "made"
    made.mkdir(parents=True)
    service, setup, acceptance, sdk, debug = (
        stage(windows, work / name, name) for name in ("service", "setup", "acceptance", "sdk", "debug"))
    sign(path for folder in (service, setup, acceptance, sdk) for path in contents(folder)
         if path.suffix in (".exe", ".dll"))

    msi, old = made / f"Zorvalis-{product}.msi", acceptance / f"Zorvalis-{OLD}-old.msi"
    make_msi(msi, product, service, setup)
    make_msi(old, OLD, service, setup)
    sign([msi, old])
    shutil.copy(msi, acceptance)

    own = work / "own"  # what is in the package for itself alone
    own.mkdir()
    shutil.copy(setup / "zorvsetup.exe", own)
    shipped = {msi.name: [service, own]}  # which folders' files are in what is handed out
    for name, folders in {f"Zorvalis-{product}": [service, setup], f"zorvalis-sdk-{library}": [sdk],
                          f"zorvalis-acceptance-{product}": [acceptance], f"zorvalis-debug-{product}": [debug]}.items():
        make_zip(made / f"{name}.zip", *folders)
        shipped[f"{name}.zip"] = folders
    run("cpack", "--config", linux / "CPackConfig.cmake", "-B", work / "cpack")
    for path in (work / "cpack").glob("zorvalis*.*"):
        path.rename(made / path.name)
        shipped[path.name] = [next((work / "cpack").glob("_CPack_Packages/*/TGZ/*/"))]  # the other holds the same
    (made / f"zorvalis-{product}.cdx.json").write_text(bill.text(product, library, made, shipped), encoding="utf-8")
    (made / "SHA256SUMS").write_text("".join(f"{sha256(path)}  {path.name}\n" for path in contents(made)))
    made.rename(out)
    shutil.rmtree(work)


if __name__ == "__main__":
    main(*(pathlib.Path(each).resolve() for each in sys.argv[1:]))
