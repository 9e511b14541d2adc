#!/usr/bin/env python3
"""Makes what applications get of the local endpoint's interface description: each TEMPLATE, a file NAME.in, becomes
FOLDER/NAME, with a piece for each procedure in the place of its line @PROCEDURES@. A line @STATUSES@ becomes the
numbers of zorvalis.h.in, beside the template.

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


def python_method(procedure, width):
    values = {"hyper": "_integer(ctypes.c_int64, {})", "long": "_integer(ctypes.c_int32, {})",
              "unsigned char": "ctypes.c_int32(bool({}))", "const wchar_t*": "_text({})"}
    names = [name + ("=4096" if kind == "long" else "") for kind, name in procedure.inputs()]
    ask = {"void": "self._call", "bool": "return self._ask_flag", "std::string": "return self._ask_text"}
    start = f"    {ask[procedure.answers()]}("
    given = [f'"Zorvalis{procedure.name}"'] + [values[kind].format(name) for kind, name in procedure.inputs()]
    return (comment(procedure, "# ", "# ", "", width) + f"def {procedure.name}({', '.join(['self'] + names)}):\n" +
            rpc_tables.wrap(", ".join(given) + ")", width, start, " " * len(start)) + "\n")


def csharp_method(procedure, width):
    types = {"hyper": "long", "long": "int", "unsigned char": "bool", "const wchar_t*": "string"}
    values = {"unsigned char": "{} ? 1 : 0", "const wchar_t*": "Utf8({})"}
    native = types | {"unsigned char": "int", "const wchar_t*": "byte[]", "long*": "out int", "wchar_t*": "out IntPtr"}
    inputs, outputs = procedure.inputs(), [procedure.output()] if procedure.output() else []
    given = ["handle"] + [values.get(kind, "{}").format(name) for kind, name in inputs]
    answers, ending = {"void": ("void", ""), "bool": ("bool", " return {} != 0;"),
                       "std::string": ("string", " return Taken({});")}[procedure.answers()]
    start = f"public {answers} {procedure.name}("
    parameters = [f"{types[kind]} {name}" + (" = 4096" if kind == "long" else "") for kind, name in inputs]
    body = "".join(f"{native[kind][4:]} {name}; " for kind, name in outputs)
    call = ", ".join(given + [f"out {name}" for _, name in outputs])
    begin = f"    {body}Check(Zorvalis{procedure.name}("
    name = outputs[0][1] if outputs else ""
    extern = f"private static extern int Zorvalis{procedure.name}("
    taken = ", ".join(["ClientHandle client"] + [f"{native[kind]} {name}" for kind, name in inputs + outputs])
    return comment(procedure, "// ", "// ", "", width) + "\n".join([
        rpc_tables.wrap(", ".join(parameters) + ")", width, start, " " * len(start)), "{",
        rpc_tables.wrap(f"{call}));{ending.format(name)}", width, begin, " " * len(begin)), "}",
        "[DllImport(Library, CallingConvention = CallingConvention.Cdecl)]",
        rpc_tables.wrap(taken + ");", width, extern, " " * len(extern)), ""])


PIECES = {  # by the template's name
    "zorvalis.h.in": c_declaration,
    "zorvalis_client.h.in": cpp_member,
    "zorvalis_client.def.in": export,
    "zorvalis.py.in": python_method,
    "Zorvalis.cs.in": csharp_method,
}


def statuses(template, header):
    """Zorvalis.cs takes them in C#'s spelling, zorvalis.py in its own."""
    rows = re.findall(r"ZORVALIS_(\w+) = (\d+),?(?: */\* (.*) \*/)?\n", header)
    rows = [(name, value, text.replace("ZORVALIS_", "").replace("Zorvalis", "")) for name, value, text in rows]

    def lines(match):
        if template.startswith("//"):
            made = [(f"{name.title().replace('_', '')} = {value},", text and f"  // {text}")
                    for name, value, text in rows]
        else:
            made = [(f"{name} = {value}", text and f"  # {text}") for name, value, text in rows]
        return "".join(match.group(1) + row + text + "\n" for row, text in made)

    return re.sub(r"^( *)@STATUSES@\n", lines, template, flags=re.M)


def filled(template, piece, procedures):
    """A piece with a comment has a blank line above it."""
    def pieces(match):
        indent = match.group(1)
        text = "\n".join(("\n" if each.comment and piece is not export else "") + piece(each, WIDTH - len(indent))
                         for each in procedures)
        return textwrap.indent(re.sub("\n{3,}", "\n\n", text.strip("\n")), indent) + "\n"

    made, count = re.subn(r"^( *)@PROCEDURES@\n", pieces, template, flags=re.M)
    if count != 1:
        sys.exit(f"@PROCEDURES@ is there {count} times, not once")
    return made


def main():
    idl, folder, *templates = map(pathlib.Path, sys.argv[1:])
    procedures = [each for each in rpc_tables.read(idl.read_text())[0] if each.on_context]
    folder.mkdir(parents=True, exist_ok=True)
    for path in templates:
        template = statuses(path.read_text(), (path.parent / "zorvalis.h.in").read_text())
        (folder / path.stem).write_text(filled(template, PIECES[path.name], procedures))


if __name__ == "__main__":
    main()
