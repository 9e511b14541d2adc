#!/usr/bin/env python3
"""Makes what applications get of the local endpoint's interface description: each TEMPLATE, a file NAME.in, becomes
FOLDER/NAME, with a piece for each procedure in the place of its line @PROCEDURES@.

    tools/sdk_headers.py IDL FOLDER TEMPLATE...

A new language is a function that makes such a piece, a row of PIECES and a template (rpc/CMakeLists.txt lists them).
"""
import pathlib
import re
import sys
import textwrap

import rpc_tables

WIDTH = 120


def comment(procedure, begin, further, end, width):
    """What stands above the procedure in the description, or nothing."""
    text = " ".join(procedure.comment)
    return textwrap.fill(text + end, width, initial_indent=begin, subsequent_indent=further) + "\n" if text else ""


def c_declaration(procedure, width):
    parameters = ", ".join(procedure.c_parameters())
    start = f"int32_t Zorvalis{procedure.name}("
    return (comment(procedure, "/* ", " * ", " */", width) +
            rpc_tables.wrap(f"{parameters});", width, start, " " * len(start)))


def cpp_member(procedure, width):
    answer, output = procedure.answers(), procedure.output()
    parameters = [each + (" = 4096" if each.endswith(" outputSize") else "") for each in procedure.client_parameters()]
    given = [name + ".c_str()" if kind == "const wchar_t*" else f"{name} ? 1 : 0" if kind == "unsigned char" else name
             for kind, name in procedure.inputs()]
    start = f"{answer} {procedure.name}("
    head = rpc_tables.wrap(f"{', '.join(parameters)}) {{", width, start, " " * len(start))
    start = f"    Check(Zorvalis{procedure.name}("
    call = ", ".join(["client_"] + given + ([f"&{output[1]}.text" if output[0] == "wchar_t*" else f"&{output[1]}"]
                                            if output else []))
    if not output and len(f"{head} {call}") + len(start) - 1 <= width and "\n" not in head:
        return comment(procedure, "// ", "// ", "", width) + f"{head} {start.strip()}{call})); }}"
    lines = [head, rpc_tables.wrap(call + "));", width, start, " " * len(start)), "}"]
    if output:
        text = output[0] == "wchar_t*"
        lines.insert(1, f"    Text {output[1]};" if text else f"    std::int32_t {output[1]} = 0;")
        lines.insert(3, f"    return {output[1]}.text;" if text else f"    return {output[1]} != 0;")
    return comment(procedure, "// ", "// ", "", width) + "\n".join(lines)


def export(procedure, width):
    return f"Zorvalis{procedure.name}"


PIECES = {  # by the template's name
    "zorvalis.h.in": c_declaration,
    "zorvalis_client.h.in": cpp_member,
    "zorvalis_client.def.in": export,
}


def filled(template, piece, procedures):
    """A piece with a comment has a blank line above it."""
    def pieces(match):
        indent = match.group(1)
        text = "\n".join(("\n" if each.comment and piece is not export else "") + piece(each, WIDTH - len(indent))
                         for each in procedures)
        return textwrap.indent(text.lstrip("\n"), indent) + "\n"

    made, count = re.subn(r"^( *)@PROCEDURES@\n", pieces, template, flags=re.M)
    if count != 1:
        sys.exit(f"@PROCEDURES@ is there {count} times, not once")
    return made


def main():
    idl, folder, *templates = map(pathlib.Path, sys.argv[1:])
    procedures = [each for each in rpc_tables.read(idl.read_text())[0] if each.on_context]
    folder.mkdir(parents=True, exist_ok=True)
    for path in templates:
        (folder / path.stem).write_text(filled(path.read_text(), PIECES[path.name], procedures))


if __name__ == "__main__":
    main()
