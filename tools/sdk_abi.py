#!/usr/bin/env python3
"""Compares the C interface with the kept list of what applications were built against, and fails in words where they
differ. The build runs it whenever the shared library is linked.

    tools/sdk_abi.py LIST HEADER LIBRARY TOOL     TOOL: objdump for a .dll, else nm
"""
import pathlib
import re
import subprocess
import sys


def declared(text):
    """The functions' declarations, each on one line, by name."""
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    found = re.findall(r"^((?:const )?\w+[ *]+(Zorvalis\w+)\([^;{]*\);)", text, re.M)
    return {name: " ".join(declaration.split()) for declaration, name in found}


def exported(library, tool):
    if library.suffix == ".dll":
        text = subprocess.run([tool, "-p", library], capture_output=True, text=True, check=True).stdout
        return set(re.findall(r"^\s*\[ *\d+\](?: \+base\[ *\d+\] +[0-9a-f]+)? ([A-Za-z_]\S*)$", text, re.M))
    text = subprocess.run([tool, "-D", "--defined-only", library], capture_output=True, text=True, check=True).stdout
    return {line.split()[-1] for line in text.splitlines()}


def main():
    kept, header, library = map(pathlib.Path, sys.argv[1:4])
    old, new, names = declared(kept.read_text()), declared(header.read_text()), exported(library, sys.argv[4])
    wrong = [f"{name} is gone, or is declared in another way, and applications call it as\n        {old[name]}"
             for name in old if new.get(name) != old[name]]
    wrong += [f"{name} is new: if it is meant for applications, keep it in {kept.name} as\n        {new[name]}"
              for name in new.keys() - old.keys()]
    wrong += [f"{library.name} does not export {name}" for name in old.keys() - names]
    wrong += [f"{library.name} exports {name}, which {kept.name} does not have" for name in names - old.keys()]
    if wrong or not old:
        sys.exit(f"{kept}: the interface differs\n" + "\n".join(f"    {each}" for each in sorted(wrong)))


if __name__ == "__main__":
    main()
