#!/usr/bin/env python3
"""Puts the page of `zorvctl report` together and writes it as a C++ source. Run by the build.

    embed.py OUT LIBRARY    LIBRARY: the folder with the charts' library

The page allows its own style and script by their hashes and nothing else, so that no text of the records can run.
"""
import base64
import hashlib
import pathlib
import sys


def source_hash(text):
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def literal(text):
    """A C++ string literal, in pieces that every compiler takes."""
    return "\n".join(f'    R"ZORV({text[start:start + 8000]})ZORV"' for start in range(0, len(text), 8000))


def main():
    out, library = map(pathlib.Path, sys.argv[1:])
    here = pathlib.Path(__file__).parent

    def both(*paths):
        return "\n".join(path.read_text(encoding="utf-8") for path in paths)

    style = both(library / "dist/uPlot.min.css", here / "report.css")
    licence = "/*\n" + (library / "LICENSE").read_text(encoding="utf-8") + "\n*/\n"
    script = licence + both(library / "dist/uPlot.iife.min.js", here / "report.js")
    page = (here / "page.html").read_text(encoding="utf-8")
    for name, text in (("STYLE_HASH", source_hash(style)), ("SCRIPT_HASH", source_hash(script)), ("STYLE", style),
                       ("SCRIPT", script)):
        before, after = page.split(f"@{name}@")
        page = before + text + after
    before, after = page.split("@RECORDS@")
    out.write_text("// Made by embed.py.\n#include \"report/page.h\"\n\nnamespace zorvalis {\n\n"
                   f"const char kPageBeforeRecords[] =\n{literal(before)};\n\n"
                   f"const char kPageAfterRecords[] =\n{literal(after)};\n\n}}  // namespace zorvalis\n",
                   encoding="utf-8")


main()
