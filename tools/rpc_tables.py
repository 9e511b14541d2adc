#!/usr/bin/env python3
"""Reads the local endpoint's interface description, the one place that says which procedures and callbacks there are,
and writes FOLDER/zorvalis_procedures.h, which lists them for the macros of both ends' C++.

    tools/rpc_tables.py IDL FOLDER

tools/sdk_headers.py makes of the same description what applications get.
"""
import pathlib
import re
import sys
import textwrap
import typing

# A type of the description: that of the service, and those of the application in C++ and C, which gets text in UTF-8.
TYPES = {
    "hyper": ("std::int64_t", "std::int64_t", "int64_t"),
    "long": ("std::int32_t", "std::int32_t", "int32_t"),
    "unsigned char": ("std::uint8_t", "bool", "int32_t"),
    "const char*": ("const char*", None, None),
    "const wchar_t*": ("const wchar_t*", "const std::string&", "const char*"),
    "wchar_t*": ("wchar_t*", None, "char**"),  # the answer, with its size behind it
    "long*": ("std::int32_t*", None, "int32_t*"),  # the answer
}


class Parameter(typing.NamedTuple):
    attributes: list  # "size_is(room)" with its argument
    const: bool
    type: str
    pointer: bool
    name: str
    offset: int  # on the stack, 8 bytes each

    def has(self, attribute):
        return attribute in self.attributes


class Procedure:
    """`parameters` are pairs of type and name, without the context."""

    def __init__(self, comment, callback, name, parameters):
        self.comment, self.callback, self.name = comment, callback, name
        found = [("const " * each.const + each.type + "*" * each.pointer, each.name) for each in parameters]
        self.on_context = found[0] == ("ClientContext", "context")
        self.parameters = found[1:] if self.on_context else found
        if self.on_context or callback:
            self.check()

    def check(self):
        types = [kind for kind, _ in self.parameters]
        known = (all(kind in TYPES for kind in types) and self.parameters[-1] == ("hyper", "cookie") and
                 len(self.messages()) == len(set(self.messages())))
        # The answer is one text with room behind it, or one number; the only 32-bit input is that room.
        room = [i for i, kind in enumerate(types) if kind == "wchar_t*"]
        known = known and (self.callback or len(room) + types.count("long*") <= 1 and "const char*" not in types and
                           [i + 1 for i in room] == [i for i, kind in enumerate(types) if kind == "long"])
        if not known:
            sys.exit(f"{self.name}: its shape is not one that both ends know; see tools/rpc_tables.py")

    def messages(self):
        """The names in a message, where every flag has one name."""
        return ["flag" if kind == "unsigned char" else name for kind, name in self.parameters]

    def service_parameters(self):
        return [f"{TYPES[kind][0]} {name}" for kind, name in self.parameters]

    def answers(self):
        """What the application's function returns; without that its value comes by callback, for which is the cookie."""
        types = [kind for kind, _ in self.parameters]
        return "std::string" if "wchar_t*" in types else "bool" if "long*" in types else "void"

    def inputs(self):
        """What the application gives: pairs of type and name."""
        return [p for p in self.parameters if TYPES[p[0]][1] and not (p[1] == "cookie" and self.answers() != "void")]

    def output(self):
        """The type and name of the answer, or None."""
        return next((p for p in self.parameters if p[0] in ("wchar_t*", "long*")), None)

    def client_parameters(self):
        return [f"{TYPES[kind][1]} {name}" for kind, name in self.inputs()]

    def c_parameters(self):
        """In C the answer comes out through the last one."""
        answer = [self.output()] if self.output() else []
        return ["ZorvalisClient* client"] + [f"{TYPES[kind][2]} {name}" for kind, name in self.inputs() + answer]

    def client_arguments(self):
        arguments = []
        for (kind, name), message in zip(self.parameters[:-1], self.messages()):
            if kind == "wchar_t*":
                arguments.append(f'Output{{"{name}"')
            elif kind == "long":
                arguments[-1] += f', "{message}", {name}}}'
            else:
                arguments.append(f'Result{{"{name}"}}' if kind == "long*" else f'Input{{"{message}", {name}}}')
        return arguments


def declarations(idl):
    """Each procedure and callback: the words above it, whether it is a callback, its name, and its parameters."""
    for comment, callback, name, text in re.findall(
            r"((?:^ *//.*\n)*)^ *(\[callback\]\s*)?void\s+(\w+)\s*\(([^;]*)\)\s*;", idl, re.M):
        found = re.findall(r"\[([^\]]*)\]\s*(const\s+)?(\w[\w ]*?)\s*(\*?)\s*(\w+)\s*(?:,|$)", text)
        if len(found) != text.count("["):
            sys.exit(f"{name}: its parameters are written in a way that tools/rpc_tables.py does not read")
        yield re.sub(r"^ *// ?", "", comment, flags=re.M).split(), bool(callback), name, [
            Parameter(re.findall(r"\w+(?:\(\w+\))?", attributes), bool(const), kind, bool(star), own, 8 * i)
            for i, (attributes, const, kind, star, own) in enumerate(found)]


def read(idl):
    """The procedures, in the order of their numbers, and the callbacks."""
    rows = [Procedure(*declaration) for declaration in declarations(idl)]
    return [row for row in rows if not row.callback], [row for row in rows if row.callback]


def contexts(idl, acf):
    """The types of contexts, and whether several calls on one may run at once: all that the attribute file may say."""
    whole = re.fullmatch(r"\s*interface (\w+)\s*\{((?:\s*typedef \[context_handle_noserialize\] \w+;)*)\s*\}\s*",
                         re.sub(r"//.*", "", acf))
    at_once = re.findall(r"(\w+);", whole.group(2)) if whole else []
    types = re.findall(r"typedef \[context_handle\] void\* (\w+);", idl)
    if not whole or not re.search(rf"^interface {whole.group(1)}$", idl, re.M) or not set(at_once) <= set(types):
        sys.exit("the attribute file says what the interface description has not, or what tools/rpc_tables.py cannot read")
    return {name: name in at_once for name in types}


def wrap(text, width, indent, further):
    """Breaks behind commas only, and in no braces."""
    whole = re.sub(r"\{[^}]*\}|(?<!,) ", lambda match: match.group().replace(" ", "\1"), text)
    return textwrap.fill(whole, width, initial_indent=indent, subsequent_indent=further, break_long_words=False,
                         break_on_hyphens=False).replace("\1", " ")


def macro(about, name, rows):
    """A list of rows, each of which is a list of columns."""
    each = name[len("ZORVALIS_"):-1]
    lines = [wrap(f"{each}({', '.join(row)})", 116, "    ", "        ") for row in rows]
    text = "\n".join([f"#define {name}({each})"] + lines)
    return textwrap.fill(about, 117, initial_indent="// ", subsequent_indent="// ") + "\n" + text.replace("\n", " \\\n")


def group(parts):
    return "(" + ", ".join(parts) + ")"


def tables(procedures, callbacks):
    calls = [p for p in procedures if p.on_context]
    names = lambda p: [name for _, name in p.parameters]
    words = lambda p: re.sub(r"(?<=[a-z])(?=[A-Z])", "_", p.name).lower()
    member = lambda p: p.name[len("Callback"):][0].lower() + p.name[len("Callback") + 1:]
    return "\n\n".join([
        "// Made of sdk/zorvalis.idl by tools/rpc_tables.py: who changes this file loses the change.\n#pragma once",
        macro("The procedures that are called on a context, in the order of their numbers, as the service has them: name, "
              "parameters, arguments, and the arguments' names in messages.", "ZORVALIS_PROCEDURES",
              [[p.name, group(["void* context"] + p.service_parameters()), group(["context"] + names(p))] +
               [f'"{message}"' for message in p.messages()] for p in calls]),
        macro("The same as an application has them: what is returned, name, parameters, cookie, and the other arguments.",
              "ZORVALIS_CALLS",
              [[p.answers(), p.name, group(p.client_parameters()), "cookie" if p.answers() == "void" else "0"] +
               p.client_arguments() for p in calls]),
        macro("The same as the C interface has them: name, parameters, where the answer goes, and the arguments.",
              "ZORVALIS_FUNCTIONS",
              [[p.name, group(p.c_parameters()), p.output()[1] if p.output() else "nullptr"] +
               [name for _, name in p.inputs()] for p in calls]),
        macro("The callbacks: name, the floor's function, the application's member, parameters, and arguments.",
              "ZORVALIS_CALLBACKS",
              [[p.name, words(p), member(p), group(p.service_parameters())] + names(p) for p in callbacks]),
    ]) + "\n"


def main():
    idl, folder = map(pathlib.Path, sys.argv[1:])
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "zorvalis_procedures.h").write_text(tables(*read(idl.read_text())))


if __name__ == "__main__":
    main()
